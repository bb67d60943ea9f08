#!/usr/bin/env python3
"""validate.py SCHEMA < DOCUMENTS: checks krt_cli --json documents, one a line.

For each line that is not a valid document it prints {"line": N, "errors": [...]}
(N from 1). Exit status 0: all valid; 1: one is not; 2: the schema is unusable.
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    sys.stderr.write("validate.py: the Python module jsonschema is missing (scripts/install-deps.sh installs it)\n")
    sys.exit(2)


def explained(error):
    """For a record that matches no kind, the errors of the kind its "record"
    names (the closest shape of a kind of several), not every kind's."""
    where = "/" + "/".join(str(part) for part in error.absolute_path)
    named = {}
    for e in error.context or []:
        named.setdefault(e.relative_schema_path[0], []).append(e)
    named = [es for es in named.values() if not any(e.validator == "const" and list(e.relative_path) == ["record"] for e in es)]
    if error.validator != "oneOf" or not error.context:
        return ["%s: %s" % (where, error.message)]
    if not named:
        return ["%s: %s" % (where, "unknown record kind" if "record" in error.instance else error.message)]
    return [line for e in min(named, key=len) for line in explained(e)]


def main():
    try:
        with open(sys.argv[1], encoding="utf-8") as f:
            schema = json.load(f)
        jsonschema.Draft202012Validator.check_schema(schema)
    except (IndexError, OSError, ValueError, jsonschema.SchemaError) as e:
        sys.stderr.write("validate.py: %s\n%s" % (e, __doc__))
        return 2
    validator, failed = jsonschema.Draft202012Validator(schema), False
    for number, line in enumerate(sys.stdin.buffer, start=1):
        try:
            document = json.loads(line.decode("utf-8"))
            errors = [text for e in sorted(validator.iter_errors(document), key=lambda e: [str(p) for p in e.absolute_path])
                      for text in explained(e)]
        except ValueError as e:
            errors = ["not one JSON document: %s" % e]
        if errors:
            failed = True
            print(json.dumps({"line": number, "errors": errors}))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
