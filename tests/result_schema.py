"""Results of bds-sim boot --json, held against docs/result.schema.json by every test that reads one."""
import functools
import json
from pathlib import Path

import jsonschema


@functools.cache
def validator():
    schema = json.loads((Path(__file__).resolve().parents[1] / "docs" / "result.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def read(text):
    """The result in the text; jsonschema.ValidationError when it is not what the schema says."""
    result = json.loads(text)
    validator().validate(result)
    return result
