#!/usr/bin/env python3
"""Holds what `ostrum export --speedscope` writes against the format's published schema, and against what the
schema does not say: samples name existing frames, and the weights add up to the profile's end.

usage: check_speedscope.py OSTRUM SCHEMA; status 77: left out, jsonschema is missing
"""
import json
import pathlib
import subprocess
import sys
import tempfile

import trace_texts as texts

try:
    import jsonschema
except ImportError:
    print("left out: python3-jsonschema is not installed")
    sys.exit(77)


def export(tool, files, *options):
    run = subprocess.run([tool, "export", "--speedscope", *options, *files], capture_output=True, check=True)
    return json.loads(run.stdout)


def check_sums(exported):
    frames = len(exported["shared"]["frames"])
    for profile in exported["profiles"]:
        assert len(profile["samples"]) == len(profile["weights"]) > 0, profile["name"]
        assert profile["startValue"] + sum(profile["weights"]) == profile["endValue"], profile["name"]
        assert all(0 <= frame < frames for stack in profile["samples"] for frame in stack), profile["name"]


def main(tool, schema_file):
    schema = json.loads(pathlib.Path(schema_file).read_text())
    validator = jsonschema.Draft7Validator(schema)
    nested = texts.start(1, 1, "a;b") + texts.start(2, 0, "s\x1bq\udcff") + texts.end(3 * 10**8) + texts.end(10**9)
    with tempfile.TemporaryDirectory() as folder:
        files = []
        for tid in (77, 78):
            file = pathlib.Path(folder) / f"10_{tid}.0.1.plog.txt"
            file.write_text(texts.block(nested + texts.start(1, 9, "") + texts.end(5), tid), errors="surrogateescape")
            files.append(str(file))
        for options, profiles in (((), 1), (("--by=thread",), 2), (("--weight=calls",), 1), (("--brief",), 1)):
            exported = export(tool, files, *options)
            validator.validate(exported)
            check_sums(exported)
            assert len(exported["profiles"]) == profiles, options
        exported["profiles"][0]["unit"] = "fortnights"
        assert not validator.is_valid(exported), "the schema refuses nothing"


main(*sys.argv[1:])
