#!/usr/bin/env python3
"""Tests of the stage command frr-graceful-shutdown with a vtysh that only seems to talk to a router."""

import os
import unittest

from stagerig import StageTest

# The router is its state: instances by their first lines ({"on", "neighbours"}), whether it is on for all of them, what
# it does to refuse or to be slow, and all commands that it was given.
VTYSH = '''
words = sys.argv[1:]
commands = [after for word, after in zip(words, words[1:]) if word == "-c"]
state["commands"].append(commands)
state["words"] = words[: words.index("-c")]
keep()
def instance(command):
    scope = command.split()[2:4] if command.split()[2] in ("vrf", "view") else []
    return next(one for line, one in state["instances"].items() if line.split()[3:] == scope)
last = commands[-1]
refusal = state.get("refused", {}).get(last)
if refusal and state.get("times") != 0:
    state["times"] = state.get("times", 0) - 1 # without a number it never ends
    keep()
    print(refusal[1])
    sys.exit(refusal[0])
if last == "show running-config":
    print("frr version 8.4.4")
    if state.get("all"):
        print("bgp graceful-shutdown")
    print("!")
    for line, one in state["instances"].items():
        print(line, "\\n bgp router-id 1.1.1.1", sep="")
        if one["on"]:
            print(" bgp graceful-shutdown")
        print(" address-family ipv4 unicast\\n  bgp graceful-shutdown-of-another-kind\\n exit-address-family\\nexit\\n!")
    print("end")
elif last.endswith("bgp graceful-shutdown"):
    on = not last.startswith("no ")
    one = state["instances"][commands[1]]
    assert commands[0] == "configure terminal"
    one["on"] = on
    for neighbour in one["neighbours"].values():
        if "deaf" not in neighbour:
            neighbour["preference"] = 0 if on else None
            neighbour["updates"] += 1
    keep()
elif last.endswith(" neighbors json"):
    print(json.dumps({**{name: {
        "bgpState": one.get("state", "Established"), "nbrInternalLink": one.get("internal", False),
        "connectionsEstablished": 1, "messageStats": {"depthOutq": one.get("queued", 0), "updatesSent": one["updates"]},
        "addressFamilyInfo": {"ipv4Unicast": {
            "packetQueueLength": 0, "sentPrefixCounter": one.get("sent", 2),
            "commAttriSentToNbr": one.get("communities", "extendedAndStandard")}}
    } for name, one in instance(last)["neighbours"].items()}, "vrfId": 0}))
elif last.endswith(" advertised-routes json"):
    one = instance(last)["neighbours"][last.split()[-3]]
    print(json.dumps({"advertisedRoutes": {f"10.0.{i}.0/24": {"locPrf": one.get("preference")} for i in range(2)}}))
else:
    sys.exit("unknown: " + last)
'''
ONE, RED = "router bgp 65001", "router bgp 65001 vrf red"


def neighbour(**what):
    return {"updates": 5, **what}


class FrrTest(StageTest):
    def setUp(self):
        super().setUp()
        self.vtysh = self.program("vtysh", VTYSH)

    def router(self, one=False, red=None, neighbours=None, **more):
        """One instance, and one of the VRF red, with graceful shutdown on or off."""
        instances = {ONE: {"on": one, "neighbours": neighbours or {}}}
        if red is not None:
            instances[RED] = {"on": red, "neighbours": {}}
        self.keep({"instances": instances, "commands": [], **more})

    def stage(self, operation, *words, timeout="20", **more):
        return self.run_("frr-graceful-shutdown", operation, "--vtysh", self.vtysh, "--timeout", timeout, *words, **more)

    def on(self):
        return [line for line, one in self.state["instances"].items() if one["on"]]

    def changes(self):
        return [commands for commands in self.state["commands"] if commands[0].startswith("conf")]


