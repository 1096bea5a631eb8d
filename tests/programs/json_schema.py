# SPDX-License-Identifier: MIT
"""The JSON schemas of the documents, against which the tools' output is checked."""

import json

import jsonschema

from program_case import SAMPLES

SCHEMAS = SAMPLES.parent / "docs" / "schemas"


def closed(schema):
    """The schema without room for members that it doesn't describe, which may come with later versions."""
    if isinstance(schema, list):
        return [closed(item) for item in schema]
    if not isinstance(schema, dict):
        return schema
    return {key: closed(value) for key, value in schema.items()} | (
        {"additionalProperties": False} if schema.get("type") == "object" and "properties" in schema else {})


def validated(name, value):
    """The value, if it agrees with the schema of this name and has no other members."""
    schema = json.loads((SCHEMAS / f"{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    jsonschema.validate(value, closed(schema), jsonschema.Draft202012Validator)
    return value
