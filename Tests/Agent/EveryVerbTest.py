"""Every verb of the command with -j, and every exit status of the programs.

The verbs and their options are those of --help, so what is added there has to be added here: a row that carries it out, with
each of its options in one row at least.
"""

import concurrent.futures
import glob
import http.server
import json
import os
import re
import signal
import socketserver
import subprocess
import sys
import threading
import unittest

sys.dont_write_bytecode = True
from agentrig import PATIENCE, REPOSITORY, Agent, configuration  # noqa: E402

BUILD = os.environ["MAINT_BUILD"]
DONE, FAILED, USAGE, UNREACHABLE, NOT_MET, NEEDS_FORCE, INTERRUPTED = 0, 1, 2, 3, 4, 5, 130


class Row:
    """One command line, how it ends with an agent, and how without one. `goesOn`: it does not end by itself; then it is
    interrupted when it has said something, and what it says are documents of one line."""

    def __init__(self, arguments, status=DONE, without=UNREACHABLE, goesOn=False):
        self.arguments = arguments
        self.status = status
        self.without = without
        self.goesOn = goesOn

    def __repr__(self):
        return self.arguments


# In this order on one agent: u1 and u2 stand in for each other. CONFIG, LOG and WRONG are files.
ROWS = {
    "enter": [
        Row("enter u1 --reason upgrade --session 192.0.2.7"),
        Row("enter u1 --deadline 1h --on-overrun keep --revert-after 2h"),
        Row("enter u1 --deadline 0s", USAGE, USAGE),
        Row("enter u1 --wait --timeout 0s", NOT_MET),
        Row("enter u2", NEEDS_FORCE),
        Row("enter u2 --force --reason must"),
        Row("enter nobody", FAILED),
        Row("enter u1 nobody u2 --reason both", FAILED),
        Row("enter u1 u2 --request-key k1 --with a=b --with c=d"),
        Row("enter u1 --with a", USAGE, USAGE),
        Row("enter u1 --force", USAGE, USAGE),
    ],
    "exit": [
        Row("exit u2 --reason back --request-key k2 --with a=b"),
        Row("exit u2 --wait --timeout 1m"),
        Row("exit nobody", FAILED),
        Row("exit", USAGE, USAGE),
    ],
    "plan": [Row("plan u1"), Row("plan u1 --session 192.0.2.7"), Row("plan nobody", FAILED)],
    "wait": [
        Row("wait u1 --for=maintenance --timeout 0s", NOT_MET),
        Row("wait nobody --for=normal", FAILED),
        Row("wait u1 --for=lunch", USAGE, USAGE),
    ],
    "show": [Row("show --watch --interval 1s", INTERRUPTED, UNREACHABLE, goesOn=True), Row("show", USAGE, USAGE)],
    "show units": [Row("show units"), Row("show units --watch --interval 1s", INTERRUPTED, goesOn=True)],
    "show unit": [
        Row("show unit u1"),
        Row("show unit nobody", FAILED),
        Row("show unit u1 --watch --interval 1s", INTERRUPTED, goesOn=True),
    ],
    "show interfaces": [
        Row("show interfaces"),
        Row("show interfaces u1"),
        Row("show interfaces nobody", FAILED),
        Row("show interfaces --watch --interval 1s", INTERRUPTED, goesOn=True),
    ],
    "show interface": [
        Row("show interface et1"),
        Row("show interface nobody", FAILED),
        Row("show interface et1 --watch --interval 1s", INTERRUPTED, goesOn=True),
    ],
    "show profiles": [Row("show profiles"), Row("show profiles --watch", USAGE, USAGE)],
    "show groups": [Row("show groups")],
    "show counters": [Row("show counters")],
    "show agent": [Row("show agent")],
    "explain": [Row("explain u1"), Row("explain nobody", FAILED)],
    "history": [Row("history"), Row("history u1 --limit 1"), Row("history nobody", FAILED)],
    "report": [
        Row("report 1"),
        Row("report 77", FAILED),
        Row("report 1 --csv", USAGE, USAGE),
        Row("report x", USAGE, USAGE),
    ],
    "operations": [
        Row("operations"),
        Row("operations u1 --state running --limit 5"),
        Row("operations nobody", FAILED),
    ],
    "operation": [Row("operation 1"), Row("operation 77", FAILED), Row("operation x", USAGE, USAGE)],
    "events": [
        Row("events"),
        Row("events --after 0 --last 3"),
        Row("events --after 0 --follow", INTERRUPTED, goesOn=True),
    ],
    "dump": [Row("dump")],
    "fastlog": [
        Row("fastlog", without=DONE),
        Row("fastlog --file LOG --last 3", without=DONE),
        Row("fastlog --run 3", FAILED, FAILED),
        Row("fastlog --file WRONG", FAILED, FAILED),
    ],
    "trace": [Row("trace"), Row("trace *=0"), Row("trace Nothing=1", FAILED), Row("trace x", USAGE, USAGE)],
    # In the minute u1 drains, so et1 is shut and held.
    "simulated advance": [
        Row("simulated advance 5s"),
        Row("simulated advance 1m"),
        Row("simulated advance 5", USAGE, USAGE),
    ],
    "release": [
        Row("release et1", NEEDS_FORCE),
        Row("release et1 --force --reason must --with a=b --with c=d --request-key k3"),
        Row("release et1 --force --reason must --with a=b --with c=d --request-key k3"),
        Row("release et1 --force --reason other --request-key k3", FAILED),
        Row("release et1 --force --with a", USAGE, USAGE),
        Row("release nobody --force --reason must", FAILED),
    ],
    "validate": [Row("validate CONFIG", without=DONE), Row("validate WRONG", FAILED, FAILED)],
    "reload": [Row("reload"), Row("reload --reason new --with a=b --request-key k4")],
    "simulated traffic": [
        Row("simulated traffic et3 --in 5Mbps --out 1Mbps"),
        Row("simulated traffic et3 --to 0bps --ramp 5s"),
        Row("simulated traffic nobody --to 0bps", FAILED),
    ],
    "simulated link": [Row("simulated link et3 down"), Row("simulated link et3 up"), Row("simulated link x up", FAILED)],
}
ALL = [row for rows in ROWS.values() for row in rows]