class Enter(FrrTest):
    def test_turnsItOnWhereItIsOff(self):
        self.router(one=False, red=False)
        self.passes(self.stage("enter"))
        self.assertEqual(self.on(), [ONE, RED])

    def test_recordsWhereItWasOff(self):
        self.router(one=True, red=False)
        run = self.stage("enter")
        self.passes(run)
        self.assertEqual(run.records, [{"instances": [RED]}])
        self.assertEqual(self.changes(), [["configure terminal", RED, "bgp graceful-shutdown"]])

    def test_takesWhatIsOnForAllAsOnForEach(self):
        self.router(one=False, red=False, all=True)
        run = self.stage("enter")
        self.passes(run)
        self.assertEqual(run.records, [{"instances": []}])
        self.assertEqual(self.changes(), [])

    def test_recordsBeforeItChangesAnything(self):
        self.router()
        agent, kept = os.pipe()
        os.close(kept)
        run = self.stage("enter", kept=agent)
        os.close(agent)
        self.fails(run, "the agent has gone")
        self.assertEqual(run.records, [{"instances": [ONE]}])
        self.assertEqual(self.changes(), [])

    def test_neverSaves(self):
        self.router()
        self.passes(self.stage("enter"))
        self.assertEqual([word for commands in self.state["commands"] for word in commands if "wr" in word], [])

    def test_keepsWhatAnInterruptedRunHadRecorded(self):
        self.router(one=True, red=False)
        run = self.stage("enter", told={"rerun": True, "recorded": {"instances": [ONE]}})
        self.passes(run)
        self.assertEqual(run.records, [{"instances": [ONE, RED]}])

    def test_takesOnlyTheSystemsThatItIsTold(self):
        self.keep({"instances": {line: {"on": False, "neighbours": {}} for line in (ONE, "router bgp 65002 vrf red")},
                   "commands": []})
        self.passes(self.stage("enter", "--asn", "65002"))
        self.assertEqual(self.on(), ["router bgp 65002 vrf red"])

    def test_takesOnlyTheVrfsThatItIsTold(self):
        for vrf, line in (("red", RED), ("default", ONE)):
            with self.subTest(vrf):
                self.router(red=False)
                self.passes(self.stage("enter", "--vrf", vrf))
                self.assertEqual(self.on(), [line])

    def test_failsWhenNoInstanceIsChosen(self):
        self.router()
        self.fails(self.stage("enter", "--asn", "65009"), "none of the instances of BGP is chosen")

    def test_failsWithoutBgp(self):
        self.keep({"instances": {}, "commands": []})
        run = self.stage("enter")
        self.fails(run, 'no "router bgp"')
        self.assertEqual(run.records, [])

    def test_failsWithoutVtysh(self):
        self.fails(self.run_("frr-graceful-shutdown", "enter", "--vtysh", self.path("none")),
                   f"cannot run {self.path('none')}: No such file or directory")

    def test_saysWhyVtyshFails(self):
        self.router(refused={"show running-config": [1, "Exiting: failed to connect to any daemons."]})
        self.fails(self.stage("enter"), '"show running-config": Exiting: failed to connect to any daemons.')

    def test_noticesARefusalThatVtyshDoesNotCount(self):
        self.router(refused={"bgp graceful-shutdown": [0, "%Failed: not permitted"]})
        self.fails(self.stage("enter"), '"bgp graceful-shutdown": %Failed: not permitted')

    def test_reachesTheRouterOfAPathSpace(self):
        self.router()
        self.passes(self.stage("enter", "-N", "blue", "--vty-socket", "/x"))
        self.assertEqual(self.state["words"], ["-N", "blue", "--vty_socket", "/x", "-d", "bgpd"])

    def test_noticesThatTheConfigurationIsNotAsAskedFor(self):
        self.router()
        self.vtysh = self.program("vtysh", VTYSH.replace('one["on"] = on', "pass"))
        self.fails(self.stage("enter", timeout="0.5"), "graceful shutdown is still off")


