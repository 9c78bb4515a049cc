#!/usr/bin/env python3
"""The metrics of a real agent, and what comes along for them: alert rules, a dashboard. MAINT_BUILD names the build
folder."""

import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, "..", "Tests", "Agent"))
from agentrig import PATIENCE, Agent, configuration  # noqa: E402

RULES = os.path.join(HERE, "maintd.rules.yml")
RULES_TESTS = ["maintd.rules.test.yml", "maintd.rules.days.test.yml"]
DOCUMENT = os.path.join(HERE, "..", "docs", "api.md")
DASHBOARD = os.path.join(HERE, "maintd-dashboard.json")
STATES = ["normal", "entering", "maintenance", "exiting"]


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def promtool(*words, text=None):
    """What it says; its exit status stands in front of that if it is not 0."""
    done = subprocess.run(["promtool", *words], input=text, capture_output=True, text=True, check=False)
    return (f"{done.returncode}: " if done.returncode else "") + done.stdout + done.stderr


def freePort():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def declared(text):
    """The names of all metrics of an answer, with what each is."""
    return dict(re.findall(r"^# TYPE (\S+) (\S+)$", text, re.M))


def series(text):
    """All series of an answer."""
    return {line.rpartition(" ")[0] for line in text.splitlines() if not line.startswith("#")}


class MonitoringTest(unittest.TestCase):
    """A test with an agent of its own, whose stage command waits for a file `go` on the way back."""

    def setUp(self):
        self.agent = Agent("")
        self.addCleanup(self.agent.close)
        self.web = f"127.0.0.1:{freePort()}"
        self.agent.configure(configuration(self.agent.path("steer"), web=self.web))
        self.agent.command("steer", f"[ $1 = enter ] || while [ ! -e {self.agent.path('go')} ]; do sleep 0.02; done")
        self.agent.start()

    def metrics(self):
        with urllib.request.urlopen(f"http://{self.web}/metrics", timeout=PATIENCE) as reply:
            self.assertEqual(reply.headers["Content-Type"], "text/plain; version=0.0.4; charset=utf-8")
            return reply.read().decode("utf-8")

    def maintenance(self, reason="upgrade"):
        """Takes unit u1 through a maintenance; gives the state that it is in, each time it has come to one. u2 stays
        normal, and traffic comes back to VLAN 10 while u1 is under maintenance."""
        agent = self.agent
        if os.path.exists(agent.path("go")):
            os.unlink(agent.path("go"))
        agent.traffic("et1", 5e6, 1e6)
        yield "normal"
        agent.done("/api/v1/units/u1/enter", reason=reason, timeout="5s")
        agent.until(lambda: agent.unit("u1")["stage"] == "drainwatch")
        agent.advance(16)
        yield "entering"
        agent.traffic("et1", 0)
        agent.advance(16)
        self.assertIsNotNone(agent.unit("u1")["settling-since"])
        yield "entering"
        agent.advance(14)
        agent.traffic("et3", 5e6)
        agent.advance(11)
        yield "maintenance"
        agent.traffic("et3", 0)
        agent.done("/api/v1/units/u1/exit")
        agent.until(lambda: agent.unit("u1")["stage"] == "steer")
        yield "exiting"
        with open(agent.path("go"), "w", encoding="utf-8"):
            pass
        agent.until(lambda: agent.unit("u1")["state"] == "normal")
        agent.advance(1)
        yield "normal"


class Metrics(MonitoringTest):
    def test_promtoolHasNothingToSayInAnyState(self):
        for state in self.maintenance():
            text = self.metrics()
            self.assertIn(f'maint_unit_state{{unit="u1",state="{state}"}} 1\n', text)
            self.assertEqual(promtool("check", "metrics", text=text), "", state)

    def test_keepToTheirNamesAndLabels(self):
        texts = [self.metrics() for _ in self.maintenance()]
        for text in texts:
            self.assertEqual(declared(text), declared(texts[0]))
            for name, kind in declared(text).items():
                self.assertRegex(name, "^maint_[a-z_]+$")
                self.assertEqual(name.endswith("_total"), kind == "counter", name)
            for one in series(text):
                self.assertIn(one.partition("{")[0], declared(text))
                for label in re.findall(r'[{,]([a-z]+)=', one):
                    self.assertNotIn(label, ("stage", "job", "instance", "service", "env"))

    def test_theNumberOfSeriesDoesNotGrowWithWhatHappens(self):
        def labels(reason):
            found = {label for _ in self.maintenance(reason) for one in series(self.metrics())
                     for label in re.findall(r'[{,]([a-z]+="[^"]*")', one)}
            # These have values of a closed list.
            return {label for label in found if label.partition("=")[0] not in ("state", "reason")}
        first = labels("one reason")
        self.assertIn('interface="et1"', first)
        self.assertEqual(labels("another reason") - first, set())


