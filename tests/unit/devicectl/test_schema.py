# SPDX-License-Identifier: Apache-2.0
"""What devicectl prints in JSON has the documented shape. usage: test_schema.py SAMPLES"""

from __future__ import annotations

import copy
import json
import subprocess
import sys
import unittest
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import jsonschema

ROOT = Path(__file__).resolve().parent.parent.parent.parent
SCHEMA = json.loads((ROOT / "docs/devicectl.schema.json").read_text(encoding="utf-8"))
SHARED = {"schemaVersion", "device", "volume", "usb_device"}
samples_program = ""


def objects_of(schema: Any) -> Iterator[dict[str, Any]]:
    """Every description of an object in a schema."""
    if isinstance(schema, dict):
        if "properties" in schema and schema.get("type") == "object":
            yield schema
        for part in schema.values():
            yield from objects_of(part)
    elif isinstance(schema, list):
        for part in schema:
            yield from objects_of(part)


def strict() -> dict[str, Any]:
    """The schema for this very version: a member that is not described is an error."""
    schema = copy.deepcopy(SCHEMA)
    for description in objects_of(schema):
        description["additionalProperties"] = False
    return schema


def validator(name: str, schema: dict[str, Any] | None = None) -> jsonschema.Draft202012Validator:
    whole = schema or strict()
    return jsonschema.Draft202012Validator({"$ref": f"#/$defs/{name}", "$defs": whole["$defs"]})


class Shape(unittest.TestCase):
    samples: list[tuple[str, dict[str, Any]]]

    @classmethod
    def setUpClass(cls) -> None:
        printed = subprocess.run([samples_program], check=True, stdout=subprocess.PIPE, timeout=60).stdout
        assert printed.isascii()
        lines = printed.decode().splitlines()
        cls.samples = [(name, json.loads(text)) for name, text in (line.split(" ", 1) for line in lines)]

    def test_the_schema_is_one(self) -> None:
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        for description in objects_of(SCHEMA):
            self.assertEqual(set(description["properties"]), set(description["required"]), description)

    def test_every_sample_has_its_shape(self) -> None:
        for name, value in self.samples:
            with self.subTest(name=name, value=value):
                validator(name).validate(value)
                jsonschema.Draft202012Validator(SCHEMA).validate(value)

    def test_every_description_has_a_sample(self) -> None:
        self.assertEqual(set(SCHEMA["$defs"]) - SHARED, {name for name, _ in self.samples})
        events = {kind for shape in SCHEMA["$defs"]["monitor"]["oneOf"]
                  for event in [shape["properties"]["event"]] for kind in event.get("enum", [event.get("const")])}
        self.assertEqual(events, {value["event"] for name, value in self.samples if name == "monitor"})

    def test_every_member_is_needed_and_none_other_is_there(self) -> None:
        for name, value in self.samples:
            check = validator(name)
            for member in value:
                less = {key: entry for key, entry in value.items() if key != member}
                self.assertFalse(check.is_valid(less), (name, member))
            self.assertFalse(check.is_valid({**value, "member_that_nobody_described": 1}), name)
            self.assertTrue(validator(name, SCHEMA).is_valid({**value, "member_of_later": 1}), name)
            self.assertFalse(check.is_valid({**value, "schemaVersion": 2}), name)


if __name__ == "__main__":
    samples_program = sys.argv.pop(1)
    unittest.main()
