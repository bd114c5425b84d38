"""Any parameters and bodies whatsoever, made up from the description of the page's interface: each answer is one that
it describes, and the service goes on.

usage: property_test.py CLASS
"""

import json
import unittest
from urllib.parse import quote

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from openapi_test import DescriptionTest

ANYTHING = st.recursive(st.none() | st.booleans() | st.integers() | st.floats() | st.text(max_size=20),
                        lambda values: st.lists(values, max_size=3) |
                        st.dictionaries(st.text(max_size=10), values, max_size=3), max_leaves=5)


def text_of(schema):
    """What a parameter of that schema may be, and what it may not."""
    usual = st.just("")
    if "enum" in schema:
        usual = st.sampled_from(schema["enum"])
    elif schema["type"] == "integer":
        usual = st.integers(schema["minimum"], min(schema["maximum"], 10)).map(str)
    elif schema["type"] == "boolean":
        usual = st.sampled_from(["true", "false"])
    return usual | usual | st.text(max_size=30).filter(lambda text: "\ud800" not in text)


class PropertyTest(DescriptionTest):
    @settings(max_examples=200, deadline=None, database=None, suppress_health_check=list(HealthCheck))
    @given(st.data())
    def test_queries(self, data):
        gets = [(path, method) for path, method in self.operations()
                if method == "get" and path not in ("/api/events", "/api/openapi.json")]
        path, method = data.draw(st.sampled_from(gets))
        operation = self.document["paths"][path][method]
        parts = []
        where = path
        for parameter in operation.get("parameters", []):
            if parameter["in"] == "path":
                value = data.draw(st.integers(1, 9).map(str) | st.text(max_size=10))
                where = where.replace("{id}", quote(value, safe=""))
            elif data.draw(st.booleans()):
                parts.append(f"{parameter['name']}={quote(data.draw(text_of(parameter['schema'])), safe='')}")
        if path == "/api/wait":
            parts = [part for part in parts if not part.startswith("timeout=")] + ["timeout=0"]
        if data.draw(st.integers(0, 9)) == 0:
            parts.append(quote(data.draw(st.text(max_size=20))))
        target = where + ("?" + "&".join(parts) if parts else "")
        status, fields, text = self.collector.ask(target)
        if where in ("/api/requests/", "/api/requests"):
            return  # another operation than the one that was meant
        self.check(operation, status, fields, text, target)

    @settings(max_examples=100, deadline=None, database=None, suppress_health_check=list(HealthCheck))
    @given(st.data())
    def test_faults(self, data):
        operation = self.document["paths"]["/api/faults"]["post"]
        schema = self.schemas.resolve({"$ref": "#/components/schemas/NewFault"})
        fault = {}
        for name, member in schema["properties"].items():
            if data.draw(st.booleans()):
                usual = st.sampled_from(member["enum"]) if "enum" in member else ANYTHING
                numbers = st.integers(0, 700) if member["type"] in ("integer", "number") else usual
                fault[name] = data.draw(usual | numbers | ANYTHING)
        body = data.draw(st.one_of(st.just(json.dumps(fault).encode()), st.binary(max_size=40)))
        status, fields, text = self.collector.ask("/api/faults", "POST", body, token=True)
        self.check(operation, status, fields, text, f"{body!r}")
        if status == 201:
            self.collector.ask("/api/faults", "DELETE", token=True)

    def tearDown(self):
        self.assertIsNone(self.collector.process.poll())
        self.assertEqual(self.collector.get("/api/counts")["all"], 4)


if __name__ == "__main__":
    unittest.main()
