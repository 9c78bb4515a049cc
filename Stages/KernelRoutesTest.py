#!/usr/bin/env python3
"""Tests of the stage command kernel-routes where a real kernel cannot be made to behave so; see RoutesOnLinuxTest.sh."""

import os
import unittest

from stagerig import StageTest

# The kernel is its state: routes as ip shows them, a family each; what it makes of a change; and all changes.
IP = '''
family, words = sys.argv[1], sys.argv[2:]
if "link" in words:
    if state.get("linksBroken"):
        sys.exit("Cannot open netlink socket")
    print(json.dumps([{"ifname": name, "ifindex": index, "flags": flags, "stats64": {"tx": tx}, **more}
                      for name, index, flags, tx, more in state["links"]]))
    sys.exit()
def key(route): return (route["dst"], route.get("metric", 0))
def parsed(words):
    route = {"dst": words[0], "flags": [], **{words[i]: words[i + 1] for i in range(1, len(words), 2)}}
    route = {{"proto": "protocol", "via": "gateway"}.get(name, name): value for name, value in route.items()}
    return {**route, "metric": int(route.get("metric", 0))} if "metric" in route else route
routes = state["routes"][family]
if "-batch" in words:
    if "dies" in state:
        sys.exit(state["dies"])
    for number, line in enumerate(sys.stdin.read().splitlines(), 1):
        verb, given = line.split()[1], line.split()[2:]
        state["changes"].append(line)
        if verb in state.get("refused", []):
            print("RTNETLINK answers: Operation not permitted", file=sys.stderr)
            print(f"Command failed -:{number}", file=sys.stderr)
            continue
        route = parsed(given)
        routes[:] = [one for one in routes if key(one) != key(route)]
        if verb != "del":
            routes.append({**route, **state.get("odd", {}).get(verb, {})})
    keep()
elif state.get("broken"):
    print(state["broken"][1])
    print("Cannot open netlink socket", file=sys.stderr)
    sys.exit(state["broken"][0])
elif "-json" in words:
    # As where a routing daemon has given its own number a name that there is already.
    numbers = {"boot": "3", "static": "4", "dhcp": "16", "bgp": "186"}
    names = {**{number: name for name, number in numbers.items()}, "196": "static"}
    spelt = numbers if "-Numeric" in words else names
    shown = [{"type": "unicast", **route, "table": "main",
              "protocol": spelt.get(route["protocol"], route["protocol"])} for route in routes]
    print(json.dumps(shown[:-1] if state.get("flaps") and "-Numeric" in words else shown))
else:
    for route in routes:
        print(route["dst"], "mtu lock 1400" if "metrics" in route else "")
'''


def route(**more):
    return {"dst": "10.8.0.0/16", "gateway": "10.0.1.2", "dev": "et1", "protocol": "boot", "flags": [], **more}


def link(name, index=7, up=True, changes=2, kind=None):
    return [name, index, ["UP"] if up else [], {} if changes is None else {"carrier_changes": changes},
            {"linkinfo": {"info_kind": kind}} if kind else {}]


def boot():
    with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
        return file.read().strip()


class RoutesTest(StageTest):
    def setUp(self):
        super().setUp()
        self.ip = self.program("ip", IP)

    def kernel(self, *routes, **more):
        self.keep({"routes": {"-4": list(routes), "-6": []}, "changes": [], "links": [link("et1")], **more})

    def stage(self, operation, *words, timeout="20", interfaces=("et1",), **told):
        kept = {"kept": told.pop("kept")} if "kept" in told else {}
        return self.run_("kernel-routes", operation, "--ip", self.ip, "--timeout", timeout, *words, told={
            "interfaces": [{"name": name} for name in interfaces], **told}, **kept)

    def shown(self):
        return sorted((one["dst"], one.get("metric", 0), one["dev"]) for one in self.state["routes"]["-4"])


