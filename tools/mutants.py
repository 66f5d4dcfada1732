"""What tools/mutate.py can change in a source: the lines that are code, and the changes to each."""

import os
import random
import re
from collections import namedtuple

LITERAL = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"(?P<mark>\w*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"|"""
    r"""(?<!\w)'(?:\\.|[^'\\\n])+'""", re.DOTALL)
BOILERPLATE = re.compile(
    r"(namespace|using|typedef|extern|friend|template|static_assert|public:|private:|protected:)"
    r"|(class|struct|enum class|enum|union) [\w:]+( : \w+)?;|.*= (default|delete);|virtual .*= 0;")
COMPARISONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
               "==": ("!=",), "!=": ("==",)}
# What only the compiler reads.
ANNOTATION = re.compile(r"\b(__attribute__\(\(.*?\)\)|(TRY_)?ACQUIRE\(\w*\)|RELEASE\(\w*\))")
# va_end is for machines whose va_list takes memory.
UNUSED = re.compile(r"(static_cast<void>\(\w+\)|\(void\)\w+|va_end\(\w+\));")
JUMP = re.compile(r"(break|continue|return|(throw|delete)\b[^;]*);")
# With every pair of brackets as one @. A declaration has two words side by side and isn't matched.
EXPRESSION = re.compile(
    r"(\+\+|--)[\w.\->\[\]]+;|@?(\+\+|--|\*)*[A-Za-z_]\w*(::\w+|\.\w+|->\w+|\[[^\]]*\]|@)*\s*"
    r"((?<=@);|\+\+;|--;|([-+*/|&%^]|<<|>>)?=[^=][^;]*;|<<[^;]*;)")
ASSIGNMENT = re.compile(r"([\w.\->\[\]]+) = ([^@]*);")
# With its brackets: what is assigned, the first word of it, the value.
ANY_ASSIGNMENT = re.compile(r"\*?((\w+)[\w.\->\[\]]*) = (.*);")
# A record and its JSON object, whose members have no order: each field is handled on its own.
RECORD_AND_OBJECT = re.compile(r".*\b(ToObject\(Json&|FromObject\(const Json&) \w+\).*")
ASSIGNMENT_OF_ALL = re.compile(r"(\w+) = (.*);")
BRANCH = re.compile(
    r"\b(if|else|for|while|switch|case|default|try|catch|return|goto|break)\b|\?|\[")
LOG_LINE = re.compile(r"TIV_(LOG[A-Z]|EVENT)\((.*)\);")
# A generated message keeps its fields by their numbers: the object, the field, its value.
FIELD = re.compile(r"(\w+)(?:->|\.)set_(\w+)\(([^()]*)\);")
UNLOCK = re.compile(r"(\w+)\.Unlock\(\);")
# What a function does behind its last action.
END = re.compile(r"(return( (-?\w+|\w+::\w+))?;)?\}")
DECLARATION = re.compile(r"(const |auto\b|[\w:]+(<.*>)?[*&]? +\w+( = |\(|\{|;)).*")

Mutant = namedtuple("Mutant", "number file line operator original mutated lines")


def hide_literal(match):
    text = match.group()
    if text.startswith("/"):
        return re.sub(r"[^\n]", " ", text)
    start, quote = text.find(text[-1]), text[-1]
    return text[:start] + quote + re.sub(r"[^\n]", "\0", text[start + 1:-1]) + quote


def hide(text):
    """The text with comments as blanks and each character of a literal as a NUL."""
    return LITERAL.sub(hide_literal, text)


def replaced(line, start, end, text):
    return line[:start] + text + line[end:]


def comparisons(line, code):
    for found in re.finditer(r"(?<= )([<>=!]=|[<>])(?= |$)", code):
        for other in COMPARISONS[found.group()]:
            yield replaced(line, *found.span(), other)


def closing(code, opening):
    """Where the bracket that opens at `opening` closes; -1 when that is on another line."""
    depth = 0
    for at in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return at
    return -1


def conditions(line, code):
    found = re.match(r"\s*(\} )?(else )?(if|while) \(", code)
    end = closing(code, found.end() - 1) if found else -1
    if end > 0:
        yield f"{line[:found.end()]}!({line[found.end():end]}){line[end:]}"


def connectives(line, code):
    for found in re.finditer(r"(?<= )(&&|\|\|)(?= |$)", code):
        yield replaced(line, *found.span(), "||" if found.group() == "&&" else "&&")


def signs(line, code):
    """Texts are only joined."""
    for found in re.finditer(r"(?<![\"'] )(?<= )[-+](?==? (?![\"']|std::to_string)|$)", code):
        yield replaced(line, *found.span(), "-" if found.group() == "+" else "+")


