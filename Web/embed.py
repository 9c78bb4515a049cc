#!/usr/bin/env python3
"""Writes the files of the page as C++: plain and compressed, each with a tag of its content.

    embed.py OUTPUT FILE...

Equal files give equal output: nothing of it depends on times, names of folders or the order of the arguments.
"""

import gzip
import hashlib
import pathlib
import sys

TYPES = {
    ".html": "text/html; charset=utf-8",
    ".js": "text/javascript; charset=utf-8",
    ".css": "text/css; charset=utf-8",
    ".txt": "text/plain; charset=utf-8",
    ".svg": "image/svg+xml",
}


def literal(data):
    """A string literal; three octal digits a byte cannot run into what follows."""
    width = 30
    rows = [data[i : i + width] for i in range(0, len(data), width)] or [b""]
    return "\n".join('   "' + "".join(f"\\{byte:03o}" for byte in row) + '"' for row in rows)


def main(output, names):
    files = sorted((pathlib.Path(name) for name in names), key=lambda path: path.name)
    parts = [
        '#include "Agent/Control/Page.h"\n',
        "namespace Agent {\n",
        "namespace {\n",
    ]
    rows = []
    for number, path in enumerate(files):
        plain = path.read_bytes()
        packed = gzip.compress(plain, compresslevel=9, mtime=0)
        tag = hashlib.sha256(plain).hexdigest()[:16]
        parts.append(f"constexpr char plain{number}[] =\n{literal(plain)};\n")
        parts.append(f"constexpr char gzip{number}[] =\n{literal(packed)};\n")
        where = "/" if path.name == "index.html" else "/" + path.name
        rows.append(
            f'   {{ "{where}", "{TYPES[path.suffix]}", "{tag}", {{ plain{number}, {len(plain)} }}, {{ gzip{number}, {len(packed)} }} }},'
        )
    parts.append("constexpr PageFile files[] = {\n" + "\n".join(rows) + "\n};\n")
    parts.append("} // namespace\n")
    parts.append("std::span< const PageFile > pageFiles() { return files; }\n")
    parts.append("} // namespace Agent\n")
    pathlib.Path(output).write_text("\n".join(parts), encoding="ascii")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
