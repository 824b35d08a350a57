#!/usr/bin/env python3
"""Runs rows of tests/python/test_exits.py many times: a crash at exit may need dozens of runs to show.

    PYTHONPATH=<folder of the module>[:<folder of pytest>] python3 bench/python/exit_matrix.py [--runs 200] [REGEX]

REGEX chooses rows by name. Prints a line for each row; the exit code is 1 when any run failed.
"""
import argparse
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tests", "python"))
import test_exits  # noqa: E402

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("regex", nargs="?", default="")
parser.add_argument("--runs", type=int, default=200)
options = parser.parse_args()

print("Python %s, %d runs of each row" % (sys.version.split()[0], options.runs))
failed = 0
for name, (_, expected) in test_exits.SCRIPTS.items():
    if not re.search(options.regex, name):
        continue
    longest, faults = 0.0, []
    for _ in range(options.runs):
        code, took, errors = test_exits.end_of(name)
        longest = max(longest, took)
        if code != expected:
            faults.append("code %d: %s" % (code, errors.strip()[-200:]))
    failed += len(faults)
    print("%4d failed, longest end %.2f s  %s" % (len(faults), longest, name), *sorted(set(faults)), sep="\n      ", flush=True)
sys.exit(failed > 0)
