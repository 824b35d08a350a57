#!/usr/bin/python3
"""Runs every test of a build folder and ends in one line that counts C++ and Python tests alike.

    tools/run-tests.py build/release                     all tests
    tools/run-tests.py build/tsan --preset tsan          with the environment of that test preset
    tools/run-tests.py build/release -R Graph            further arguments go to ctest

ctest runs all: a GoogleTest case is one of its tests, and so is a pytest *file*, which leaves its own results in
junit/ of the build folder. Fails when a test failed, when ctest did, or when a whole kind of tests is missing.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree


def pytest_results(file):
    """(passed, skipped, names of failed tests) of a pytest file, or None when it left no readable results."""
    try:
        cases = list(ElementTree.parse(file).iter("testcase"))
    except (OSError, ElementTree.ParseError):
        return None
    failed = {f"{case.get('classname')}::{case.get('name')}" for case in cases
              if case.find("failure") is not None or case.find("error") is not None}
    skipped = sum(case.find("skipped") is not None for case in cases)
    names = {f"{case.get('classname')}::{case.get('name')}" for case in cases}
    return len(names) - len(failed) - skipped, skipped, sorted(failed)


class Tally:
    def __init__(self):
        self.passed = {"C++": 0, "Python": 0, "check": 0}
        self.skipped = 0
        self.failed = []

    def add(self, case, folder):
        """Counts one test of ctest's results; a pytest file counts as what is in it."""
        name = case.get("name")
        good = case.find("failure") is None and case.get("status") == "run"
        skip = case.find("skipped")
        if skip is not None and "SKIP" in skip.get("message", ""):
            self.skipped += 1
        elif name.startswith("py."):
            results = pytest_results(folder / "junit" / f"{name}.xml")
            passed, skipped, failed = results or (0, 0, [])
            self.passed["Python"] += passed
            self.skipped += skipped
            self.failed += [f"{name}: {test}" for test in failed]
            if not failed and not (good and results):  # a crash, a time-out, or an end without results
                self.failed.append(f"{name}: the process of this file ended badly")
        elif good:
            self.passed["check" if name.startswith("check.") else "C++"] += 1
        else:
            self.failed.append(name)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--preset")
    parser.add_argument("--jobs", default=str(os.cpu_count()))
    options, ctest_arguments = parser.parse_known_args()
    folder = options.folder.resolve()

    results = folder / "junit"
    results.mkdir(exist_ok=True)
    for old in results.glob("*.xml"):
        old.unlink()
    where = ["--preset", options.preset] if options.preset else ["--test-dir", str(folder)]
    started = time.monotonic()
    run = subprocess.run(["ctest", *where, "--output-on-failure", "--no-tests=error", "--parallel", options.jobs,
                          "--output-junit", str(results / "ctest.xml"), *ctest_arguments],
                         cwd=pathlib.Path(__file__).resolve().parent.parent)

    tally = Tally()
    try:
        for case in ElementTree.parse(results / "ctest.xml").iter("testcase"):
            tally.add(case, folder)
    except (OSError, ElementTree.ParseError) as error:
        tally.failed.append(f"ctest left no results: {error}")
    if run.returncode != 0 and not tally.failed:
        tally.failed.append(f"ctest ended with {run.returncode}")
    if not ctest_arguments:
        python = re.search(r"^VORNA_PYTHON:BOOL=(ON|1|TRUE)$", (folder / "CMakeCache.txt").read_text(), re.MULTILINE)
        for kind in ["C++", "Python"] if python else ["C++"]:
            if tally.passed[kind] == 0 and not tally.failed:
                tally.failed.append(f"no {kind} test ran")

    for test in tally.failed:
        print("FAILED", test)
    print(f"{sum(tally.passed.values())} passed, {len(tally.failed)} failed"
          + (f", {tally.skipped} skipped" if tally.skipped else "")
          + f" in {time.monotonic() - started:.0f} s"
          + f" (passed: {tally.passed['C++']} C++, {tally.passed['Python']} Python, {tally.passed['check']} checks)",
          flush=True)
    return 1 if tally.failed else 0


if __name__ == "__main__":
    sys.exit(main())
