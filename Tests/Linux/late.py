#!/usr/bin/env python3
"""Says which links an agent has called late although nothing was to come any more: late.py NEWS, with the agent's answer
to GET /api/v1/events/recent as standard input. NEWS is what `ip -o -ts monitor link address route` has written, in UTC.

The agent hears of what comes to a link before its time is over, so a link is late only if something has come later. The
agent's own clock and that of the news differ by less than a second.
"""
import datetime
import json
import re
import sys

SLACK = datetime.timedelta(seconds=1)


def lastNews(path):
    """When there was something last of each link that is named in a line."""
    last = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if found := re.match(r"\[(\S+)\]", line):
                time = datetime.datetime.fromisoformat(found[1]).replace(tzinfo=datetime.timezone.utc)
                for link in re.findall(r"(?:\bdev |\d: )([^\s@:]+)", line):
                    last[link] = time
    return last


def main():
    last = lastNews(sys.argv[1])
    for event in json.load(sys.stdin)["events"]:
        if event["what"] != "links-late":
            continue
        time = datetime.datetime.fromisoformat(event["time"].replace("Z", "+00:00"))
        for link in event["interfaces"]:
            if link not in last or last[link] < time - SLACK:
                print(f"{link} was called late at {time}, but nothing of it has come since {last.get(link)}")


main()
