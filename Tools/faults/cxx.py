"""C++ source as the tools need it: tokens, functions and statements, without a compiler.

Knows the style of this tree (clang-format): a template's `<` follows its name at once, a comparison's has a blank
before it. What it cannot make out it leaves alone.
"""

import bisect
import re

_TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<raw>(?:u8|u|U|L)?R"(?P<delim>[^()\\\s]*)\(.*?\)(?P=delim)")
  | (?P<string>(?:u8|u|U|L)?"(?:\\.|[^"\\\n])*")
  | (?P<char>(?:u8|u|U|L)?'(?:\\.|[^'\\\n])*')
  | (?P<number>\.?\d(?:'?[\w.]|(?<=[eEpP])[+-])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<op><=>|->\*|<<=|>>=|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|\#\#|.)
    """,
    re.X | re.S,
)
_DIRECTIVE = re.compile(r"[ \t]*#(?:[^\n\\]|\\.|\\\n)*", re.S)
_SPACE = re.compile(r"\s+")
_OPEN = {"(": ")", "[": "]", "{": "}"}


class Token:
    __slots__ = ("kind", "text", "start", "end")

    def __init__(self, kind, text, start):
        self.kind = kind
        self.text = text
        self.start = start
        self.end = start + len(text)

    def __repr__(self):
        return f"{self.kind}:{self.text}"


class Function:
    """A function with a body, or (`name` in round brackets) what stands outside of all functions."""

    def __init__(self, name, start, body, end, template=False, initialisers=()):
        self.name = name
        self.start = start  # token indices: of the declaration, the body's `{`, the body's `}`
        self.body = body
        self.end = end
        self.template = template
        self.initialisers = initialisers  # token ranges of a constructor's `member( value )`


class Statement:
    """`kind`: expression, declaration, return, jump, if, loop, switch, block, other. Token range [first, last]."""

    def __init__(self, kind, first, last, condition=None, parts=()):
        self.kind = kind
        self.first = first
        self.last = last
        self.condition = condition  # token range inside the round brackets, both ends included
        self.parts = parts  # nested statements


class Source:
    def __init__(self, path, text):
        self.path = path
        self.text = text
        self._lineStarts = [0] + [m.end() for m in re.finditer("\n", text)]
        self.tokens = []
        self.comments = []
        self._tokenise()
        self.match = {}
        self._matchBrackets()
        self.angles = set()
        self._findAngles()
        self.functions = []
        self.types = []  # (name, first token, last token, template)
        self._scan(0, len(self.tokens), "", False)

    # ---- lines

    def lineOf(self, offset):
        return bisect.bisect_right(self._lineStarts, offset)

    def lineText(self, line):
        start = self._lineStarts[line - 1]
        end = self.text.find("\n", start)
        return self.text[start : end if end >= 0 else len(self.text)]

    def codeLines(self):
        """Numbers of the lines that hold more than blanks and comments."""
        code = set()
        for token in self.tokens:
            code.update(range(self.lineOf(token.start), self.lineOf(token.end - 1) + 1))
        for start, end in self.directives:
            code.update(range(self.lineOf(start), self.lineOf(end - 1) + 1))
        return code

    def functionAt(self, line):
        """The innermost function of a line, else the type, else "(file)"."""
        best = None
        for function in self.functions:
            first = self.lineOf(self.tokens[function.start].start)
            last = self.lineOf(self.tokens[function.end].start)
            if first <= line <= last and (best is None or last - first <= best[0]):
                best = (last - first, function.name)
        if best:
            return best[1]
        for name, first, last, _ in self.types:
            lines = (self.lineOf(self.tokens[first].start), self.lineOf(self.tokens[last].start))
            if lines[0] <= line <= lines[1] and (best is None or lines[1] - lines[0] <= best[0]):
                best = (lines[1] - lines[0], f"({name})")
        return best[1] if best else "(file)"

    # ---- tokens

    def _tokenise(self):
        at, text = 0, self.text
        self.directives = []
        lineStart = True
        while at < len(text):
            if lineStart:
                directive = _DIRECTIVE.match(text, at)
                if directive:
                    self.directives.append((at, directive.end()))
                    at = directive.end()
                    lineStart = False
                    continue
            space = _SPACE.match(text, at)
            if space:
                # A directive may have blanks before it: go on where its line begins.
                newline = text.rfind("\n", at, space.end())
                if newline >= 0 and not lineStart:
                    at = newline + 1
                    lineStart = True
                else:
                    at = space.end()
                    lineStart = False
                continue
            lineStart = False
            found = _TOKEN.match(text, at)
            kind = "string" if found.lastgroup in ("raw", "delim") or found.group("raw") else found.lastgroup
            token = Token(kind, found.group(0), at)
            (self.comments if kind == "comment" else self.tokens).append(token)
            at = found.end()

    def _matchBrackets(self):
        stack = []
        for i, token in enumerate(self.tokens):
            if token.kind != "op":
                continue
            if token.text in _OPEN:
                stack.append(i)
            elif token.text in _OPEN.values():
                while stack:
                    opened = stack.pop()
                    if _OPEN[self.tokens[opened].text] == token.text:
                        self.match[opened] = i
                        self.match[i] = opened
                        break

    def _findAngles(self):
        tokens = self.tokens
        for i, token in enumerate(tokens):
            if token.text != "<" or token.kind != "op" or i in self.angles or i == 0:
                continue
            before = tokens[i - 1]
            if before.text != "template" and (before.kind != "name" or before.end != token.start):
                continue
            if before.text == "operator":
                continue
            depth, j = 0, i
            while j < len(tokens):
                text = tokens[j].text if tokens[j].kind == "op" else ""
                if text == "<":
                    depth += 1
                elif text == ">":
                    depth -= 1
                elif text == ">>":
                    depth -= 2
                elif text in ("(", "[", "{") and j in self.match:
                    j = self.match[j]
                elif text in (";", ")", "]", "}"):
                    break
                if depth <= 0:
                    self.angles.add(i)
                    self.angles.add(j)
                    self.match[i] = j
                    self.match[j] = i
                    break
                j += 1

    # ---- functions

    def _scan(self, i, end, scope, template):
        """Reads declarations: namespaces and types are entered, function bodies noted."""
        tokens = self.tokens
        start = i
        while i < end:
            token = tokens[i]
            if token.text == ";" or (token.text == ":" and i > start and tokens[i - 1].text in ("public", "private", "protected")):
                start = i = i + 1
            elif token.text == "{" and i in self.match:
                i = self._brace(start, i, scope, template)
                start = i
            elif token.text in ("(", "[") and i in self.match:
                i = self.match[i] + 1
            elif i in self.angles and self.match[i] > i:
                i = self.match[i] + 1
            else:
                i += 1

    def _brace(self, start, i, scope, template):
        tokens = self.tokens
        close = self.match[i]
        head = self._topLevel(start, i)
        words = [tokens[k].text for k in head]
        isTemplate = template or "template" in words
        if "namespace" in words or words[:1] == ["extern"] and len(head) == 2:
            self._scan(i + 1, close, scope, template)
            return close + 1
        round_ = next((k for k in head if tokens[k].text == "("), None)
        assigned = next((k for k in head if tokens[k].text == "="), None)
        kind = next((w for w in words if w in ("class", "struct", "union", "enum")), None)
        if kind and round_ is None and assigned is None:
            if kind != "enum":
                name = self._typeName(head)
                inner = f"{scope}::{name}" if scope else name
                self.types.append((inner, start, close, isTemplate))
                self._scan(i + 1, close, inner, isTemplate)
            return close + 1
        if round_ is None or (assigned is not None and assigned < round_) or words[:1] == ["using"]:
            return close + 1  # an initialiser
        # A constructor's list of members may have braces of its own before the body.
        initialisers = []
        parameters = self.match[round_]
        colon = next((k for k in head if k > parameters and tokens[k].text == ":"), None)
        if colon is not None:
            k = colon + 1
            while k < len(tokens):
                first = k
                while tokens[k].text not in ("(", "{"):
                    k = self.match[k] + 1 if k in self.angles else k + 1
                last = self.match[k]
                initialisers.append((first, last))
                k = last + 1
                if tokens[k].text == "...":
                    k += 1
                if tokens[k].text != ",":
                    break
                k += 1
            i = k
            if tokens[i].text != "{":
                return close + 1
            close = self.match[i]
        name = self._functionName(round_)
        if scope:
            name = f"{scope}::{name}"
        self.functions.append(Function(name, start, i, close, isTemplate, initialisers))
        return close + 1

    def _topLevel(self, start, end):
        """Token indices from start to end, without what stands in brackets or angles."""
        result, k = [], start
        while k < end:
            result.append(k)
            if k in self.match and self.match[k] > k:
                k = self.match[k]
            k += 1
        return result

    def _typeName(self, head):
        name = "?"
        seen = False
        for k in head:
            text = self.tokens[k].text
            if text in ("class", "struct", "union"):
                seen = True
            elif seen and text in (":", "final"):
                break
            elif seen and self.tokens[k].kind == "name":
                name = text
        return name

    def _functionName(self, round_):
        tokens = self.tokens
        k = round_ - 1
        if tokens[k].text == ")" or tokens[k].kind == "op" and tokens[k].text not in (">", "~"):
            while k > 0 and tokens[k].text != "operator":
                k -= 1
            first = k
        else:
            first = k
        while first > 0:
            before = tokens[first - 1]
            if before.text == "~":
                first -= 1
            elif before.text == "operator":
                first -= 1
            elif before.text == "::" and first > 1 and tokens[first - 2].kind == "name":
                first -= 2
            else:
                break
        return "".join(t.text for t in tokens[first:round_])

    # ---- statements

    def statements(self, function):
        return self._block(function.body)

    def _block(self, brace):
        """Statements between a `{` and its `}`."""
        result, i, end = [], brace + 1, self.match[brace]
        while i < end:
            statement = self._statement(i, end)
            if statement is None:
                break
            result.append(statement)
            i = statement.last + 1
        return result

    def _statement(self, i, end):
        tokens = self.tokens
        text = tokens[i].text
        if text == "{":
            return Statement("block", i, self.match[i], parts=self._block(i))
        if text == ";":
            return Statement("other", i, i)
        if text in ("if", "for", "while", "switch"):
            k = i + 1
            while tokens[k].text != "(":
                k += 1
            condition = (k + 1, self.match[k] - 1)
            k = self.match[k] + 1
            while tokens[k].text == "[":
                k = self.match[k] + 1
            body = self._statement(k, end)
            if body is None:
                return None
            parts, last = [body], body.last
            if text == "if" and last + 1 < end and tokens[last + 1].text == "else":
                other = self._statement(last + 2, end)
                if other is None:
                    return None
                parts.append(other)
                last = other.last
            kind = {"if": "if", "switch": "switch"}.get(text, "loop")
            return Statement(kind, i, last, condition, parts)
        if text == "do":
            body = self._statement(i + 1, end)
            k = body.last + 2
            return Statement("loop", i, self.match[k] + 1, (k + 1, self.match[k] - 1), [body])
        if text == "try":
            body = self._statement(i + 1, end)
            parts, last = [body], body.last
            while last + 1 < end and tokens[last + 1].text == "catch":
                handler = self._statement(self.match[last + 2] + 1, end)
                parts.append(handler)
                last = handler.last
            return Statement("block", i, last, parts=parts)
        if text in ("case", "default"):
            k = i
            while tokens[k].text != ":":
                k += 1
            return Statement("other", i, k)
        lambdas = []
        k = i
        isType = text in ("struct", "class", "union", "enum")
        while k < end and tokens[k].text != ";":
            if k in self.match and self.match[k] > k:
                if not isType:
                    self._lambdas(k, lambdas)
                k = self.match[k]
            k += 1
        if k >= end:
            return None
        if text == "return":
            kind = "return"
        elif text in ("break", "continue"):
            kind = "jump"
        elif isType or text in ("using", "typedef", "goto", "throw", "static_assert", "co_return"):
            kind = "other"
        else:
            kind = "declaration" if self._isDeclaration(i, k) else "expression"
        return Statement(kind, i, k, parts=lambdas)

    def _lambdas(self, opened, found):
        """Statements of the lambda bodies in a bracket of an expression."""
        k, last = opened, self.match[opened]
        while k < last:
            if self.tokens[k].text == "{" and k > 0 and self.tokens[k - 1].text in (")", "]", "mutable", "noexcept"):
                found.extend(self._block(k))
                k = self.match[k]
            k += 1

    def _isDeclaration(self, i, end):
        tokens = self.tokens
        if tokens[i].text in ("const", "constexpr", "auto", "static", "unsigned", "extern", "thread_local"):
            return True
        if tokens[i].kind != "name":
            return False
        k = i + 1
        while k < end:
            if tokens[k].text == "::" and tokens[k + 1].kind == "name":
                k += 2
            elif k in self.angles and self.match[k] > k:
                k = self.match[k] + 1
            else:
                break
        while k < end and tokens[k].text in ("*", "&", "&&", "const"):
            k += 1
        return k > i and k <= end and tokens[k].kind == "name" and tokens[k + 1].text in ("=", ";", "{", "(", "[", ",")
