"""The description of the page's interface against the program: every path, parameter and member of an answer.

usage: openapi_test.py CLASS
"""

import json
import unittest

from collector import Collector

FILTERS = {"kind": "login", "outcome": "good", "device": "x", "bundle": "x", "text": "x", "warned": "true",
           "after": "0", "before": "9"}


class Schemas:
    """As much of JSON Schema as the description uses; whatever else it may come to use is an error here."""

    KNOWN = {"type", "description", "nullable", "properties", "required", "additionalProperties", "items", "enum",
             "minimum", "maximum", "minItems", "maxItems", "minLength", "maxLength", "default", "format", "$ref"}
    TYPES = {"object": dict, "array": list, "string": str, "boolean": bool}

    def __init__(self, document):
        self.document = document

    def resolve(self, schema):
        while "$ref" in schema:
            node = self.document
            for part in schema["$ref"].removeprefix("#/").split("/"):
                node = node[part]
            schema = node
        return schema

    def check(self, value, schema, where):
        schema = self.resolve(schema)
        assert not set(schema) - self.KNOWN, f"{where}: {set(schema) - self.KNOWN}"
        if value is None:
            assert schema.get("nullable"), f"{where} must not be null"
            return
        kind = schema["type"]
        if kind in ("integer", "number"):
            kinds = int if kind == "integer" else (int, float)
            assert isinstance(value, kinds) and not isinstance(value, bool), f"{where}: {value!r} is no {kind}"
            assert schema.get("minimum", value) <= value <= schema.get("maximum", value), f"{where}: {value}"
        else:
            assert isinstance(value, self.TYPES[kind]), f"{where}: {value!r} is no {kind}"
        assert value in schema.get("enum", [value]), f"{where}: {value!r}"
        if kind == "array":
            assert schema.get("minItems", 0) <= len(value) <= schema.get("maxItems", len(value)), where
            for number, item in enumerate(value):
                self.check(item, schema["items"], f"{where}[{number}]")
        if kind == "object" and "properties" in schema:
            missing = set(schema["required"]) - set(value)
            assert not missing, f"{where} lacks {missing}"
            unknown = set(value) - set(schema["properties"])
            assert not unknown or schema.get("additionalProperties"), f"{where} has {unknown}"
            for key, member in value.items():
                self.check(member, schema["properties"][key], f"{where}.{key}")


class DescriptionTest(unittest.TestCase):
    def setUp(self):
        self.collector = Collector()
        self.addCleanup(self.collector.__exit__)
        self.document = self.collector.get("/api/openapi.json")
        self.schemas = Schemas(self.document)
        token = self.collector.log_in()
        self.collector.send(token, 1, lat=500, lon=11.5, horizontalAccuracy=5)
        self.collector.send(token, 2, lat="north")
        self.collector.post("/nowhere", b"x", packed=False)
        self.switch({"action": "status", "status": 307, "location": "/", "endpoint": "message", "device": "x",
                     "count": 3})
        self.switch({"action": "delay", "seconds": 0.5})

    def switch(self, fault):
        self.schemas.check(fault, {"$ref": "#/components/schemas/NewFault"}, "fault")
        return self.ask("post", "/api/faults", body=fault)

    def ask(self, method, path, query="", body=None):
        """Asks, and holds the answer against the description. A path may have {id} in it."""
        operation = self.document["paths"][path][method]
        token = "security" in operation
        status, fields, text = self.collector.ask(path.replace("{id}", "1") + query, method.upper(), body, token)
        self.check(operation, status, fields, text, f"{method} {path}{query}")
        return status

    def check(self, operation, status, fields, text, where):
        self.assertIn(str(status), operation["responses"], where)
        content = operation["responses"][str(status)].get("content")
        if content is None:
            self.assertEqual(text, b"", where)
            return
        (kind, media), = content.items()
        self.assertEqual(fields["Content-Type"], kind, where)
        if kind == "application/json":
            self.schemas.check(json.loads(text), media["schema"], where)
        elif kind == "application/x-ndjson":
            for line in text.splitlines():
                self.schemas.check(json.loads(line), {"$ref": "#/components/schemas/Request"}, where)

    def operations(self):
        return [(path, method) for path, item in self.document["paths"].items() for method in item]


