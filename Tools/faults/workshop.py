"""A copy of the tree, built once without faults, and the commands that rebuild parts of it with one."""

import filecmp
import json
import os
import re
import shlex
import shutil
import subprocess

from . import plugin

#: No optimisation, no debug information: what is built fastest. Warnings are not what a fault is judged by.
FLAGS = "-O0 -w"
_OBJECTS = "DrainWatchPluginObjects.dir"
_RIG = "DrainWatchPluginRig.dir"
_LIBRARY = "lib/libDrainWatchPlugin.so"


class Broken(Exception):
    """The tree without faults does not build, or its tests fail."""


def run(command, folder, what):
    done = subprocess.run(
        command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        text=True, errors="replace")
    if done.returncode:
        raise Broken(f"{what} failed:\n{done.stdout}")
    return done.stdout


def synchronise(source, target):
    """Makes `target` the same tree as `source`; files that are equal keep their times. Without build/ and .git."""
    wanted = set()
    for folder, folders, files in os.walk(source):
        relative = os.path.relpath(folder, source)
        folders[:] = sorted(f for f in folders if f not in (".git", "build", "__pycache__"))
        os.makedirs(os.path.join(target, relative), exist_ok=True)
        for name in files:
            path = os.path.normpath(os.path.join(relative, name))
            if path == ".git":  # of a worktree
                continue
            wanted.add(path)
            one, other = os.path.join(source, path), os.path.join(target, path)
            if not os.path.exists(other) or not filecmp.cmp(one, other, shallow=False):
                shutil.copyfile(one, other)
                shutil.copymode(one, other)
    for folder, _, files in os.walk(target):
        for name in files:
            path = os.path.relpath(os.path.join(folder, name), target)
            if path not in wanted:
                os.remove(os.path.join(target, path))


