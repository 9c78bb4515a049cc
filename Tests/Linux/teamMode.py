#!/usr/bin/env python3
"""Gives a team device its mode, which a daemon does elsewhere: teamMode.py DEVICE MODE

The device must have no members yet. Generic netlink, family "team", by hand: what the kernel's own header linux/if_team.h
says, and nothing that is not in the standard library.
"""
import errno
import os
import socket
import struct
import sys

NETLINK_GENERIC = 16
GENL_ID_CTRL = 16
CTRL_CMD_GETFAMILY, CTRL_ATTR_FAMILY_ID, CTRL_ATTR_FAMILY_NAME = 3, 1, 2
TEAM_CMD_OPTIONS_SET = 1
TEAM_ATTR_TEAM_IFINDEX, TEAM_ATTR_LIST_OPTION, TEAM_ATTR_ITEM_OPTION = 1, 2, 1
TEAM_ATTR_OPTION_NAME, TEAM_ATTR_OPTION_TYPE, TEAM_ATTR_OPTION_DATA = 1, 3, 4
NLA_STRING, NLA_F_NESTED = 5, 0x8000
NLM_F_REQUEST, NLM_F_ACK, NLMSG_ERROR = 1, 4, 2


def attribute(kind, data):
    return struct.pack("HH", 4 + len(data), kind) + data + b"\0" * (-len(data) % 4)


def attributes(data):
    while len(data) >= 4:
        length, kind = struct.unpack_from("HH", data)
        yield kind & 0x3FFF, data[4:length]
        data = data[(length + 3) & ~3:]


def ask(channel, family, command, data):
    """Gives the answer's attributes, which are empty for a bare acknowledgement."""
    body = struct.pack("BBH", command, 1, 0) + data
    channel.send(struct.pack("IHHII", 16 + len(body), family, NLM_F_REQUEST | NLM_F_ACK, 1, 0) + body)
    answer = {}
    while True:
        packet = channel.recv(65536)
        while packet:
            length, kind = struct.unpack_from("IH", packet)
            if kind == NLMSG_ERROR:
                error = -struct.unpack_from("i", packet, 16)[0]
                # The last step is to tell whoever listens for changes, and nobody does.
                if error and error != errno.ESRCH:
                    raise OSError(error, os.strerror(error))
                return answer
            answer.update(attributes(packet[20:length]))
            packet = packet[(length + 3) & ~3:]


def main(device, mode):
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_GENERIC) as channel:
        channel.bind((0, 0))
        found = ask(channel, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, attribute(CTRL_ATTR_FAMILY_NAME, b"team\0"))
        family = struct.unpack_from("H", found[CTRL_ATTR_FAMILY_ID])[0]
        option = (attribute(TEAM_ATTR_OPTION_NAME, b"mode\0") +
                  attribute(TEAM_ATTR_OPTION_TYPE, struct.pack("B", NLA_STRING)) +
                  attribute(TEAM_ATTR_OPTION_DATA, mode.encode() + b"\0"))
        ask(channel, family, TEAM_CMD_OPTIONS_SET,
            attribute(TEAM_ATTR_TEAM_IFINDEX, struct.pack("I", socket.if_nametoindex(device))) +
            attribute(TEAM_ATTR_LIST_OPTION | NLA_F_NESTED, attribute(TEAM_ATTR_ITEM_OPTION | NLA_F_NESTED, option)))


if __name__ == "__main__":
    main(*sys.argv[1:])
