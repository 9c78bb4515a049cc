#!/usr/bin/env python3
"""Real answers of a real agent, in many states, against the schemas that docs/api.md names for their routes."""

import copy
import json
import os
import re
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "Agent"))
from agentrig import Agent, LocalConnection, configuration  # noqa: E402
from apirig import complaint, routes  # noqa: E402

# Of routes that cannot be asked without one.
QUERIES = {"/api/v1/samples": "?unit=u1&last=2m"}


class AnswersTest(unittest.TestCase):
    def setUp(self):
        self.agent = Agent("")
        self.addCleanup(self.agent.close)
        self.agent.configure(self.configuration())
        self.steer("exit 0")

    def configuration(self):
        """With a group of which one interface does not exist."""
        return configuration(self.agent.path("steer"), uplinks="et1, et2, missing")

    def steer(self, text):
        """What the command of stage steer does with its operation, $1."""
        self.agent.command("steer", text)

    def check(self, method, path, body=None, status=None):
        """Asks for one thing; the answer has to be as its route or, if it is refused, as a refusal is described."""
        reply = self.agent.ask(method, path, body)
        if status is not None:
            self.assertEqual(reply.status, status, reply.text)
        schema = "error.json"
        if reply.status < 300 or "healthz" in path:
            schema = next(route.answer for route in routes()
                          if route.method == method and matches(route.path, path))
        if schema:
            self.assertEqual(reply.headers["Content-Type"], "application/json")
            self.assertIsNone(complaint(schema, reply.json), f"{method} {path}\n{reply.text}")
        return reply.json if schema else reply.text

    def look(self):
        """Asks for everything that can be shown; the answers by path."""
        paths = [route.path + QUERIES.get(route.path, "") for route in routes()
                 if route.method == "GET" and not re.search("[A-Z]", route.path)
                 and "`text/event-stream`" not in route.text]
        for unit in ("u1", "u2"):
            paths += [f"/api/v1/units/{unit}", f"/api/v1/units/{unit}/explain", f"/api/v1/interfaces?unit={unit}",
                      f"/api/v1/units/{unit}/plan", f"/api/v1/units/{unit}/plan?session=192.0.2.7"]
        paths += [f"/api/v1/interfaces/{name}" for name in ("et1", "et2", "et3", "vlan10")]
        answers = {path: self.check("GET", path) for path in paths}
        for maintenance in answers["/api/v1/history"]:
            path = f"/api/v1/history/{maintenance['id']}"
            answers[path] = self.check("GET", path)
        for operation in answers["/api/v1/operations"]:
            path = f"/api/v1/operations/{operation['id']}"
            answers[path] = self.check("GET", path)
        return answers

    def unit(self):
        return self.look()["/api/v1/units/u1"]


def matches(pattern, path):
    return re.fullmatch(re.sub("[A-Z]+", "[^/]+", pattern), path.partition("?")[0])


