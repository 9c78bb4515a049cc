#!/usr/bin/env python3
"""Tests of the stage command wait, and with it of what all stage commands share."""

import os
import signal
import time
import unittest

from stagerig import StageTest


class Waiting(StageTest):
    def seconds(self, *words, **told):
        """How long a run takes that has to succeed."""
        began = time.monotonic()
        self.passes(self.run_("wait", *words, told=told))
        return time.monotonic() - began

    def test_lastsAsLongAsItIsTold(self):
        self.assertGreaterEqual(self.seconds("enter", "0.5"), 0.5)

    def test_isTheSameOnTheWayBack(self):
        self.assertGreaterEqual(self.seconds("exit", "0.5", recorded={"operation": "enter", "since": 0}), 0.5)

    def test_endsAtOnceWhenItIsStopped(self):
        process = self.start("wait", "enter", "300")
        process.stdin.close()
        while process.stdout.readline() != "waits 300 s\n":
            self.assertIsNone(process.poll())
        process.terminate()
        self.assertEqual(process.wait(20), -signal.SIGTERM)
        process.stdout.close()
        process.stderr.close()

    def test_endsWhenTheFirstRunWouldHave(self):
        run = self.run_("wait", "enter", "300", told={
            "rerun": True, "recorded": {"operation": "enter", "since": time.time() - 299.9}})
        self.passes(run)
        self.assertEqual(run.records, [])

    def test_isNeverLongerThanItIsTold(self):
        self.assertLess(self.seconds("enter", "0.2", rerun=True, recorded={
            "operation": "enter", "since": time.time() + 1000}), 30)

    def test_beginsAnewForTheOtherDirection(self):
        self.assertGreaterEqual(self.seconds("exit", "0.5", rerun=True, recorded={
            "operation": "enter", "since": time.time() - 1000}), 0.5)

    def test_refusesWhatIsNoTime(self):
        for text in ("x", "-1", "nan", "1s", "inf"):
            with self.subTest(text):
                run = self.run_("wait", "enter", text)
                self.assertEqual(run.status, 2)
                self.assertIn("SECONDS", run.errors[-1])


class BeingTold(StageTest):
    def test_refusesWhatIsNoJson(self):
        self.fails(self.run_("wait", "enter", "0", given="{"), "something else than JSON")

    def test_refusesWhatIsNoObject(self):
        self.fails(self.run_("wait", "enter", "0", given="[]"), "one JSON object")

    def test_refusesInterfacesWithoutNames(self):
        for interfaces in ([{}], ["et1"], 3, [{"name": None}], {"name": "et1"}, None):
            with self.subTest(interfaces):
                self.fails(self.run_("wait", "enter", "0", told={"interfaces": interfaces}), '"interfaces"')

    def test_refusesARecordThatIsNoObject(self):
        self.fails(self.run_("wait", "enter", "0", told={"recorded": 1}), '"recorded"')

    def test_mayBeToldNothing(self):
        self.passes(self.run_("wait", "enter", "0", given=""))

    def test_explainsItself(self):
        for name in ("wait", "kernel-routes", "frr-graceful-shutdown"):
            with self.subTest(name):
                run = self.run_(name, "--help")
                self.passes(run)
                self.assertIn("{enter,exit}", "".join(run.log))


class Records(StageTest):
    def setUp(self):
        super().setUp()
        self.agent, self.kept = os.pipe()
        self.addCleanup(os.close, self.agent)

    def acknowledged(self, answer):
        os.write(self.kept, answer)
        os.close(self.kept)
        return self.run_("wait", "enter", "0", kept=self.agent)

    def test_areWaitedForUntilTheyAreKept(self):
        run = self.acknowledged(b"\n")
        self.passes(run)
        self.assertEqual(run.records[0]["operation"], "enter")

    def test_areLostWithTheAgentAndNothingIsDone(self):
        self.fails(self.acknowledged(b""), "the agent has gone")

    def test_needADescriptorThatIsThere(self):
        os.close(self.kept)
        self.fails(self.run_("wait", "enter", "0", kept=self.agent, handOver=False), "cannot read descriptor")


if __name__ == "__main__":
    unittest.main()
