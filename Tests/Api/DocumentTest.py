#!/usr/bin/env python3
"""docs/api.md against what the agent's code and the schemas are."""

import json
import os
import re
import unittest

import jsonschema

from apirig import NAMES, PUBLISHED, REPOSITORY, complaint, document, routes


class Document(unittest.TestCase):
    def test_describesEachRouteOfTheAgentAndNoOther(self):
        with open(os.path.join(REPOSITORY, "Agent", "Control", "ControlApi.cpp"), encoding="utf-8") as file:
            table = re.search(r"ControlApi::routes\[\] = \{\n(.*?)^\};", file.read(), re.M | re.S)[1]
        served = re.findall(r'\{ "([A-Z]+)", "([^"]+)"', table)
        self.assertEqual(len(served), table.count("&ControlApi::"))
        described = [(route.method, re.sub("[A-Z]+", "*", route.path)) for route in routes()]
        self.assertEqual(sorted(described), sorted((method, "/api/v1/" + path) for method, path in served))

    def test_namesABodyForEachPostAndAnAnswerForAll(self):
        for route in routes():
            with self.subTest(f"{route.method} {route.path}"):
                self.assertRegex(route.text, r"(?m)^Answer: \d{3}")
                self.assertEqual(route.method == "POST", route.body is not None)
                self.assertTrue(route.answer or "`text/" in route.text)

    def test_namesEachSchemaAndOnlySchemasThatThereAre(self):
        named = set(re.findall(r"\(\.\./Api/schemas/([^)]*\.json)\)", document()))
        parts = {"common.json"}
        self.assertEqual(named, set(NAMES) - parts)

    def test_namesEachMemberThatAnswersAndBodiesHave(self):
        """In its text or in an example. Counters are for those who know the plug-in from inside."""
        named = set(re.findall(r'`([a-z0-9-]+)`|"([a-z0-9-]+)"', document()))
        named = {prose or example for prose, example in named}
        for name in NAMES:
            if name != "counters.json":
                members = {member for each in objects(PUBLISHED[name]) for member in each["properties"]}
                with self.subTest(name):
                    self.assertEqual(sorted(members - named), [])

    def test_namesTheMembersOfEachKindOfEventThatTheSchemaHas(self):
        rows = re.findall(r"^\| `(unit|interface|profile|agent)` \| (.*) \|$", document(), re.M)
        self.assertEqual(len(rows), 4)
        described = {}
        for kind, cell in rows:
            for words, members in re.findall(r"((?:`[a-z-]+`(?: and )?)+)(?: \(([^)]*)\))?", cell):
                for word in re.findall(r"`([a-z-]+)`", words):
                    described[kind, word] = re.findall(r"`([a-z-]+)`", members)
        wanted = {}
        for each in PUBLISHED["event.json"]["allOf"]:
            kind, what = (each["if"]["properties"][key] for key in ("type", "what"))
            for word in what.get("enum", [what.get("const")]):
                members = list(each["then"]["properties"])
                wanted[kind["const"], word] = members
                # What an event has only sometimes is described behind the rest.
                self.assertEqual(each["then"]["required"], members[:len(each["then"]["required"])])
        self.assertEqual({kind: members for kind, members in described.items() if members}, wanted)
        self.assertIn(("unit", "settling"), described)

    def test_hasExamplesThatAreAsTheirSchemasSay(self):
        pieces = re.split(r"\(\.\./Api/schemas/([a-z-]+\.json)\)|^```json\n(.*?)^```$", document(), flags=re.M | re.S)
        schema, examples = None, 0
        for link, example in zip(pieces[1::3], pieces[2::3]):
            schema = link or schema
            if example:
                examples += 1
                self.assertIsNone(complaint(schema, json.loads(example)), example)
        self.assertGreaterEqual(examples, 12)
        self.assertEqual(examples, document().count("\nExample: `"))


class Schemas(unittest.TestCase):
    def test_areSchemas(self):
        for name in NAMES:
            with self.subTest(name):
                jsonschema.Draft202012Validator.check_schema(PUBLISHED[name])
                self.assertEqual(PUBLISHED[name]["$id"], name)

    def test_ofAnswersWantEachKeyAndBearMoreAndThoseOfBodiesDoNot(self):
        """A later agent may add keys to what it answers, and leaves none out."""
        for name in NAMES:
            with self.subTest(name):
                for each in objects(PUBLISHED[name]):
                    self.assertEqual(name.endswith("-request.json"), each.get("additionalProperties") is False)
                    if not name.endswith("-request.json") and each.get("title") != "A refusal":
                        self.assertEqual(sorted(each["required"]), sorted(each["properties"]))


def objects(schema):
    """All schemas of objects in a schema."""
    if isinstance(schema, dict):
        if "properties" in schema and schema.get("type") == "object":
            yield schema
        for value in schema.values():
            yield from objects(value)
    if isinstance(schema, list):
        for value in schema:
            yield from objects(value)


if __name__ == "__main__":
    unittest.main()