def constants(line, code):
    for found in re.finditer(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d[\d']*)(?=[uUlL]*(?![\w.']))", code):
        digits = found.group().lower().replace("'", "")
        base, form = (16, "0x%x") if "x" in digits else (8, "0%o") if digits[0] == "0" else (10, "%d")
        value = int(digits, base)
        for other in ({0: (1,), 1: (0,)}.get(value) or (value - 1, value + 1)):
            yield replaced(line, *found.span(), form % other if value > 1 else str(other))


def truths(line, code):
    for found in re.finditer(r"\b(true|false)\b", code):
        yield replaced(line, *found.span(), "false" if found.group() == "true" else "true")


def texts(line, code):
    """One letter or digit of a literal becomes the next one; escapes and conversions stay."""
    for literal in re.finditer(r"\"\0+\"", code):
        for at in range(literal.start() + 1, literal.end() - 1):
            if line[at].isalnum() and line[at].isascii() and not re.search(
                    r"\\[\dx]*$|%[-+ #0-9.hlzjt]*$", line[literal.start() + 1:at]):
                last = line[at] in "zZ9"
                other = {"z": "a", "Z": "A", "9": "0"}[line[at]] if last else chr(ord(line[at]) + 1)
                yield replaced(line, at, at + 1, other)


def names(code, name):
    """Whether a name stands in code as a whole word."""
    return bool(re.search(rf"(?<!\w){re.escape(name)}(?!\w)", code))


def calls(code):
    """Whether code calls anything; a conversion is no call, nor is a look at a container."""
    code = re.sub(r"\bstatic_cast<[^<>]*>|(?<=\w)\.(size|empty|c_str|data)\(\)", "", code)
    return bool(re.search(r"[\w>]\(", code))


def feeds(assignment, other):
    """Whether another assignment writes or reads what one writes."""
    target, root, _ = assignment.groups()
    return names(other.group(1), target) or names(target, other.group(1)) or names(
        other.group(3), root)


LINE_OPERATORS = {"comparison": comparisons, "condition": conditions, "connective": connectives,
                  "sign": signs, "constant": constants, "truth": truths, "text": texts}


