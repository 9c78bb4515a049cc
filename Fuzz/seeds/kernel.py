"""Writes seeds for the fuzz target Kernel: what a real kernel answers and tells of links that this makes itself.

    Tests/Linux/OwnKernel.sh python3 Fuzz/seeds/kernel.py     writes into $MAINT_RESULTS
    unshare -n python3 kernel.py FOLDER                       the same where there is no such kernel, with fewer links

Each seed is a story for the target: steps as KernelFuzzTest.cpp numbers them.
"""

import os
import socket
import struct
import subprocess
import sys

STEPS = ("answerIs answerBegin start event turn timeGoesOn readCounters setDown setUp askRoutes trouble codeIs "
         "snapshotIs giveLeft").split()
TABLES = "links vlans counters addresses routes nextHops oneLink oneRoute neighbours oneNeighbour".split()
# Types of messages, and the fixed header with which everything of a table is asked for.
ASKED = {
    "links": (18, struct.pack("BxHiII", 0, 0, 0, 0, 0)),
    "vlans": (114, struct.pack("BBHI", 7, 0, 0, 0)),
    "counters": (94, struct.pack("BBHII", 0, 0, 0, 0, 1)),
    "addresses": (22, struct.pack("BBBBI", 0, 0, 0, 0, 0)),
    "routes": (26, struct.pack("BBBBBBBBI", 2, 0, 0, 0, 0, 0, 0, 0, 0)),
    "routes6": (26, struct.pack("BBBBBBBBI", 10, 0, 0, 0, 0, 0, 0, 0, 0)),
    "neighbours": (30, struct.pack("BxxxiHBB", 2, 0, 0, 0, 0)),
    "nextHops": (106, struct.pack("BBBBI", 0, 0, 0, 0, 0)),
}
NEWLINK, DELLINK = 16, 17
# Attributes of links that somebody here reads, and a few more: the rest is most of what there is, and slows fuzzing down.
LINK_ATTRIBUTES = {3, 4, 5, 10, 16, 18, 35, 37, 44, 47}
REQUEST, DUMP = 1, 0x300
DONE, ERROR = 3, 2


def messages(datagram):
    while len(datagram) >= 16:
        length, kind = struct.unpack_from("IH", datagram)
        yield kind, datagram[:length]
        datagram = datagram[(length + 3) // 4 * 4:]


def small(kind, message):
    """The message without what only fills it, and as nobody's answer."""
    head = bytearray(message[:16])
    body = message[16:]
    if kind in (NEWLINK, DELLINK):
        kept, body = body[:16], body[16:]
        while len(body) >= 4:
            length, number = struct.unpack_from("HH", body)
            size = (max(length, 4) + 3) // 4 * 4
            if number & 0x3fff in LINK_ATTRIBUTES:
                kept += body[:size]
            body = body[size:]
        body = kept
    struct.pack_into("I", head, 0, 16 + len(body))
    struct.pack_into("II", head, 8, 0, 0)
    return bytes(head) + body


class Kernel:
    def __init__(self):
        self.questions = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self.questions.setsockopt(270, 12, 1)  # strict checks: dumps of what is asked for only
        self.questions.bind((0, 0))
        self.news = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0)
        self.news.bind((0, 1))
        self.news.setsockopt(270, 1, 33)  # news of the VLANs of bridges
        self.news.setblocking(False)

    def table(self, name):
        """The messages of the answer, one each."""
        kind, header = ASKED[name]
        self.questions.send(struct.pack("IHHII", 16 + len(header), kind, REQUEST | DUMP, 1, 0) + header)
        found = []
        while True:
            for kind, message in messages(self.questions.recv(1 << 20)):
                if kind in (DONE, ERROR):
                    return found
                found.append(small(kind, message))

    def told(self):
        found = []
        while True:
            try:
                found += [small(kind, message) for kind, message in messages(self.news.recv(1 << 20))]
            except BlockingIOError:
                return found


def step(name, *values):
    result = bytes([STEPS.index(name)])
    for value in values:
        result += struct.pack("H", len(value)) + value if isinstance(value, bytes) else bytes([value])
    return result


