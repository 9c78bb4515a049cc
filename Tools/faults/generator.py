"""Faults made from code: each changes one place, and a test should notice.

`faults( source )` gives all of them, `selected( source )` those of the standard selection: some for every function, more
for longer ones, of as many kinds as it can. Both depend on the text alone; a function's faults do not change when
another function does.
"""

import hashlib
import re

from . import records

#: One fault for so many lines of code, in the standard selection.
LINES_PER_FAULT = 5
#: In this order kinds are chosen where a function offers more than its share.
KINDS = (
    "dropped",  # a statement that acts
    "negated",  # a condition
    "compared",  # a comparison
    "operand",  # one side of && or ||
    "logic",  # && and ||
    "constant",
    "left",  # return, continue or break left out
    "text",  # of a string
    "swapped",  # two statements
    "returned",  # another value
    "forced",  # a condition that always or never holds
    "arithmetic",
    "arguments",  # two exchanged
    "initialiser",  # of a constructor left out
    "row",  # two of a table exchanged
    "blank",  # of a string
)
#: Given only when asked for by name.
EXTRA_KINDS = ("level",)  # of a trace

_COMPARISONS = {"<": ("<=", ">"), "<=": ("<", ">"), ">": (">=", "<"), ">=": (">", "<"), "==": ("!=",), "!=": ("==",)}
_ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*="}
_TRACES = ("TRACE", "TRACE_TEXT", "TRACE_SIGNATURE", "TRACE_FASTLOG")
_FASTLOGS = ("FASTLOG", "FASTLOG_PROFILE")


class Fault:
    """One change of a file. `was` and `now`: the lines that it touches, before and after, laid out as one."""

    def __init__(self, source, function, kind, edits):
        self.path = source.path
        self.function = function
        self.kind = kind
        self.edits = sorted(edits)
        self.line = source.lineOf(self.edits[0][0])
        self.lastLine = max(source.lineOf(max(start, end - 1)) for start, end, _ in self.edits)
        lines = (self.line, self.lastLine)
        self.was = _lines(source.text, *lines)
        self.now = _lines(self.applied(source.text), *lines)
        self.occurrence = 1
        self.template = False  # it stands in one
        self.body = False  # it stands in a function's body

    @property
    def key(self):
        return self.path, self.function, records.squeezed(self.was), records.squeezed(self.now), self.occurrence

    @property
    def id(self):
        digest = hashlib.sha256("\0".join(str(part) for part in self.key).encode()).hexdigest()
        return f"{self.path.rsplit('/', 1)[-1].replace('.', '-')}-{digest[:8]}"

    def applied(self, text):
        """The file's text with the fault in it; no line moves."""
        for start, end, new in reversed(self.edits):
            lost = text.count("\n", start, end) - new.count("\n")
            text = text[:start] + new + "\n" * max(0, lost) + text[end:]
        return text

    def diff(self):
        """The lines that it touches: before, after."""
        was, now = self.was.split("\n"), self.now.split("\n")
        while was and now and was[0] == now[0]:
            was, now = was[1:], now[1:]
        while was and now and was[-1] == now[-1]:
            was, now = was[:-1], now[:-1]
        return "\n".join([f"   - {line}" for line in was] + [f"   + {line}" for line in now if line.strip()])


def _lines(text, first, last):
    return "\n".join(text.split("\n")[first - 1 : last])


