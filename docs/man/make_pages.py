#!/usr/bin/env python3
"""Makes the manual pages from what they would otherwise repeat, with scdoc.

Section 1: options from the program itself, texts and examples from docs/tool.md.
Section 3: a page for each public header, and one that leads to it for each function.
Section 5: settings and file formats, from docs/settings.md and docs/formats.md.

usage: make_pages.py ROOT VERSION PROGRAM SCDOC OUT    pages below OUT/man1, OUT/man3, OUT/man5
       make_pages.py ROOT --examples                   the commands of section 1, one a line, behind "PAGE<tab>"
"""
import pathlib
import re
import subprocess
import sys

from headers import header_functions, header_text
from markdown import as_scdoc, code_lines, escaped, line_of, sections

FORMAT_PAGES = {  # page: document, headings, what it is
    "ostrum_data": ("formats.md", ["The data file"], "data file of the Ostrum tracing library"),
    "ostrum_trace": ("formats.md", ["Trace data files"], "trace data files, *.plog.txt"),
    "ostrum_flist_trace": ("formats.md", ["Field-list traces"], "field-list traces, *.flog.txt"),
    "ostrum_alarms": ("formats.md", ["Alarm files", "Alarm configuration file"], "alarm files and their configuration"),
    "ostrum_buckets": ("formats.md", ["Opcode bucket file"], "opcode bucket file"),
    "ostrum_settings": ("settings.md", None, "settings of the Ostrum tracing library"),
}
HEADERS = {
    "ostrum.h": "hooks and control of the Ostrum tracing library",
    "ostrum_data.h": "data file of the Ostrum tracing library, for monitoring programs",
    "ostrum_util.h": "times, texts and ordered trees of the Ostrum tracing library",
}


def tool_sections(root):
    """Pages of section 1 but ostrum(1), by the headings of docs/tool.md: {page: (commands, section)}."""
    pages = {}
    for section in sections(root / "docs/tool.md"):
        words = re.findall(r"[a-z]+", section.title)
        if section.title == section.title.lower() and words:
            pages[words[0]] = (words, section)
    for page, (words, _) in pages.items():  # the headings name other pages' commands too
        words[1:] = [word for word in words[1:] if word not in pages and word not in ("and", "prometheus")]
    return pages


def read_model(program):
    """{command: rows}, a row as `ostrum completion list` prints it."""
    listed = subprocess.run([program, "completion", "list"], check=True, capture_output=True, text=True).stdout
    model = {}
    for line in listed.splitlines():
        row = line.split("\t")
        model.setdefault(row[0], []).append(row[1:])
    return model


def synopsis(command, rows):
    operands = []
    for kind, name, value, _ in rows:
        if kind in ("operand", "required"):
            shown = value if "|" in value else name
            shown = f"_{escaped(shown)}_" + ("..." if value.endswith("...") else "")
            operands.append(shown if kind == "required" else f"[{shown}]")
    return " ".join([f"*{('ostrum ' + command).strip()}*", "[_option_...]", *operands]) + "\n"


def options(rows):
    text = ""
    for kind, names, value, help_text in rows:
        if kind == "command":
            continue
        shown = ", ".join(f"*{escaped(name)}*" for name in names.split(","))
        if value:
            shown += f" _{escaped(value.removesuffix('...'))}_"
        text += f"{shown}\n\t{line_of(help_text)}\n\n"
    return text


def command_page(page, commands, section, model):
    shown = [path for path in model if path.split(" ")[0] in commands]
    text = "# SYNOPSIS\n\n" + "++\n".join(synopsis(path, model[path]).rstrip("\n") for path in shown)
    text += "\n\n# DESCRIPTION\n\n" + as_scdoc(section.blocks, skip_code=True) + "\n# OPTIONS\n\n"
    for path in shown:
        text += (f"## ostrum {path}\n\n" if len(shown) > 1 else "") + options(model[path])
    return text + examples_text(section) + "# EXIT STATUS\n\nAs in *ostrum*(1).\n\n"


def examples_text(section):
    lines = code_lines(section)
    return "# EXAMPLES\n\n```\n" + "\n".join(lines) + "\n```\n\n" if lines else ""


