"""The small changes to a source text that scripts/mutants tries, by kind.

Every kind gives (begin, end, replacement). It looks at the text and at the code in it: the same
text with literals made of quotes alone and comments blank, so that both have the same positions.
"""
import re

# Comments, literals, preprocessor lines and what the compiler checks by itself.
HIDDEN = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'"""
                    r"""|^[ \t]*\#[^\n]*|static_assert\([^;]*;|\[\[.*?\]\]""", re.S | re.M)

# The formatter sets binary operators between blanks, which tells them from pointers and templates.
COMPARISON = re.compile(r"(?<= )([=!<>]=|[<>])\s+(\d+\b|[A-Z][A-Z_0-9]+\b|\")?(?! [-+*/])")
MOVED = {"<": ("<=",), "<=": ("<",), ">": (">=",), ">=": (">",), "==": ("<=", ">="),
         "!=": ("<", ">")}
BOUND_MOVED = {"<": -1, "<=": 1, ">": 1, ">=": -1}  # the other way

OPERATOR = re.compile(r"(?<= )[-+*/%<>&|^=!]{1,2}(?=\s)|\+\+|--|!(?!=)|\b(?:true|false)\b")
SWAPS = {
    "<": ">=", "<=": ">", ">": "<=", ">=": "<", "==": "!=", "!=": "==",
    "&&": "||", "||": "&&", "+": "-", "-": "+", "*": "+", "/": "*", "%": "*",
    "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "&",
    "+=": "-=", "-=": "+=", "*=": "+=", "|=": "&=", "^=": "&=",
    "++": "--", "--": "++", "!": "", "true": "false", "false": "true",
}
INTEGER = re.compile(r"(?<![\w.'])(?:0x[0-9A-F]+|\d+)(?=[uUlL]*(?![\w.']))")
STATEMENT = re.compile(r"(^ +|\) )([a-z_]\w*\([^;{}]*\)|[\w.>\[\]*-]+ [-+*|&^]?= [^;{}]+"
                       r"|(?:\+\+|--)[^;{}]+);$", re.M)
RESET = re.compile(r"^ +(\*?[\w.>\[\]-]+ = (?:-?[01]|\{\}|false|nullptr|'\\0'|[A-Z_]{3,})"
                   r"|[\w.>-]+(?:\.|->)reset\(\)|(?:forget|empty|close|stand)_\w+\(\w*\));$")


def code_of(text):
    def blank(hidden):
        return re.sub(r"[^\n]", '"' if hidden[0][0] in "\"'" else " ", hidden[0])
    return HIDDEN.sub(blank, text)


# ---- finding the parts of the code ----

def after_bracket(code, at):
    """Where the bracket that opens here is closed."""
    depth = 0
    for i in range(at, len(code)):
        depth += (code[i] in "([{") - (code[i] in ")]}")
        if depth == 0:
            return i + 1
    return len(code)


def parts(code, begin, end):
    """What stands between commas, without the blanks around it."""
    depth, at = 0, begin
    for i in range(begin, end + 1):
        if i == end or (code[i] == "," and depth == 0):
            if code[at:i].strip():
                yield i - len(code[at:i].lstrip()), at + len(code[at:i].rstrip())
            at = i + 1
        else:
            depth += (code[i] in "([{") - (code[i] in ")]}")


def operand_end(code, at, step, operator):
    """Where an operand of && or || ends in a direction, and by what."""
    stop = re.compile(r"\|\||[;,?]|\s:\s| = |\breturn\b" + r"|&&" * (operator == "&&"))
    inwards, outwards = ("([{", ")]}") if step > 0 else (")]}", "([{")
    depth = 0
    while True:
        if code[at] in outwards and depth == 0:
            return at + (step < 0), ""
        depth += (code[at] in inwards) - (code[at] in outwards)
        found = depth == 0 and stop.match(code, at)
        if found:
            return (found.start() if step > 0 else found.end()), found[0]
        at += step


def tables(code):
    """The entries of every list in braces, and what stands before it."""
    for found in re.finditer(r"\{", code):
        end = after_bracket(code, found.start())
        before = code[:found.start()].rpartition("\n")[2]
        if ";" not in code[found.start():end] and "enum " not in before:
            yield before, list(parts(code, found.end(), end - 1))


# ---- the kinds ----

def check_dropped(text, code):
    for found in re.finditer(r" (&&|\|\|)\s", code):
        left, stop = operand_end(code, found.start(), -1, found[1])
        right = operand_end(code, found.end(), 1, found[1])[0]
        yield found.start(1), len(code[:right].rstrip()), ""
        if stop != found[1]:
            yield len(code) - len(code[left:].lstrip()), found.end(1), ""
    for found in re.finditer(r"(?<!else )\bif (?:constexpr )?\(", code):
        body = after_bracket(code, found.end() - 1) + 1
        end = after_bracket(code, body) if code[body] == "{" else code.index(";", body) + 1
        leaves = re.search(r"\b(?:return\b[^;]*|continue|break);\s*\}?$", code[body:end])
        if leaves and not code[end:].lstrip().startswith("else"):
            yield found.start(), end, ""
    for found in re.finditer(r"\breturn ([^;]*[(=<>][^;]*);", code):
        functions = re.findall(r"^(?!\s)[^\n;=]*?(\w+) [\w:]+\(", code[:found.start()], re.M)
        if functions and functions[-1] == "bool":
            yield *found.span(1), "true"


