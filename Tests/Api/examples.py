#!/usr/bin/env python3
"""Writes the examples of docs/api.md anew, from a real run: MAINT_BUILD=build/dev Tests/Api/examples.py

An example is the block of JSON that follows a line "Example: `METHOD PATH`" or "Example: `METHOD PATH` with `BODY`".
Paths of the run's folder are given as those of an installed agent.
"""

import json
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "Agent"))
from agentrig import Agent, configuration  # noqa: E402
from apirig import DOCUMENT, document  # noqa: E402

WIDTH = 110
# A unit that is looked at before it enters: one network is behind its port only.
ACCESS = """\
  routes:
    - {to: 0.0.0.0/0, via: [et4, et5]}
    - {to: 192.0.2.0/24, via: [et4]}
"""


def laidOut(value, indent=0, before=0):
    """JSON text; what fits into a line stands in one."""
    line = json.dumps(value, ensure_ascii=False)
    if len(line) + indent + before <= WIDTH or not value or not isinstance(value, (dict, list)):
        return line
    margin = " " * (indent + 2)
    if isinstance(value, dict):
        parts = [f"{json.dumps(key)}: " + laidOut(of, indent + 2, len(key) + 4) for key, of in value.items()]
    else:
        parts = [laidOut(of, indent + 2) for of in value]
    open_, close = "{}" if isinstance(value, dict) else "[]"
    return f"{open_}\n" + ",\n".join(margin + part for part in parts) + "\n" + " " * indent + close


def configured(agent):
    text = configuration(agent.path("steer"), {"spine-a": "uplinks, tenants", "leaf-a": "access"}, watched="30s",
                         limit="2m")
    text = text.replace("units:\n", "  access: {interfaces: [et4]}\nunits:\n", 1)
    return text.replace("et3: {}}", "et3: {}, et4: {speed: 1Gbps}, et5: {speed: 1Gbps}}", 1) + ACCESS


def prepare(agent):
    """One unit in the middle of draining: et1 carries traffic, et2 has drained and is shut, VLAN 10 is getting quiet."""
    agent.configure(configured(agent))
    agent.command("steer", "exit 0")
    agent.start()
    agent.traffic("et1", 812e3, 40e3)
    agent.traffic("et4", 120e6, 80e6)
    agent.done("/api/v1/units/spine-a/enter", reason="replace the line card", timeout="10m")
    agent.until(lambda: agent.unit("spine-a")["stage"] == "drainwatch")
    agent.advance(16)


def answer(agent, method, path, body, text):
    """`text` is what the document says of the example behind the request."""
    if path.endswith("/reload"):
        broken = "misspelt" in text
        text = configured(agent)
        agent.configure(text.replace("[uplinks, t", "[uplink, t") if broken else text.replace("100kbps", "200kbps"))
    text = agent.ask(method, path, body).text
    for ours, installed in ((agent.path("run"), "/run/maintd"), (agent.path("steer"), "/usr/lib/maintd/stages/steer"),
                            (agent.path("maintd.yaml"), "/etc/maintd/maintd.yaml")):
        text = text.replace(ours, installed)
    return laidOut(json.loads(text))


EXAMPLE = re.compile(r"(^Example: `([A-Z]+) (\S+)`(?: with `([^`]*)`)?([^\n]*)\n\n```json\n)(.*?)(^```$)", re.M | re.S)


def main():
    agent = Agent("")
    try:
        prepare(agent)
        new = EXAMPLE.sub(lambda found: found[1] + answer(agent, *found.groups()[1:5]) + "\n" + found[7],
                          document())
    finally:
        agent.close()
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write(new)


if __name__ == "__main__":
    main()