class Alerts(unittest.TestCase):
    def test_comeWhenTheyHaveToAndOnlyThen(self):
        self.assertIn("SUCCESS", promtool("check", "rules", RULES))
        said = promtool("test", "rules", *(os.path.join(HERE, name) for name in RULES_TESTS))
        self.assertRegex(said, r"\AUnit Testing:", said)
        self.assertEqual(said.count("SUCCESS"), len(RULES_TESTS), said)

    def test_areDescribedAsTheyAre(self):
        head = "| alert | severity | after | says |\n|---|---|---|---|\n"
        _, _, rest = read(DOCUMENT).partition(head)
        described, _, _ = rest.partition("\n\n")
        self.assertEqual(described.splitlines(), alertRows())

    def test_haveTestsThatNoticeARuleThatAlwaysOrNeverHolds(self):
        alerts = re.findall(r"^      - alert: (\w+)$", read(RULES), re.M)
        self.assertGreaterEqual(len(alerts), 14)
        for expression in ("vector(1)", "vector(1) > 1"):
            changed, count = re.subn(r"^        expr: .*?(?=^        [a-z])", f"        expr: {expression}\n", read(RULES),
                                     flags=re.M | re.S)
            self.assertEqual(count, len(alerts))
            with tempfile.TemporaryDirectory() as folder:
                for name in RULES_TESTS:
                    shutil.copy(os.path.join(HERE, name), folder)
                with open(os.path.join(folder, "maintd.rules.yml"), "w", encoding="utf-8") as file:
                    file.write(changed)
                said = promtool("test", "rules", *(os.path.join(folder, name) for name in RULES_TESTS))
            noticed = re.findall(r"alertname: (\w+), time:", said)
            self.assertEqual(set(alerts) - set(noticed), set(), expression)


def alertRows():
    """A line of the table in the document for each alert, in the order of the rules."""
    rows = []
    for text in re.split(r"^      - alert: ", read(RULES), flags=re.M)[1:]:
        severity = re.search(r"^        labels: \{severity: (\w+)\}$", text, re.M)[1]
        after = re.search(r"^        for: (\w+)$", text, re.M)
        summary = re.search(r'^          summary: "(.*)"$', text, re.M)[1]
        summary = re.sub(r"\{\{ \$labels\.(\w+) \}\}", lambda label: label[1].upper(), summary)
        summary = re.sub(r"\{\{ \$value[^}]*\}\}", "TIME", summary)
        rows.append(f"| `{text.splitlines()[0]}` | {severity} | {after[1] if after else 'at once'} | {summary} |")
    return rows


def queries(value):
    """All queries of a dashboard: those of panels and those of variables."""
    if isinstance(value, list):
        for each in value:
            yield from queries(each)
    elif isinstance(value, dict):
        for key, of in value.items():
            if key in ("expr", "query") and isinstance(of, str) and "maint_" in of:
                yield of
            else:
                yield from queries(of)


