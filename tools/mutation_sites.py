"""Places where a small fault can be planted in C++ source, found without a compiler.

Each site is one change of the code (never of a comment, a string or a preprocessor
line), made by one of these operators:
  compare   a comparison reversed (< and >, <= and >=, == and !=) or its strictness
            toggled (< and <=, > and >=)
  integer   an integer constant plus or minus one
  floating  a floating constant times ten or divided by ten
  logic     && and || swapped
  negate    the condition of an if or a while negated
  guard     the return or throw that is the whole body of an if dropped
  table     a field of a one-line table entry taken from its neighbour's entry
Operators find binary operators by the blanks around them, as the house format writes
them; the sites are listed in the order of the files, lines and columns, so that a
seeded draw picks the same sites from the same sources.
"""
import hashlib
import re

FOLDERS = ("src", "twiss", "optics")


class Site:
    def __init__(self, name, line, column, before, after, operator):
        self.file, self.line, self.column = name, line, column
        self.before, self.after, self.operator = before, after, operator

    def ident(self, lines):
        """A name that survives edits elsewhere in the file: the file, the operator and
        a digest of the changed line before and after, and of how many lines alike
        come before it."""
        old = "\n".join(lines[self.line:self.line + self.before.count("\n") + 1])
        new = self.apply_lines(lines)
        alike = sum(1 for line in lines[:self.line] if line.strip() == lines[self.line].strip())
        digest = hashlib.sha1(f"{old.strip()}\0{new.strip()}\0{alike}".encode()).hexdigest()[:10]
        return f"{self.file}:{self.operator}:{digest}"

    def apply_lines(self, lines):
        text = "\n".join(lines[self.line:self.line + self.before.count("\n") + 1])
        assert text[self.column:self.column + len(self.before)] == self.before
        return text[:self.column] + self.after + text[self.column + len(self.before):]

    def apply(self, source):
        """The whole file with the fault planted."""
        lines = source.split("\n")
        span = self.before.count("\n") + 1
        return "\n".join(lines[:self.line] + [self.apply_lines(lines)] +
                         lines[self.line + span:])


def masked(source):
    """The source with comments, string and character literals and preprocessor lines
    blanked out (quotes kept), every other character where it was."""
    out, i, n = list(source), 0, len(source)
    line_start = True
    while i < n:
        c = source[i]
        if line_start and c == "#":
            while i < n and not (source[i] == "\n" and source[i - 1] != "\\"):
                out[i] = " "
                i += 1
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if not c.isspace():
            line_start = False
        if source.startswith("//", i):
            while i < n and source[i] != "\n":
                out[i] = " "
                i += 1
        elif source.startswith("/*", i):
            end = source.find("*/", i + 2) + 2
            for j in range(i, end):
                if out[j] != "\n":
                    out[j] = " "
            i = end
        elif c in "\"'" and not (c == "'" and i > 0 and source[i - 1].isalnum()):
            j = i + 1
            while j < n and source[j] != c:
                j += 2 if source[j] == "\\" else 1
            for k in range(i + 1, j):
                out[k] = " "
            i = j + 1
        else:
            i += 1
    return "".join(out)


COMPARE = {"<": ["<=", ">"], ">": [">=", "<"], "<=": ["<", ">="], ">=": [">", "<="],
           "==": ["!="], "!=": ["=="]}
NUMBER_EDGE_BEFORE = r"(?<![\w.])"
NUMBER_EDGE_AFTER = r"(?![\w.'])"
FLOATING = re.compile(NUMBER_EDGE_BEFORE + r"(\d+\.\d*(?:[eE][-+]?\d+)?|\.\d+(?:[eE][-+]?\d+)?"
                      r"|\d+[eE][-+]?\d+)" + NUMBER_EDGE_AFTER)
INTEGER = re.compile(NUMBER_EDGE_BEFORE + r"(\d+)" + NUMBER_EDGE_AFTER)
CONDITION = re.compile(r"\b(?:if|while) \(")
GUARD_HEAD = re.compile(r"^\s*(?:\} )?(?:else )?if \(.*\)\s*\{?\s*$")
STATEMENT = re.compile(r"^(\s*)((?:return|throw)\b)")
ENTRY = re.compile(r"^\s*\{(.*)\},?\s*$")


def matching_parenthesis(text, open_at):
    depth = 0
    for i in range(open_at, len(text)):
        depth += {"(": 1, ")": -1}.get(text[i], 0)
        if depth == 0:
            return i
    return -1