class _Generator:
    def __init__(self, source):
        self.source = source
        self.tokens = source.tokens
        self.match = source.match
        self.found = []
        self.function = None

    # ---- making

    def add(self, kind, *edits):
        fault = Fault(self.source, self.function.name, kind, edits)
        if records.squeezed(fault.was) == records.squeezed(fault.now):
            return
        fault.template = self.function.template
        start = self.tokens[self.function.body].start if self.function.body is not None else None
        fault.body = start is not None and edits[0][0] > start
        self.found.append(fault)

    def change(self, kind, i, new):
        self.add(kind, (self.tokens[i].start, self.tokens[i].end, new))

    def range(self, first, last):
        return self.tokens[first].start, self.tokens[last].end

    def textOf(self, first, last):
        start, end = self.range(first, last)
        return self.source.text[start:end]

    # ---- functions

    def run(self):
        inside = set()
        for function in self.source.functions:
            self.function = function
            before = len(self.found)
            for first, last in function.initialisers:
                self.initialiser(function, first, last)
            self.statements(self.source.statements(function))
            first = function.initialisers[0][0] if function.initialisers else function.body
            self.tokensOf(first, function.end)
            inside.update(range(function.start, function.end + 1))
            self.count(before)
        # What stands outside of functions: initial values and tables.
        begun = {}
        for i in range(len(self.tokens)):
            if i in inside:
                continue
            name = self.source.functionAt(self.source.lineOf(self.tokens[i].start))
            begun.setdefault(name, []).append(i)
        for name, indices in sorted(begun.items()):
            self.function = type("Outside", (), {"name": name, "template": False, "body": None})()
            before = len(self.found)
            for i in indices:
                if self.isInitialValue(i):
                    self.token(i)
                    self.row(i)
            self.count(before)
        return self.found

    def count(self, before):
        """Tells faults of one function apart that look the same."""
        seen = {}
        for fault in sorted(self.found[before:], key=lambda f: (f.edits, f.kind)):
            key = fault.key[:4]
            seen[key] = seen.get(key, 0) + 1
            fault.occurrence = seen[key]

    def isInitialValue(self, i):
        """Whether the token belongs to a value that is written out: after `=` or in braces, up to the `;`."""
        k = i - 1
        while k >= 0:
            text = self.tokens[k].text
            if k in self.match and self.match[k] < k:
                k = self.match[k]
                text = self.tokens[k].text
            elif text == "=":
                return self.tokens[k - 1].kind == "name" or self.tokens[k - 1].text == "]"
            elif text == "{":
                if self.tokens[k - 1].kind != "name" and self.tokens[k - 1].text not in ("=", ",", "{", ">"):
                    return False
                head = self.declaration(k)
                return "class" not in head and "struct" not in head and "namespace" not in head and "enum" not in head
            elif text == "(":
                # An object made with a text.
                return self.tokens[i].kind == "string" and "const" in self.declaration(k)
            elif text in (";", "}", ":"):
                return False
            k -= 1
        return False

    def declaration(self, brace):
        words, k = [], brace - 1
        while k >= 0 and self.tokens[k].text not in (";", "{", "}"):
            words.append(self.tokens[k].text)
            k -= 1
        return words

    # ---- statements

    def statements(self, block):
        for statement in block:
            self.statement(statement)
        for first, second in zip(block, block[1:]):
            if first.kind == second.kind == "expression" and self.maySwap(first, second):
                self.swap("swapped", (first.first, first.last), (second.first, second.last))

    def swap(self, kind, first, second):
        one, other = self.range(*first), self.range(*second)
        text = self.source.text
        self.add(kind, (*one, text[other[0] : other[1]]), (*other, text[one[0] : one[1]]))

    def maySwap(self, first, second):
        """Not when nobody could tell: a log and what it tells of, two logs, two plain assignments."""
        sinks = [self.sink(s) for s in (first, second)]
        if sinks[0] or sinks[1]:
            ends = [self.tokens[s.first].text == "VEL_ASSERT" for s in (first, second)]
            return sinks[0] == sinks[1] or any(ends)
        return not (self.isPlainAssignment(first) and self.isPlainAssignment(second))

    def sink(self, statement):
        text = self.tokens[statement.first].text
        return "trace" if text in _TRACES else "log" if text in _FASTLOGS else ""

    def isPlainAssignment(self, statement):
        texts = [self.tokens[i].text for i in range(statement.first, statement.last)]
        return any(t in texts for t in ("=", "+=", "-=")) and "(" not in texts

    def statement(self, statement):
        first, last = statement.first, statement.last
        start, end = self.range(first, last)
        if statement.kind == "expression":
            self.add("dropped", (start, end, ";"))
        elif statement.kind == "return":
            if last > first + 1:
                self.returned(first + 1, last - 1)
            else:
                self.add("left", (start, end, ";"))
        elif statement.kind == "jump":
            self.add("left", (start, end, ";"))
        elif statement.kind in ("if", "loop") and statement.condition:
            self.condition(statement)
        elif statement.kind == "declaration":
            self.boolean(first, last)
        if statement.kind == "if" and len(statement.parts) == 2:
            other = statement.parts[1]
            if other.kind != "if":
                start, end = self.range(other.first, other.last)
                self.add("dropped", (start, end, "{}"))
        if statement.parts and statement.kind in ("block", "switch"):
            self.statements(statement.parts)
        else:
            for part in statement.parts:
                self.statement(part)

    def condition(self, statement):
        first, last = statement.condition
        isLoop = statement.kind == "loop"
        semicolons = [i for i in self.level(first, last) if self.tokens[i].text == ";"]
        if self.tokens[statement.first].text == "for":
            if len(semicolons) == 2 and semicolons[1] > semicolons[0] + 1:
                self.operands(semicolons[0] + 1, semicolons[1] - 1)
            elif not semicolons:
                # Over a range: nothing is done for any of it.
                body = statement.parts[0]
                self.add("forced", (*self.range(body.first, body.last), "{}"))
            return
        if semicolons:
            first = semicolons[-1] + 1
        start, end = self.range(first, last)
        if self.source._isDeclaration(first, last) and any(self.tokens[i].text == "=" for i in self.level(first, last)):
            name = self.declared(first, last)
            if name and not isLoop:
                self.add("negated", (end, end, f"; !{name}"))
            return
        text = self.source.text[start:end]
        if text in ("true", "false"):
            return
        if not self.isOneComparison(first, last):
            self.add("negated", (start, end, f"!( {text} )"))
        if not isLoop:
            self.add("forced", (start, end, "true"))
        self.add("forced", (start, end, "false"))
        self.operands(first, last)

    def isOneComparison(self, first, last):
        """`a == b`, which is turned as a comparison."""
        signs = [self.tokens[i].text for i in self.level(first, last) if i not in self.source.angles]
        return sum(t in ("==", "!=") for t in signs) == 1 and not any(t in ("&&", "||", "?") for t in signs)

    def declared(self, first, last):
        for i in self.level(first, last):
            if self.tokens[i].text == "=":
                return self.tokens[i - 1].text if self.tokens[i - 1].kind == "name" else None
        return None

    def boolean(self, first, last):
        """`const bool x = value;` as the condition that it is."""
        words = [self.tokens[i].text for i in range(first, min(first + 3, last))]
        equals = next((i for i in self.level(first, last) if self.tokens[i].text == "="), None)
        if "bool" not in words or equals is None or self.tokens[equals - 2].text == "*":
            return
        start, end = self.range(equals + 1, last - 1)
        text = self.source.text[start:end]
        if text not in ("true", "false"):
            self.add("negated", (start, end, f"!( {text} )"))
            self.operands(equals + 1, last - 1)

    def level(self, first, last):
        """Indices of a range without what stands in its brackets."""
        i = first
        while i <= last:
            yield i
            if i in self.match and self.match[i] > i:
                i = self.match[i]
                yield i
            i += 1

    def operands(self, first, last):
        """Leaves out each side of a && or || in turn."""
        level = list(self.level(first, last))
        for operator in ("||", "&&"):
            cuts = [i for i in level if self.tokens[i].text == operator]
            if not cuts:
                continue
            if any(self.tokens[i].text in ("?", "=") for i in level):
                return
            edges = [first - 1, *cuts, last + 1]
            for k in range(len(edges) - 1):
                if k == 0:
                    start, end = self.tokens[first].start, self.tokens[edges[1] + 1].start
                else:
                    start, end = self.tokens[edges[k] - 1].end, self.tokens[edges[k + 1] - 1].end
                self.add("operand", (start, end, ""))
            return

    def returned(self, first, last):
        start, end = self.range(first, last)
        text = self.source.text[start:end]
        level = [self.tokens[i].text for i in self.level(first, last)]
        logical = any(t in ("&&", "||", "==", "!=", "<=", ">=") for t in level) or level[0] == "!"
        if logical and "?" not in level:
            self.add("returned", (start, end, f"!( {text} )"))
            self.operands(first, last)
        elif text not in ("true", "false", "nullptr", "0", "{}"):
            self.add("returned", (start, end, "{}"))

    def initialiser(self, function, first, last):
        """Leaves one member of a constructor's list to its default; the compiler says if it has none."""
        index = function.initialisers.index((first, last))
        if len(function.initialisers) == 1:
            colon = first - 1
            start, end = self.tokens[colon].start, self.tokens[last].end
        elif index:
            start, end = self.tokens[function.initialisers[index - 1][1]].end, self.tokens[last].end
        else:
            start, end = self.tokens[first].start, self.tokens[function.initialisers[1][0]].start
        name = self.tokens[first].text
        if name.endswith("_"):
            self.add("initialiser", (start, end, ""))

    # ---- tokens

    def tokensOf(self, first, last):
        for i in range(first, last):
            self.token(i)
            self.row(i)

    def token(self, i):
        token = self.tokens[i]
        if token.kind == "number":
            self.number(i)
        elif token.kind == "string":
            self.string(i)
        elif token.text == "true":
            self.change("constant", i, "false")
        elif token.text == "false":
            if not self.isAlwaysFailing(i):
                self.change("constant", i, "true")
        elif token.kind == "op":
            self.operator(i)
        if token.text == "?":
            self.conditional(i)

    def isAlwaysFailing(self, i):
        return self.tokens[i - 1].text == "(" and self.tokens[i - 2].text == "VEL_ASSERT"

    def number(self, i):
        token = self.tokens[i]
        if self.tokens[i - 1].text == "(" and self.tokens[i - 2].text in _TRACES:
            self.change("level", i, str(int(token.text) + 1 if int(token.text) < 9 else 8))
            return
        if self.tokens[i - 1].text == "=" and self.tokens[i - 2].text == "operator":
            return
        text = token.text.replace("'", "")
        if re.fullmatch(r"\d+", text):
            value = int(text)
            self.change("constant", i, str({0: 1, 1: 0}.get(value, value + 1)))
            if value == 1:
                self.change("constant", i, "2")
            elif value > 1:
                self.change("constant", i, str(value - 1))
        elif re.fullmatch(r"\d+\.\d*", text):
            self.change("constant", i, str(float(text) + 1))
            if float(text):
                self.change("constant", i, str(float(text) - 1))

    def string(self, i):
        text = self.tokens[i].text
        if "R\"" in text or not text.endswith('"') or "#" in self.lineBefore(i):
            return
        quote = text.index('"')
        inner = text[quote + 1 : -1]
        self.change("text", i, text[: quote + 1] + "~" + inner + '"' if not inner else self.altered(text, quote, inner))
        if inner.endswith(" "):
            self.change("blank", i, text[:-2] + '"')
        elif inner.startswith(" "):
            self.change("blank", i, text[: quote + 1] + inner[1:] + '"')
        elif " " in inner:
            at = inner.index(" ")
            self.change("blank", i, text[: quote + 1] + inner[:at] + " " + inner[at:] + '"')

    def altered(self, text, quote, inner):
        """Another letter in place of one in the middle, which is never part of an escape or a conversion."""
        letters = [k for k, c in enumerate(inner) if c.isalpha() and not re.search(r"[\\%][\d.]*$", inner[:k])]
        if not letters:
            return text[:-1] + '~"'
        at = letters[len(letters) // 2]
        new = "y" if inner[at] in "xX" else "x"
        return text[: quote + 1] + inner[:at] + new + inner[at + 1 :] + '"'

    def lineBefore(self, i):
        start = self.source.text.rfind("\n", 0, self.tokens[i].start) + 1
        return self.source.text[start : self.tokens[i].start].lstrip()[:1]

    def isBinary(self, i):
        before = self.tokens[i - 1]
        return before.kind in ("number", "string", "char") or before.text in (")", "]") or (
            before.kind == "name" and before.text not in ("return", "case", "const", "auto"))

    def operator(self, i):
        text = self.tokens[i].text
        before, after = self.tokens[i - 1], self.tokens[i + 1]
        if before.text == "operator":
            return
        if text in _COMPARISONS and i not in self.source.angles:
            for new in _COMPARISONS[text]:
                self.change("compared", i, new)
        elif text in ("&&", "||"):
            if self.isBinary(i) and before.text != "auto" and after.text != "[":
                self.change("logic", i, "||" if text == "&&" else "&&")
        elif text in ("++", "--"):
            self.change("arithmetic", i, "--" if text == "++" else "++")
        elif text in ("+=", "-=", "*=", "/="):
            self.change("arithmetic", i, _ARITHMETIC[text])
        elif text in ("+", "-", "/", "%"):
            if self.isBinary(i):
                self.change("arithmetic", i, _ARITHMETIC[text])
            elif text == "-" and after.kind != "op":
                self.change("arithmetic", i, "")
        elif text == "*":
            if self.isBinary(i) and (before.text == ")" or "number" in (before.kind, after.kind)):
                self.change("arithmetic", i, "/")
        elif text == "!":
            if not self.isWholeCondition(i):
                self.change("negated", i, "")
        elif text == "," and i > 0:
            self.arguments(i)

    def isWholeCondition(self, i):
        """`if ( !x )`: turning the condition says the same."""
        if self.tokens[i - 1].text != "(" or self.tokens[i - 2].text not in ("if", "while"):
            return False
        close = self.match[i - 1]
        return not any(self.tokens[k].text in ("&&", "||", "?") for k in self.level(i, close - 1))

    def conditional(self, i):
        """`c ? a : b`: the other one."""
        end = i
        depth = 0
        colon = None
        while end < len(self.tokens):
            text = self.tokens[end].text
            if text == "?":
                depth += 1
            elif text == ":" and depth == 1 and colon is None:
                colon = end
            elif text in (";", ")", ",", "}", "]") and colon is not None:
                break
            if end in self.match and self.match[end] > end:
                end = self.match[end]
            end += 1
        if colon is None or colon == i + 1 or end == colon + 1:
            return
        self.swap("forced", (i + 1, colon - 1), (colon + 1, end - 1))

    def arguments(self, comma):
        """Exchanges two neighbours in a list of arguments that seem to be of one type: their names end alike."""
        tokens = self.tokens
        opened = comma - 1
        while opened >= 0 and tokens[opened].text not in ("(", "{", ";", "}"):
            opened = self.match[opened] - 1 if opened in self.match and self.match[opened] < opened else opened - 1
            if opened >= 0 and tokens[opened].text in ("(", "{") and self.match.get(opened, -1) > comma:
                break
        if opened < 0 or tokens[opened].text not in ("(", "{") or self.match.get(opened, -1) < comma:
            return
        if self.function.body is None or opened <= self.function.body and not self.inInitialiser(opened):
            return
        cuts = [i for i in self.level(opened + 1, self.match[opened] - 1) if tokens[i].text == ","]
        if comma not in cuts:
            return
        at = cuts.index(comma)
        first = (cuts[at - 1] if at else opened) + 1, comma - 1
        second = comma + 1, (cuts[at + 1] if at + 1 < len(cuts) else self.match[opened]) - 1
        if self.alike(first, second):
            self.swap("arguments", first, second)

    def inInitialiser(self, i):
        return any(first <= i <= last for first, last in getattr(self.function, "initialisers", ()))

    def alike(self, first, second):
        words = []
        for part in (first, second):
            texts = [self.tokens[i].text for i in self.level(*part) if self.tokens[i].text not in ("(", ")")]
            if not texts or any(self.tokens[i].kind == "string" for i in range(part[0], part[1] + 1)):
                return False
            if any(t in ("=", "[", "{", "&&", "||", ";") for t in texts):
                return False
            names = [self.tokens[i].kind == "name" for i in self.level(*part)]
            if any(one and other for one, other in zip(names, names[1:])):
                return False  # a parameter with its type
            words.append(texts[-1])
        if words[0] == words[1] and self.textOf(*first) == self.textOf(*second):
            return False
        if all(re.fullmatch(r"\d[\w.]*", w) for w in words):
            return True
        ends = [re.findall(r"[A-Z]?[a-z0-9]+|[A-Z]+", w)[-1:] for w in words]
        return bool(ends[0]) and [e.lower() for e in ends[0]] == [e.lower() for e in ends[1]]

    def row(self, i):
        """Exchanges a row of a table, `{ ... }` or `CALL( ... )` in braces, with the next."""
        tokens = self.tokens
        if tokens[i].text != "," or tokens[i - 1].text not in ("}", ")") or i + 1 >= len(tokens):
            return
        opened = self.match.get(i - 1)
        if opened is None:
            return
        if tokens[i - 1].text == "}" and tokens[i + 1].text == "{" and i + 1 in self.match:
            first = (opened, i - 1)
            second = (i + 1, self.match[i + 1])
        elif tokens[i - 1].text == ")" and tokens[opened - 1].text == tokens[i + 1].text and tokens[
                opened - 1].text.isupper() and tokens[i + 2].text == "(":
            first = (opened - 1, i - 1)
            second = (i + 1, self.match[i + 2])
        else:
            return
        if self.textOf(*first) != self.textOf(*second):
            self.swap("row", first, second)


def faults(source):
    """Every fault of a file, in the order of its lines."""
    return sorted(_Generator(source).run(), key=lambda f: (f.edits[0][0], f.kind, f.id))


def functionsOf(found):
    result = {}
    for fault in found:
        result.setdefault(fault.function, []).append(fault)
    return result


def selected(source, linesPerFault=LINES_PER_FAULT, kinds=KINDS):
    """The standard selection: for each function one fault for so many lines, at least one."""
    found = [fault for fault in faults(source) if fault.kind in kinds]
    lines = {}
    for number in source.codeLines():
        name = source.functionAt(number)
        lines[name] = lines.get(name, 0) + 1
    result = []
    for name, offered in functionsOf(found).items():
        result.extend(_share(offered, -(-lines.get(name, 1) // linesPerFault), kinds))
    return sorted(result, key=lambda f: (f.edits[0][0], f.kind, f.id))


def _share(offered, wanted, kinds):
    """So many of the offered faults: kinds take turns, and no line gets a third before the others have two."""
    turns = []
    for rank, kind in enumerate(kinds):
        ofKind = sorted((f for f in offered if f.kind == kind), key=lambda f: f.id.rsplit("-", 1)[-1])
        turns.extend((turn, rank, fault) for turn, fault in enumerate(ofKind))
    turns.sort(key=lambda t: t[:2])
    result, onLine = [], {}
    for limit in (1, 2, len(offered)):
        for _, _, fault in turns:
            if len(result) >= wanted:
                return result
            if fault not in result and onLine.get(fault.line, 0) < limit:
                onLine[fault.line] = onLine.get(fault.line, 0) + 1
                result.append(fault)
    return result