class Maintenance(AnswersTest):
    def test_answersAreAsDescribedThroughAWholeMaintenance(self):
        self.steer(f"while [ ! -e {self.agent.path('go')} ]; do sleep 0.02; done; rm {self.agent.path('go')}")
        agent = self.agent.start()
        self.assertEqual(self.unit()["state"], "normal")
        agent.traffic("et1", 5e6, 1e6)
        self.check("POST", "/api/v1/units/u1/enter", {"reason": "upgrade", "timeout": "20s"}, 202)
        agent.until(lambda: agent.unit("u1")["stages"][0]["state"] == "running")
        self.assertEqual(self.unit()["stage"], "steer")
        self.go("drainwatch")
        agent.advance(30)
        seen = self.unit()
        self.assertEqual((seen["state"], seen["interfaces"]["drained"], seen["overdue"]), ("entering", 2, True))
        self.check("POST", "/api/v1/simulated/traffic", {"interface": "et1", "in-bps": 0, "out-bps": 0}, 200)
        agent.advance(16)
        self.assertIsNotNone(self.unit()["settling-since"])
        agent.advance(15)
        self.assertEqual(self.unit()["state"], "maintenance")
        agent.traffic("et3", 5e6)
        self.check("POST", "/api/v1/simulated/advance", {"seconds": 11}, 200)
        self.assertEqual(self.unit()["violating"], ["vlan10"])
        self.check("POST", "/api/v1/units/u1/exit", {}, 202)
        agent.until(lambda: agent.unit("u1")["stages"][1]["state"] == "running")
        self.assertEqual(self.unit()["state"], "exiting")
        self.go(None)
        agent.advance(1)
        self.assertEqual(self.unit()["state"], "normal")
        again = {"request-key": "job-7", "with": {"ticket": "17"}}
        self.assertTrue(self.check("POST", "/api/v1/units/u2/enter", again, 202)["changed"])
        self.assertTrue(self.check("POST", "/api/v1/units/u2/enter", again, 202)["repeated"])
        self.check("POST", "/api/v1/units/u2/exit", again, 409)
        self.assertEqual(self.look()["/api/v1/operations"][0]["with"], {"ticket": "17"})

    def test_answersAreAsDescribedWhenTimesAreOver(self):
        agent = self.agent.start()
        agent.traffic("et1", 5e6)
        times = {"deadline": "20s", "on-overrun": "keep", "revert-after": "1h"}
        self.check("POST", "/api/v1/units/u2/enter", times, 202)
        agent.until(lambda: agent.unit("u2")["stage"] == "drainwatch")
        self.look()
        agent.advance(30)
        seen = self.look()
        self.assertIsNotNone(seen["/api/v1/units/u2"]["times"]["overrun"])
        told = [event["what"] for event in agent.get("/api/v1/events/recent?after=0&limit=4096").json["events"]]
        self.assertEqual((told.count("times"), told.count("overrun")), (1, 1))
        agent.advance(3600)
        agent.until(lambda: agent.unit("u2")["state"] == "normal")
        self.look()

    def go(self, stage):
        """Lets the command end, and waits for the stage that follows."""
        with open(self.agent.path("go"), "w", encoding="utf-8"):
            pass
        self.agent.until(lambda: self.agent.unit("u1")["stage"] == stage)

    def test_answersAreAsDescribedAfterAStageHasFailed(self):
        self.steer("echo it does not work >&2; [ $1 = exit ]")
        agent = self.agent.start()
        agent.done("/api/v1/units/u1/enter")
        agent.until(lambda: agent.unit("u1")["stages"][-1]["state"] in ("complete", "failed", "skipped")
                    and agent.unit("u1")["state"] == "normal")
        self.look()

    def test_answersAreAsDescribedAfterTheWayBackHasFailed(self):
        self.steer("[ $1 = enter ] || { echo it does not work >&2; exit 1; }")
        agent = self.agent.start()
        agent.done("/api/v1/units/u1/enter")
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        agent.done("/api/v1/units/u1/exit")
        agent.until(lambda: agent.unit("u1")["state"] == "normal")
        seen = self.look()
        self.assertEqual(seen["/api/v1/agent"]["problems"][0]["what"], "stage")
        self.assertEqual(self.agent.get("/healthz").status, 503)

    def test_answersAreAsDescribedWhenLinksGoDownAndAreReleased(self):
        agent = self.agent.start()
        agent.done("/api/v1/units/u2/enter")
        agent.until(lambda: agent.unit("u2")["stage"] == "drainwatch")
        self.check("POST", "/api/v1/simulated/link", {"interface": "et1", "up": False}, 200)
        agent.advance(16)
        seen = self.look()
        self.assertEqual(seen["/api/v1/interfaces/et1"]["link-state"], "down")
        self.assertTrue(seen["/api/v1/interfaces/et2"]["shut"])
        self.check("POST", "/api/v1/interfaces/et2/release", {"force": True}, 202)
        agent.advance(1)
        self.assertFalse(self.look()["/api/v1/interfaces/et2"]["shut"])

    def test_schemasNoticeEachKeyThatIsMissingOrRenamed(self):
        agent = self.agent.start()
        agent.traffic("et1", 5e6, 1e6)
        agent.done("/api/v1/units/u1/enter", reason="upgrade")
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        agent.advance(11)
        answers = self.look()
        for route in routes():
            if route.method == "GET" and route.answer:
                example = next(answer for path, answer in answers.items() if matches(route.path, path))
                for changed, what in mutants(example):
                    # Names of interfaces are no keys of a schema.
                    isName = route.answer == "samples.json" and re.match("/interfaces/[^/ ]+ ", what)
                    if not isName and not (route.answer == "counters.json" and changed == {}):
                        self.assertIsNotNone(complaint(route.answer, changed), f"{route.path}: {what}")


def mutants(value, at=""):
    """The value with one key of one object in it left out, or called otherwise, and what was done. Of a list, only the
    first is changed."""
    if isinstance(value, list) and value:
        for changed, what in mutants(value[0], at + "/0"):
            yield [changed] + value[1:], what
    if isinstance(value, dict):
        for key in value:
            without = {other: copy.deepcopy(of) for other, of in value.items() if other != key}
            yield without, f"{at}/{key} left out"
            yield {**without, key + "-x": value[key]}, f"{at}/{key} renamed"
            for changed, what in mutants(value[key], f"{at}/{key}"):
                yield {**value, key: changed}, what


