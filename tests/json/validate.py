#!/usr/bin/env python3
"""Checks krt_cli --json documents against the published schema.

Usage: validate.py SCHEMA < DOCUMENTS

DOCUMENTS holds one JSON document per line, as krt_cli writes them. For every
line that is not a valid document, one line of JSON goes to standard output:
{"line": N, "errors": ["<where>: <what>", ...]} with N counted from 1. The
exit status is 0 when every document is valid, 1 when one is not, 2 when the
schema itself is not a valid draft 2020-12 schema or cannot be read.
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    sys.stderr.write("validate.py: the Python module jsonschema is missing "
                     "(Debian package python3-jsonschema; scripts/install-deps.sh installs it)\n")
    sys.exit(2)


def where(error):
    return "/" + "/".join(str(part) for part in error.absolute_path)


def explained(error):
    """The errors behind one. For a record that matches none of the kinds,
    those of the kind its "record" names (the closest shape when a kind has
    several), rather than every kind's."""
    if error.validator != "oneOf" or not error.context:
        return ["%s: %s" % (where(error), error.message)]
    branches = {}
    for e in error.context:
        branches.setdefault(e.relative_schema_path[0], []).append(e)
    named = [errors for errors in branches.values()
             if not any(e.validator == "const" and list(e.relative_path) == ["record"] for e in errors)]
    if not named:
        return ["%s: %s" % (where(error), "unknown record kind" if "record" in error.instance else error.message)]
    lines = []
    for e in min(named, key=len):
        lines.extend(explained(e))
    return lines


def main():
    if len(sys.argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    try:
        with open(sys.argv[1], encoding="utf-8") as f:
            schema = json.load(f)
        jsonschema.Draft202012Validator.check_schema(schema)
    except (OSError, ValueError, jsonschema.SchemaError) as e:
        sys.stderr.write("validate.py: %s: %s\n" % (sys.argv[1], e))
        return 2
    validator = jsonschema.Draft202012Validator(schema)
    failed = False
    for number, line in enumerate(sys.stdin.buffer, start=1):
        try:
            document = json.loads(line.decode("utf-8"))
        except ValueError as e:
            errors = ["not one JSON document: %s" % e]
        else:
            errors = []
            for e in sorted(validator.iter_errors(document), key=lambda e: [str(p) for p in e.absolute_path]):
                errors.extend(explained(e))
        if errors:
            failed = True
            print(json.dumps({"line": number, "errors": errors}))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
