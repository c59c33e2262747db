#!/usr/bin/env python3
"""Compares what two replays of a corpus show: compare_traces.py HERE THERE

Inputs that the second replay left out, since no file there can have their names, are counted only.
"""
import sys


def inputs(path):
    """What came of each input, by its name."""
    found = {}
    with open(path, "rb") as traces:
        for part in traces.read().split(b"== ")[1:]:
            name, trace = part.split(b"\n", 1)
            found[name.decode()] = trace
    return found


def main():
    here, there = inputs(sys.argv[1]), inputs(sys.argv[2])
    left_out = {name for name, trace in there.items() if trace.startswith(b"left out\n")}
    wrong = [name for name in here if name not in left_out and here[name] != there.get(name)]
    print(f"{len(here)} inputs, {len(left_out)} left out, {len(wrong)} with another trace")
    for name in wrong:
        print(f"another trace: {name}")
    return 1 if wrong or len(left_out) == len(here) or not here else 0


sys.exit(main())