class Events(AnswersTest):
    def stream(self, path, wanted, act, holds=lambda data: True):
        """The first event of the wanted type, with data of which something holds, that a stream tells after something was
        done; as its fields."""
        connection = LocalConnection(self.agent.path("run/control.sock"))
        self.addCleanup(connection.close)
        connection.request("GET", path)
        reply = connection.getresponse()
        self.addCleanup(reply.close)
        self.assertEqual((reply.status, reply.headers["Content-Type"]), (200, "text/event-stream"))
        act()
        fields = {}
        for line in iter(lambda: reply.readline().decode("utf-8"), ""):
            name, _, value = line.rstrip("\n").partition(": ")
            if name:
                fields[name] = value
            elif fields.get("event") == wanted and holds(json.loads(fields["data"])):
                return fields
            else:
                fields = {}
        raise AssertionError("the stream has ended")

    def test_ratesAreAsDescribed(self):
        agent = self.agent.start()
        agent.done("/api/v1/units/u1/enter")
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        told = self.stream("/api/v1/events?rates=1", "rates", lambda: agent.advance(6), lambda data: data["interfaces"])
        self.assertNotIn("id", told)
        self.assertIsNone(complaint("rates.json", json.loads(told["data"])))
        self.assertIn("et1", json.loads(told["data"])["interfaces"])

    def test_whatHappensIsToldAsDescribed(self):
        agent = self.agent.start()
        told = self.stream("/api/v1/events?after=0", "unit", lambda: agent.done("/api/v1/units/u1/enter"))
        event = json.loads(told["data"])
        self.assertIsNone(complaint("event.json", event))
        self.assertEqual((int(told["id"]), event["what"], event["state"]), (event["sequence"], "state", "entering"))
        recent = self.check("GET", "/api/v1/events/recent?after=0&limit=1000")
        self.assertEqual([each["sequence"] for each in recent["events"]], list(range(1, recent["last"] + 1)))

    def test_eachKindHasItsMembersAndTheSchemaNoticesWhatIsMissing(self):
        agent = self.agent.start()
        agent.traffic("et1", 5e6, 1e6)
        agent.done("/api/v1/units/u1/enter", reason="upgrade")
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        self.check("POST", "/api/v1/simulated/link", {"interface": "et2", "up": False}, 200)
        agent.advance(6)
        agent.traffic("et1", 0)
        agent.advance(30)
        agent.traffic("et3", 5e6)
        agent.advance(12)
        agent.traffic("et3", 0)
        agent.advance(30)
        agent.configure(self.configuration().replace("100kbps", "200kbps"))
        self.check("POST", "/api/v1/reload", {}, 200)
        agent.configure("version: 2\n")
        self.check("POST", "/api/v1/reload", {}, 400)
        agent.advance(2)
        examples = {}
        for event in self.check("GET", "/api/v1/events/recent?after=0&limit=4096")["events"]:
            examples[event["type"], event["what"]] = event
        wanted = {("unit", what) for what in ("state", "stage", "violations-begin", "violations-end", "settling")}
        wanted |= {("interface", what) for what in ("reason", "state", "shut", "spike-begin", "spike-end", "link")}
        wanted |= {("profile", "edited"), ("agent", "started"), ("agent", "configuration-taken"),
                   ("agent", "configuration-refused"), ("agent", "problem-begin")}
        self.assertEqual(wanted - set(examples), set())
        for kind, event in examples.items():
            for changed, what in mutants(event):
                self.assertIsNotNone(complaint("event.json", changed), f"{kind}: {what}")

    def test_whoIsBehindIsToldAsDescribed(self):
        self.agent.start()
        told = self.stream("/api/v1/events?after=999999", "dropped", lambda: None)
        self.assertIsNone(complaint("dropped-events.json", json.loads(told["data"])))
        self.assertEqual(self.check("GET", "/api/v1/events?after=x", None, 400)["error"]["where"], "after")
        self.check("GET", "/api/v1/events/recent?after=0&limit=5", None, 200)


