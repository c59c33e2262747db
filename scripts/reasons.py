"""Reads what was looked at and is as it should be, with the reason why."""
import pathlib
import sys


def place(lines, number):
    """The code of a line, the first being number 1, with as many lines before it as it takes to
    tell it from others."""
    code = [line.strip() for line in lines]
    for first in range(number - 1, -1, -1):
        part = code[first:number]
        if sum(code[i:i + len(part)] == part for i in range(len(code))) == 1:
            break
    return " ".join(part)


def read_reasons(name):
    """{entry: reason}. In the file every entry is a line; the indented lines that follow are the
    reason for the entries above them."""
    reasons, entries, reason = {}, [], []
    for line in [*(pathlib.Path(__file__).parent / name).read_text().splitlines(), "end"]:
        if line.startswith(" "):
            reason.append(line.strip())
        elif line.strip() and not line.startswith("#"):
            if reason or line == "end":
                if entries and not reason:
                    sys.exit(f"{name}: no reason given: {entries[-1]}")
                reasons.update(dict.fromkeys(entries, " ".join(reason)))
                entries, reason = [], []
            entries.append(line.strip())
    return reasons
