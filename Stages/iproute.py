"""The kernel's routes as the program ip of iproute2 shows and takes them."""

import re
from typing import NamedTuple, Optional

import maintstage
from maintstage import Failure

FAMILIES = {"inet": "-4", "inet6": "-6"}
#: Who sets routes by hand or by scripts. A routing daemon's package may give numbers of its own such a name, too, and
#: ip then shows both alike: a route of another number has that for its protocol here.
BY_HAND = {"boot": "3", "static": "4", "dhcp": "16"}
HIGHEST = (1 << 32) - 1
#: Seconds that ip gets to print a table, which may be that of the whole Internet.
READING_LIMIT = 60

#: What ip shows of a route, and the word with which it takes that. What is not here we could not give back.
WORDS = {"from": "from", "tos": "tos", "protocol": "proto", "scope": "scope", "metric": "metric", "prefsrc": "src",
         "pref": "pref", "nhid": "nhid"}
HOP_WORDS = {"dev": "dev", "weight": "weight"}
HOP_KEYS = {"gateway", "via", "flags", *HOP_WORDS}
METRICS = {name: name for name in ("mtu", "advmss", "window", "cwnd", "initcwnd", "initrwnd", "ssthresh", "reordering",
                                   "hoplimit", "quickack", "rto_min")} | {"congestion": "congctl"}
#: Our own, since ip does not show as JSON which metrics the kernel may not change by itself.
LOCKED = "locked"
#: What we know otherwise, or what describes something else.
ELSEWHERE = {"nexthops", "table", "type", "nh_info"}
#: States of the moment, shown among the flags.
PASSING = {"linkdown", "dead", "offload", "offload_failed", "trap", "rt_offload", "rt_trap", "rt_offload_failed"}


class Route:
    """A route as ip shows it, less what passes: what makes it up, and its next hops."""

    def __init__(self, family, table, shown):
        self.family = family
        self.table = table
        self.rest = {key: value for key, value in shown.items() if key not in HOP_KEYS | ELSEWHERE}
        hops = shown.get("nexthops") or [{key: shown[key] for key in HOP_KEYS & set(shown)}]
        self.down = {hop.get("dev") for hop in hops if "dead" in hop.get("flags", [])}
        self.hops = [_lasting(hop, len(hops) > 1) for hop in hops]
        self.metric = self.rest.get("metric", 0)
        # What it leads to, and what the kernel tells routes apart by.
        self.target = (family, table, self.rest.get("dst"), self.rest.get("from"), self.rest.get("tos"))
        self.key = (*self.target, self.metric)

    @property
    def devices(self):
        return {hop.get("dev") for hop in self.hops}

    def __eq__(self, other):
        return (isinstance(other, Route) and self.key == other.key and self.rest == other.rest
                and sorted(self.hops, key=identity) == sorted(other.hops, key=identity))

    def shown(self):
        """As it is recorded, and as ip would show it."""
        if len(self.hops) == 1:
            return {**self.rest, **self.hops[0]}
        return {**self.rest, "nexthops": self.hops}

    def over(self, hops, metric=None):
        """The same route over other next hops, and with another metric."""
        rest = dict(self.rest)
        if metric is not None:
            rest["metric"] = metric
        hops = list(hops)
        if len(hops) == 1:
            # On its own a next hop has no weight.
            hops = [{key: value for key, value in hops[0].items() if key != "weight"}]
        return Route(self.family, self.table, {**rest, "nexthops": hops})

    def words(self):
        """The words with which ip takes this route."""
        words = [self.rest["dst"], "table", self.table]
        for key, word in WORDS.items():
            if key in self.rest:
                words += [word, self.rest[key]]
        for metric in self.rest.get("metrics", []):
            for key, value in metric.items():
                words += [METRICS[key]] + ["lock"] * (key in self.rest.get(LOCKED, []))
                words.append(f"{value}ms" if key == "rto_min" else value)
        if "nhid" not in self.rest:
            for hop in self.hops:
                words += ["nexthop"] if len(self.hops) > 1 else []
                words += _hopWords(hop)
        return [str(word) for word in words]

    def unknown(self):
        """What of this route we could not give back; empty: nothing."""
        found = set(self.rest) - set(WORDS) - {"dst", "metrics", LOCKED}
        for metric in self.rest.get("metrics", []):
            found |= set(metric) - set(METRICS)
        for hop in self.hops:
            found |= set(hop) - HOP_KEYS
            found |= set(hop.get("flags", [])) - {"onlink"}
        # In a batch these would part words or end them.
        found |= {word for word in (str(hop.get("dev")) for hop in self.hops) if re.search(r"[\s#'\"\\]", word)}
        return sorted(found)

    def __str__(self):
        ways = []
        for hop in self.hops:
            gateway = hop.get("gateway") or hop.get("via", {}).get("host")
            ways.append(f"via {gateway} dev {hop.get('dev')}" if gateway else f"dev {hop.get('dev')}")
        table = "" if self.table == "main" else f" table {self.table}"
        return f"{self.rest.get('dst')} {', '.join(ways)} metric {self.metric}{table}"


def _lasting(hop, many):
    lasting = {key: value for key, value in hop.items() if key != "flags"}
    flags = sorted(set(hop.get("flags", [])) - PASSING)
    if flags:
        lasting["flags"] = flags
    if not many:
        lasting.pop("weight", None)
    return lasting


def identity(hop):
    """What tells next hops of a route apart."""
    return (hop.get("dev", ""), hop.get("gateway", ""), str(hop.get("via", "")))


