#!/usr/bin/env python3
"""Tests of Tools/mutants: the faults that it makes, how it tries them, and what it says in the end."""

import contextlib
import io
import os
import tempfile
import unittest

import testing
from faults import cxx, generator, records, trial, workshop

mutants = testing.program("mutants")


def faultsOf(body, before="", kinds=None):
    """(kind, the changed lines) of the faults of a function with this body."""
    source = cxx.Source("A.cpp", before + "void f( int a, int b ) {\n" + body + "\n}\n")
    return [(f.kind, records.squeezed(f.now)) for f in generator.faults(source)
            if f.function == "f" and (kinds is None or f.kind in kinds)]


class Operators(unittest.TestCase):
    def check(self, body, kind, *changed):
        self.assertEqual(sorted(now for _, now in faultsOf(body, kinds=(kind,))), sorted(changed))

    def test_turnComparisons(self):
        self.check("x = a < b;", "compared", "x = a <= b;", "x = a > b;")
        self.check("x = a >= b;", "compared", "x = a > b;", "x = a < b;")
        self.check("x = a == b;", "compared", "x = a != b;")
        self.check("x = a != b;", "compared", "x = a == b;")

    def test_leaveTemplatesAlone(self):
        self.check("x = static_cast< T >( a );", "compared")
        self.check("std::vector< std::vector< T > > x( a );", "compared")
        self.check("x = p->q;", "compared")

    def test_turnArithmetic(self):
        self.check("x = a + 1;", "arithmetic", "x = a - 1;")
        self.check("x = a * 8;", "arithmetic", "x = a / 8;")
        self.check("x += a;", "arithmetic", "x -= a;")
        self.check("++x;", "arithmetic", "--x;")
        self.check("x = -a;", "arithmetic", "x = a;")

    def test_leavePointersAndReferencesAlone(self):
        self.check("const T * const x = &y;", "arithmetic")
        self.check("for ( auto && [k, v] : r )\ng();", "logic")

    def test_changeConstants(self):
        self.check("x = 0;", "constant", "x = 1;")
        self.check("x = 1;", "constant", "x = 0;", "x = 2;")
        self.check("x = 1'000;", "constant", "x = 1001;", "x = 999;")
        self.check("x = 5.0;", "constant", "x = 6.0;", "x = 4.0;")
        self.check("x = true;", "constant", "x = false;")
        self.check("x = false;", "constant", "x = true;")

    def test_leaveStatementsOut(self):
        self.check("g( a,\n   b );\nint x = a;\ny = a;\nreturn;", "dropped", ";", ";")
        self.check("return;", "left", ";")
        self.check("while ( a )\ncontinue;", "left", ";")

    def test_leaveTheOtherwiseOut(self):
        self.check("if ( a )\ng();\nelse\nh();", "dropped", ";", ";", "{}")

    def test_swapNeighbours(self):
        self.check("g();\nh();\ni();", "swapped", "h();\ng();".replace("\n", " "), "i();\nh();".replace("\n", " "))

    def test_doNotSwapWhatNobodyCanTellApart(self):
        self.check('TRACE( 4, "x" );\ng();', "swapped")
        self.check('TRACE( 4, "x" );\nFASTLOG( "x" );', "swapped")
        self.check("x = a;\ny = b;", "swapped")
        self.check('TRACE( 1, "x" );\nVEL_ASSERT( false, "0" );', "swapped",
                   'VEL_ASSERT( false, "0" ); TRACE( 1, "x" );')

    def test_alterTexts(self):
        self.check('g( "abcde" );', "text", 'g( "abxde" );')
        self.check('g( "" );', "text", 'g( "~" );')
        self.check('g( "%s" );', "text", 'g( "%s~" );')
        self.check('g( "a " );', "blank", 'g( "a" );')
        self.check('g( " a" );', "blank", 'g( "a" );')
        self.check('g( "a b" );', "blank", 'g( "a  b" );')

    def test_turnConditions(self):
        self.check("if ( a )\ng();", "negated", "if ( !( a ) )")
        self.check("if ( !a )\ng();", "negated", "if ( !( !a ) )")
        self.check("if ( !a && b )\ng();", "negated", "if ( !( !a && b ) )", "if ( a && b )")
        self.check("if ( auto * x = g() )\nh( x );", "negated", "if ( auto * x = g(); !x )")
        self.check("const bool x = g();", "negated", "const bool x = !( g() );")
        self.check("if ( a == b )\ng();", "negated")

    def test_makeConditionsHoldAlwaysOrNever(self):
        self.check("if ( a )\ng();", "forced", "if ( true )", "if ( false )")
        self.check("for ( auto x : r )\ng();", "forced", "{}")
        self.check("x = a ? b : c;", "forced", "x = a ? c : b;")

    def test_turnAndLeaveOutSidesOfAndAndOr(self):
        self.check("if ( a && b )\ng();", "logic", "if ( a || b )")
        self.check("if ( a || b )\ng();", "logic", "if ( a && b )")
        self.check("if ( a && b && c )\ng();", "operand", "if ( b && c )", "if ( a && c )", "if ( a && b )")
        self.check("return a || b;", "operand", "return b;", "return a;")

    def test_changeWhatIsReturned(self):
        self.check("return g();", "returned", "return {};")
        self.check("return a == b;", "returned", "return !( a == b );")
        self.check("return nullptr;", "returned")

    def test_exchangeArgumentsThatSeemAlike(self):
        self.check("g( oldRates, newRates );", "arguments", "g( newRates, oldRates );")
        self.check("g( 1, 2 );", "arguments", "g( 2, 1 );")
        self.check("g( oldRates, unit );", "arguments")
        self.check("void ( *p )( int oldRates, int newRates ) = nullptr;", "arguments")

    def test_exchangeRowsOfATable(self):
        self.check('static constexpr Row rows[] = {\n{ "a", 1 },\n{ "b", 2 },\n};', "row",
                   '{ "b", 2 }, { "a", 1 },')

    def test_leaveInitialisersOut(self):
        source = cxx.Source("A.cpp", "S::S( int a, int b )\n : a_( a ), b_( b ) {\n   g();\n}\n")
        self.assertEqual(
            [records.squeezed(f.now) for f in generator.faults(source) if f.kind == "initialiser"],
            [": b_( b ) {", ": a_( a ) {"])

    def test_changeInitialValuesInTypes(self):
        source = cxx.Source("A.h", "struct S {\n   int x = 0;\n   virtual void f() = 0;\n   bool y = false;\n};\n")
        self.assertEqual(
            [(f.function, records.squeezed(f.now)) for f in generator.faults(source) if f.kind == "constant"],
            [("(S)", "int x = 1;"), ("(S)", "bool y = true;")])

    def test_changeLevelsOfTracesOnlyWhenAsked(self):
        self.check('TRACE( 4, "a" );', "level", 'TRACE( 5, "a" );')
        self.check('TRACE( 4, "a" );', "constant")
        self.assertNotIn("level", generator.KINDS)