class Enter(RoutesTest):
    def test_recordsBeforeItChangesAnything(self):
        self.kernel(route())
        agent, kept = os.pipe()
        os.close(kept)
        run = self.stage("enter", kept=agent)
        os.close(agent)
        self.fails(run, "the agent has gone")
        self.assertEqual(self.state["changes"], [])
        self.assertEqual(run.records, [{"moves": [{
            "family": "inet", "table": "main", "by": 100000, "through": ["et1"],
            "routes": [{"dst": "10.8.0.0/16", "gateway": "10.0.1.2", "dev": "et1", "protocol": "boot"}]}],
            "boot": boot(), "links": {"et1": {"index": 7, "changes": 2}}}])

    def test_touchesNoOtherInterface(self):
        self.kernel(route(dev="et9"))
        run = self.stage("enter")
        self.passes(run)
        self.assertEqual((run.records, self.state["changes"]), ([{"moves": [], "boot": boot(), "links": {}}], []))

    def test_leavesRoutesOfADaemonAloneThatIpShowsAsSetByHand(self):
        self.kernel(route(protocol="static"), route(dst="10.9.0.0/16", protocol="196"))
        run = self.stage("enter")
        self.passes(run)
        self.assertIn('left alone: 1 of protocol "196"', run.log)
        self.assertEqual([("10.8.0.0/16", 100000, "et1"), ("10.9.0.0/16", 0, "et1")], self.shown())

    def test_movesThemWhenItIsToldTheirNumber(self):
        self.kernel(route(protocol="static"), route(dst="10.9.0.0/16", protocol="196"))
        run = self.stage("enter", "--protocol", "196")
        self.passes(run)
        self.assertEqual([("10.8.0.0/16", 0, "et1"), ("10.9.0.0/16", 100000, "et1")], self.shown())
        self.passes(self.stage("exit", recorded=run.records[-1]))
        self.assertEqual([("10.8.0.0/16", 0, "et1"), ("10.9.0.0/16", 0, "et1")], self.shown())

    def test_saysThatRoutesChangeTooFastToTellWhoseTheyAre(self):
        self.kernel(route(), route(dst="10.9.0.0/16"), flaps=True)
        self.fails(self.stage("enter"), "change too fast")

    def test_hasNothingToDoForAUnitWithoutInterfaces(self):
        self.kernel(route())
        self.passes(self.stage("enter", interfaces=()))
        self.assertEqual(self.state["changes"], [])

    def test_refusesWhatItCouldNotGiveBack(self):
        self.kernel(route(encap="ip", metrics=[{"mtu": 1, "rtt": 3}]))
        run = self.stage("enter")
        self.fails(run, "10.8.0.0/16 via 10.0.1.2 dev et1 metric 0: cannot be given back: encap, rtt; nothing was changed")
        self.assertEqual((run.records, self.state["changes"]), ([], []))

    def test_refusesNamesThatWouldPartWords(self):
        self.kernel(route(dev="e t"))
        self.fails(self.stage("enter", interfaces=("e t",)), "cannot be given back: e t")

    def test_refusesRoutesThatItCannotTellApart(self):
        self.kernel(route(), route(gateway="10.0.1.3"))
        self.fails(self.stage("enter"), "there are several with this metric")

    def test_refusesMoreThanIsKept(self):
        self.kernel(*(route(dst=f"10.{i // 256}.{i % 256}.0/24") for i in range(4000)))
        run = self.stage("enter")
        self.fails(run, "nothing was changed")
        self.assertEqual((run.records, self.state["changes"]), ([], []))

    def test_leavesOutRoutesThatCarryNothing(self):
        self.kernel(route(flags=["dead", "linkdown"]))
        run = self.stage("enter")
        self.passes(run)
        self.assertEqual(run.records, [{"moves": [], "boot": boot(), "links": {}}])

    def test_saysWhyTheKernelRefuses(self):
        self.kernel(route(), refused=["add"])
        run = self.stage("enter")
        self.fails(run, "add 10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: RTNETLINK answers: Operation not permitted")
        self.assertEqual(self.shown(), [("10.8.0.0/16", 0, "et1")])

    def test_takesBackWhatTheKernelDoesNotShowAsItWasAskedTo(self):
        self.kernel(route(), odd={"add": {"dev": "et7"}})
        self.fails(self.stage("enter"), "the kernel shows it otherwise")
        self.assertEqual(self.shown(), [("10.8.0.0/16", 0, "et1")])

    def test_keepsWhatAnInterruptedRunHadRecorded(self):
        self.kernel(route())
        first = self.stage("enter")
        self.keep({**self.state, "routes": {"-4": self.state["routes"]["-4"] + [route(dst="10.9.0.0/16")], "-6": []}})
        second = self.stage("enter", rerun=True, recorded=first.records[0])
        self.passes(second)
        self.assertEqual([one["dst"] for one in second.records[0]["moves"][0]["routes"]], ["10.8.0.0/16", "10.9.0.0/16"])
        self.assertEqual(self.shown(), [("10.8.0.0/16", 100000, "et1"), ("10.9.0.0/16", 100000, "et1")])

    def test_keepsWhatAnInterruptedRunHadRecordedOfLinks(self):
        self.kernel(route())
        first = self.stage("enter")
        self.keep({**self.state, "links": [link("et1", changes=4)]})
        second = self.stage("enter", rerun=True, recorded=first.records[0])
        self.assertEqual(second.records[0]["links"], {"et1": {"index": 7, "changes": 2}})

    def test_recordsLinksAnewInAnotherBoot(self):
        self.kernel(route())
        first = self.stage("enter")
        self.keep({**self.state, "links": [link("et1", index=9, changes=4)]})
        second = self.stage("enter", rerun=True, recorded={**first.records[0], "boot": "another"})
        self.assertEqual(second.records[0]["links"], {"et1": {"index": 9, "changes": 4}})

    def test_saysWhyLinksCannotBeRead(self):
        self.kernel(route(), linksBroken=True)
        run = self.stage("enter")
        self.fails(run, "cannot read the links: Cannot open netlink socket")
        self.assertEqual((run.records, self.state["changes"]), ([], []))

    def test_saysThatIpGivesUp(self):
        self.kernel(route(), dies='Error: argument "x" is wrong')
        self.fails(self.stage("enter"), 'ip -batch: Error: argument "x" is wrong')

    def test_failsWithoutIp(self):
        self.fails(self.run_("kernel-routes", "enter", "--ip", self.path("none")), "cannot run")

    def test_saysWhyRoutesCannotBeRead(self):
        self.kernel(broken=[1, ""])
        self.fails(self.stage("enter"), "cannot read the routes of table main: Cannot open netlink socket")

    def test_saysThatIpPrintsNoJson(self):
        self.kernel(broken=[0, "<html>"])
        self.fails(self.stage("enter"), "something else than JSON")

    def test_refusesMetricsThatAreNone(self):
        for text in ("0", "-1", "4294967296", "x"):
            with self.subTest(text):
                self.assertEqual(self.stage("enter", "--metric", text).status, 2)


