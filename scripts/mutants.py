"""Measures what the tests notice: makes one small change to src/ at a time, builds, and runs the
tests. Prints every change that they do not notice, and the share that they do.

The changes are drawn evenly from several kinds. A change that does not compile does not count, nor
one that no test can notice: those stand, with the reason, in mutants-equivalent.txt.

A run that is ended in any way goes on where it stopped when it is started again: what came of a
change is kept in build/mutants/outcomes as long as its file and the tests stay the same.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import random
import signal
import sys
import threading
import time

from mutant_copy import FOLDER, ROOT, Copy, Ended, Runner, tracked_files
from mutant_kinds import KINDS, changes
from reasons import place, read_reasons

Mutant = collections.namedtuple("Mutant", "kind file line begin end new entry key")


def digest(*contents):
    whole = hashlib.sha256()
    for content in contents:
        whole.update(hashlib.sha256(content).digest())
    return whole.hexdigest()


def mutants_of(file, tests):
    text = (ROOT / file).read_text()
    lines = text.splitlines()
    for (begin, end, new), kind in changes(text).items():
        line = text.count("\n", 0, begin) + 1
        before = text[:begin].rpartition("\n")[2].count(text[begin:end])
        old = " ".join(text[begin:end].split()) + f" ({before + 1})" * (before > 0)
        entry = f"{file}: {place(lines, line)}: {old} -> {' '.join(new.split()) or 'nothing'}"
        key = digest(f"{file} {begin} {end} {new}".encode(), text.encode(), tests.encode())
        yield Mutant(kind, file, line, begin, end, new, entry, key)


def draw(mutants, count, seed):
    """As many of each kind, as far as it has them, spread over the files: from one that has four
    times as many changes as another come twice as many."""
    mutants = random.Random(seed).sample(mutants, len(mutants))
    size = collections.Counter((m.kind, m.file) for m in mutants)
    seen, queues = collections.Counter(), {kind: [] for kind in KINDS}
    for m in mutants:
        seen[m.kind, m.file] += 1
        queues[m.kind].append((seen[m.kind, m.file] / size[m.kind, m.file] ** 0.5, m))
    chosen = []
    for left, queue in zip(range(len(queues), 0, -1), sorted(queues.values(), key=len)):
        share = -(-(count - len(chosen)) // left)
        chosen += [m for _, m in sorted(queue, key=lambda ranked: ranked[0])[:share]]
    return chosen


class Outcomes:
    """What came of each change; kept in a file, line by line as it comes."""

    def __init__(self, fresh):
        FOLDER.mkdir(parents=True, exist_ok=True)
        self.lock, self.known = threading.Lock(), {}
        self.file = (FOLDER / "outcomes").open("w+" if fresh else "a+")
        self.file.seek(0)
        for line in self.file:
            try:
                record = json.loads(line)
                self.known[record["key"]] = record
            except ValueError:
                pass  # cut short when a run was ended

    def keep(self, **record):
        with self.lock:
            self.known[record["key"]] = record
            print("\n" + json.dumps(record), file=self.file, flush=True)


def print_survivor(mutant):
    print(f"survived, {mutant.kind}, line {mutant.line}:\n{mutant.entry}", flush=True)


def try_all(mutants, jobs, unchanged, outcomes):
    runner, lock, left = Runner(), threading.Lock(), iter(mutants)

    def check_copy(number, copy):
        key = f"{unchanged} {number}"  # each has its own builds
        if key in outcomes.known:
            return
        outcome = copy.try_tests()
        if outcome[0] != "survived":
            runner.end()
            raise RuntimeError(f"without a change: {' '.join(outcome)}: {copy.source}")
        outcomes.keep(key=key, outcome="unchanged")

    def work(number):
        try:
            copy = Copy(number, runner)
            check_copy(number, copy)
            while True:
                with lock:
                    mutant = next(left, None)
                if not mutant:
                    return
                begun = time.monotonic()
                outcome, by = copy.try_change(mutant)
                seconds = round(time.monotonic() - begun, 1)
                outcomes.keep(key=mutant.key, outcome=outcome, by=by, seconds=seconds,
                              kind=mutant.kind, entry=mutant.entry)
                if outcome == "survived":
                    print_survivor(mutant)
        except Ended:
            pass

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        try:
            list(pool.map(work, range(jobs)))
        except KeyboardInterrupt:
            runner.end()
        except RuntimeError as error:
            sys.exit(f"mutants: {error}")


def print_summary(mutants, known):
    counts = {kind: collections.Counter() for kind in [*KINDS, "overall"]}
    for mutant in mutants:
        outcome = known.get(mutant.key, {"outcome": "not tried"})["outcome"]
        counts[mutant.kind][outcome] += 1
        counts["overall"][outcome] += 1
    columns = ("noticed", "survived", "does not compile", "not tried")
    print(f"\n{'':18}" + "".join(f"{column:>18}" for column in columns))
    for kind, count in counts.items():
        print(f"{kind:18}" + "".join(f"{count[column]:18}" for column in columns))
    noticed, survived = (counts["overall"][column] for column in columns[:2])
    print(f"\nnoticed: {noticed} of {noticed + survived} changes, "
          f"{100 * noticed / max(noticed + survived, 1):.1f} %")


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=288, help="how many changes; 0: all")
    parser.add_argument("--seed", type=int, default=1, help="which of them")
    parser.add_argument("--file", default="", help="only files whose path contains this")
    parser.add_argument("--kind", default="", help="only kinds whose name contains this")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many at a time")
    parser.add_argument("--fresh", action="store_true", help="forget what earlier runs found")
    options = parser.parse_args()

    tests = digest(*((ROOT / name).read_bytes()
                     for name in tracked_files("tests", "host", "samples")))
    # What is for Windows is not built here.
    windows = ("utf8wrap_windows.cpp", "windows_path.h", "platform_expression_std.cpp")
    sources = [name for name in tracked_files("src")
               if name.endswith((".cpp", ".h")) and not name.endswith(windows)]
    every = [mutant for file in sources for mutant in mutants_of(file, tests)]
    equivalent = read_reasons("mutants-equivalent.txt")
    for entry in equivalent.keys() - {mutant.entry for mutant in every}:
        print(f"mutants-equivalent.txt: no such change: {entry}")
    every = [m for m in every if options.file in m.file and options.kind in m.kind
             and m.entry not in equivalent]
    chosen = draw(every, options.count or len(every), options.seed)
    outcomes = Outcomes(options.fresh)
    left = [m for m in chosen if m.key not in outcomes.known]
    print(f"{len(every)} changes are possible, {len(chosen)} are tried, of which "
          f"{len(chosen) - len(left)} were before", flush=True)
    for mutant in chosen:
        if outcomes.known.get(mutant.key, {}).get("outcome") == "survived":
            print_survivor(mutant)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    if left:
        unchanged = digest(tests.encode(), *((ROOT / file).read_bytes() for file in sources))
        # Those of one file together: a change that is taken back is built again with the next.
        try_all(sorted(left, key=lambda m: m.file), options.jobs, unchanged, outcomes)
    print_summary(chosen, outcomes.known)


if __name__ == "__main__":
    main()
