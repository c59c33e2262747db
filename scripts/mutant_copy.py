"""Copies of the tree in which a change is built and tested."""
import fcntl
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import tempfile
import threading

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDER = ROOT / "build" / "mutants"
SECONDS = 1800  # for one run of the tests, whatever else the machine does

# Loops of the battery that take long under the sanitizers.
WIDEST = ("*every_byte*:*every_word*:*duct_sample:BatterySeries*:BatteryHeap*:"
          "BatteryLimits.work*:BatteryBoundary.callbacks*:BatteryBoundary.a_thousand*")
# A change may ask for any amount of memory. Under the sanitizers, which take all address space,
# only what got by without them is tried.
MEMORY = ((resource.RLIMIT_AS, 8 << 30),)
ASAN_OPTIONS = "max_allocation_size_mb=1000"
BUILDS = {"plain": ("-DCMAKE_CXX_FLAGS=-w -O1",),
          "asan": ("-DCMAKE_CXX_FLAGS=-w -O1", "-DFLD_SANITIZE=ON")}
# What is built and run, one after the other, until a change is noticed: what costs least and
# notices most comes first. The seconds of processor time are for one process: a change may make it
# run for ever.
STAGES = (("plain", "-*Battery*", 20), ("asan", "-*Battery*", 60),
          ("plain", "*Battery*", 100), ("asan", f"*Battery*-{WIDEST}", 200))


class Ended(Exception):
    """The run is to end."""


def tracked_files(*folders):
    names = subprocess.check_output(["git", "ls-files", "-z", *folders], cwd=ROOT, text=True)
    return [name for name in names.split("\0") if name]


class Runner:
    """Runs commands, and ends those at hand when the run is to end."""

    def __init__(self):
        self.lock, self.running, self.ended = threading.Lock(), set(), False

    def end(self):
        with self.lock:
            self.ended = True
            for process in self.running:
                self.kill(process, signal.SIGTERM)  # which a build passes on to its compilers

    @staticmethod
    def kill(process, how=signal.SIGKILL):
        try:
            os.killpg(process.pid, how)
        except ProcessLookupError:
            pass

    def run(self, command, folder, lock, limits=()):
        """Whether it succeeds, and the first test that fails; ends what it leaves running."""
        with tempfile.TemporaryDirectory() as scratch:  # a short path, as names near the limits need
            return self.run_in(command, folder, scratch, lock, limits)

    def run_in(self, command, folder, scratch, lock, limits):
        environment = dict(os.environ, TMPDIR=scratch, ASAN_OPTIONS=ASAN_OPTIONS)
        with self.lock:
            if self.ended:
                raise Ended
            process = subprocess.Popen(command, cwd=folder, env=environment, start_new_session=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       pass_fds=[lock.fileno()])
            self.running.add(process)
        for kind, limit in limits:
            resource.prlimit(process.pid, kind, (limit, limit))
        timer = threading.Timer(SECONDS, self.kill, [process])
        timer.start()
        test, failed = "", False
        for line in iter(lambda: process.stdout.readline(4096), b""):
            failed |= line.startswith(b"[  FAILED  ]")
            if line.startswith(b"[ RUN ") and not failed:
                test = line.split()[-1].decode()
        succeeded = process.wait() == 0
        timer.cancel()
        with self.lock:
            self.running.remove(process)
            self.kill(process)
            if self.ended:
                raise Ended
        return succeeded, test


class Copy:
    """A copy of the tree, for one change at a time."""

    def __init__(self, number, runner):
        self.source, self.runner = FOLDER / str(number), runner
        self.source.mkdir(parents=True, exist_ok=True)
        # Held by all that is started too: what a killed run left running is waited for.
        self.lock = (self.source / "lock").open("w")
        fcntl.flock(self.lock, fcntl.LOCK_EX)
        for name in tracked_files():
            copy = self.source / name
            if copy.exists() and copy.read_bytes() == (ROOT / name).read_bytes():
                continue  # need not be built again
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, copy)
        for build, options in BUILDS.items():
            self.run("cmake", "-S", "..", "-B", ".", "-G", "Ninja", "-DBUILD_TESTING=ON",
                     "-DCMAKE_BUILD_TYPE=None", *options, build=build)

    def run(self, *command, build, limits=()):
        return self.runner.run(command, self.source / build, self.lock, limits)

    def try_tests(self):
        """What comes of the tests as the copy is now, and what noticed a change."""
        built = set()
        for build, tests, seconds in STAGES:
            if build not in built:
                built.add(build)
                if not self.run("cmake", "--build", ".", "--target", "fld_tests", build=build)[0]:
                    return "does not compile", build
            limits = (resource.RLIMIT_CPU, seconds), *(MEMORY if build == "plain" else ())
            passed, test = self.run("./fld_tests", "--gtest_fail_fast", f"--gtest_filter={tests}",
                                    build=build, limits=limits)
            if not passed:
                return "noticed", f"{build} {test}"
        return "survived", ""

    def try_change(self, mutant):
        path = self.source / mutant.file
        text = path.read_text()
        path.write_text(text[:mutant.begin] + mutant.new + text[mutant.end:])
        try:
            return self.try_tests()
        finally:
            path.write_text(text)
