#!/bin/bash
# tools/run-fuzzers.sh BUILD SECONDS: each fuzzer in turn, from the seeds in fuzz/corpus/<name>. New inputs of interest
# are kept in BUILD/corpus; an input that fails is written to BUILD/found and ends the run with an error.
set -euo pipefail
build=$1 seconds=$2
mapfile -t fuzzers < <(find "$build" -name 'fuzz_*' -type f -executable | sort)
[ ${#fuzzers[@]} -gt 0 ] || { echo "run-fuzzers: no fuzzer in $build" >&2; exit 1; }
mkdir -p "$build/found"
for fuzzer in "${fuzzers[@]}"; do
  name=$(basename "$fuzzer")
  mkdir -p "$build/corpus/$name"
  echo "== $name, $seconds s"
  "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$build/found/$name-" \
    -print_final_stats=1 "$build/corpus/$name" "fuzz/corpus/$name" 2>&1 | grep -vE '^#[0-9]+.*(NEW|REDUCE|pulse)' 
done
echo "${#fuzzers[@]} fuzzers ran $seconds s each and found nothing"
