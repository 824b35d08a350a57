#!/usr/bin/python3
"""Benchmarks of this tree beside those of another commit, on one machine, in turn.

    tools/bench-compare.py BASE [--filter REGEX] [--rounds N] [--attention 1.1] [--jobs N]

Builds BASE and the tree as it is, with uncommitted changes, below build/compare. Then each round runs every bm_*
program of both, one after the other, so that other load on the machine affects both. The pairing and the Mann-Whitney U
test are those of Google Benchmark's own comparison tool (Debian: libbenchmark-tools).

A row: the median time of each side, now / base, the ratio to the floor of the same run where a benchmark has one, and a
mark where now / base passes the attention threshold either way with p < 0.05. A mark means: run it again, then read the
change. The exit code is 0 with marks too, since a timing proves nothing.
"""
import argparse
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COMPARE = ROOT / "build" / "compare"
GBENCH = "/usr/share/benchmark"
SIGNIFICANT = 0.05


def run(*command, **options):
    subprocess.run([str(word) for word in command], check=True, **options)


def check_out(base):
    """A work tree of the commit `base`; one of an earlier call is moved to it."""
    found = subprocess.run(["git", "rev-parse", "--verify", "--quiet", base + "^{commit}"], cwd=ROOT, stdout=subprocess.PIPE,
                           universal_newlines=True)
    if found.returncode:
        sys.exit(f"bench-compare: {base} is no commit here; give a branch, a tag or a hash, e.g. BASE=HEAD~1")
    tree = COMPARE / "base"
    if (tree / ".git").exists():
        run("git", "checkout", "-q", "--detach", found.stdout.strip(), cwd=tree)
    else:
        run("git", "worktree", "prune", cwd=ROOT)
        run("git", "worktree", "add", "-q", "--detach", tree, found.stdout.strip(), cwd=ROOT)
    return tree


def build(source, folder, wanted, jobs):
    """The programs bm_* whose name matches, by name; nothing else is built."""
    declared = [name for file in (source / "bench").rglob("*.cmake") for name in re.findall(r"NAME\s+(bm_\w+)", file.read_text())]
    names = sorted(name for name in declared if re.search(wanted, name))
    run("cmake", "-G", "Ninja", "-S", source, "-B", folder, "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF",
        "-DVORNA_PYTHON=OFF", "-DVORNA_BENCH=ON", stdout=subprocess.DEVNULL)
    if names:
        run("cmake", "--build", folder, "--parallel", jobs, "--target", *names)
    return {name: folder / "bench" / name for name in names}


def measure(program, seconds):
    """The runs of one program, without the aggregates."""
    out = COMPARE / "run.json"
    run(program, f"--benchmark_min_time={seconds}", f"--benchmark_out={out}", "--benchmark_out_format=json",
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return [row for row in json.loads(out.read_text())["benchmarks"] if row.get("run_type") != "aggregate"]


def median_of(rows, name, field):
    values = [row[field] for row in rows if row["name"] == name and field in row]
    return statistics.median(values) if values else None


def print_table(base, now, attention):
    """Prints a row per benchmark; returns how many carry a mark."""
    sys.path.insert(0, GBENCH)
    from gbench import report
    rows = report.get_difference_report({"benchmarks": base}, {"benchmarks": now}, utest=True)
    rows = [row for row in rows if row["run_type"] != "aggregate"]
    width = max([len(row["name"]) for row in rows] + [9])
    print(f"\n{'benchmark':<{width}}  {'base':>10} {'now':>10}     now/base      p   floor ratio, base -> now")
    marked = 0
    for row in rows:
        name, unit = row["name"], row["time_unit"]
        before, after = median_of(base, name, "real_time"), median_of(now, name, "real_time")
        ratio, p = after / before if before else float("nan"), row["utest"].get("time_pvalue")
        mark = ""
        if p is not None and p < SIGNIFICANT:
            mark = "  << slower" if ratio > attention else "  faster" if ratio < 1 / attention else ""
        marked += bool(mark)
        floors = [median_of(side, name, "ratio") for side in (base, now)]
        floor = "" if None in floors else f"{floors[0]:6.2f} -> {floors[1]:.2f}"
        print(f"{name:<{width}}  {before:>10.4g} {after:>10.4g} {unit}  {ratio:>8.3f}  {'-' if p is None else format(p, '5.3f'):>5}  "
              f"{floor:<16}{mark}".rstrip())
    return marked


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("base", help="the commit to compare with")
    parser.add_argument("--filter", default=".", help="which bm_* programs, by name")
    parser.add_argument("--rounds", type=int, default=9, help="runs of each program; fewer than 9 make p unreliable")
    parser.add_argument("--seconds", type=float, default=0.05, help="the least time of one run of one benchmark")
    parser.add_argument("--attention", type=float, default=1.1, help="rows that differ by more are marked")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    COMPARE.mkdir(parents=True, exist_ok=True)
    sides = [build(check_out(options.base), COMPARE / "build-base", options.filter, options.jobs),
             build(ROOT, COMPARE / "build-now", options.filter, options.jobs)]
    names = [name for name in sides[0] if name in sides[1]]
    for name in sorted(set(sides[0]) ^ set(sides[1])):
        print(f"{name} is on one side only: left out")
    if not names:
        sys.exit(f"bench-compare: no benchmark of both sides matches {options.filter}")
    rows = [[], []]
    end = "" if sys.stderr.isatty() else "\n"
    for turn in range(options.rounds):
        for place, name in enumerate(names):
            print(f"\rround {turn + 1} of {options.rounds}: {name:<24} ({place + 1} of {len(names)})", end=end, file=sys.stderr, flush=True)
            for side in (0, 1):
                rows[side] += measure(sides[side][name], options.seconds)
    print(file=sys.stderr)
    marked = print_table(*rows, options.attention)
    print(f"\n{marked} rows differ by more than {options.attention:g} times with p < {SIGNIFICANT}")


if __name__ == "__main__":
    main()
