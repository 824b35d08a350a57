#!/bin/bash
# tools/run-benchmarks.sh BUILD REGEX [flags]: runs the matching programs bm_*; results also go to BUILD/bench/*.json.
set -euo pipefail
build=$1 regex=$2; shift 2
mapfile -t programs < <(find "$build/bench" -name 'bm_*' -type f -executable | grep -E "/[^/]*(${regex})[^/]*\$" | sort)
[ ${#programs[@]} -gt 0 ] || { echo "run-benchmarks: no benchmark matches $regex" >&2; exit 1; }
for program in "${programs[@]}"; do
  echo "== $(basename "$program")"
  "$program" --benchmark_out="$build/bench/$(basename "$program").json" --benchmark_out_format=json "$@"
done