def program_page(root, pages, model):
    introduction = sections(root / "docs/tool.md")[0]
    common = [each for each in sections(root / "docs/tool.md")[1:] if each.title != each.title.lower()]
    text = "# SYNOPSIS\n\n*ostrum* _command_ [_option_...] [_operand_...]\n\n# DESCRIPTION\n\n"
    text += as_scdoc(introduction.blocks, skip_code=True) + "\n# COMMANDS\n\n"
    for path in (path for path in model if path and " " not in path):
        page = next((name for name, (commands, _) in pages.items() if path in commands), path)
        text += f"*{path}*\n\t{line_of(model[path][0][3])}. See *ostrum-{page}*(1).\n\n"
    for section in common:
        text += f"# {section.title.upper()}\n\n" + as_scdoc(section.blocks) + "\n"
    return text + "# OPTIONS\n\n" + options(model[""]) + examples_text(introduction)


class Maker:
    def __init__(self, version, scdoc, out):
        self.version, self.scdoc, self.out = version, scdoc, out

    def page(self, number, name, summary, text, see_also):
        others = ", ".join(f"*{escaped(each)}*({section})" for each, section in see_also if each != name)
        source = (f"{name}({number}) \"Ostrum {self.version}\" \"Ostrum\"\n\n# NAME\n\n{name} - {escaped(summary[0].lower() + summary[1:])}\n\n"
                  f"{text}\n# SEE ALSO\n\n{others}\n")
        made = subprocess.run([self.scdoc], input=re.sub("\n{3,}", "\n\n", source), capture_output=True, text=True)
        if made.returncode != 0:
            sys.exit(f"{name}({number}): {made.stderr.strip()}")
        self.write(number, name, made.stdout)

    def link(self, number, name, target):
        self.write(number, name, f".so man{number}/{target}.{number}\n")

    def write(self, number, name, text):
        file = self.out / f"man{number}" / f"{name}.{number}"
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")


def make_section_1(maker, root, program):
    model = read_model(program)
    pages = {page: found for page, found in tool_sections(root).items() if page in model}
    see_also = [("ostrum", 1), *((f"ostrum-{page}", 1) for page in pages), ("ostrum_settings", 5), ("ostrum_data", 5)]
    maker.page(1, "ostrum", "reads the files of the Ostrum tracing library", program_page(root, pages, model), see_also)
    for page, (commands, section) in pages.items():
        maker.page(1, f"ostrum-{page}", model[page][0][3], command_page(page, commands, section, model), see_also)
        for command in commands[1:]:
            maker.link(1, f"ostrum-{command}", f"ostrum-{page}")


def make_section_3(maker, root):
    for header, summary in HEADERS.items():
        source = (root / "include" / header).read_text(encoding="utf-8")
        text = f"# SYNOPSIS\n\n```\n#include <{header}>\n```\n\nLink with *-lostrum*.\n\n" + header_text(source)
        maker.page(3, header, summary, text, [*((each, 3) for each in HEADERS), ("ostrum_settings", 5)])
        for function in header_functions(source):
            maker.link(3, function, header)


def make_section_5(maker, root):
    for page, (document, titles, summary) in FORMAT_PAGES.items():
        text = ""
        for section in sections(root / "docs" / document):
            if titles is None or section.title in titles:
                title = "DESCRIPTION" if text == "" else section.title.upper()
                text += f"# {title}\n\n{as_scdoc(section.blocks)}\n"
        maker.page(5, page, summary, text, [("ostrum", 1), *((each, 5) for each in FORMAT_PAGES)])


def main(words):
    root = pathlib.Path(words[0])
    if words[1] == "--examples":
        named = {"ostrum": sections(root / "docs/tool.md")[0]}
        named |= {f"ostrum-{page}": section for page, (_, section) in tool_sections(root).items()}
        for page, section in named.items():
            for line in code_lines(section):
                print(f"{page}\t{line}")
        return
    version, program, scdoc, out = words[1:]
    maker = Maker(version, scdoc, pathlib.Path(out))
    make_section_1(maker, root, program)
    make_section_3(maker, root)
    make_section_5(maker, root)


main(sys.argv[1:])