class Trouble(AnswersTest):
    def test_answersAreAsDescribedWithoutThePlugIn(self):
        self.agent.pluginDir = self.agent.folder
        self.agent.start()
        seen = self.look()
        self.assertEqual(seen["/api/v1/counters"], {})
        self.assertEqual(seen["/api/v1/agent"]["plugin"]["state"], "missing")
        self.assertEqual(self.check("POST", "/api/v1/units/u1/enter", {}, 503)["error"]["code"], "unavailable")

    def test_answersAreAsDescribedWithAConfigurationThatIsNotAccepted(self):
        agent = self.agent.start()
        agent.configure("version: 1\nprofile: {}\n")
        self.assertTrue(self.check("POST", "/api/v1/reload", {}, 400)["errors"])
        agent.kill()
        agent.start()
        seen = self.look()
        self.assertEqual(seen["/api/v1/agent"]["configuration"]["state"], "last-accepted")
        agent.configure(self.configuration().replace("100kbps", "200kbps"))
        self.assertTrue(self.check("POST", "/api/v1/reload", {}, 200)["changes"])

    def test_eachRefusalIsAsDescribed(self):
        self.agent.start()
        rows = [
            ("GET", "/api/v1/units/nobody", None, 404, "not-found"),
            ("GET", "/api/v1/units/nobody/explain", None, 404, "not-found"),
            ("GET", "/api/v1/interfaces?unit=nobody", None, 404, "not-found"),
            ("GET", "/api/v1/interfaces/nobody", None, 404, "not-found"),
            ("GET", "/api/v1/samples", None, 400, "bad-request"),
            ("GET", "/api/v1/samples?interface=et1&last=169h", None, 400, "bad-request"),
            ("GET", "/api/v1/samples?interface=nobody", None, 404, "not-found"),
            ("GET", "/api/v1/nothing", None, 404, "not-found"),
            ("DELETE", "/api/v1/units/u1", None, 405, "method-not-allowed"),
            ("POST", "/api/v1/units/nobody/enter", {}, 404, "not-found"),
            ("POST", "/api/v1/units/u1/enter", "[]", 400, "bad-request"),
            ("POST", "/api/v1/units/u1/enter", {"because": "x"}, 400, "bad-request"),
            ("POST", "/api/v1/units/u1/enter", {"timeout": "soon"}, 400, "bad-request"),
            ("POST", "/api/v1/units/u1/enter", {"reason": "x" * 70000}, 413, "too-large"),
            ("POST", "/api/v1/interfaces/et1/release", {}, 428, "needs-force"),
            ("POST", "/api/v1/interfaces/et1/release", {"force": True}, 409, "conflict"),
            ("POST", "/api/v1/trace", {"name": "Nothing", "level": 1}, 404, "not-found"),
            ("POST", "/api/v1/simulated/traffic", {"interface": "et9", "in-bps": 0, "out-bps": 0}, 400, "bad-request"),
        ]
        for method, path, body, status, code in rows:
            with self.subTest(f"{method} {path}"):
                self.assertEqual(self.check(method, path, body, status)["error"]["code"], code)

    def test_aBodyIsTakenIfItsSchemaTakesIt(self):
        self.agent.start()
        bodies = {
            "/api/v1/units/UNIT/exit": [{}, {"reason": "x"}, {"reason": None, "timeout": None}, {"timeout": "5m"},
                                        {"timeout": 90}, {"timeout": -1}, {"reason": 1}, {"x": 1}, []],
            "/api/v1/interfaces/INTERFACE/release": [{"force": 1}, {"x": True}, {"timeout": 1}],
            "/api/v1/reload": [{}, {"reason": "x", "with": {"a": "b"}, "request-key": "k"}, {"reason": 1},
                               {"request-key": "a b"}, {"with": {"a": 1}}, {"x": 1}],
            "/api/v1/trace": [{"name": "*", "level": 0}, {"name": "*"}, {"level": 1}, {"name": "*", "level": 10},
                              {"name": "*", "level": 0.5}, {"name": "*", "level": 0, "x": 1}],
            "/api/v1/simulated/traffic": [
                {"interface": "et1", "in-bps": 1, "out-bps": 2}, {"interface": "et1", "in-bps": 1},
                {"interface": "et1", "in-bps": 1, "out-bps": 2, "ramp-seconds": 3},
                {"interface": "et1", "in-bps": -1, "out-bps": 2}, {"interface": 1, "in-bps": 1, "out-bps": 2}],
            "/api/v1/simulated/link": [{"interface": "et1", "up": True}, {"interface": "et1"},
                                       {"interface": "et1", "up": 1}],
            "/api/v1/simulated/advance": [{"seconds": 1}, {"seconds": -1}, {"seconds": "1s"}, {}],
        }
        for route in (route for route in routes() if route.method == "POST" and route.path in bodies):
            for body in bodies[route.path]:
                with self.subTest(f"{route.path} {body}"):
                    path = route.path.replace("UNIT", "u1").replace("INTERFACE", "et1")
                    status = self.agent.ask(route.method, path, body).status
                    self.assertEqual(status < 300, complaint(route.body, body) is None, status)


if __name__ == "__main__":
    unittest.main()