class Verification(FrrTest):
    def test_namesWhoHasBeenTold(self):
        self.router(neighbours={"et1": neighbour(), "et2": neighbour(state="Active")})
        run = self.stage("enter")
        self.passes(run)
        self.assertIn("BGP 65001: told et1", run.log)

    def test_waitsUntilAllIsSent(self):
        self.router(neighbours={"et1": neighbour(queued=3)})
        self.fails(self.stage("enter", timeout="0.5"), "3 messages to et1 have not been sent yet")

    def test_waitsUntilEachRouteIsTheLastChoice(self):
        self.router(neighbours={"et1": neighbour(preference=100, deaf=True)})
        self.fails(self.stage("enter", timeout="0.5"), "et1 has not been sent its routes again")

    def test_isContentWithRoutesThatWereTheLastChoiceBefore(self):
        self.router(neighbours={"et1": neighbour(preference=0, deaf=True)})
        self.passes(self.stage("enter"))

    def test_countsMessagesWhereThereAreTooManyRoutesToList(self):
        self.router(neighbours={"et1": neighbour(sent=100000)})
        self.passes(self.stage("enter"))
        self.assertFalse([commands for commands in self.state["commands"] if "advertised" in commands[-1]])
        self.router(neighbours={"et1": neighbour(sent=100000, deaf=True)})
        self.fails(self.stage("enter", timeout="0.5"), "et1 has not been sent its routes again")

    def test_asksNothingOfANeighbourWithoutRoutes(self):
        self.router(neighbours={"et1": neighbour(sent=0, deaf=True)})
        self.passes(self.stage("enter"))

    def test_needsCommunitiesTowardsOtherSystems(self):
        for communities in ("extended", ""):
            self.router(neighbours={"et1": neighbour(communities=communities)})
            run = self.stage("enter")
            self.fails(run, "no communities are sent to et1")
            self.assertEqual((run.records, self.changes()), ([], []))

    def test_needsNoCommunitiesWithinASystem(self):
        self.router(neighbours={"et1": neighbour(communities="", internal=True)})
        self.passes(self.stage("enter"))

    def test_goesOnWithoutCommunitiesIfAllowed(self):
        self.router(neighbours={"et1": neighbour(communities="")})
        run = self.stage("enter", "--allow-unreached")
        self.passes(run)
        self.assertIn("no communities are sent to et1", run.errors[0])

    def test_refusesADescriptionThatItDoesNotKnow(self):
        self.router(neighbours={"et1": neighbour(queued="many")})
        self.fails(self.stage("enter"), "form that is not known")


class Exit(FrrTest):
    def leave(self, *lines, **more):
        return self.stage("exit", told={"recorded": {"instances": list(lines)}}, **more)

    def test_turnsOffWhatEnterHasTurnedOn(self):
        self.router(one=True, red=True)
        self.passes(self.leave(RED))
        self.assertEqual(self.on(), [ONE])

    def test_asksAgainWhatIsRefusedForAWhile(self):
        for command in ("show running-config", "show bgp  neighbors json", "no bgp graceful-shutdown"):
            with self.subTest(command):
                command = " ".join(command.split())
                self.router(one=True, red=True, refused={command: [0, "% bgpd is busy"]}, times=2)
                self.passes(self.leave(ONE, RED))
                self.assertEqual(self.on(), [])

    def test_saysWhyItCannotBeTurnedOff(self):
        self.router(one=True, refused={"no bgp graceful-shutdown": [1, "bgpd is not running"]})
        self.fails(self.leave(ONE, timeout="0.1"), "bgpd is not running")

    def test_changesNothingWithoutARecord(self):
        self.router(one=True)
        run = self.stage("exit", told={"recorded": None})
        self.passes(run)
        self.assertIn("nothing was recorded", run.errors[0])
        self.assertEqual(self.state["commands"], [])

    def test_changesNothingWhereNothingWasTurnedOn(self):
        self.router(one=True)
        self.passes(self.leave())
        self.assertEqual(self.on(), [ONE])

    def test_mayBeRunAgain(self):
        self.router(one=False, red=True)
        self.passes(self.leave(ONE, RED))
        self.passes(self.leave(ONE, RED))
        self.assertEqual(self.changes(), [["configure terminal", RED, "no bgp graceful-shutdown"]])

    def test_doesWithoutAnInstanceThatHasGone(self):
        self.router(one=True)
        run = self.leave(ONE, RED)
        self.passes(run)
        self.assertIn(f'"{RED}" is not configured any more', run.errors)
        self.assertEqual(self.on(), [])

    def test_waitsUntilTheNeighboursAreToldAgain(self):
        self.router(one=True, neighbours={"et1": neighbour(preference=100, deaf=True)})
        self.fails(self.leave(ONE, timeout="0.5"), "et1 has not been sent its routes again")

    def test_waitsNoLongerWhenAllIsTheLastChoiceOfOthers(self):
        self.router(one=True, neighbours={"et1": neighbour(preference=0, deaf=True)})
        self.passes(self.leave(ONE))

    def test_refusesARecordOfSomethingElse(self):
        for recorded in ({"instances": "x"}, {"instances": [1]}, {"instances": ["router ospf"]}):
            with self.subTest(recorded):
                self.router(one=True)
                self.fails(self.stage("exit", told={"recorded": recorded}), "not what this stage records")
                self.assertEqual(self.changes(), [])


if __name__ == "__main__":
    unittest.main()