def program(name):
    return os.path.join(BUILD, "bin", name)


def helpOf(*command):
    return subprocess.run(command + ("--help",), capture_output=True, text=True, check=True).stdout


def verbsOf(text):
    listed = text.partition("\nVerbs:\n")[2] or text.partition("\nVERBs:\n")[2]
    return re.findall(r"^  ([a-z-]+)\b", listed.partition("\n\n")[0], re.M)


def optionsOf(text):
    return set(re.findall(r"(?m)^\s+(?:-\w,)?(--[a-z-]+)", text)) - {"--help"}


def verbs():
    """The options of all verbs; a verb with others below it is one too if it has options."""
    result = {}
    for verb in verbsOf(helpOf(program("maintctl"))):
        text = helpOf(program("maintctl"), verb)
        below = verbsOf(text)
        if optionsOf(text) or not below:
            result[verb] = optionsOf(text)
        for word in below:
            result[f"{verb} {word}"] = optionsOf(helpOf(program("maintctl"), verb, word))
    return result


class Said:
    def __init__(self, status, out, err):
        self.status = status
        self.out = out
        self.err = err

    def __repr__(self):
        return f"ended with {self.status}, said {self.out[:2000]!r} and {self.err[:2000]!r}"

    def documents(self, lines):
        return [json.loads(line) for line in self.out.splitlines()] if lines else [json.loads(self.out)]


