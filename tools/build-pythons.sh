#!/bin/bash
# tools/build-pythons.sh [JOBS]: builds the module for every CPython 3.9 to 3.13 found on this machine, with the headers
# of that very version, imports it there and runs tools/smoke-test.py. Ends in a table; fails if one of them failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit
jobs=${1:-$(nproc)}

candidates() { # every file that may be an interpreter
  local folder
  while IFS= read -r -d : folder; do
    ls -d "$folder"/python3 "$folder"/python3.9 "$folder"/python3.1[0-3] 2>/dev/null
  done <<<"$PATH:/usr/bin:/usr/local/bin:"
  ls -d "${PYENV_ROOT:-$HOME/.pyenv}"/versions/*/bin/python3 2>/dev/null
}

# One line for one installation: links to one binary, and shims, are the same interpreter.
interpreters=$(candidates | while read -r path; do
  executable=$("$path" tools/interpreter.py executable 2>/dev/null) && realpath "$executable"
done | sort -uV)
[ -n "$interpreters" ] || { echo "build-pythons: no CPython 3.9 to 3.13 found" >&2; exit 1; }

mkdir -p build/pythons
table=()
failed=0
while read -r python; do
  version=$("$python" -c 'import platform; print(platform.python_version())')
  folder=build/module-$("$python" tools/interpreter.py tag)
  log=$PWD/build/pythons/$(basename "$folder").log
  echo "== Python $version ($python)"
  if ! tools/build-module.sh "$python" "$folder" --jobs "$jobs" >"$log" 2>&1 </dev/null; then
    result="FAILED to build"
  else
    path=$(tail -n 1 "$log")
    if PYTHONPATH=$path timeout 120 "$python" tools/smoke-test.py "$path" >>"$log" 2>&1 </dev/null; then
      result="ok: $(tail -n 1 "$log")"
      short=${version%.*}
      while read -r other; do # each other version must be refused, by name
        [ "$("$other" -c 'import sys; print("%d.%d" % sys.version_info[:2])')" = "$short" ] && continue
        timeout 60 "$other" tools/check-refusal.py "$path" "$short" >>"$log" 2>&1 </dev/null ||
          result="FAILED: not refused as it should be by $other"
      done <<<"$interpreters"
    else
      result="FAILED to import or run"
    fi
  fi
  case $result in FAILED*) failed=1; tail -n 25 "$log"; result="$result, see ${log#"$PWD/"}" ;; esac
  table+=("$(printf '%-8s  %-52s  %s' "$version" "$python" "$result")")
done <<<"$interpreters"

printf '\n%-8s  %-52s  %s\n' Python interpreter result
printf '%s\n' "${table[@]}"
exit $failed