class Workshop:
    def __init__(self, root, folder):
        self.root = root
        self.folder = folder
        self.tree = os.path.join(folder, "tree")
        self.base = os.path.join(folder, "base")
        self.linker = next((f"-fuse-ld={name}" for name in ("mold", "lld", "gold")
                            if shutil.which("mold" if name == "mold" else f"ld.{name}")), None)

    def prepare(self, jobs):
        """Copies the tree and builds it."""
        os.makedirs(self.folder, exist_ok=True)
        synchronise(self.root, self.tree)
        run(["cmake", "-S", self.tree, "-B", self.base, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
             f"-DCMAKE_CXX_FLAGS={FLAGS}", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"], self.folder, "configuring")
        run(["cmake", "--build", self.base, f"-j{jobs}", "--target", "PluginTests", "DrainWatchPlugin"], self.folder,
            "building without faults")
        with open(os.path.join(self.base, "plugin-tests.txt"), encoding="utf-8") as file:
            self.programs = [os.path.relpath(path, self.base) for path in file.read().split()]
        self._readCompileCommands()
        self._readLinkCommands()
        self._readIncludes()
        self._mapTests()

    # ---- what the build consists of

    def _readCompileCommands(self):
        with open(os.path.join(self.base, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
        self.compileOf = {}  # object, relative to base: (source relative to the tree, command without files)
        for entry in entries:
            words = shlex.split(entry["command"])
            if os.path.basename(words[0]) == "ccache":
                words = words[1:]
            output = words[words.index("-o") + 1]
            kept, skip = [], False
            for word in words:
                if skip:
                    skip = False
                elif word in ("-o", "-MF", "-MT", "-MQ"):
                    skip = True
                elif word not in ("-c", "-MD", "-MMD", entry["file"]):
                    kept.append(word)
            self.compileOf[os.path.normpath(output)] = (os.path.relpath(entry["file"], self.tree), kept)

    def _readLinkCommands(self):
        self.linkOf = {}
        for target in [*self.programs, _LIBRARY]:
            command = run(["ninja", "-t", "commands", "-s", target], self.base, f"asking how to link {target}")
            part = next(p for p in command.strip().split("\n")[-1].split(" && ") if f"-o {target}" in p)
            words = shlex.split(part)
            if os.path.basename(words[0]) == "ccache":
                words = words[1:]
            self.linkOf[target] = words

    def _readIncludes(self):
        """Which files each object is made of."""
        self.madeOf = {}
        text = run(["ninja", "-t", "deps"], self.base, "asking for dependencies")
        current = None
        for line in text.split("\n"):
            if line.startswith(" "):
                path = os.path.normpath(os.path.join(self.base, line.strip()))
                if path.startswith(self.tree + "/"):
                    current.add(os.path.relpath(path, self.tree))
            elif line.strip():
                current = self.madeOf.setdefault(os.path.normpath(line.split(":")[0]), set())

    def _mapTests(self):
        """Which program each test file is in, and the names of its tests."""
        self.programOf, self.testsOf = {}, {}
        for program in self.programs:
            for word in self.linkOf[program]:
                if word.endswith(".o") and os.path.normpath(word) in self.compileOf:
                    self.programOf[self.compileOf[os.path.normpath(word)][0]] = program
        for path in plugin.tests(self.tree):
            with open(os.path.join(self.tree, path), encoding="utf-8") as file:
                found = re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", file.read(), re.M)
            self.testsOf[path] = [f"{suite}.{name}" for suite, name in found]

    def libraryUser(self, program):
        """Whether the program opens the plug-in's library instead of having its objects."""
        return not any(_OBJECTS in word for word in self.linkOf[program])

    def pluginObject(self, path):
        """The object of a source file of the plug-in."""
        return next(o for o, (source, _) in self.compileOf.items() if source == path and _OBJECTS in o)

    def objectsWith(self, header):
        """The objects of plug-in and rig that include a header."""
        return sorted(o for o, files in self.madeOf.items()
                      if header in files and (_OBJECTS in o or _RIG in o))

    def objectsThatSay(self, objects, pattern):
        """Those of the objects whose own source matches; all of them if none does."""
        found = []
        for object_ in objects:
            with open(os.path.join(self.tree, self.compileOf[object_][0]), encoding="utf-8") as file:
                if re.search(pattern, file.read()):
                    found.append(object_)
        return found or objects

    def beside(self, path):
        """The tests that stand beside a file: [(program, filter)], those of the same name."""
        stem = os.path.splitext(os.path.basename(path))[0]
        bases = {os.path.basename(t)[: -len("Test.cpp")]: t for t in self.testsOf if t in self.programOf}
        chosen = [t for base, t in bases.items() if base.startswith(stem)]
        if not chosen:
            chosen = [t for base, t in bases.items() if stem.startswith(base)]
        filters = {}
        for test in sorted(chosen):
            filters.setdefault(self.programOf[test], []).extend(self.testsOf[test])
        return [(program, ":".join(names)) for program, names in filters.items() if names]


class Bench:
    """The place of one worker: its mutated files, its objects, its programs."""

    def __init__(self, workshop, number):
        self.shop = workshop
        self.folder = os.path.join(workshop.folder, f"worker{number}")
        shutil.rmtree(self.folder, ignore_errors=True)
        for name in ("source", "objects", "bin", "lib", "tmp"):
            os.makedirs(os.path.join(self.folder, name))
        self.source = os.path.join(self.folder, "source")
        self._own = {}  # (program, object): this worker's own
        self.linkerSaid = ""

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def write(self, path, text):
        target = os.path.join(self.source, path)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "w", encoding="utf-8") as file:
            file.write(text)

    def clear(self):
        shutil.rmtree(self.source)
        os.makedirs(self.source)

    def compile(self, object_, name, *options, source=None, seconds=300):
        """Compiles what `object_` is made of with this worker's files in place of the tree's, or another source file
        with the same options. The new object's path; None if it does not compile."""
        origin, command = self.shop.compileOf[object_]
        if source is None:
            source = origin
        if not os.path.exists(os.path.join(self.source, source)):
            source = os.path.join(self.shop.tree, source)
        target = self.path("objects", name)
        # Named relative to where it stands, so that the same text always makes the same object.
        words = [command[0], "-I.", *command[1:], *options, "-c", source, "-o", target]
        try:
            done = subprocess.run(words, cwd=self.source, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, check=False, timeout=seconds)
        except subprocess.TimeoutExpired:
            return None
        return None if done.returncode else target

    def link(self, target, replaced, first=None):
        """Links a program or the library with some objects replaced. With `first`, the replaced ones and that object
        stand before all others. The path of what it made; None on failure."""
        words, objects, output = [], [], self.path(target)
        line = iter(self.shop.linkOf[target])
        for word in line:
            if word == "-o":
                next(line)
                words += ["-o", output]
            elif word.endswith(".o"):
                word = os.path.normpath(word)
                objects.append(replaced.get(word, self._own.get((target, word), word)))
            else:
                words.append(word)
        if first is not None:
            made = set(replaced.values())
            objects.sort(key=lambda o: o not in made)
            objects[:0] = [first] if first else []
        at = words.index("-o")
        words[at:at] = objects
        if self.shop.linker:
            words.append(self.shop.linker)
        done = subprocess.run(words, cwd=self.shop.base, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, text=True, errors="replace")
        self.linkerSaid = done.stdout
        return None if done.returncode else output

    def program(self, program, replaced, first=None):
        """The program with the faulty objects in it, or beside the faulty library. Its path; None if it cannot be."""
        if not self.shop.libraryUser(program):
            return self.link(program, replaced, first)
        # The path of the library is compiled in; this worker has its own.
        if not any(key[0] == program for key in self._own):
            for word in self.shop.linkOf[program]:
                object_ = os.path.normpath(word)
                if object_ in self.shop.compileOf:
                    _, command = self.shop.compileOf[object_]
                    theirs, ours = os.path.join(self.shop.base, _LIBRARY), self.path(_LIBRARY)
                    swapped = [w.replace(theirs, ours) for w in command if theirs in w]
                    made = self.compile(object_, f"own-{os.path.basename(object_)}", "-UPLUGIN_LIBRARY", *swapped)
                    if made is None:
                        return None
                    self._own[(program, object_)] = made
            if self.link(program, {}) is None:
                return None
        return self.path(program) if self.link(_LIBRARY, replaced, first) else None
