#!/usr/bin/python3
"""The JSON report keeps to its schema, and the schema notices when it does not.

    report-schema.py PROGRAM SCHEMA
"""
import copy
import json
import subprocess
import sys

try:
    from jsonschema import Draft202012Validator
except ImportError:
    print("python3-jsonschema is missing")
    sys.exit(77)

program, schema_path = sys.argv[1:]
with open(schema_path, encoding="utf-8") as file:
    schema = json.load(file)
Draft202012Validator.check_schema(schema)
validator = Draft202012Validator(schema)

run = subprocess.run([program, "report", "--json"], capture_output=True, check=False)
report = json.loads(run.stdout)
failures = [f"{list(error.path)}: {error.message}" for error in validator.iter_errors(report)]


def objects(value, path=()):
    """All objects in a value, with the way to them."""
    if isinstance(value, dict):
        yield path
    for key, part in (
        value.items() if isinstance(value, dict)
        else enumerate(value) if isinstance(value, list)
        else ()
    ):
        yield from objects(part, path + (key,))


def changed(path, change):
    copied = copy.deepcopy(report)
    part = copied
    for key in path:
        part = part[key]
    change(part)
    return copied


# A partition, which no disk that may not be read shows.
with_partition = {
    "device": "/dev/sda",
    "bytes": 1 << 40,
    "partitions": [{
        "device": "/dev/sda1", "start_sector": 2048, "sectors": 1 << 62,
        "file_system": "Unknown", "mount_point": "/",
    }],
}
report["disks"].append(with_partition)
failures += [error.message for error in validator.iter_errors(report)]

for path in objects(report):
    if validator.is_valid(changed(path, lambda part: part.update(surprise=1))):
        failures.append(f"a member more is not noticed in {path}")
    node = report
    for key in path:
        node = node[key]
    for name in node:
        if name in ("error", "note"):
            continue
        if validator.is_valid(changed(path, lambda part: part.pop(name))):
            failures.append(f"a missing {name} is not noticed in {path}")
        if validator.is_valid(changed(path, lambda part: part.update({name: {"no": 1}}))):
            failures.append(f"another kind of {name} is not noticed in {path}")

print("\n".join(failures))
sys.exit(bool(failures))
