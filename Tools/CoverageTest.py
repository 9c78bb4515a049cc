#!/usr/bin/env python3
"""Tests of Tools/coverage, and of the committed lists and the reading of C++ that the tools share."""

import os
import tempfile
import unittest

import testing
from faults import cxx, plugin, records

coverage = testing.program("coverage")

SOURCE = """\
#include "A.h"

namespace N {

int f( int x ) {
   if ( x )
      return 1;
   return 2;
}

struct S {
   int g() { return 3; }
   int value = 4;
};

} // namespace N
"""


def line(number, count, *branches):
    return {"line_number": number, "count": count, "branches": [{"count": b} for b in branches]}


def found(*lines):
    files = [{"file": "A.cpp", "lines": lines}]
    return list(coverage.uncovered(files, lambda path: cxx.Source(path, SOURCE)))


def exception(**values):
    record = records.Record(values)
    record.line = 1
    return record


class Uncovered(unittest.TestCase):
    def test_saysWhereALineNeverRuns(self):
        self.assertEqual(found(line(7, 0)), [("A.cpp", "f", "line", "return 1;", 7, "never runs")])

    def test_saysHowManyBranchesOfALineAreNeverTaken(self):
        self.assertEqual(
            found(line(6, 3, 3, 0, 0)), [("A.cpp", "f", "branch", "if ( x )", 6, "2 of 3 branches never taken")])

    def test_saysNothingOfWhatIsCovered(self):
        self.assertEqual(found(line(6, 3, 2, 1), line(7, 1), line(8, 2)), [])

    def test_leavesOutWhatIsNoCode(self):
        self.assertEqual(found(dict(line(7, 0), **{"gcovr/noncode": True})), [])

    def test_namesTheTypeOfWhatIsOutsideOfFunctions(self):
        self.assertEqual([item[1] for item in found(line(12, 0), line(13, 0), line(15, 0))], ["S::g", "(S)", "(file)"])


class Exceptions(unittest.TestCase):
    def test_explainWhatIsUncovered(self):
        items = found(line(7, 0))
        entry = exception(file="A.cpp", function="f", line="return  1;", why="because")
        self.assertEqual(coverage.compare(items, [entry]), ([(items[0], "because")], [], []))

    def test_areStaleWhenTheirLineIsCovered(self):
        entry = exception(file="A.cpp", function="f", line="return 1;", why="because")
        self.assertEqual(coverage.compare(found(), [entry]), ([], [], [entry]))

    def test_fitOnlyTheirFileFunctionTextAndWhatTheySay(self):
        items = found(line(7, 0))
        right = {"file": "A.cpp", "function": "f", "line": "return 1;", "why": "because"}
        for wrong in ({"file": "B.cpp"}, {"function": "g"}, {"line": "return 2;"}):
            with self.subTest(wrong):
                self.assertEqual(coverage.compare(items, [exception(**dict(right, **wrong))])[1], items)
        branch = {"file": "A.cpp", "function": "f", "branch": "return 1;", "why": "because"}
        self.assertEqual(coverage.compare(items, [exception(**branch)])[1], items)


class Records(unittest.TestCase):
    def read(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "list")
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            return records.read(path, ("file", "why"), ("line",))

    def test_areReadWithTheirContinuations(self):
        read = self.read("# a comment\n\nfile a\nwhy one\n   two\n\n\nfile b\nline x = 1;\nwhy three\n")
        self.assertEqual(read, [{"file": "a", "why": "one two"}, {"file": "b", "line": "x = 1;", "why": "three"}])
        self.assertEqual([record.line for record in read], [3, 8])

    def test_areNoneWithoutTheFile(self):
        self.assertEqual(records.read("/no/such/file", ("file",)), [])

    def test_areRefusedWithTheLineThatIsWrong(self):
        for text, message in (
                ("file a\n", "list:1: no why"),
                ("file a\nwhy\n", "list:1: no why"),
                ("file a\nwhen b\n", "list:2: no such key: when"),
                ("file a\nfile b\n", "list:2: file a second time"),
                ("# x\n   more\n", "list:2: goes on with nothing")):
            with self.subTest(text):
                with self.assertRaises(ValueError) as raised:
                    self.read(text)
                self.assertIn(message, str(raised.exception))

    def test_compareWithoutLayoutButWithTheBlanksOfStrings(self):
        self.assertEqual(records.squeezed('  f( a,\n      "x  y",\n  b );\n'), 'f( a, "x  y", b );')


class Plugin(unittest.TestCase):
    def test_isItsSourcesAndTheHeadersThatTheyInclude(self):
        with tempfile.TemporaryDirectory() as root:
            os.mkdir(os.path.join(root, plugin.FOLDER))
            for name, text in (
                    ("CMakeLists.txt", "maint_folder( DrainWatchPluginObjects\n  SOURCES\n    A.cpp\n    B.cpp\n  LINK x )\n"
                                       "maint_test( ATest SOURCES ATest.cpp )\n"),
                    ("A.cpp", '#include "MaintenancePlugin/A.h"\n#include "Platform/Vel/Entity.h"\n#include <map>\n'),
                    ("A.h", '#pragma once\n#include "MaintenancePlugin/C.h"\n'),
                    ("B.cpp", ""), ("C.h", '#include "MaintenancePlugin/A.h"\n'), ("Rig.h", ""),
                    ("ATest.cpp", '#include "MaintenancePlugin/Rig.h"\n')):
                with open(os.path.join(root, plugin.FOLDER, name), "w", encoding="utf-8") as file:
                    file.write(text)
            self.assertEqual(plugin.files(root), [f"MaintenancePlugin/{n}" for n in ("A.cpp", "A.h", "B.cpp", "C.h")])

    def test_isFoundInThisTree(self):
        found = plugin.files(coverage.ROOT)
        self.assertIn("MaintenancePlugin/UnitMonSm.cpp", found)
        self.assertIn("MaintenancePlugin/Reinstantiation.h", found)
        self.assertEqual([path for path in found if "Test" in path or "Rig" in path], [])


if __name__ == "__main__":
    unittest.main()
