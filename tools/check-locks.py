#!/usr/bin/python3
"""Clang's thread-safety analysis over src/, as errors: what src/util/Mutex.h marks is held where it must be.

    tools/check-locks.py [build/release] [--jobs N] [REGEX]

Reads the commands of the build folder's compile_commands.json and compiles nothing: clang++ only checks. REGEX chooses
files by path. A header is checked by the files that include it; exit code 1 when one of them has a fault.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

FLAGS = ["-fsyntax-only", "-Wno-everything", "-Wthread-safety", "-Wthread-safety-beta", "-Werror=thread-safety",
         "-Werror=thread-safety-beta"]


def check(entry):
    """What clang says of one file: None when it is clean."""
    words = [word for word in shlex.split(entry["command"]) if "ccache" not in word]
    arguments = [word for word in words[1:] if not word.startswith(("-fuse-ld", "-Wno-restrict"))]
    run = subprocess.run(["clang++", *arguments, *FLAGS], cwd=entry["directory"], stdout=subprocess.DEVNULL,
                         stderr=subprocess.PIPE, universal_newlines=True)
    return run.stderr if run.returncode else None


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", nargs="?", default="build/release")
    parser.add_argument("regex", nargs="?", default="")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    entries = {}  # a file may be compiled several times, with other definitions
    for entry in json.loads((root / options.build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        if root / "src" in file.parents and re.search(options.regex, str(file)):
            definitions = frozenset(word for word in shlex.split(entry["command"]) if word.startswith("-D"))
            entries.setdefault((file, definitions), entry)
    if not entries:
        sys.exit(f"check-locks: no file of src/ in {options.build}/compile_commands.json matches; run make configure")
    faults = set()
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for text in pool.map(check, entries.values()):
            if text and text not in faults:
                faults.add(text)
                print(text, file=sys.stderr)
    print(f"check-locks: {len(entries)} files, {len(faults)} with faults")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
