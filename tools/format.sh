#!/bin/bash
# tools/format.sh [--check]: clang-format over our sources. --check writes nothing; a difference is an error.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
find src tests bench fuzz \( -name '*.h' -o -name '*.cpp' -o -name '*.inc' \) -print0 2>/dev/null |
  xargs -0 -r clang-format "${mode[@]}"
