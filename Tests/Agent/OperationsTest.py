#!/usr/bin/env python3
"""Operations as scripts meet them: over the socket, many at once, by clients that are killed, by the command itself."""

import json
import os
import pwd
import random
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from agentrig import Agent, configuration  # noqa: E402

ENTER = "/api/v1/units/u1/enter"


def request(path, body):
    text = json.dumps(body)
    return (f"POST {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: {len(text)}\r\n\r\n"
            f"{text}").encode()


class Operations(unittest.TestCase):
    def setUp(self):
        self.agent = Agent("")
        self.addCleanup(self.agent.close)
        self.agent.configure(configuration(self.agent.command("steer", "exit 0")))
        self.agent.start()

    def operations(self, query=""):
        return self.agent.get("/api/v1/operations" + query).json

    def socket(self):
        client = socket.socket(socket.AF_UNIX)
        self.addCleanup(client.close)
        # One that gives up after a time would not wait for its turn to connect.
        client.connect(self.agent.path("run/control.sock"))
        client.settimeout(60)
        return client

    def program(self):
        return os.path.join(self.agent.build, "bin", "maintctl")

    def ctl(self, *words):
        return subprocess.run(
            [self.program(), "--socket", self.agent.path("run/control.sock"), *words],
            capture_output=True, text=True, timeout=60, check=False)

    def test_aThousandIdenticalRequestsAtOnceMakeOneOperation(self):
        """As many connections as the agent serves at a time, again and again, all asking before any is answered."""
        bytes_ = request(ENTER, {"reason": "job", "request-key": "k"})
        answers = []
        while len(answers) < 1000:
            clients = [self.socket() for _ in range(min(200, 1000 - len(answers)))]
            for client in clients:
                client.sendall(bytes_)
            for client in clients:
                answer = b""
                while more := client.recv(65536):
                    answer += more
                client.close()
                self.assertIn(b" 202 ", answer.splitlines()[0])
                answers.append(json.loads(answer.partition(b"\r\n\r\n")[2]))
        self.assertEqual({1}, {answer["operation"] for answer in answers})
        self.assertEqual(1, sum(answer["changed"] for answer in answers))
        self.assertEqual(999, sum(answer["repeated"] for answer in answers))
        self.assertEqual(1, len(self.operations()))
        self.assertEqual(1, self.agent.unit("u1")["generation"])

    def test_clientsThatAreKilledChangeNothingOfWhatWasAccepted(self):
        """Real clients, killed at any moment: what was accepted is there and whole, the rest is not there."""
        chance = random.Random(7)
        begun = time.monotonic()
        self.ctl("show", "units")
        length = time.monotonic() - begun
        for i in range(40):
            way = "enter" if i % 2 == 0 else "exit"
            client = subprocess.Popen(
                [self.program(), "--socket", self.agent.path("run/control.sock"), way, "u1", "--request-key", f"k{i}",
                 "--with", f"round={i}"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(chance.uniform(0, 1.5 * length))
            client.send_signal(signal.SIGKILL)
            client.wait()
            self.checkWhole()
        # A client that leaves in the middle of its request has asked for nothing.
        bytes_ = request(ENTER, {"request-key": "half"})
        for size in (1, 40, len(bytes_) - 1):
            with self.socket() as client:
                client.sendall(bytes_[:size])
        # One that leaves without its answer has asked all the same, once its request was taken.
        before = len(self.operations("?limit=1000"))
        with self.socket() as client:
            client.sendall(request("/api/v1/units/u2/enter", {"request-key": "whole"}))
            self.agent.until(lambda: len(self.operations("?limit=1000")) == before + 1)
        self.assertEqual("whole", self.operations("?limit=1")[0]["request-key"])
        self.assertNotIn("half", {operation["request-key"] for operation in self.operations("?limit=1000")})
        told = self.operations("?limit=1000")
        self.agent.kill(signal.SIGKILL)
        self.agent.start()
        self.assertEqual(
            [(of["id"], of["kind"], of["unit"], of["by"], of["with"]) for of in told],
            [(of["id"], of["kind"], of["unit"], of["by"], of["with"]) for of in self.operations("?limit=1000")])
        self.checkWhole()

    def operationsAndUnits(self):
        """As they are at one moment: a unit may come to its end between two looks."""
        while True:
            operations = self.operations("?limit=1000")
            units = {name: self.agent.unit(name) for name in ("u1", "u2")}
            if operations == self.operations("?limit=1000"):
                return operations, units

    def checkWhole(self):
        operations, units = self.operationsAndUnits()
        self.assertEqual(list(range(len(operations), 0, -1)), [operation["id"] for operation in operations])
        for operation in operations:
            if (key := operation["request-key"] or "").startswith("k"):
                self.assertEqual({"round": key[1:]}, operation["with"])
                self.assertEqual("enter" if int(key[1:]) % 2 == 0 else "exit", operation["kind"])
        running = {of["unit"]: of["id"] for of in operations if of["state"] == "running"}
        self.assertEqual(len(running), sum(of["state"] == "running" for of in operations))
        for name, unit in units.items():
            self.assertEqual(
                unit["operation"] if unit["state"] in ("entering", "exiting") else None, running.get(name), unit)

    def test_aScriptThatRunsTwiceReportsNoChangeTheSecondTime(self):
        """What playbooks do: bring it about, say whether anything has changed, go by the exit status."""
        def play(way):
            done = self.ctl("-j", way, "u1", "u2", "--reason", "job 7", "--with", "job=7")
            self.assertEqual(0, done.returncode, done.stdout + done.stderr)
            return [task["changed"] for task in json.loads(done.stdout)]

        self.assertEqual([True, True], play("enter"))
        self.agent.until(lambda: self.agent.unit("u1")["stage"] == self.agent.unit("u2")["stage"] == "drainwatch")
        self.agent.advance(60)
        self.assertEqual([False, False], play("enter"))
        self.assertEqual([True, True], play("exit"))
        self.agent.until(lambda: self.agent.unit("u1")["state"] == self.agent.unit("u2")["state"] == "normal")
        self.assertEqual([False, False], play("exit"))
        self.assertEqual([{"job": "7"}] * 4, [operation["with"] for operation in self.operations()])
        self.assertEqual(["done"] * 4, [operation["state"] for operation in self.operations()])

    def test_severalUnitsAreReportedEach(self):
        done = self.ctl("enter", "u1", "nobody", "u2")
        self.assertEqual(1, done.returncode)
        self.assertEqual(
            ["u1 is entering, generation 1, operation 1", "u2 is entering, generation 1, operation 2"],
            done.stdout.splitlines())
        self.assertIn("there is no unit nobody", done.stderr)
        table = self.ctl("operations", "--state", "running").stdout.splitlines()
        self.assertEqual(["2", "enter", "u2", "running"], table[1].split()[:4])
        self.assertIn("goes into maintenance", self.ctl("operation", "1").stdout)
        self.assertEqual(1, self.ctl("operation", "9").returncode)

    def asUser(self, user, bytes_):
        """A request of another user, who is in the group that may ask."""
        os.chmod(self.agent.path("run"), 0o755)
        child = os.fork()
        if child == 0:
            try:
                # From inside: the folders above may be closed to others.
                os.chdir(self.agent.path("run"))
                group = os.stat("control.sock").st_gid
                os.setgroups([])
                os.setresgid(group, group, group)
                os.setresuid(user, user, user)
                with socket.socket(socket.AF_UNIX) as client:
                    client.connect("control.sock")
                    client.sendall(bytes_)
                    answer = client.recv(65536)
                os._exit(0 if b" 202 " in answer.splitlines()[0] else 2)
            finally:
                os._exit(1)
        self.assertEqual(0, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))

    def test_areOfWhoeverHasAskedAndNotOfTheAgentsUser(self):
        """Two users ask the same agent: each is the one that the kernel tells of its end of the connection."""
        if os.geteuid() != 0:
            self.skipTest("only root can ask as another user")
        for unit, user in (("u1", "nobody"), ("u2", "root")):
            self.asUser(pwd.getpwnam(user).pw_uid, request(f"/api/v1/units/{unit}/enter", {}))
        self.assertEqual(["root", "nobody"], [operation["by"] for operation in self.operations()])
        self.assertEqual(["nobody", "root"], [self.agent.unit(unit)["by"] for unit in ("u1", "u2")])
        # A signal has a sender too.
        self.agent.configure(configuration(self.agent.path("steer"), units={"u1": "uplinks", "u2": "uplinks", "u3": "uplinks"}))
        self.agent.process.send_signal(signal.SIGHUP)
        self.agent.until(lambda: len(self.operations()) == 3)
        self.assertEqual("root", self.operations()[0]["by"])

    def test_aSignalReloadsAndWhatItDidIsListed(self):
        user = pwd.getpwuid(os.geteuid()).pw_name
        good = configuration(self.agent.path("steer"), units={"u1": "uplinks", "u2": "uplinks", "u3": "uplinks"})

        def signalled(text):
            self.agent.configure(text)
            self.agent.process.send_signal(signal.SIGHUP)

        signalled("version: 1\nunits: {\n")
        self.agent.until(lambda: "maintd.yaml" in json.dumps(self.agent.get("/api/v1/agent").json["problems"]))
        self.assertEqual([], self.operations())
        self.assertEqual(["u1", "u2"], [unit["name"] for unit in self.agent.get("/api/v1/units").json])
        signalled(good)
        self.agent.until(lambda: self.operations())
        operation, = self.operations()
        self.assertEqual(
            ("reload", None, "done", user, "it was told so by a signal"),
            tuple(operation[name] for name in ("kind", "unit", "state", "by", "reason")))
        self.assertEqual(operation["begun"], operation["ended"])
        self.assertIn("u3", operation["text"])
        row = self.ctl("operations").stdout.splitlines()[1].split()
        self.assertEqual(["1", "reload", "done"], [row[0], row[1], next(word for word in row if word == "done")])
        self.assertIn(user, row)
        self.assertEqual([], self.agent.get("/api/v1/agent").json["problems"])


if __name__ == "__main__":
    unittest.main()