class EveryVerb(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.agent = Agent(configuration("/bin/true") + "redundancy-groups: {both: {units: [u1, u2], max-out: 1}}\n")
        self.addCleanup(self.agent.close)
        with open(self.agent.path("wrong"), "w", encoding="utf-8") as file:
            file.write("version: 2\n")

    def command(self, row, *before):
        files = {"CONFIG": "maintd.yaml", "LOG": "run/fastlog", "WRONG": "wrong"}
        words = [self.agent.path(files[word]) if word in files else word for word in row.arguments.split()]
        return [program("maintctl"), "-j", "--socket", self.agent.path("run/control.sock"), *before, *words]

    def said(self, row, goesOn=False):
        process = subprocess.Popen(
            self.command(row), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        first = ""
        try:
            if goesOn:
                first = process.stdout.readline()
                process.send_signal(signal.SIGINT)
            out, err = process.communicate(timeout=PATIENCE * 2)
        except subprocess.TimeoutExpired:
            process.kill()
            out, err = process.communicate()
            err += "did not end"
        return Said(process.returncode, first + out, err)

    def check(self, row, said, statuses, lines=False):
        """It has ended so, and what it has said are JSON documents and nothing else."""
        self.assertIn(said.status, statuses, said)
        self.assertEqual("", said.err, said)
        try:
            documents = said.documents(lines)
        except ValueError as error:
            self.fail(f"{error}: {said}")
        self.assertTrue(documents, said)
        if said.status not in (DONE, INTERRUPTED):
            # Of several units each has an object of its own.
            last = documents[-1] if isinstance(documents[-1], list) else documents[-1:]
            error = next(each["error"] for each in last if "error" in each)
            self.assertTrue(error["code"] and error["message"], said)
            self.assertIn("where", error, said)

    def checkAll(self, statuses, rows=None, atOnce=False):
        """`statuses`: how a row may end."""
        rows = ALL if rows is None else rows
        # Those that wait for an agent that hangs wait for half a minute each.
        with concurrent.futures.ThreadPoolExecutor(len(rows) if atOnce else 4) as pool:
            for row, said in zip(rows, pool.map(self.said, rows)):
                with self.subTest(row=row):
                    self.check(row, said, statuses(row))

    def test_hasARowWithEachOfItsOptions(self):
        there = verbs()
        self.assertIn("--reason", there["enter"])
        self.assertIn("show unit", there)
        self.assertEqual(sorted(there), sorted(ROWS), "a verb and the rows that carry it out")
        for verb, options in there.items():
            used = {word for row in ROWS[verb] for word in re.findall(r"--[a-z-]+", row.arguments)}
            self.assertEqual(set(), options - used, f"{verb}: options that no row has")
            for row in ROWS[verb]:
                self.assertTrue(row.arguments.startswith(verb), row)

    def test_saysJsonAndEndsAsItShould(self):
        self.agent.start()
        for row in ALL:
            with self.subTest(row=row):
                self.check(row, self.said(row, row.goesOn), [row.status], lines=row.goesOn)

    def test_saysJsonWhereThereIsNoAgent(self):
        self.agent.start()
        self.agent.kill(signal.SIGKILL)
        self.checkAll(lambda row: [row.without])
        # And where there is nothing at all that one could have left.
        os.remove(self.agent.path("run/control.sock"))
        self.checkAll(lambda row: [row.without], [rows[0] for rows in ROWS.values()])

    def test_saysJsonWhileTheAgentHangs(self):
        self.agent.start()
        os.kill(self.agent.process.pid, signal.SIGSTOP)
        self.checkAll(lambda row: [row.without], [rows[0] for rows in ROWS.values()], atOnce=True)

    def test_saysJsonWhateverTheAgentAnswers(self):
        """An agent of another version, or what is no agent at all."""
        answers = [(200, body) for body in (b"not json", b"", b"[]", b'"\xff\xfe"', b"[" * 20000)]
        answers += [(200, b'{"name": [1], "state": 7, "error": {}, "interfaces": {"et1": 3}}'), (503, b"{}"), (503, b"no")]
        os.makedirs(self.agent.path("run"))
        # One row of each verb that asks the agent.
        rows = [row for row in (rows[0] for rows in ROWS.values()) if not row.goesOn and row.without == UNREACHABLE]
        for status, body in answers:
            allowed = [DONE, FAILED] if status == 200 else [FAILED]
            with Answering(self.agent.path("run/control.sock"), status, body), self.subTest(status=status, body=body[:80]):
                self.checkAll(lambda row, allowed=allowed: allowed, rows)

    def test_saysUsageAndHelpAsJson(self):
        for verb in verbs():
            for words, status in (("--nonsense", USAGE), ("--help", DONE), ("-h", DONE)):
                row = Row(f"{verb} {words}")
                with self.subTest(row=row):
                    self.check(row, self.said(row), [status])
        for arguments in ("", "nonsense", "--nonsense", "-x", "--version", "--help", "-h"):
            row = Row(arguments)
            with self.subTest(row=row):
                self.check(row, self.said(row), [DONE if arguments in ("--version", "--help", "-h") else USAGE])

    def test_saysNothingElseWhereItCannotWrite(self):
        self.agent.start()
        with open("/dev/full", "w", encoding="utf-8") as full:
            done = subprocess.run(self.command(Row("show units")), stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(FAILED, done.returncode)


class Answering:
    """What answers every request alike."""

    def __init__(self, path, status, body):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.rfile.read(int(self.headers.get("Content-Length", 0)))
                self.send_response(status)
                self.send_header("Content-Length", str(len(body)))
                self.send_header("Connection", "close")
                self.end_headers()
                self.wfile.write(body)

            do_POST = do_GET

            def log_message(self, *ignored):
                pass

            def address_string(self):
                return ""

        class Server(socketserver.ThreadingUnixStreamServer):
            daemon_threads = True
            request_queue_size = 128

            def handle_error(self, *ignored):
                pass

        self.path = path
        self.server = Server(path, Handler)

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()

    def __exit__(self, *ignored):
        self.server.shutdown()
        self.server.server_close()
        os.remove(self.path)


class Statuses(unittest.TestCase):
    """Each status that the man page of a program names is reached, and no others are."""

    def documented(self, page):
        with open(os.path.join(REPOSITORY, "docs", "man", page), encoding="utf-8") as file:
            section = file.read().partition(".SH EXIT STATUS\n")[2].partition("\n.SH")[0]
        return {int(status) for status in re.findall(r"^\.B (\d+)$", section, re.M)}

    def agent(self):
        agent = Agent(configuration("/bin/true"))
        self.addCleanup(agent.close)
        return agent

    def maintd(self, agent, *arguments):
        own = {"--config": "maintd.yaml", "--state-dir": "state", "--runtime-dir": "run", "--plugin-dir": "plugins"}
        given = [word for option, name in own.items() if option not in arguments for word in (option, agent.path(name))]
        return subprocess.Popen(
            [program("maintd"), "--foreground", *given, *arguments],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def ended(self, how, number):
        """Of an agent that was told so when it ran."""
        def row():
            agent = self.agent()
            process = agent.process = self.maintd(agent, *how)
            agent.until(lambda: agent.get("/api/v1/agent").status == 200)
            process.send_signal(number)
            return process.wait(PATIENCE)
        return row

    def ofMaintd(self, *arguments, config=None, other=False):
        """`other`: there is an agent already."""
        def row():
            agent = self.agent()
            if config is not None:
                agent.configure(config)
            if other:
                agent.start()
            return self.maintd(agent, *arguments).wait(PATIENCE)
        return row

    def inBackground(self):
        agent = self.agent()
        agent.configure("version: 2\n")
        return subprocess.run(
            [program("maintd"), "--config", agent.path("maintd.yaml"), "--state-dir", agent.path("state"),
             "--runtime-dir", agent.path("run")], stdin=subprocess.DEVNULL, capture_output=True, check=False).returncode

    def withoutAStore(self, *arguments):
        def row():
            agent = self.agent()
            os.mkdir(agent.path("state"))
            with open(agent.path("state/state.mdb"), "w", encoding="utf-8") as file:
                file.write("no store")
            return self.maintd(agent, *arguments).wait(PATIENCE)
        return row

    def releaseWithoutAClock(self):
        """Links are held, and then there is something in the way."""
        agent = self.agent().start()
        agent.done("/api/v1/units/u2/enter")
        agent.until(lambda: agent.advance(10) and agent.unit("u2")["state"] == "maintenance")
        agent.kill(signal.SIGKILL)
        agent.configure(configuration("/bin/true").replace("clock: virtual", "clock: real"))
        os.makedirs(agent.path("run/clock.new/full"))
        return self.maintd(agent, "--release-all").wait(PATIENCE)

    def ofMaintctl(self, arguments, socket=None):
        """With an agent, whose u1 enters."""
        def row():
            return subprocess.run(
                [program("maintctl"), "--socket", socket or self.entering.path("run/control.sock"), *arguments.split()],
                stdin=subprocess.DEVNULL, capture_output=True, check=False).returncode
        return row

    def interrupted(self):
        process = subprocess.Popen(
            [program("maintctl"), "--socket", self.entering.path("run/control.sock"), "wait", "u1", "--for=maintenance"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        process.stderr.readline()
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=PATIENCE)
        return process.returncode

    def check(self, page, rows):
        with self.subTest(page=page):
            self.assertEqual(self.documented(page), set(rows), "what is documented, and what is reached here")
        for status, ways in rows.items():
            for number, way in enumerate(ways):
                with self.subTest(page=page, status=status, way=number):
                    self.assertEqual(status, way())

    def test_ofTheCommand(self):
        self.entering = self.agent().start()
        self.entering.done("/api/v1/units/u1/enter")
        self.check("maintctl.1", {
            DONE: [self.ofMaintctl("show units"), self.ofMaintctl("--help")],
            FAILED: [self.ofMaintctl("enter nobody"), self.ofMaintctl("validate /dev/null")],
            USAGE: [self.ofMaintctl("enter"), self.ofMaintctl("--nonsense")],
            UNREACHABLE: [self.ofMaintctl("show units", socket="/dev/null")],
            NOT_MET: [self.ofMaintctl("wait u1 --for=maintenance --timeout 0s")],
            NEEDS_FORCE: [self.ofMaintctl("release et1")],
            INTERRUPTED: [self.interrupted],
        })

    def test_ofTheAgent(self):
        self.check("maintd.8", {
            0: [self.ended([], signal.SIGTERM), self.ended(["--supervise"], signal.SIGTERM), self.ended([], signal.SIGINT),
                self.ofMaintd("--release-all"), self.ofMaintd("--help"), self.ofMaintd("--version")],
            1: [self.ofMaintd(other=True), self.ofMaintd("--state-dir", "/dev/null"), self.withoutAStore("--release-all")],
            2: [self.ofMaintd("--nonsense"), self.ofMaintd("--trace", "x=10"), self.ofMaintd("--release-all", "--supervise")],
            3: [self.releaseWithoutAClock],
            4: [self.ofMaintd("--release-all", other=True)],
            65: [self.withoutAStore(), self.withoutAStore("--supervise")],
            78: [self.ofMaintd(config="version: 2\n"), self.ofMaintd("--supervise", config="version: 2\n"), self.inBackground],
        })

    def test_ofASupervisorWhoseAgentIsKilledWhileItEnds(self):
        agent = self.agent()
        process = agent.process = self.maintd(agent, "--supervise")
        agent.until(lambda: agent.get("/api/v1/agent").status == 200)
        own = agent.get("/api/v1/agent").json["pid"]

        def isAskedToEnd():
            with open(f"/proc/{own}/status", encoding="utf-8") as file:
                pending = int(re.search(r"^ShdPnd:\s*(\w+)", file.read(), re.M).group(1), 16)
            return pending & 1 << (signal.SIGTERM - 1)

        os.kill(own, signal.SIGSTOP)
        process.send_signal(signal.SIGTERM)
        agent.until(isAskedToEnd)
        os.kill(own, signal.SIGKILL)
        self.assertEqual(128 + signal.SIGKILL, process.wait(PATIENCE))

    def ofStage(self, name, *arguments, told="{}", interrupt=False):
        def row():
            process = subprocess.Popen(
                [os.path.join(REPOSITORY, "Stages", name), *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                stderr=subprocess.DEVNULL, text=True)
            process.stdin.write(told)
            process.stdin.close()
            if interrupt:
                while not process.stdout.readline().startswith("waits"):
                    self.assertIsNone(process.poll())
                process.send_signal(signal.SIGINT)
            process.stdout.read()
            process.stdout.close()
            return process.wait(PATIENCE)
        return row

    def test_ofTheStages(self):
        names = [name for name in os.listdir(os.path.join(REPOSITORY, "Stages"))
                 if "." not in name and os.access(os.path.join(REPOSITORY, "Stages", name), os.X_OK)
                 and os.path.isfile(os.path.join(REPOSITORY, "Stages", name))]
        self.assertEqual(["frr-graceful-shutdown", "kernel-routes", "wait"], sorted(names))
        of = {"wait": ["0"], "kernel-routes": ["--ip", "/nowhere"], "frr-graceful-shutdown": ["--vtysh", "/nowhere"]}
        self.check("maintd-stages.8", {
            0: [self.ofStage("wait", "enter", "0"), *(self.ofStage(name, "--help") for name in names)],
            1: [self.ofStage(name, "enter", *of[name], told="{") for name in names],
            2: [self.ofStage(name, "enter", *of[name], "--nonsense") for name in names],
            130: [self.ofStage("wait", "enter", "300", interrupt=True)],
        })

    def test_ofWhatPostsToTheUrlsOfHooks(self):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                self.rfile.read(int(self.headers["Content-Length"]))
                self.send_response(int(self.path[1:]))
                self.end_headers()

            def log_message(self, *ignored):
                pass

        def post(path):
            # Where it is in a build depends on the system.
            programs = glob.glob(os.path.join(BUILD, "lib*", "**", "http-hook"), recursive=True)
            environment = {"PATH": os.environ["PATH"]} | ({"MAINTD_URL": url + path} if path is not None else {})
            return subprocess.run(programs[:1], input=b"{}", env=environment, capture_output=True, check=False).returncode

        with open(os.path.join(REPOSITORY, "docs", "HOOKS.md"), encoding="utf-8") as file:
            said = re.search(r"`http-hook` ends with (\d+) if [^,]*, and with (\d+) if", file.read())
        done, failed = (int(status) for status in said.groups())
        server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        url = f"http://127.0.0.1:{server.server_port}/"
        threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()
        try:
            self.assertEqual([done] * 2 + [failed] * 3, [post(path) for path in ("200", "204", "302", "404", "500")])
        finally:
            server.shutdown()
            server.server_close()
        self.assertEqual(failed, post("200"), "nobody listens any more")
        self.assertEqual(failed, post(None), "there is no URL")

    def test_ofAllProgramsThatNameThem(self):
        pages = {os.path.basename(path) for path in glob.glob(os.path.join(REPOSITORY, "docs", "man", "*.[0-9]"))}
        self.assertEqual({"maintctl.1", "maintd.8", "maintd-stages.8"}, {page for page in pages if self.documented(page)})


if __name__ == "__main__":
    unittest.main()
