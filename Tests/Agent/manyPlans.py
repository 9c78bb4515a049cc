#!/usr/bin/env python3
"""Asks an agent for a thousand plans and looks whether anything changes by it.

manyPlans.py MAINTCTL: in the network namespace of the agent, and in the folder where it keeps its own ones, "run" and
"state". There are units u1, u2 and both, with the links et1, et2 and the two of them, which would be shut at once.

The kernel is heard on all groups that it tells changes on; what it shows, the agent's files and its lists are compared. In
the end an enter is told by each of these, or they would have told nothing.
"""
import errno
import http.client
import json
import os
import pathlib
import select
import socket
import subprocess
import sys
import time

SOL_NETLINK, ADD_MEMBERSHIP, ROUTE = 270, 1, 0
# Of linux/rtnetlink.h: links, neighbours and the bridge's table, addresses, routes and rules of both versions, settings,
# next hops, VLANs.
NEEDED_GROUPS = {1, 3, 5, 7, 8, 9, 11, 12, 19, 24, 25, 32, 33}
MOST_GROUPS = 128
PLANS = 1000
# Each unit, from various places: nobody says, behind a neighbour, behind another router, on one link, nowhere, here.
SESSIONS = ["", "10.0.1.2", "10.1.2.9", "fe80::7%et1", "203.0.113.1", "10.0.9.1", "2001:db8:101::9,2001:db8:1::1"]
QUESTIONS = [(unit, session) for unit in ("u1", "u2", "both") for session in SESSIONS]
# Each is told in a group of its own, and undone.
PLANTED = [
    "link set et3 mtu 1400", "link set et3 mtu 1500",
    "address add 192.0.2.1/32 dev et3", "address del 192.0.2.1/32 dev et3",
    "-6 address add 2001:db8:ffff::1/128 dev et3 nodad", "-6 address del 2001:db8:ffff::1/128 dev et3",
    "route add blackhole 192.0.2.0/24", "route del blackhole 192.0.2.0/24",
    "-6 route add 2001:db8:fffe::/48 via 2001:db8:1::2", "-6 route del 2001:db8:fffe::/48",
    "neighbour add 10.0.3.9 lladdr 02:00:00:00:00:09 dev et3", "neighbour del 10.0.3.9 dev et3",
    "rule add to 192.0.2.0/24 table 7", "rule del to 192.0.2.0/24 table 7",
    "-6 rule add to 2001:db8:fffe::/48 table 7", "-6 rule del to 2001:db8:fffe::/48 table 7",
    "nexthop add id 7 via 10.0.3.2 dev et3", "nexthop del id 7",
]
PLANTED_FDB = ["fdb add 02:00:00:00:00:0a dev et3 self permanent", "fdb del 02:00:00:00:00:0a dev et3 self"]