def comparison_moved(text, code):
    for found in COMPARISON.finditer(code):
        operator, bound = found[1], found[2] or ""
        is_relation = operator in BOUND_MOVED
        # Pointers and statuses are only the same or not.
        if is_relation or (bound and not bound.startswith("NZN_")):
            yield from ((*found.span(1), moved) for moved in MOVED[operator])
        if is_relation and bound.isdigit() and int(bound) + BOUND_MOVED[operator] >= 0:
            yield *found.span(2), str(int(bound) + BOUND_MOVED[operator])
        elif is_relation and bound[:1].isupper() and not bound.endswith("_MAX"):
            yield *found.span(2), f"{bound} {'+' if BOUND_MOVED[operator] > 0 else '-'} 1"


def entries_exchanged(text, code):
    """Values beside each other, or in the same column of rows beside each other."""
    def exchange(a, b, c, d):
        forms = [text[at] if text[at] in '"{' else "" for at in (a, c)]
        if text[a:b] != text[c:d] and forms[0] == forms[1]:  # others do not compile
            yield a, d, text[c:d] + text[b:c] + text[a:b]

    for _, entries in tables(code):
        for (a, b), (c, d) in zip(entries, entries[1:]):
            if code[a] != "{" or code[c] != "{":
                yield from exchange(a, b, c, d)
                continue
            for (p, q), (r, s) in zip(parts(code, a + 1, b - 1), parts(code, c + 1, d - 1)):
                if text[a:p] + text[q:b] != text[c:r] + text[s:d]:  # otherwise whole rows would be
                    yield from exchange(p, q, r, s)
    for found in re.finditer(r"(?:(?<=[=?:,(] )|(?<=[({])|(?<=return ))-1\b", code):
        yield *found.span(), "0"


def entry_passed_over(text, code):
    for found in re.finditer(r"\bfor \((?:[^;:()]*= ([^;]+))?;"
                             r"\s*([\w.>-]+ (?:<=?|>=?|!=) )?", code):
        if found[1]:
            yield *found.span(1), "1" if found[1] == "0" else f"{found[1]} + 1"
        if found[2]:
            name, comparison = found[2].split()
            step = "-" if comparison[0] == ">" else "+"
            yield *found.span(2), f"{name} {step} 1 {comparison} "
    for found in re.finditer(r"\bfor \([^;:()]*&(?: const)? (\w+) : ([\w.>-]+)\) \{", code):
        for one in ("std::begin({})", "std::end({}) - 1"):
            yield found.start(2), found.end(), (
                f"{found[0][found.start(2) - found.start():]} if (&{found[1]} == "
                f"{one.format(found[2])}) continue;")
    for before, entries in tables(code):
        is_list = all(code[a] == "{" for a, _ in entries) or before.endswith((" : ", "[] = "))
        for i, (a, b) in enumerate(entries if is_list and len(entries) > 1 else ()):
            yield (a, entries[i + 1][0], "") if i == 0 else (entries[i - 1][1], b, "")
    for found in re.finditer(r"^ +(case [^:\n]+:(?: return [^;]*;)?)", text, re.M):
        yield *found.span(1), ""


def reset_dropped(text, code):
    """Of several that stand together."""
    lines = text.splitlines(keepends=True)
    found = [RESET.search(line) for line in lines]
    at = 0
    for i, line in enumerate(lines):
        if found[i] and any(found[max(i - 1, 0):i] + found[i + 1:i + 2]):
            yield at + found[i].start(1), at + found[i].end(1), ""
        at += len(line)


def prefix_cut(text, code):
    for found in HIDDEN.finditer(text):
        if re.fullmatch(r'"[^ %\n]{2,}"', found[0]) and not found[0].endswith('\\n"'):
            yield *found.span(), re.sub(r'(\\.|[^\\])"$', '"', found[0])
    for found in re.finditer(r"\b(strcmp|strncmp|memcmp)\(", code):
        end = after_bracket(code, found.end() - 1)
        *_, (a, b) = parts(code, found.end(), end - 1)
        if found[1] != "strcmp":
            yield a, b, f"{text[a:b]} - 1"
        elif code[end:].startswith((" == 0", " != 0")):  # what is less is so by its prefix too
            new = f"strncmp{text[found.end() - 1:b]}, strlen({text[a:b]}))"
            yield found.start(), end, new


def operator_swapped(text, code):
    for found in OPERATOR.finditer(code):
        if found[0] in SWAPS:
            yield *found.span(), SWAPS[found[0]]


def constant_changed(text, code):
    for found in INTEGER.finditer(code):
        value = int(found[0], 0)
        yield from ((*found.span(), str(other)) for other in (value + 1, value - 1) if other >= 0)


def statement_dropped(text, code):
    for found in STATEMENT.finditer(code):
        if found[1] == ") " or code[:found.start()].rstrip()[-1:] in ("", ";", "{", "}", ")", ":"):
            yield *found.span(2), ""


# A change that two kinds know is of the first of them.
KINDS = {function.__name__.replace("_", " "): function for function in (
    check_dropped, comparison_moved, entries_exchanged, entry_passed_over, reset_dropped,
    prefix_cut, operator_swapped, constant_changed, statement_dropped)}


def changes(text):
    """{(begin, end, replacement): kind} of all changes to a text."""
    code, kinds = code_of(text), {}
    for kind, function in KINDS.items():
        for change in function(text, code):
            kinds.setdefault(change, kind)
    return kinds
