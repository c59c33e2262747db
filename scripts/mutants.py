"""Measures what the tests notice: changes one operator, bound or constant of src/ at a time, builds
under the sanitizers, and runs the tests. Prints every change that they do not notice, and the share
that they do; so does a run that is interrupted, of what it tried.

A change that does not compile does not count, nor one that no test can notice: those stand, with
the reason, in mutants-equivalent.txt.
"""
import argparse
import collections
import concurrent.futures
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys

from reasons import place, read_reasons

ROOT = pathlib.Path(__file__).resolve().parent.parent
CPU_SECONDS = 100  # for one process of the tests; a change may make it run for ever
SECONDS = 1800     # for all of them, whatever else the machine does
# Loops of the battery that take long; the share is the same or higher with them.
WIDEST = ("*every_byte*:*every_word*:*duct_sample:BatterySeries*:BatteryHeap*:"
          "BatteryLimits.work*:BatteryBoundary.callbacks*:BatteryBoundary.a_thousand*")

SWAPS = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "&&": "||", "||": "&&", "+": "-", "-": "+", "*": "+", "/": "*", "%": "*",
    "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "&",
    "+=": "-=", "-=": "+=", "*=": "+=", "|=": "&=", "^=": "&=",
    "++": "--", "--": "++", "!": "", "true": "false", "false": "true",
}
# The formatter sets binary operators between blanks, which tells them from pointers and templates.
OPERATOR = re.compile(r"(?<= )[-+*/%<>&|^=!]{1,2}(?=\s)|\+\+|--|!(?!=)|\b(?:true|false)\b")
INTEGER = re.compile(r"(?<![\w.'])(?:0x[0-9A-F]+|\d+)(?=[uUlL]*(?![\w.']))")
STATEMENT = re.compile(r"(?:(?<=[;{})]\n) +|\) )"
                       r"([a-z_]\w*\([^;{}]*\)|[\w.>\[\]*-]+ = [^;{}]+);$", re.M)
# Comments, literals, preprocessor lines and what the compiler checks by itself.
HIDDEN = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'"""
                    r"""|^[ \t]*\#[^\n]*|static_assert\([^;]*;|\[\[.*?\]\]""", re.S | re.M)

Mutant = collections.namedtuple("Mutant", "file line begin end new entry")


def changes(code):
    """(begin, end, replacement) of all changes to a text without comments and literals."""
    for found in OPERATOR.finditer(code):
        if found[0] in SWAPS:
            yield *found.span(), SWAPS[found[0]]
    for found in INTEGER.finditer(code):
        value = int(found[0], 0)
        yield from ((*found.span(), str(other)) for other in (value + 1, value - 1) if other >= 0)
    for found in STATEMENT.finditer(code):
        yield *found.span(1), ""


def mutants_of(path):
    file, text = str(path.relative_to(ROOT)), path.read_text()
    code = HIDDEN.sub(lambda hidden: re.sub(r"[^\n]", " ", hidden[0]), text)
    lines = text.splitlines()
    for begin, end, new in changes(code):
        line = text.count("\n", 0, begin) + 1
        before = text[:begin].rpartition("\n")[2].count(text[begin:end])
        old = " ".join(text[begin:end].split()) + f" ({before + 1})" * (before > 0)
        entry = f"{file}: {place(lines, line)}: {old} -> {new or 'nothing'}"
        yield Mutant(file, line, begin, end, new, entry)


class Copy:
    """A copy of the tree, for one change at a time."""

    def __init__(self, number):
        self.source = ROOT / "build" / "mutants" / str(number)
        self.build_folder = self.source / "build"
        self.scratch = self.source / "scratch"
        tracked = subprocess.check_output(["git", "ls-files", "-z"], cwd=ROOT, text=True)
        for name in filter(None, tracked.split("\0")):
            copy = self.source / name
            if copy.exists() and copy.read_bytes() == (ROOT / name).read_bytes():
                continue  # need not be built again
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, copy)
        subprocess.run(["cmake", "-S", self.source, "-B", self.build_folder, "-G", "Ninja",
                        "--log-level=WARNING", "-DBUILD_TESTING=ON", "-DFLD_SANITIZE=ON",
                        "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-w"],
                       check=True, stdout=subprocess.DEVNULL)
        if not self.builds() or not self.tests_pass():
            sys.exit(f"mutants: building or testing fails without a change: {self.build_folder}")

    def run(self, *command):
        """Whether a command succeeds in time; ends what it leaves running."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir()
        # A limit of the address space does not go together with the sanitizer.
        environment = dict(os.environ, TMPDIR=str(self.scratch),
                           ASAN_OPTIONS="max_allocation_size_mb=1000")
        limit = lambda: resource.setrlimit(resource.RLIMIT_CPU, (CPU_SECONDS, CPU_SECONDS))
        process = subprocess.Popen(command, cwd=self.build_folder, env=environment,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   start_new_session=True, preexec_fn=limit)
        try:
            return process.wait(SECONDS) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()

    def builds(self):
        return self.run("cmake", "--build", ".", "--target", "fld_tests")

    def tests_pass(self):
        """What the short tests notice need not wait for the battery."""
        return all(self.run("./fld_tests", "--gtest_fail_fast", f"--gtest_filter={which}")
                   for which in ("-*Battery*", f"*Battery*-{WIDEST}"))

    def outcome(self, mutant):
        path = self.source / mutant.file
        text = path.read_text()
        path.write_text(text[:mutant.begin] + mutant.new + text[mutant.end:])
        try:
            if not self.builds():
                return "does not compile"
            return "survived" if self.tests_pass() else "noticed"
        finally:
            path.write_text(text)


def try_all(mutants, jobs):
    """How often each outcome came."""
    outcomes = collections.Counter()
    left = iter(mutants)

    def work(number):
        copy = Copy(number)
        for mutant in left:
            outcome = copy.outcome(mutant)
            outcomes[outcome] += 1
            if outcome == "survived":
                print(f"survived, line {mutant.line}:\n{mutant.entry}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        try:
            list(pool.map(work, range(jobs)))
        except KeyboardInterrupt:
            collections.deque(left, maxlen=0)  # nothing is left; those at hand are ended
    return outcomes


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=100, help="how many changes; 0: all")
    parser.add_argument("--seed", type=int, default=1, help="which of them")
    parser.add_argument("--file", default="", help="only files whose path contains this")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="how many at a time")
    options = parser.parse_args()

    paths = [path for path in sorted((ROOT / "src").rglob("*")) if path.suffix in (".cpp", ".h")]
    every = [mutant for path in paths for mutant in mutants_of(path)]
    equivalent = read_reasons("mutants-equivalent.txt")
    for entry in equivalent.keys() - {mutant.entry for mutant in every}:
        print(f"mutants-equivalent.txt: no such change: {entry}")
    random.Random(options.seed).shuffle(every)
    every = [m for m in every if options.file in m.file and m.entry not in equivalent]
    chosen = every[:options.count or len(every)]
    print(f"{len(every)} changes are possible, {len(chosen)} are tried", flush=True)

    signal.signal(signal.SIGTERM, signal.default_int_handler)
    outcomes = try_all(chosen, options.jobs)
    counted = outcomes["noticed"] + outcomes["survived"]
    print(f"noticed: {outcomes['noticed']} of {counted} changes, "
          f"{100 * outcomes['noticed'] / max(counted, 1):.1f} %; "
          f"{outcomes['does not compile']} more do not compile")


if __name__ == "__main__":
    main()
