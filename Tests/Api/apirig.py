"""For the tests of the control API's document: what docs/api.md says of each route, and the schemas it points to."""

import json
import os
import re
import sys

import jsonschema

sys.dont_write_bytecode = True
REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SCHEMAS = os.path.join(REPOSITORY, "Api", "schemas")
DOCUMENT = os.path.join(REPOSITORY, "docs", "api.md")


def closed(schema):
    """The schema for objects that have no key but those described. Published schemas leave objects open, since a later
    version of the agent may add keys."""
    if isinstance(schema, list):
        return [closed(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    result = {key: closed(value) for key, value in schema.items()}
    if "properties" in result and result.get("type") == "object":
        # What is described under a condition is described too.
        result.setdefault("unevaluatedProperties" if "allOf" in result else "additionalProperties", False)
    return result


def load(name):
    with open(os.path.join(SCHEMAS, name), encoding="utf-8") as file:
        return json.load(file)


NAMES = sorted(name for name in os.listdir(SCHEMAS) if name.endswith(".json"))
PUBLISHED = {name: load(name) for name in NAMES}
CLOSED = {name: closed(schema) for name, schema in PUBLISHED.items()}


def complaint(name, value, schemas=None):
    """What is wrong with a value that should be as the schema of that name says; None: nothing."""
    schemas = CLOSED if schemas is None else schemas
    resolver = jsonschema.RefResolver(name, schemas[name], store=schemas)
    validator = jsonschema.Draft202012Validator(schemas[name], resolver=resolver)
    error = jsonschema.exceptions.best_match(validator.iter_errors(value))
    return error and f"{name}: {error.message} at {'/'.join(str(part) for part in error.absolute_path) or 'the top'}"


class Route:
    """One section of the document."""

    def __init__(self, method, path, text):
        self.method = method
        self.path = path
        self.text = text
        self.body = self.schema("Body")
        self.answer = self.schema("Answer")

    def schema(self, what):
        """The name of the schema of its body or answer; None: it has none."""
        links = re.findall(rf"^{what}.*?\(\.\./Api/schemas/([a-z-]+\.json)\)", self.text, re.M)
        return links[0] if links else None


def document():
    with open(DOCUMENT, encoding="utf-8") as file:
        return file.read()


def routes():
    """What the document describes, in its order."""
    parts = re.split(r"^### `([A-Z]+) (/[^`]*)`.*$", document(), flags=re.M)
    return [Route(method, path, re.split(r"^##? ", text, flags=re.M)[0])
            for method, path, text in zip(parts[1::3], parts[2::3], parts[3::3])]