def ip(*words):
    done = subprocess.run(["ip", *words], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        print("ip", *words, done.stderr.strip(), file=sys.stderr)
    return done.returncode == 0


def bridge(*words):
    subprocess.run(["bridge", *words], check=False)


def makeLinks():
    for name in ("et1", "et2", "et3", "et4", "et5"):
        ip("link", "add", name, "type", "veth", "peer", "name", "p" + name)
        ip("link", "set", "p" + name, "up")
    if ip("link", "add", "bond0", "type", "bond", "mode", "802.3ad"):
        for port in ("et3", "et4"):
            ip("link", "set", port, "master", "bond0")
    ip("link", "add", "br0", "type", "bridge", "vlan_filtering", "1")
    ip("link", "set", "et2", "master", "br0")
    ip("link", "set", "bond0", "master", "br0")
    bridge("vlan", "add", "dev", "et2", "vid", "10-12")
    bridge("vlan", "add", "dev", "br0", "vid", "10", "self")
    ip("link", "add", "link", "br0", "name", "vlan10", "type", "vlan", "id", "10")
    ip("link", "add", "link", "et5", "name", "et5.7", "type", "vlan", "id", "7")
    for name in ("et1", "et2", "et3", "et4", "et5", "bond0", "br0", "vlan10", "et5.7"):
        ip("link", "set", name, "up")
    ip("address", "add", "10.0.1.1/24", "dev", "et1")
    ip("address", "add", "2001:db8:1::1/64", "dev", "et1", "nodad")
    ip("address", "add", "10.0.5.1/24", "dev", "et5")
    ip("address", "add", "10.0.10.1/24", "peer", "10.0.10.2", "dev", "vlan10")
    ip("neighbour", "add", "10.0.1.2", "lladdr", "02:00:00:00:00:02", "nud", "permanent", "dev", "et1")
    ip("route", "add", "10.1.0.0/16", "via", "10.0.1.2", "src", "10.0.1.1", "metric", "50")
    ip("route", "add", "10.2.0.0/16", "nexthop", "via", "10.0.1.2", "weight", "2", "nexthop", "via", "10.0.5.2")
    ip("route", "add", "default", "via", "10.0.1.2", "metric", "1000")
    ip("route", "add", "10.3.0.0/16", "via", "10.0.5.2", "table", "100", "mtu", "1400")
    ip("route", "add", "blackhole", "10.4.0.0/16")
    ip("route", "add", "10.5.0.0/16", "via", "inet6", "2001:db8:1::2", "dev", "et1")
    ip("-6", "route", "add", "2001:db8:100::/48", "via", "2001:db8:1::2")
    ip("-6", "route", "add", "2001:db8:200::/48", "nexthop", "via", "2001:db8:1::2", "nexthop", "via", "2001:db8:1::3")
    if ip("nexthop", "add", "id", "1", "via", "10.0.1.2", "dev", "et1"):
        ip("nexthop", "add", "id", "2", "via", "10.0.5.2", "dev", "et5")
        ip("nexthop", "add", "id", "3", "group", "1,3/2")
        ip("route", "add", "10.6.0.0/16", "nhid", "3")


def answers(kernel, names=tuple(ASKED)):
    return b"".join(
        step("answerIs", TABLES.index(name.rstrip("6")), message) for name in names for message in kernel.table(name))


def main(folder):
    os.makedirs(folder, exist_ok=True)

    def seed(name, *parts):
        with open(os.path.join(folder, name), "wb") as file:
            file.write(b"".join(parts))

    makeLinks()
    kernel = Kernel()
    shown = ("links", "vlans", "counters")
    begun = answers(kernel, shown) + step("start") + step("turn")
    seed("links", answers(kernel, ("links",)), step("start"))
    seed("counters", begun, step("readCounters"), step("turn"), step("readCounters"))
    routed = answers(kernel)
    seed("routes", routed, step("start"), step("turn"), *[
        part for which in range(3) for part in (step("askRoutes", which), step("turn"), step("turn"), step("turn"))])
    one = kernel.table("links")[1]
    seed("down-and-up", routed, step("start"), step("turn"),
         *[step("setDown", link) + step("turn") + step("turn") + step("setUp", link) + step("turn") + step("turn")
           + step("timeGoesOn", 8) + step("turn") for link in range(10)],
         step("answerIs", TABLES.index("oneLink"), one), step("setUp", 1), step("turn"), step("timeGoesOn", 255))
    # What another agent may have written down, and the kernel says no to some of it.
    seed("given-back", routed, step("start"), step("turn"), step("setDown", 3), step("turn"),
         step("answerBegin", TABLES.index("routes")), step("answerBegin", TABLES.index("addresses")), step("setUp", 3),
         step("giveLeft", 3),
         *[step("turn") + step("turn") + step("codeIs", code) + step("timeGoesOn", 5) for code in (0, 22, 101, 0, 17, 1)])
    seed("refused", begun, step("codeIs", 1), step("setDown", 1), step("turn"), step("turn"), step("trouble", 3),
         step("readCounters"), step("trouble", 2), step("readCounters"))
    seed("lost", begun, *[step("trouble", 0) + step("turn") + step("timeGoesOn", 2) for _ in range(6)],
         step("timeGoesOn", 80), step("trouble", 1), step("turn"), step("timeGoesOn", 16))
    kernel.told()
    changes = {
        "carrier": [("link", "set", "pet1", "down"), ("link", "set", "pet1", "up")],
        "admin": [("link", "set", "et1", "down"), ("link", "set", "et1", "up")],
        "renamed": [("link", "set", "et1", "down"), ("link", "set", "et1", "name", "et9"), ("link", "set", "et9", "up")],
        "bridge": [("link", "set", "et2", "nomaster"), ("link", "set", "et2", "master", "br0")],
        "bond": [("link", "set", "et3", "nomaster"), ("link", "set", "et3", "down"),
                 ("link", "set", "et3", "master", "bond0")],
        "removed": [("link", "del", "vlan10"), ("link", "del", "bond0"), ("link", "del", "et4")],
        "made": [("link", "add", "et7", "type", "dummy"), ("link", "add", "link", "br0", "name", "vlan12", "type",
                                                           "vlan", "id", "12"), ("link", "del", "br0")],
    }
    for name, commands in changes.items():
        before = answers(kernel, shown) + step("start") + step("turn")
        for command in commands:
            ip(*command)
            if name == "bridge":
                bridge("vlan", "add", "dev", "et2", "vid", "20-22")
        news = kernel.told()
        seed("news-" + name, before, answers(kernel, ("links", "vlans")),
             *[step("event", message) + step("turn") for message in news])


main(sys.argv[1] if len(sys.argv) == 2 else os.environ["MAINT_RESULTS"])
