"""Writes seeds for the fuzz targets Configuration and Requests, of what this tree has of them: examples, configurations of
tests, the routes of the API's document with the bodies of its examples.

    python3 Fuzz/seeds/texts.py
"""

import glob
import os
import re
import sys

FUZZ = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ROOT = os.path.dirname(FUZZ)
sys.path.insert(0, os.path.join(ROOT, "Tests", "Api"))
sys.path.insert(0, os.path.join(ROOT, "Tests", "Agent"))
sys.dont_write_bytecode = True


def read(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def seed(target, name, content):
    folder = os.path.join(FUZZ, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode("utf-8"))


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


def configurations():
    whole = read("Config", "examples", "maintd.yaml")
    simulated = read("Config", "examples", "simulated.yaml")
    seed("Configuration", "example", whole)
    seed("Configuration", "example-simulated", simulated)
    # Without comments it is a small seed, which is changed in more ways in the same time.
    bare = re.sub(r"\n(\s*\n)+", "\n", re.sub(r"(?m)\s*#.*$", "", whole))
    seed("Configuration", "example-bare", bare)
    sections = re.split(r"(?m)^(?=[a-z])", bare.lstrip("\n"))
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
        for number, snippet in enumerate(sorted(set(snippets), key=len, reverse=True)[:4]):
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
    "samples": ["?interface=et1&interface=et2&last=1h", "?unit=u1&from=2026-01-01T00:00:00Z&to=2026-01-02T00:00:00Z"],
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
        last = path.rstrip("/0123456789").rpartition("/")[2]
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