def balanced(inside):
    depth = 0
    for c in inside:
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(c, 0)
        if depth < 0:
            return False
    return depth == 0


def top_level_fields(inside):
    """Spans (begin, end) of the comma-separated fields of an entry's inside."""
    spans, depth, begin = [], 0, 0
    for i, c in enumerate(inside):
        if c in "({[":
            depth += 1
        elif c in ")}]":
            depth -= 1
        elif c == "," and depth == 0:
            spans.append((begin, i))
            begin = i + 1
    spans.append((begin, len(inside)))
    return [(b + len(inside[b:e]) - len(inside[b:e].lstrip()), e - (len(inside[b:e]) -
             len(inside[b:e].rstrip()))) for b, e in spans]


def line_sites(name, number, code, text):
    """The sites of one line: `code` is the masked line, `text` the line itself."""
    sites = []
    for m in re.finditer(r"(?<= )(<=|>=|==|!=|<|>)(?= )", code):
        for other in COMPARE[m.group(1)]:
            sites.append(Site(name, number, m.start(), m.group(1), other, "compare"))
    for m in re.finditer(r"(?<= )(&&|\|\|)(?= )", code):
        sites.append(Site(name, number, m.start(), m.group(1),
                          "||" if m.group(1) == "&&" else "&&", "logic"))
    floats = [(m.start(), m.end()) for m in FLOATING.finditer(code)]
    for begin, end in floats:
        literal = text[begin:end]
        for factor in ("* 10", "/ 10"):
            sites.append(Site(name, number, begin, literal, f"({literal} {factor})",
                              "floating"))
    for m in INTEGER.finditer(code):
        if any(b <= m.start() < e for b, e in floats):
            continue
        value = int(m.group(1))
        for changed in (value + 1, value - 1):
            sites.append(Site(name, number, m.start(), m.group(1),
                              str(changed) if changed >= 0 else f"({changed})", "integer"))
    for m in CONDITION.finditer(code):
        close = matching_parenthesis(code, m.end() - 1)
        if close > 0:
            condition = text[m.end():close]
            sites.append(Site(name, number, m.end(), condition, f"!({condition})", "negate"))
    return sites


def guard_sites(name, lines, code_lines):
    """Returns and throws that are the whole body of an if, dropped to an empty block."""
    sites = []
    for number in range(1, len(lines)):
        statement = STATEMENT.match(code_lines[number])
        if not statement or not GUARD_HEAD.match(code_lines[number - 1]):
            continue
        # The statement runs to its semicolon, over as many lines as it takes.
        end, depth = number, 0
        while True:
            for c in code_lines[end]:
                depth += {"(": 1, "{": 1, ")": -1, "}": -1}.get(c, 0)
            if depth == 0 and code_lines[end].rstrip().endswith(";"):
                break
            end += 1
        indent = len(statement.group(1))
        before = "\n".join(lines[number:end + 1])[indent:]
        sites.append(Site(name, number, indent, before, "{}", "guard"))
    return sites


def table_sites(name, lines, code_lines):
    """One-line table entries next to an entry of as many fields: each field that
    differs from the neighbour's becomes the neighbour's."""
    sites = []
    entries = {}
    for number, code in enumerate(code_lines):
        m = ENTRY.match(code)
        if m and balanced(m.group(1)):
            entries[number] = (m.start(1), top_level_fields(m.group(1)))
    for number, (offset, fields) in entries.items():
        for neighbour in (number - 1, number + 1):
            if neighbour not in entries or len(entries[neighbour][1]) != len(fields):
                continue
            other_offset, other_fields = entries[neighbour]
            for (b, e), (ob, oe) in zip(fields, other_fields):
                mine = lines[number][offset + b:offset + e]
                theirs = lines[neighbour][other_offset + ob:other_offset + oe]
                if mine and theirs and mine != theirs:
                    sites.append(Site(name, number, offset + b, mine, theirs, "table"))
    return sites


def file_sites(name, source):
    lines, code_lines = source.split("\n"), masked(source).split("\n")
    sites = []
    for number, (code, text) in enumerate(zip(code_lines, lines)):
        sites += line_sites(name, number, code, text)
    sites += guard_sites(name, lines, code_lines)
    sites += table_sites(name, lines, code_lines)
    return sorted(sites, key=lambda s: (s.line, s.column, s.operator, s.after))