def _hopWords(hop):
    words = []
    if "gateway" in hop:
        words += ["via", hop["gateway"]]
    elif "via" in hop:
        words += ["via", hop["via"]["family"], hop["via"]["host"]]
    for key, word in HOP_WORDS.items():
        if key in hop:
            words += [word, hop[key]]
    return words + hop.get("flags", [])


#: Kinds of links that lose their carrier when they are set down; None: no kind is told, as of hardware. A bond, a team
#: or a tunnel keeps its carrier.
_LOSING_CARRIER = (None, "veth", "vlan")


class Link(NamedTuple):
    """What tells whether a link is the one that it was, and has been down since."""

    index: int
    changes: Optional[int]  #: of its carrier, since it was made; None: they do not tell whether it was down
    up: bool                #: is set up


def _carrierChanges(shown):
    if shown.get("linkinfo", {}).get("info_kind") not in _LOSING_CARRIER:
        return None
    return shown.get("stats64", {}).get("tx", {}).get("carrier_changes")


class Kernel:
    """The kernel's links and routes, through ip."""

    def __init__(self, ip):
        self.ip = ip

    def routes(self, tables):
        """All routes for unicast of some tables."""
        found = []
        for family, flag in FAMILIES.items():
            for table in tables:
                found += [Route(family, table, shown) for shown in self._shown(flag, table)
                          if shown.get("type", "unicast") == "unicast"]
        return Routes(found)

    def _shown(self, flag, table):
        """All routes of a table as ip shows them, with LOCKED added and each protocol told from others of its name."""
        for _ in range(5):
            shown = self._json(flag, table)
            if self._numbered(shown, flag, table) and self._locked(shown, flag, table):
                return shown
        raise Failure(f"the routes of table {table} change too fast")

    def _numbered(self, shown, flag, table):
        """False: they have changed meanwhile."""
        if not any(route.get("protocol") in BY_HAND for route in shown):
            return True
        numbered = self._json(flag, table, "-Numeric")
        if [route.get("dst") for route in numbered] != [route.get("dst") for route in shown]:
            return False
        for route, number in zip(shown, numbered):
            if number.get("protocol") != BY_HAND.get(route.get("protocol"), number.get("protocol")):
                route["protocol"] = number["protocol"]
        return True

    def _locked(self, shown, flag, table):
        """False: they have changed meanwhile."""
        if not any("metrics" in route for route in shown):
            return True
        lines = self._show(flag, table, "-oneline").splitlines()
        if len(lines) != len(shown):
            return False
        for route, line in zip(shown, lines):
            locked = sorted(set(re.findall(r" (\w+) lock ", line)))
            locked = [name for name in locked if name != "rto_min"] # always is, and ip says so
            if locked:
                route[LOCKED] = ["congestion" if name == "congctl" else name for name in locked]
        return True

    def _json(self, flag, table, *forms):
        return maintstage.readJson(self._show(flag, table, *forms, "-json") or "[]", f"{self.ip} route")

    def _show(self, flag, table, *forms):
        done = maintstage.run([self.ip, flag, *forms, "-details", "route", "show", "table", table], limit=READING_LIMIT)
        # A table comes into being with its first route, in each family for itself.
        if done.returncode != 0:
            if "table does not exist" in done.stderr:
                return ""
            raise Failure(f"cannot read the routes of table {table}: {_last(done)}")
        return done.stdout

    def links(self):
        """All links, by name."""
        done = maintstage.run([self.ip, "-json", "-details", "-statistics", "-statistics", "link", "show"])
        if done.returncode != 0:
            raise Failure(f"cannot read the links: {_last(done)}")
        shown = maintstage.readJson(done.stdout or "[]", f"{self.ip} link")
        return {link["ifname"]: Link(link["ifindex"], _carrierChanges(link), "UP" in link.get("flags", []))
                for link in shown if "ifname" in link}

    def change(self, commands):
        """Tries them all: [(verb, Route)]. Gives [(verb, Route, what ip says)] of those that were refused."""
        refused = []
        for family, flag in FAMILIES.items():
            some = [(verb, route) for verb, route in commands if route.family == family]
            if not some:
                continue
            lines = [" ".join(["route", verb, *route.words()]) for verb, route in some]
            done = maintstage.run([self.ip, flag, "-force", "-batch", "-"], "\n".join(lines) + "\n")
            said = []
            for line in done.stderr.splitlines():
                failed = re.fullmatch(r"Command failed -:(\d+)", line.strip())
                if failed and 1 <= int(failed[1]) <= len(some):
                    refused.append((*some[int(failed[1]) - 1], " ".join(said)))
                    said = []
                elif line.strip():
                    said.append(line.strip())
            if done.returncode != 0 and said:
                raise Failure(f"{self.ip} -batch: {' '.join(said)}")
        return refused


class Routes:
    """What is there at the moment."""

    def __init__(self, routes):
        self.all = routes
        self.byKey, self.count = {}, {}
        for route in routes:
            self.byKey.setdefault(route.key, []).append(route)
            self.count[route.target] = self.count.get(route.target, 0) + 1

    def at(self, route):
        """The route with this one's key; None: there is none."""
        return next(iter(self.byKey.get(route.key, [])), None)

    def has(self, route):
        return route in self.byKey.get(route.key, [])

    def isAlone(self, route):
        """Whether no other route leads where this one does."""
        return self.count.get(route.target, 0) <= 1


def _last(done):
    lines = [line.strip() for line in done.stderr.splitlines() if line.strip()]
    return lines[-1] if lines else f"ended with {done.returncode}"
