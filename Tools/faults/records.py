"""Committed lists of things explained: records of `key value` lines, a blank line between two, `#` begins a comment line.

A line that begins with a blank goes on with the value of the line before it.
"""

import re


class Record(dict):
    """One record: its values by key, and the line of the file where it begins."""

    line = 0


def squeezed(text):
    """Without what only lays it out: blanks at the ends, several blanks, line ends. Blanks in strings count too."""
    parts = re.split(r'("(?:\\.|[^"\\\n])*")', text)
    return "".join(p if i % 2 else re.sub(r"\s+", " ", p) for i, p in enumerate(parts)).strip()


def read(path, needed, optional=()):
    """The records of a file; none if there is no file. Raises ValueError that names the line of what is wrong."""
    try:
        with open(path, encoding="utf-8") as file:
            lines = file.read().split("\n")
    except FileNotFoundError:
        return []
    records, record, key = [], None, None
    for number, line in enumerate(lines + [""], 1):
        if line.startswith("#"):
            continue
        if not line.strip():
            if record is not None:
                _check(path, record, needed)
                records.append(record)
            record = key = None
        elif line[0].isspace():
            if key is None:
                raise ValueError(f"{path}:{number}: goes on with nothing")
            record[key] += " " + line.strip()
        else:
            if record is None:
                record = Record()
                record.line = number
            key, _, value = line.partition(" ")
            if key not in needed and key not in optional:
                raise ValueError(f"{path}:{number}: no such key: {key}")
            if key in record:
                raise ValueError(f"{path}:{number}: {key} a second time")
            record[key] = value.strip()
    return records


def _check(path, record, needed):
    for key in needed:
        if not record.get(key):
            raise ValueError(f"{path}:{record.line}: no {key}")
