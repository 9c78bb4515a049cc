"""Writes seeds for the fuzz targets Configuration and Requests, of what this tree has of them: examples, configurations of
tests, the routes of the API's document with the bodies of its examples.

    python3 Fuzz/seeds/texts.py            writes them, and removes what it does not make any more
    python3 Fuzz/seeds/texts.py --left     tells what is there that it does not make, with 1 if there is something
"""

import glob
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "Tests", "Api"))
sys.path.insert(0, os.path.join(ROOT, "Tests", "Agent"))
sys.dont_write_bytecode = True
from corpus import Corpus  # noqa: E402

CORPUS = Corpus("Configuration", "Requests")
seed = CORPUS.seed


def read(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


HOOKS = """\
hooks:
  all: {at: [enter, drained, shut, spike, completed, exit, normal, overrun], command: /bin/page 'a b', time-limit: 1m30s}
  one: {at: [exit], units: [u2], url: "https://user@[2001:db8::1]:8443/in?a=b"}
"""


# What YAML knows, and we mostly refuse; VLANs in ranges that run into one another.
OF_YAML = """\
version: 1
settle: !!str &time "10s"
profiles: {? fast : {threshold: 'it''s', load-interval: *time, shutdown: "tr\\u0075e"}}
default-profile: >-
  fast
groups:
  a: {vlans: [10-12, 20-29, 5-25, 4094]}
  b:
    profile: |
      fast
  <<: {}
units: {u1: {groups: [a]}}
...
"""


# Small ones of a chapter each: of a small seed more comes in the same time.
SMALL = """\
version: 1
profiles: {p: {threshold: 1.5Mbps, load-interval: 90s}}
default-profile: p
"""
CHAPTERS = {
    "groups": "groups: {a: {interfaces: [et1, et2], vlans: [10, 20-29, 4094], profile: p}}\n",
    "units": "groups: {a: {}}\nunits: {u1: {groups: [a], enter: [drainwatch], exit: [drainwatch]}, u2: {}}\n",
    "stages": "stages: {s: {enter: /bin/a b, exit: \"c 'd e'\", timeout: 5m, on-failure: continue, steers: true}}\n"
              "enter: [s, drainwatch]\nexit: [drainwatch, s]\n",
    "hook": "units: {u1: {}, u2: {}}\n"
            "hooks: {h: {at: [enter, overrun], units: [u1], command: [/bin/a, b c], time-limit: 1m30s}}\n",
    "hook-url": "hooks:\n  h:\n    at: [spike]\n    url: https://me@a.example:8443/b?c=d\n    time-limit: 10s\n",
    "redundancy": "units: {u1: {}, u2: {}}\nredundancy-groups: {r: {units: [u1, u2], max-out: 1}}\n"
                  "control-plane-floor: 10kbps\nsettle: 1h2m3s\n",
    "listen": "listen: {web: \"[::1]:8080\", names: [a.example]}\n",
    "simulated": "switch: simulated\nsimulated:\n  clock: virtual\n  ports: {e1: {speed: 10Gbps, traffic: [{for: 10s, in: "
                 "1Mbps}, {ramp: 1m, to: 5Mbps}]}, e2: {}}\n  port-channels: {p1: [e2]}\n  vlans: {10: {name: v, members: "
                 "[p1]}}\n",
    "routes": "simulated:\n  ports: {e1: {}, e2: {}}\n  routes:\n    - {to: 10.0.0.0/8, via: [e1, e2], metric: 5}\n"
              "    - {to: 2001:db8::/32, via: [e1]}\n",
}


def configurations():
    for chapter, text in CHAPTERS.items():
        seed("Configuration", f"small-{chapter}", SMALL + text)
    whole = read("Config", "examples", "maintd.yaml")
    simulated = read("Config", "examples", "simulated.yaml")
    # Without comments they are small seeds, which are changed in more ways in the same time.
    def bare(text):
        return re.sub(r"\n(\s*\n)+", "\n", re.sub(r"(?m)\s*#.*$", "", text)).lstrip("\n")
    seed("Configuration", "example", bare(whole))
    seed("Configuration", "example-simulated", bare(simulated))
    seed("Configuration", "commented", "# a\n" + SMALL.replace("\n", " # b\n\n  # c\n"))
    sections = re.split(r"(?m)^(?=[a-z])", bare(whole))
    seed("Configuration", "in-drop-ins", "\n%%%\n".join(
        ["".join(section for section in sections if section.startswith(("version", "profiles", "default-profile")))]
        + [section for section in sections if section.startswith(("groups", "units", "stages", "enter", "exit"))]))
    for number, text in enumerate(re.findall(r"(?ms)^```yaml\n(.*?)^```", read("README.md"))):
        seed("Configuration", f"readme-{number}", text)
    from agentrig import configuration
    seed("Configuration", "of-yaml", OF_YAML)
    seed("Configuration", "hooks", configuration("/bin/true") + HOOKS)
    seed("Configuration", "of-stories", configuration("/bin/true", web="127.0.0.1:8080"))
    for path in sorted(glob.glob(os.path.join(ROOT, "Config", "*Test.cpp"))):
        with open(path, encoding="utf-8") as file:
            text = file.read()
        # What the tests of errors hand in: literals in one call, put together.
        literals = re.findall(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+', text)
        snippets = []
        for literal in literals:
            joined = "".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', literal))
            joined = joined.replace("\\n", "\n").replace('\\"', '"').replace("\\t", "\t").replace("\\\\", "\\")
            if joined.count("\n") >= 2 and ":" in joined:
                snippets.append(joined)
        name = os.path.basename(path).removesuffix("Test.cpp").lower()
        for number, snippet in enumerate(sorted(set(snippets), key=lambda text: (-len(text), text))[:4]):
            seed("Configuration", f"test-{name}-{number}", snippet)


def request(method, path, body=""):
    head = f"{method} {path} HTTP/1.1\r\nHost: agent\r\n"
    if body:
        head += f"Content-Length: {len(body)}\r\n"
    return (head + "\r\n" + body).encode("utf-8")


# How it comes, see RequestsFuzzTest.cpp: over the local socket, over the web, with an agent that refuses, in two parts, with
# a length that is left as it is, without a head (the number of a route stands for it).
LOCAL, WEB, REFUSED, BLOCKED, PARTS, WRONG_LENGTH, ROUTE = 0, 1, 2, 4, 8, 16, 32
NAMES = {"UNIT": "u1", "INTERFACE": "et1", "ID": "7"}
BODIES = {
    "enter": ['{"reason": "new optics", "timeout": "5m"}', '{"force": true, "reason": "x", "session": "192.0.2.7"}',
              '{"deadline": "30m", "on-overrun": "restore", "revert-after": 14400}',
              '{"request-key": "job-17", "with": {"ticket": "OPS-1", "job": "https://ci.example/17"}}',
              '{"deadline": "never", "revert-after": "never", "with": {}}'],
    "exit": ['{"timeout": 90, "reason": null}', '{"request-key": "job-18", "with": {"ticket": "OPS-1"}}'],
    "release": ['{"force": true}'],
    "trace": ['{"name": "*", "level": 4}'],
    "reload": ["{}"],
    "traffic": ['{"interface": "et1", "in-bps": 5e6, "out-bps": 0, "ramp-seconds": 30}'],
    "link": ['{"interface": "et1", "up": false}'],
    "advance": ['{"seconds": 10.5}'],
}
QUERIES = {
    "interfaces": ["?unit=u1", "?fields=name,state,in-bps"],
    "samples": ["?interface=et1&interface=et2&last=1h", "?unit=u1&last=90m&until=2026-01-02T00:00:00Z"],
    "history": ["?unit=u1&limit=5"],
    "operations": ["?unit=u1&state=running&limit=5"],
    "events": ["?after=0", "?rates=1"],
    "recent": ["?after=0&limit=10", "?last=3"],
    "plan": ["?session=192.0.2.7"],
}


# As RequestsFuzzTest.cpp numbers them, by the last part of the path.
ROUTES = ["enter", "exit", "release", "trace", "traffic", "link", "advance", "interfaces", "samples", "history",
          "operations", "events", "recent", "plan"]


def requests():
    from apirig import routes
    for route in routes():
        path = re.sub("[A-Z]+", lambda found: NAMES.get(found.group(), "x"), route.path)
        last = path.rpartition("/")[2]
        name = (route.method.lower() + path).replace("/api/v1", "").replace("/", "-")
        for number, body in enumerate(BODIES.get(last, [""]) if route.method == "POST" else [""]):
            seed("Requests", f"{name}-{number}", bytes([LOCAL]) + request(route.method, path, body))
            if route.method == "POST":
                seed("Requests", f"{name}-refused-{number}", bytes([REFUSED]) + request(route.method, path, body))
        for number, query in enumerate(QUERIES.get(last, []) if route.method == "GET" else []):
            seed("Requests", f"{name}-query-{number}", bytes([LOCAL]) + request("GET", path + query))
    for number, last in enumerate(ROUTES):
        for each, rest in enumerate(BODIES.get(last, []) + QUERIES.get(last, [])):
            seed("Requests", f"rest-of-{last}-{each}", bytes([ROUTE, number]) + rest.lstrip("?").encode("utf-8"))
    enter = request("POST", "/api/v1/units/u1/enter", '{"reason": "upgrade"}')
    seed("Requests", "enter-over-the-web", bytes([WEB]) + enter)
    seed("Requests", "enter-blocked", bytes([BLOCKED]) + enter)
    seed("Requests", "enter-in-parts", bytes([PARTS, 90, 0]) + enter)
    seed("Requests", "enter-cut-off", bytes([WRONG_LENGTH]) + enter[:-5])
    seed("Requests", "enter-with-more", bytes([WRONG_LENGTH]) + enter + b"more")
    seed("Requests", "several", bytes([LOCAL]) + request("GET", "/healthz") + request("HEAD", "/api/v1/units") + enter)
    seed("Requests", "page", bytes([WEB]) + request("GET", "/"))
    seed("Requests", "events-again", bytes([LOCAL]) + request("GET", "/api/v1/events").replace(
        b"\r\n\r\n", b"\r\nLast-Event-ID: 3\r\n\r\n"))
    seed("Requests", "chunks", bytes([LOCAL]) + b"POST /api/v1/reload HTTP/1.1\r\nHost: agent\r\n"
         b"Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n")
    seed("Requests", "unknown", bytes([LOCAL]) + request("DELETE", "/api/v1/units/u1"))
    seed("Requests", "escaped", bytes([LOCAL]) + request("GET", "/api/v1/units/%75%31%ff%00"))


configurations()
requests()
if "--left" in sys.argv:
    left = list(CORPUS.left())
    for path in left:
        print(f"{path} is made by nobody: run Fuzz/seeds/texts.py")
    sys.exit(bool(left))
CORPUS.write()
