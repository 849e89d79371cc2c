#!/usr/bin/env python3
"""Runs the examples of the manual pages, and the commands of docs/operating.md, on the files of a real run: the
sample server, which works on meanwhile. Each has to end as it should, and to say or write something.

usage: run_examples.py ROOT BIN_DIR
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(sys.argv[1]) / "docs/man"))
import markdown  # noqa: E402

root, bin_dir = (pathlib.Path(word).resolve() for word in sys.argv[1:3])

STATUSES = {"doctor": (0, 4), "diff": (0, 4)}  # what they find is for them to say
# What stands in the documents, and what makes it a matter of a second on any machine.
ADAPTED = [
    (r"^(ostrum serve)(?!.*--listen)", r"\1 --listen 127.0.0.1:0"),
    (r"--listen \S+", "--listen 127.0.0.1:0"),
    (r"^(ostrum serve.*)", r"rm -f said; \1 2>said & "
                           r"until grep -q ^serving said || ! kill -0 $!; do sleep 0.05; done; "
                           r"kill $!; wait $!; status=$?; cat said; exit $status"),
    (r"^(ostrum top -b.*) -n \d+ -d \S+", r"\1 -n 2 -d 200ms"),
    (r"^(ostrum top (?!-b).*)", r"(sleep 1; echo q) | script -qec '\1' -"),
    (r"^(ostrum report.* --follow)", r"\1 --count 1"),
    (r"^(ostrum (vars set|counters reset|errors reset)(?!.*--dry-run))", r"\1 --yes"),
    (r"/var/lib/node_exporter/", "node_exporter/"),
    (r"/tmp/first-look", "first-look"),
]


def commands():
    """[(where it stands, command)] without comments."""
    listed = subprocess.run([sys.executable, "-B", root / "docs/man/make_pages.py", root, "--examples"],
                            check=True, capture_output=True, text=True).stdout.splitlines()
    found = [tuple(line.split("\t", 1)) for line in listed]
    for section in markdown.sections(root / "docs/operating.md"):
        found += [(f"operating.md, {section.title}", line) for line in markdown.code_lines(section)]
    shortened = [(where, re.sub(r"\s+#\s.*", "", line)) for where, line in found]
    once = {line: (where, line) for where, line in reversed(shortened) if re.match(r"(ostrum|sqlite3) ", line)}
    return list(reversed(once.values()))


def start_server(folder):
    settings = {"OSTRUM_VAR_TIME": "3", "OSTRUM_VAR_FLIST": "3", "OSTRUM_LOGDIR": "trace", "OSTRUM_FLUSH_FREQUENCY": "1",
                "OSTRUM_AUTO_FLUSH": "1", "OSTRUM_GET_PROCESS_DATA": "3", "OSTRUM_ERROR_COUNTER_LEVEL": "63"}
    (folder / "trace").mkdir()
    shutil.copy(root / "examples/catalog_server/data/qel.conf", folder)
    with open(folder / "server.log", "wb") as log:
        return subprocess.Popen([bin_dir / "catalog_server"], cwd=folder, env=os.environ | settings,
                                stdout=log, stderr=log)


def wait_for(what, condition):
    for _ in range(600):
        if condition():
            return
        time.sleep(0.05)
    sys.exit(f"in 30 s: no {what}")


def prepare(folder):
    """What the examples name: traces and data files, all of the same run."""
    client = [bin_dir / "catalog_client", "catalog.port"]
    wait_for("server", (folder / "catalog.port").exists)
    subprocess.run([*client, "load", root / "examples/catalog_server/data/packages.status"], cwd=folder, check=True,
                   capture_output=True)
    subprocess.run([*client, "query", "2", "20"], cwd=folder, check=True, capture_output=True)
    wait_for("trace file", lambda: any(file.stat().st_size for file in folder.glob("trace/*.plog.txt")))
    for other in ("before", "after", "baseline", "build/trace"):
        shutil.copytree(folder / "trace", folder / other)
    for other in ("run", "cm", "dm"):
        (folder / other).mkdir()
        (folder / other / "ostrum_data.dat").hardlink_to(folder / "ostrum_data.dat")
    (folder / "run/trace").symlink_to("../trace")
    (folder / "node_exporter").mkdir()


def written_by(command, folder):
    names = re.findall(r"(?:>|-o|--prometheus|--sqlite) (\S+)", re.sub(r'"[^"]*"', "", command))
    return [folder / name for name in names if name != "-"]


def run(where, line, folder):
    """What is wrong with it, or nothing."""
    command = line
    for pattern, replacement in ADAPTED:
        command = re.sub(pattern, replacement, command)
    done = subprocess.run(["bash", "-c", command], cwd=folder, capture_output=True, timeout=120,
                          stdin=subprocess.DEVNULL, env=os.environ | {"PATH": f"{bin_dir}:{os.environ['PATH']}", "TMPDIR": str(folder)})
    expected = STATUSES.get(shlex.split(line)[1], (0,))
    files = written_by(command, folder)
    said = any(file.stat().st_size for file in files if file.exists()) if files else done.stdout or done.stderr
    if done.returncode not in expected or not said:
        return f"{where}: {command}\n  status {done.returncode}, {(done.stderr or done.stdout)[-400:].decode(errors='replace')}"
    return None


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        server = start_server(folder)
        try:
            prepare(folder)
            examples = commands()
            if not shutil.which("sqlite3"):
                print("left out: sqlite3 is not installed")
                examples = [(where, line) for where, line in examples if not line.startswith("sqlite3")]
            wrong = [problem for where, line in examples if (problem := run(where, line, folder))]
        finally:
            server.terminate()
            server.wait(30)
    print("\n".join([*wrong, f"{len(examples)} examples, {len(wrong)} wrong"]))
    sys.exit(1 if wrong or len(examples) < 20 else 0)


main()