class WhatIsNotCode(unittest.TestCase):
    def test_commentsHaveNoFaults(self):
        self.assertEqual(faultsOf("// x = 1; if ( a < b )\n/* g( \"t\" );\n return 0; */"), [])

    def test_stringsHoldNoOperators(self):
        kinds = {kind for kind, _ in faultsOf('const char * x = "a < b && 1 + 2; return true";')}
        self.assertEqual(kinds, {"text", "blank"})

    def test_rawStringsHoldNoOperators(self):
        self.assertEqual(faultsOf('const char * x = R"y(a < b " 1 )z" && true)y";'), [])

    def test_directivesHaveNoFaults(self):
        source = cxx.Source("A.h", '#pragma once\n#include "B.h"\n#define M( x ) \\\n   g( x, "text", 1 )\n')
        self.assertEqual(generator.faults(source), [])


class Faults(unittest.TestCase):
    TEXT = 'int g( int a ) {\n   h( 1,\n      2 );\n   return a + 1;\n}\n\nvoid k() {\n   l( "t" );\n   l( "t" );\n}\n'

    def test_moveNoLine(self):
        source = cxx.Source("A.cpp", self.TEXT)
        for fault in generator.faults(source):
            with self.subTest(fault.id):
                self.assertEqual(fault.applied(self.TEXT).count("\n"), self.TEXT.count("\n"))

    def test_areTheSameEveryTime(self):
        once, twice = (generator.faults(cxx.Source("A.cpp", self.TEXT)) for _ in range(2))
        self.assertEqual([f.id for f in once], [f.id for f in twice])

    def test_haveIdsOfTheirOwn(self):
        found = generator.faults(cxx.Source("A.cpp", self.TEXT))
        self.assertEqual(len({f.id for f in found}), len(found))
        self.assertEqual([f.occurrence for f in found if f.kind == "text"], [1, 2])

    def test_staySelectedWhenAnotherFunctionChanges(self):
        before = generator.selected(cxx.Source("A.cpp", self.TEXT))
        after = generator.selected(cxx.Source("A.cpp", "\n\n" + self.TEXT.replace("a + 1", "a - 2")))
        self.assertEqual([f.id for f in before if f.function == "k"], [f.id for f in after if f.function == "k"])

    def test_areSelectedInEveryFunctionAndByItsLength(self):
        long = "void m() {\n" + "".join(f"   n( {i} );\n" for i in range(50)) + "}\n"
        chosen = generator.functionsOf(generator.selected(cxx.Source("A.cpp", self.TEXT + long)))
        self.assertEqual(set(chosen), {"g", "k", "m"})
        self.assertEqual(len(chosen["m"]), -(-52 // generator.LINES_PER_FAULT))

    def test_showWhatChanges(self):
        source = cxx.Source("A.cpp", self.TEXT)
        fault = next(f for f in generator.faults(source) if f.kind == "arithmetic")
        self.assertEqual((fault.line, fault.function), (4, "g"))
        self.assertEqual(fault.diff(), "   -    return a + 1;\n   +    return a - 1;")


class Functions(unittest.TestCase):
    def test_areFoundWithTheirNames(self):
        source = cxx.Source("A.cpp", """
namespace N { namespace {
template < class T > T t( const T & x ) { return x; }
}
struct S : Base< int > {
   S() : a{ 1 }, b( 2 ) { g(); }
   ~S() override {}
   bool operator==( const S & ) const { return true; }
   enum E { one, two };
   struct Inner { int i() const { return a < b; } };
   int a = 0, b{ 0 };
};
std::map< int, S > S::f( int x ) const
{
   for ( ;; ) { if ( x ) { return {}; } }
}
const S s{ 1 };
}
""")
        self.assertEqual([f.name for f in source.functions],
                         ["t", "S::S", "S::~S", "S::operator==", "S::Inner::i", "S::f"])
        self.assertEqual([f.template for f in source.functions], [True, False, False, False, False, False])
        self.assertEqual(len(source.functions[1].initialisers), 2)


def program(folder, script):
    path = os.path.join(folder, "FooTest")
    with open(path, "w", encoding="utf-8") as file:
        file.write("#!/bin/sh\n" + script)
    os.chmod(path, 0o755)
    return path


class Running(unittest.TestCase):
    def run_(self, script, seconds=20):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(os.path.join(folder, "tmp"))
            return trial.runTests(program(folder, script), folder, "A.b", seconds)

    def test_saysNothingWhenAllTestsPass(self):
        self.assertIsNone(self.run_("echo '[ RUN      ] A.b'"))

    def test_namesTheTestThatFails(self):
        self.assertEqual(self.run_("echo '[ RUN      ] A.b'; echo '[  FAILED  ] A.b (0 ms)'; exit 1"), "FooTest: A.b")

    def test_namesTheTestInWhichItCrashes(self):
        self.assertEqual(self.run_("echo '[ RUN      ] A.b'; kill -ABRT $$"), "FooTest: A.b (SIGABRT)")

    def test_endsWhatHangs(self):
        self.assertEqual(self.run_("sleep 60 & wait", 0.2), "FooTest: hangs")

    def test_asksForTheFirstFailureOnly(self):
        self.assertIsNone(self.run_('[ "$*" = "--gtest_fail_fast=1 --gtest_color=no --gtest_filter=A.b" ]'))


class Verdicts(unittest.TestCase):
    SOURCE = cxx.Source("A.cpp", "void f() {\n   g();\n   h();\n}\n")

    def setUp(self):
        self.faults = [f for f in generator.faults(self.SOURCE) if f.kind == "dropped"]

    def entry(self, fault, **changed):
        path, function, was, now, _ = fault.key
        record = records.Record(file=path, function=function, was=was, now=now, why="because", **changed)
        record.line = 1
        return record

    def verdicts(self, *kinds):
        return [trial.Verdict(fault, kind) for fault, kind in zip(self.faults, kinds)]

    def test_survivorsAreBareWithoutAnEntry(self):
        verdicts = self.verdicts(trial.KILLED, trial.SURVIVED)
        self.assertEqual(mutants.judged(verdicts, []), ([], [verdicts[1]], []))

    def test_survivorsAreExplainedByTheirEntry(self):
        verdicts = self.verdicts(trial.KILLED, trial.SURVIVED)
        self.assertEqual(
            mutants.judged(verdicts, [self.entry(self.faults[1])]), ([(verdicts[1], "because")], [], []))

    def test_aFaultsOwnRecordExplainsIt(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "list")
            with open(path, "w", encoding="utf-8") as file:
                file.write(mutants.asRecord(self.faults[1]).replace("why", "why because"))
            read = records.read(path, ("file", "function", "was", "now", "why"), ("occurrence",))
        verdicts = self.verdicts(trial.KILLED, trial.SURVIVED)
        self.assertEqual(mutants.judged(verdicts, read), ([(verdicts[1], "because")], [], []))

    def test_anEntryExplainsOneOccurrence(self):
        verdicts = self.verdicts(trial.SURVIVED, trial.KILLED)
        self.assertEqual(
            mutants.judged(verdicts, [self.entry(self.faults[0], occurrence="2")])[1], [verdicts[0]])

    def test_anEntryIsStaleWhenItsFaultIsKilled(self):
        entry = self.entry(self.faults[0])
        self.assertEqual(mutants.judged(self.verdicts(trial.KILLED), [entry]), ([], [], [(entry, "killed")]))

    def test_anEntryIsStaleWhenTheCodeIsGone(self):
        entry = self.entry(self.faults[0])
        possible = {fault.key for fault in generator.faults(self.SOURCE)}
        self.assertEqual(mutants.outdated([entry], possible), [])
        entry["was"] = "i();"
        self.assertEqual(mutants.outdated([entry], possible), [(entry, "there is no such code any more")])

    def test_aFaultThatWasNotTriedSaysNothingOfItsEntry(self):
        self.assertEqual(mutants.judged([], [self.entry(self.faults[0])]), ([], [], []))


class Copy(unittest.TestCase):
    def test_isTheSameTreeWithoutWhatIsBuilt(self):
        with tempfile.TemporaryDirectory() as folder:
            source, target = os.path.join(folder, "source"), os.path.join(folder, "target")

            def write(path, text):
                os.makedirs(os.path.dirname(os.path.join(source, path)), exist_ok=True)
                with open(os.path.join(source, path), "w", encoding="utf-8") as file:
                    file.write(text)

            for path in ("A/a.cpp", "b.txt", "build/c.o", ".git/d"):
                write(path, path)
            workshop.synchronise(source, target)
            before = os.stat(os.path.join(target, "A/a.cpp")).st_mtime_ns
            os.remove(os.path.join(source, "b.txt"))
            write("A/e.cpp", "new")
            workshop.synchronise(source, target)
            found = sorted(os.path.relpath(os.path.join(f, n), target) for f, _, names in os.walk(target) for n in names)
            self.assertEqual(found, ["A/a.cpp", "A/e.cpp"])
            self.assertEqual(os.stat(os.path.join(target, "A/a.cpp")).st_mtime_ns, before)


class Program(unittest.TestCase):
    def test_listsFaultsOfOneFile(self):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            self.assertEqual(mutants.main(["--list", "--file", "UnitIntfIndex.cpp"]), 0)
        lines = output.getvalue().split("\n")
        self.assertTrue(lines[0].startswith("MaintenancePlugin/UnitIntfIndex.cpp:"))
        self.assertRegex(lines[-2], r"^[1-9]\d* faults$")

    def test_hasAFaultForEvery15LinesOfThePlugin(self):
        faults = lines = 0
        for path in mutants.plugin.files(mutants.ROOT):
            with open(os.path.join(mutants.ROOT, path), encoding="utf-8") as file:
                source = cxx.Source(path, file.read())
            faults += len(generator.selected(source))
            lines += len(source.codeLines())
        self.assertLess(lines / faults, 15)

    def test_refusesAFileThatThePluginDoesNotHave(self):
        with self.assertRaises(SystemExit) as ended:
            mutants.main(["--list", "--file", "Nowhere.cpp"])
        self.assertIn("Nowhere.cpp", str(ended.exception))

    def test_explainsItsSurvivorsInAListThatCanBeRead(self):
        read = records.read(os.path.join(testing.TOOLS, "mutants-explained.txt"),
                            ("file", "function", "was", "now", "why"), ("occurrence",))
        keys = [mutants.keyOf(entry) for entry in read]
        self.assertEqual(len(keys), len(set(keys)))


if __name__ == "__main__":
    unittest.main()
