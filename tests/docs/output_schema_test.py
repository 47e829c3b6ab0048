#!/usr/bin/env python3
"""Validates the JSON documents the tests expect against docs/output.schema.json.

Every end-to-end case's output section that is a JSON document, and the
renderer's JSON golden files, must validate. The golden tests check that the
program writes exactly these documents, so together they check its output.

usage: output_schema_test.py SOURCE_DIR
"""
import json
import pathlib
import re
import sys

import jsonschema

# The driver writes a module assertion's source line as "#".
MASKED_LINE = re.compile(r'("line":\s*)"#"')


def case_outputs(path):
    """(where, text) of each output section of a case file."""
    section, start, lines = None, 0, []
    for number, line in enumerate(path.read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        if line.startswith("==== "):
            if section == "output":
                yield f"{path.name}:{start}", "\n".join(lines)
            section, start, lines = line[5:].split(" ", 1)[0], number, []
        else:
            lines.append(line)
    if section == "output":
        yield f"{path.name}:{start}", "\n".join(lines)


def documents(source):
    for path in sorted((source / "tests/programs/mrset/cases").glob("*.test")):
        for where, text in case_outputs(path):
            if text.lstrip().startswith("{"):
                yield where, json.loads(MASKED_LINE.sub(r"\g<1>0", text))
    for path in sorted((source / "tests/hostlib/output/golden").glob("*.json")):
        yield path.name, json.loads(path.read_text(encoding="utf-8"))


def main():
    source = pathlib.Path(sys.argv[1])
    schema = json.loads((source / "docs/output.schema.json").read_text(encoding="utf-8"))
    validator_class = jsonschema.validators.validator_for(schema)
    validator_class.check_schema(schema)
    validator = validator_class(schema)
    checked, failures = 0, 0
    for where, document in documents(source):
        checked += 1
        for error in validator.iter_errors(document):
            failures += 1
            pointer = "/" + "/".join(str(part) for part in error.absolute_path)
            print(f"{where}: {pointer}: {error.message}", file=sys.stderr)
    print(f"{checked} documents checked, {failures} faults")
    # A case folder that yields nothing means the test itself went wrong.
    return 1 if failures or checked < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