class Exit(RoutesTest):
    def test_changesNothingWithoutARecord(self):
        self.kernel(route(metric=100000))
        run = self.stage("exit", recorded=None)
        self.passes(run)
        self.assertIn("nothing was recorded", run.errors[0])
        self.assertEqual(self.state["changes"], [])

    def test_failsWhenTheKernelKeepsRefusing(self):
        self.kernel(route())
        record = self.stage("enter").records[0]
        self.keep({**self.state, "refused": ["add"]})
        self.fails(self.stage("exit", timeout="0.5", recorded=record), "metric 0: RTNETLINK answers: Operation not permitted")
        self.assertEqual(self.shown(), [("10.8.0.0/16", 100000, "et1")])

    def exitsWithoutRoutes(self, *links, moved=(), there=(), told=lambda record: record):
        """An exit that finds none of the routes to these destinations but some, with links that are so by now."""
        self.kernel(route(), *(route(dst=dst) for dst in moved))
        record = self.stage("enter").records[0]
        left = [one for one in self.state["routes"]["-4"] if one["dst"] in there]
        self.keep({**self.state, "routes": {"-4": left, "-6": []}, "links": list(links)})
        return self.stage("exit", timeout="0.3", recorded=told(record))

    def test_failsWhenARouteOfALinkThatWasDownHasNotComeBack(self):
        run = self.exitsWithoutRoutes(link("et1", changes=4))
        self.fails(run, "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: has not come back since et1 was down")
        self.assertIn("gave back the metric of 0 routes", run.log)

    def test_failsWhileTheLinkOfARouteIsDown(self):
        self.fails(self.exitsWithoutRoutes(link("et1", up=False)), "metric 100000: et1 is down")

    def test_namesEachRouteThatHasNotComeBack(self):
        run = self.exitsWithoutRoutes(link("et1", changes=4), moved=["10.9.0.0/16"])
        self.fails(run, "10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: has not come back since et1 was down (and 1 more)")
        self.assertIn("10.9.0.0/16 via 10.0.1.2 dev et1 metric 100000: has not come back since et1 was down", run.errors)

    def test_doesNotTrustACarrierThatStaysWhenAllRoutesAreGone(self):
        run = self.exitsWithoutRoutes(link("et1"), moved=["10.9.0.0/16"])
        self.fails(run, "has not come back since et1 was down (and 1 more)")

    def test_failsWhenNobodyCanSayWhetherTheLinkWasDown(self):
        for name, what in {"the kernel did not tell": lambda record: {**record, "links": {}},
                           "the kernel does not tell": lambda record: record}.items():
            with self.subTest(name):
                self.fails(self.exitsWithoutRoutes(link("et1", changes=None), told=what), "has not come back")

    def test_doesNotTrustTheCarrierOfALinkThatKeepsItWhenItIsSetDown(self):
        for kind in ("bond", "team"):
            with self.subTest(kind):
                self.kernel(route(), route(dst="10.9.0.0/16"), links=[link("et1", kind=kind)])
                record = self.stage("enter").records[0]
                # One of two has come back: that all have gone does not tell either.
                left = [one for one in self.state["routes"]["-4"] if one["dst"] == "10.9.0.0/16"]
                self.keep({**self.state, "routes": {"-4": left, "-6": []}})
                self.fails(self.stage("exit", timeout="0.3", recorded=record), "10.8.0.0/16 via 10.0.1.2 dev et1 metric "
                           "100000: has not come back since et1 was down")

    def test_takesNothingOfAnotherBootForGoneForGood(self):
        run = self.exitsWithoutRoutes(link("et1", index=8), told=lambda record: {**record, "boot": "another"})
        self.fails(run, "has not come back since et1 was down")

    def test_isNotMisledByARouteThatSomebodyHasReplaced(self):
        self.kernel(*(route(dst=dst) for dst in ("10.7.0.0/16", "10.8.0.0/16", "10.9.0.0/16")))
        record = self.stage("enter").records[0]
        other = route(dst="10.7.0.0/16", dev="et9")
        moved = [one for one in self.state["routes"]["-4"] if one["dst"] == "10.7.0.0/16"]
        self.keep({**self.state, "routes": {"-4": [*moved, other], "-6": []}})
        run = self.stage("exit", timeout="0.3", recorded=record)
        self.fails(run, "has not come back since et1 was down (and 1 more)")

    def test_needsNoLinksWhenAllIsBack(self):
        self.kernel(route())
        record = self.stage("enter").records[0]
        self.keep({**self.state, "linksBroken": True})
        self.passes(self.stage("exit", recorded=record))
        self.assertEqual(self.shown(), [("10.8.0.0/16", 0, "et1")])

    def test_passesWhenSomebodyHasTakenARouteAway(self):
        run = self.exitsWithoutRoutes(link("et1"))
        self.passes(run)
        self.assertEqual(run.errors, ["10.8.0.0/16 via 10.0.1.2 dev et1 metric 100000: somebody else has changed it or taken "
                                      "it away; it is left as it is"])

    def test_passesWhenSomebodyHasTakenOneOfSeveralAway(self):
        run = self.exitsWithoutRoutes(link("et1"), moved=["10.9.0.0/16"], there=["10.9.0.0/16"])
        self.passes(run)
        self.assertEqual(self.shown(), [("10.9.0.0/16", 0, "et1")])

    def test_passesWhenTheLinkIsGoneForGood(self):
        for name, links in {"gone": [], "another one": [link("et1", index=8, changes=2)]}.items():
            with self.subTest(name):
                run = self.exitsWithoutRoutes(*links)
                self.passes(run)
                self.assertIn("somebody else has changed it or taken it away", run.errors[0])

    def test_refusesARecordOfSomethingElse(self):
        good = {"family": "inet", "table": "main", "by": 1, "through": ["et1"], "routes": [route()]}
        bad = [{"family": "x"}, {"table": 3}, {"by": 0}, {"by": "1"}, {"by": 1 << 32}, {"through": ["et2"]},
               {"through": 3}, {"routes": [3]}, {"routes": [{}]}, {"routes": [route(dev="a b")]},
               {"routes": [route(encap="ip")]}, {"routes": [route(dst=1)]}]
        self.kernel(route(metric=1))
        for recorded in [{}, {"moves": 1}, {"moves": [{}]}, *({"moves": [{**good, **one}]} for one in bad),
                         {"moves": [good], "links": 1}, {"moves": [good], "links": {"et1": {}}},
                         {"moves": [good], "links": {"et1": {"index": 1}}}]:
            with self.subTest(recorded):
                self.fails(self.stage("exit", recorded=recorded), "not what this stage records")
                self.assertEqual(self.state["changes"], [])
        self.passes(self.stage("exit", recorded={"moves": [good]}))
        self.assertEqual(self.shown(), [("10.8.0.0/16", 0, "et1")])


if __name__ == "__main__":
    unittest.main()
