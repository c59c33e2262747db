"""The report of scripts/coverage, from what llvm-cov exports as JSON and as lcov.

A branch is one outcome, true or false, of one condition.
"""
import collections
import json
import pathlib
import sys

from reasons import place, read_reasons

ROOT = pathlib.Path(__file__).resolve().parent.parent


def line_counts(lcov):
    """{file: {line: times reached}}"""
    counts = collections.defaultdict(dict)
    for entry in lcov.splitlines():
        kind, _, value = entry.partition(":")
        if kind == "SF":
            lines = counts[str(pathlib.Path(value).relative_to(ROOT))]
        elif kind == "DA":
            line, count = map(int, value.split(",")[:2])
            lines[line] = lines.get(line, 0) + count
    return counts


def branch_counts(files):
    """{file: {(first line, column, last line, column): [times true, times false]}}; what several
    instances of a template count is one branch."""
    counts = {}
    for file in files:
        branches = counts[str(pathlib.Path(file["filename"]).relative_to(ROOT))] = {}
        for branch in file["branches"]:
            outcomes = branches.setdefault(tuple(branch[:4]), [0, 0])
            outcomes[0] += branch[4]
            outcomes[1] += branch[5]
    return counts


def text_between(lines, first_line, first_column, last_line, last_column):
    part = lines[first_line - 1:last_line]
    part[-1] = part[-1][:last_column - 1]
    part[0] = part[0][first_column - 1:]
    return " ".join(line.strip() for line in part)


def find_misses(line_table, branch_table):
    """(file, line, its code, with the outcome of a condition) of everything not reached."""
    for file in sorted(line_table):
        lines = (ROOT / file).read_text().splitlines()
        missed = {line for line, count in line_table[file].items() if count == 0}
        for line in sorted(missed):
            if line - 1 not in missed:  # the first of several stands for all
                yield file, line, place(lines, line)
        for branch, outcomes in sorted(branch_table[file].items()):
            what = f"{place(lines, branch[0])}: {text_between(lines, *branch)}"
            for outcome, count in zip(("true", "false"), outcomes):
                if count == 0 and branch[0] not in missed:
                    yield file, branch[0], f"{what}: {outcome}"


def print_misses(misses, reasons):
    """How many misses have no reason, and reasons no miss."""
    used = set()
    unexplained = 0
    print("\nnot reached:")
    for file, line, what in misses:
        entry = f"{file}: {what}"
        used.add(entry)
        unexplained += entry not in reasons
        print(f"{file}:{line}: {what}\n    {reasons.get(entry, 'NO REASON GIVEN')}")
    stale = [entry for entry in reasons if entry not in used]
    for entry in stale:
        print(f"reached, or gone, although a reason is given: {entry}")
    return unexplained + len(stale)


def print_table(line_table, branch_table):
    def row(lines, branches, file):
        reached, taken = (sum(map(bool, counts)) for counts in (lines, branches))
        print(f"{reached:5} of {len(lines):<5} {taken:5} of {len(branches):<5} {file}")

    print(f"\n{'lines':>14} {'branches':>14}")
    all_lines, all_branches = [], []
    for file in sorted(line_table):
        lines = list(line_table[file].values())
        branches = [count for outcomes in branch_table[file].values() for count in outcomes]
        all_lines += lines
        all_branches += branches
        row(lines, branches, file)
    row(all_lines, all_branches, "all of src/")


def main():
    json_file, lcov_file = map(pathlib.Path, sys.argv[1:])
    line_table = line_counts(lcov_file.read_text())
    branch_table = branch_counts(json.loads(json_file.read_text())["data"][0]["files"])
    print_table(line_table, branch_table)
    misses = find_misses(line_table, branch_table)
    open_points = print_misses(misses, read_reasons("coverage-reasons.txt"))
    print(f"coverage: {open_points or 'no'} open points")
    sys.exit(1 if open_points else 0)


if __name__ == "__main__":
    main()
