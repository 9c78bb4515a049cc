#!/usr/bin/env python3
"""Answers a story's questions, one line each: look.py SOCKET-OF-THE-AGENT, in the network namespace that is looked at.

    fact PATH KEY        the first value of that key in the agent's answer to GET /api/v1/PATH
    time PATH KEY        the same, a time, in seconds since 1970
    up LINK              whether the link is set up: true or false
    octets LINK rx|tx    what the link has counted

The answer is empty if the agent, the key or the link is not there. One process for all questions: where a process takes
long to begin, a story that asks ten times a second would do nothing else.
"""
import datetime
import json
import socket
import sys

IFF_UP = 1


def get(path):
    with socket.socket(socket.AF_UNIX) as channel:
        channel.settimeout(20)
        channel.connect(sys.argv[1])
        channel.sendall(f"GET /api/v1/{path} HTTP/1.0\r\nHost: agent\r\n\r\n".encode())
        answer = b"".join(iter(lambda: channel.recv(65536), b""))
    return json.loads(answer.partition(b"\r\n\r\n")[2])


def find(value, key):
    """Gives a list of the first value of the key, or an empty one."""
    inner = value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
    if isinstance(value, dict) and key in value:
        return [value[key]]
    return next((found for each in inner if (found := find(each, key))), [])


def fact(path, key):
    return "".join(each if isinstance(each, str) else json.dumps(each) for each in find(get(path), key))


def time(path, key):
    return f"{datetime.datetime.fromisoformat(fact(path, key)).timestamp():.6f}"


def read(link, name):
    with open(f"/sys/class/net/{link}/{name}", encoding="ascii") as file:
        return file.read().strip()


def up(link):
    return "true" if int(read(link, "flags"), 16) & IFF_UP else "false"


def octets(link, direction):
    return read(link, f"statistics/{direction}_bytes")


for line in sys.stdin:
    question, *arguments = line.split()
    try:
        answer = {"fact": fact, "time": time, "up": up, "octets": octets}[question](*arguments)
    except (OSError, ValueError):
        answer = ""
    print(answer, flush=True)