class Dashboard(MonitoringTest):
    def test_asksForNothingButMetricsThatThereAre(self):
        names = declared(self.metrics())
        found = [name for query in queries(json.loads(read(DASHBOARD))) for name in re.findall(r"maint_[a-z_]+", query)]
        self.assertGreater(len(found), 30)
        for name in found + re.findall(r"maint_[a-z_]+", re.sub("#.*", "", read(RULES))):
            self.assertIn(name, names)

    def test_canBeLoadedAnywhere(self):
        dashboard = json.loads(read(DASHBOARD))
        self.assertIsNone(dashboard["id"])
        self.assertNotIn("uid", dashboard)
        variable = dashboard["templating"]["list"][0]
        self.assertEqual((variable["name"], variable["type"], variable["query"]),
                         ("datasource", "datasource", "prometheus"))
        for panel in dashboard["panels"]:
            self.assertNotIn("id", panel)
            for part in [] if panel["type"] == "row" else [panel, *panel["targets"]]:
                self.assertEqual(part["datasource"], {"type": "prometheus", "uid": "${datasource}"})

    def test_hasPanelsSideBySide(self):
        taken = set()
        for panel in json.loads(read(DASHBOARD))["panels"]:
            at = panel["gridPos"]
            cells = {(x, y) for x in range(at["x"], at["x"] + at["w"]) for y in range(at["y"], at["y"] + at["h"])}
            self.assertLessEqual(at["x"] + at["w"], 24)
            self.assertFalse(taken & cells, panel["title"])
            taken |= cells


class Prometheus:
    """A Prometheus that scrapes one agent, in a folder of its own."""

    def __init__(self, target):
        self.folder = tempfile.mkdtemp(prefix="prometheus.")
        self.address = f"127.0.0.1:{freePort()}"
        with open(os.path.join(self.folder, "prometheus.yml"), "w", encoding="utf-8") as file:
            file.write(f"global: {{scrape_interval: 250ms, evaluation_interval: 250ms}}\nrule_files: ['{RULES}']\n"
                       f"scrape_configs: [{{job_name: maintd, static_configs: [{{targets: ['{target}']}}]}}]\n")
        with open(os.path.join(self.folder, "log"), "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(
                ["prometheus", "--config.file", os.path.join(self.folder, "prometheus.yml"),
                 "--storage.tsdb.path", os.path.join(self.folder, "data"), "--web.listen-address", self.address],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def close(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        shutil.rmtree(self.folder)

    def get(self, path, **parameters):
        url = f"http://{self.address}/api/v1/{path}?{urllib.parse.urlencode(parameters)}"
        with urllib.request.urlopen(url, timeout=PATIENCE) as reply:
            return json.load(reply)["data"]

    def ask(self, query):
        return self.get("query", query=query)["result"]

    def until(self, query):
        """Waits until a query has a result, which it gives."""
        end = time.monotonic() + PATIENCE
        while True:
            try:
                if result := self.ask(query):
                    return result
            except OSError:
                pass
            if time.monotonic() > end or self.process.poll() is not None:
                raise AssertionError(f"no result: {query}\n" + read(os.path.join(self.folder, "log")))
            time.sleep(0.1)


class Scraped(MonitoringTest):
    def test_aDrainCanBeFollowedByPrometheus(self):
        prometheus = Prometheus(self.web)
        self.addCleanup(prometheus.close)
        answered = set()
        wanted = [query.replace("$instance", self.web).replace("$unit", ".*").replace("$interface", ".*")
                  .replace("$__rate_interval", "1m")
                  for query in queries(json.loads(read(DASHBOARD))) if not query.startswith("label_values(")]
        for state in self.maintenance():
            # As scraped from now on.
            scraped = f'maint_unit_state{{unit="u1", state="{state}"}}'
            prometheus.until(f"({scraped} == 1) and timestamp({scraped}) > {time.time()}")
            answered |= {query for query in wanted if prometheus.ask(query)}
        # What nobody can do to a simulated link, and what does not happen here.
        never = [query for query in wanted if "drift" in query or "problems" in query]
        self.assertEqual(sorted(set(wanted) - answered), sorted(never))
        # Each state, in order of time.
        seen = prometheus.ask('maint_unit_state{unit="u1"}[10m]')
        times = {one["metric"]["state"]: [float(at) for at, value in one["values"] if value == "1"] for one in seen}
        self.assertEqual(sorted(times), sorted(STATES))
        self.assertEqual(sorted(STATES, key=lambda state: times[state][0]), STATES)
        self.assertGreater(times["normal"][-1], times["exiting"][-1])
        groups = prometheus.get("rules")["groups"]
        self.assertEqual({rule["health"] for group in groups for rule in group["rules"]}, {"ok"})


if __name__ == "__main__":
    unittest.main()