def said(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


class Monitor:
    """Hears whatever the kernel tells of the network namespace."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW | socket.SOCK_NONBLOCK, ROUTE)
        self.socket.bind((0, 0))
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        joined = set()
        for group in range(1, MOST_GROUPS + 1):
            try:
                self.socket.setsockopt(SOL_NETLINK, ADD_MEMBERSHIP, group)
                joined.add(group)
            except OSError as error:
                if error.errno != errno.EINVAL:
                    raise
        assert NEEDED_GROUPS <= joined, f"groups that cannot be heard: {NEEDED_GROUPS - joined}"

    def heard(self):
        """The types of all messages since the last call. What is lost is an error of its own."""
        types = []
        while True:
            try:
                data = self.socket.recv(1 << 16)
            except BlockingIOError:
                return types
            while len(data) >= 16:
                length = int.from_bytes(data[:4], sys.byteorder)
                types.append(int.from_bytes(data[4:6], sys.byteorder))
                data = data[(length + 3) & ~3:]

    def untilQuiet(self):
        """What the kernel still has to tell of the links that were made is over when it has told nothing for a while."""
        end = time.monotonic() + 60
        while select.select([self.socket], [], [], 1.5)[0]:
            self.heard()
            assert time.monotonic() < end, "it is never quiet"


class Agent:
    def __init__(self):
        self.connection = http.client.HTTPConnection("agent")
        self.connection.sock = socket.socket(socket.AF_UNIX)
        self.connection.sock.settimeout(30)
        self.connection.sock.connect("run/control.sock")

    def get(self, path):
        self.connection.request("GET", "/api/v1/" + path)
        response = self.connection.getresponse()
        text = response.read().decode()
        assert response.status == 200, f"{path}: {response.status} {text}"
        return json.loads(text)

    def plan(self, unit, session):
        query = "?session=" + session.replace("%", "%25") if session else ""
        return self.get(f"units/{unit}/plan{query}")


def withoutRates(value):
    """What a link carries changes by itself."""
    if isinstance(value, dict):
        return {key: withoutRates(each) for key, each in value.items() if not key.endswith("-bps")}
    return [withoutRates(each) for each in value] if isinstance(value, list) else value


def files():
    """All that the agent keeps: both stores, with each record in them, and the rest but samples of what links carry, which
    it takes every few seconds, and what other processes hold the stores with."""
    result = {}
    for path in sorted([*pathlib.Path("state").rglob("*"), *pathlib.Path("run").rglob("*")]):
        if path.is_file() and "samples" not in path.parts and not path.name.endswith("-lock"):
            result["file " + str(path)] = path.read_bytes()
    return result


def pictures(agent):
    """Everything that a plan must not change, by what it is."""
    result = {"log": pathlib.Path("log").read_bytes(), **files()}
    for words in ("-d link", "-d address", "-4 route show table all", "-6 route show table all", "-4 rule", "-6 rule",
                  "-4 neighbour", "-6 neighbour", "nexthop"):
        result["ip " + words] = said("ip", *words.split())
    for words in ("fdb show", "vlan show"):
        result["bridge " + words] = said("bridge", *words.split())
    for path in ("operations", "history", "events/recent", "units", "interfaces"):
        result[path] = withoutRates(agent.get(path))
    return result


def differences(before, after):
    return {what for what in before.keys() | after.keys() if before.get(what) != after.get(what)}


def hearsEachKind(monitor):
    for program, lines in (("ip", PLANTED), ("bridge", PLANTED_FDB)):
        for line in lines:
            monitor.heard()
            said(program, *line.split())
            assert monitor.heard(), f"it is not told: {program} {line}"


def judged(plan):
    """What is the same in each plan of one unit from one place."""
    return [(finding["code"], finding["severity"], finding["text"]) for finding in plan["findings"]]


def untilCounted(agent):
    """An agent that has just begun knows no rates yet."""
    end = time.monotonic() + 60
    while any(code == "stale-counters" for code, *_ in judged(agent.plan("both", ""))):
        assert time.monotonic() < end, "the counters are never fresh"
        time.sleep(0.1)


def main():
    maintctl = sys.argv[1]
    agent, monitor = Agent(), Monitor()
    monitor.untilQuiet()
    hearsEachKind(monitor)
    untilCounted(agent)
    monitor.untilQuiet()
    before = pictures(agent)
    assert {"file state/state.mdb", "file run/runtime.mdb"} <= before.keys(), before.keys()
    expected = {question: judged(agent.plan(*question)) for question in QUESTIONS}
    codes = {code for findings in expected.values() for code, *_ in findings}
    assert {"last-path", "lock-out", "unknown-session"} <= codes, codes
    for number in range(PLANS - len(QUESTIONS)):
        question = QUESTIONS[number % len(QUESTIONS)]
        now = judged(agent.plan(*question))
        assert now == expected[question], f"{question}:\n{expected[question]}\n{now}"
    heard = monitor.heard()
    assert not heard, f"the kernel has told of changes: {heard}"
    after = pictures(agent)
    changed = differences(before, after)
    assert not changed, "\n".join(f"{what}:\n{before.get(what)!r}\n{after.get(what)!r}" for what in changed)
    # What has told nothing would have.
    said(maintctl, "--socket", os.path.join(os.getcwd(), "run/control.sock"), "enter", "both", "--force", "--reason", "upgrade",
         "--wait", "--timeout", "30s")
    assert monitor.heard(), "the kernel should have told that links were shut"
    missing = {"file state/state.mdb", "file run/runtime.mdb", "ip -d link", "ip -4 route show table all", "operations",
               "history", "events/recent", "units", "interfaces"} - differences(after, pictures(agent))
    assert not missing, f"an enter should have changed: {missing}"


main()