class OpenAPITest(DescriptionTest):
    def test_it_is_openapi(self):
        self.assertTrue(self.document["openapi"].startswith("3.0."))
        self.assertEqual(self.document["info"]["version"], self.collector.get("/api/status")["version"])

    def test_every_request_is_as_described(self):
        for id in (1, 2, 3, 4):
            whole = self.collector.get(f"/api/requests/{id}")
            self.schemas.check(whole, {"$ref": "#/components/schemas/Request"}, f"request {id}")
        self.assertEqual(len(self.collector.get("/api/requests/2")["warnings"]), 1)
        self.assertIsNotNone(self.collector.get("/api/requests/3")["offending"])

    def test_every_path_answers_as_described(self):
        last = [("/api/faults/{id}", "delete"), ("/api/faults", "delete"), ("/api/requests", "delete")]
        for path, method in [pair for pair in self.operations() if pair not in last] + last:
            if path == "/api/events":
                continue  # never ends
            if path == "/api/faults" and method == "post":
                continue  # done when it began
            query = "?timeout=0" if path == "/api/wait" else ""
            status = self.ask(method, path, query)
            self.assertLess(status, 300, f"{method} {path}")

    def test_every_path_refuses_as_described(self):
        for path, method in self.operations():
            operation = self.document["paths"][path][method]
            for status, host, query in ((403, "example.com", ""), (400, None, "?unknown=1")):
                fields = {"Host": host} if host else {}
                answered, received, text = self.collector.ask(
                    path.replace("{id}", "1") + query, method.upper(), {"action": "drop"} if method == "post" else None,
                    "security" in operation, **fields)
                self.assertEqual(answered, status, f"{method} {path}{query}")
                self.check(operation, answered, received, text, f"{method} {path}{query}")

    def test_every_parameter_is_taken_and_no_other_one(self):
        values = {**FILTERS, "limit": "1", "order": "desc", "count": "1", "timeout": "0"}
        for path, item in self.document["paths"].items():
            for method, operation in item.items():
                described = {parameter["name"] for parameter in operation.get("parameters", [])
                             if parameter["in"] == "query"}
                if method != "get" or path == "/api/events":
                    self.assertEqual(described, set())
                    continue
                for name, value in values.items():
                    query = f"?{name}={value}" + ("&timeout=0" if path == "/api/wait" and name != "timeout" else "")
                    status, _, text = self.collector.ask(path.replace("{id}", "1") + query)
                    self.assertEqual(status == 200, name in described, f"{path}{query}: {text}")

    def test_the_bounds_of_parameters_are_as_described(self):
        for path, item in self.document["paths"].items():
            for parameter in item.get("get", {}).get("parameters", []):
                schema = parameter["schema"]
                if parameter["in"] != "query" or schema["type"] != "integer":
                    continue
                end = "&timeout=0" if path == "/api/wait" and parameter["name"] != "timeout" else ""
                for value, status in ((schema["minimum"] - 1, 400), (schema["minimum"], 200),
                                      (schema["maximum"], 200), (schema["maximum"] + 1, 400)):
                    if path == "/api/wait" and parameter["name"] == "timeout" and status == 200:
                        end = "&count=1"
                    query = f"?{parameter['name']}={value}{end}"
                    self.assertEqual(self.collector.ask(path + query)[0], status, path + query)

    def test_the_program_has_no_other_path(self):
        for path, item in self.document["paths"].items():
            status, fields, _ = self.collector.ask(path.replace("{id}", "1"), "PUT")
            self.assertEqual(status, 405, path)
            self.assertEqual({method.lower() for method in fields["Allow"].split(", ")}, set(item), path)


if __name__ == "__main__":
    unittest.main()