class Source:
    """The lines of one file and what can be done to each."""

    def __init__(self, name, text):
        self.name = name
        self.lines = text.split("\n")
        self.code = hide(text).split("\n")
        self.classes = re.findall(r"^\s*(?:class|struct) (?:\w+\(.*\) )?(\w+)", hide(text),
                                  re.MULTILINE)

    def begin(self, at):
        """The line where the statement around a line begins."""
        before = at - 1
        while before >= 0 and not self.code[before].strip():
            before -= 1
        ended = before < 0 or self.code[before].rstrip().endswith((";", "{", "}", ":"))
        return at if ended or self.code[before].startswith("#") else self.begin(before)

    def is_code(self, at):
        code = self.code[at].strip()
        directive = code.startswith("#") or (at > 0 and self.code[at - 1].endswith("\\"))
        if not re.search(r"\w", code) or directive:
            return False
        return not BOILERPLATE.match(self.code[self.begin(at)].strip())

    def statement(self, at):
        """The statement that is the whole of a line, brackets as @; empty when there is none."""
        code = self.code[at].strip()
        if not self.is_code(at) or self.begin(at) != at:
            return ""
        while re.search(r"\([^()]*\)", code):
            code = re.sub(r"\([^()]*\)", "@", code)
        code = re.sub(r"(?<=\w)<[\w:*&, ]*>", "", code)
        constructor = re.fullmatch(r"(\w+)@;", code)
        if constructor and constructor.group(1) in self.classes:
            return ""
        return code if JUMP.fullmatch(code) or EXPRESSION.fullmatch(code) else ""

    def can_swap(self, at):
        if at + 1 >= len(self.lines) or self.lines[at].strip() == self.lines[at + 1].strip():
            return False
        first, second = self.statement(at), self.statement(at + 1)
        if not first or not second or JUMP.fullmatch(first) or JUMP.fullmatch(second):
            return False
        # Assignments that don't read each other's target have no order.
        one, two = ASSIGNMENT.fullmatch(first), ASSIGNMENT.fullmatch(second)
        return not (one and two and one.group(1) not in second and two.group(1) not in first)

    def head(self, at):
        """The line that heads the function around a line: the nearest one without indentation."""
        return next((line for line in reversed(self.code[:at]) if line[:1].strip()), "")

    def is_local(self, at, name):
        """Whether the function around a line declares a name as an object of its own."""
        declared = re.compile(rf"\s+[\w:<>, ]*[\w>] {re.escape(name)}(\{{.*\}}|\(.*\)| = .*)?;")
        for line in reversed(self.code[:at]):
            if line[:1].strip():
                return False
            if declared.fullmatch(line) and not re.match(r"\s+return ", line):
                return not name.endswith("_")
        return False

    def has_order(self, at):
        """Whether it can matter which of two statements comes first."""
        texts = [line.strip() for line in self.code[at:at + 2]]
        if RECORD_AND_OBJECT.fullmatch(self.head(at)):
            return False
        if any(UNUSED.fullmatch(text) for text in texts):
            return False
        fields = [FIELD.fullmatch(text) for text in texts]
        if all(fields) and fields[0].group(1) == fields[1].group(1):
            return fields[0].group(2) == fields[1].group(2)
        one, two = (ANY_ASSIGNMENT.fullmatch(text) for text in texts)
        if one and two:
            # A call cannot see an object of this function that isn't given to it.
            quiet = [found for found in (one, two) if not calls(found.group(3))]
            return (feeds(one, two) or feeds(two, one) or not quiet or len(quiet) == 1 and
                    not self.is_local(at, quiet[0].group(2)))
        assigned, log = one or two, LOG_LINE.fullmatch(texts[1] if one else texts[0])
        return not (assigned and log and not calls(log.group(2)) and not calls(assigned.group(3))
                    and not names(log.group(2), assigned.group(2)))

    def ends_with_its_lock(self, at):
        """Whether an Unlock is the last action of a function whose last object is the lock."""
        unlock = UNLOCK.fullmatch(self.code[at].strip())
        behind = "".join(line.strip() for line in self.code[at + 1:at + 3])
        if not unlock or not END.match(behind):
            return False
        made = re.compile(rf"(\w+::)*MutexLock {unlock.group(1)}\(.*\);")
        indent = re.match(r"\s*", self.code[at]).group()
        for line in reversed(self.code[:at]):
            if line.startswith(indent) and DECLARATION.fullmatch(line[len(indent):]):
                return bool(made.fullmatch(line[len(indent):]))
        return False

    def is_written_first(self, at):
        """Whether a variable's first value is replaced before anybody reads it."""
        made = re.fullmatch(r"(\s+)[\w:]+ (\w+)( = \w+|\{\w+\});", self.code[at].rstrip())
        if not made:
            return False
        for line in self.code[at + 1:]:
            if names(line, made.group(2)):
                written = ASSIGNMENT_OF_ALL.fullmatch(line.strip())
                return bool(written and line.startswith(made.group(1)) and
                            made.group(2) == written.group(1) and
                            not names(written.group(2), made.group(2)))
            if BRANCH.search(line) or not line.startswith(made.group(1)) and line.strip():
                return False
        return False

    def matters(self, at, operator, lines):
        """Whether a change of a line is a change of the program, as far as its text tells."""
        if ANNOTATION.sub("", self.lines[at]) == ANNOTATION.sub("", lines[0]):
            return False
        if operator == "drop":
            return not UNUSED.fullmatch(self.code[at].strip()) and not self.ends_with_its_lock(at)
        if operator in ("constant", "truth"):
            return not self.is_written_first(at)
        return operator != "swap" or self.has_order(at)

    def changes(self, at):
        """{operator: [replacement of the line or of two]}"""
        if not self.is_code(at):
            return {}
        line, code = self.lines[at], self.code[at]
        found = {name: [[new] for new in operator(line, code)]
                 for name, operator in LINE_OPERATORS.items()}
        if self.statement(at):
            found["drop"] = [[""]]
        if self.can_swap(at):
            found["swap"] = [[self.lines[at + 1], line]]
        return {name: lines for name, lines in found.items() if lines}


def read_sources(tree, folder):
    """The files of src/FOLDER in the order of their names."""
    sources = []
    for directory, _, names in os.walk(os.path.join(tree, "src", folder)):
        for name in names:
            if name.endswith((".h", ".cpp")):
                path = os.path.join(directory, name)
                with open(path, encoding="utf-8") as source:
                    sources.append(Source(os.path.relpath(path, tree), source.read()))
    return sorted(sources, key=lambda source: source.name)


def draw(sources, seed):
    """Mutants without end until there are no more: lines with equal chance, then operators, then
    the places in the line. What changes nothing isn't tried, but takes a number."""
    chance, seen = random.Random(seed), set()
    places = [(source, at, source.changes(at)) for source in sources
              for at in range(len(source.lines))]
    places = [place for place in places if place[2]]
    number, misses = 0, 0
    while places and misses < 10000:
        source, at, changes = chance.choice(places)
        operator = chance.choice(sorted(changes))
        lines = chance.choice(changes[operator])
        key = (source.name, at, tuple(lines))
        misses = misses + 1 if key in seen else 0
        if key not in seen:
            seen.add(key)
            number += 1
            if not source.matters(at, operator, lines):
                continue
            original, mutated = ([" ".join(line.split()) for line in part]
                                 for part in (source.lines[at:at + len(lines)], lines))
            yield Mutant(number, source.name, at + 1, operator, " / ".join(original),
                         " / ".join(mutated), lines)
