#!/bin/bash
# tools/build-module.sh PYTHON [FOLDER] [--jobs N]: builds the extension module alone, without tests and benchmarks, for
# that interpreter, in that folder. The last line printed is the folder to put on PYTHONPATH.
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd)
python=$1; shift
folder=
if [ $# -gt 0 ] && [ "$1" != --jobs ]; then folder=$1; shift; fi
jobs=${2:-$(nproc)}

executable=$("$python" "$source/tools/interpreter.py" executable)
[ -n "$folder" ] || folder=$source/build/module-$("$python" "$source/tools/interpreter.py" tag)

fresh=
if [ -f "$folder/CMakeCache.txt" ] && ! grep -q "^Python_EXECUTABLE:[A-Z]*=$executable\$" "$folder/CMakeCache.txt"; then
  fresh=--fresh # the folder was another interpreter's, and CMake doesn't mix the two
fi
cmake $fresh -G Ninja -S "$source" -B "$folder" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DVORNA_BENCH=OFF \
  -DVORNA_PYTHON=ON -DVORNA_MODULE_SUFFIX=.so -DPython_EXECUTABLE="$executable"

# The headers must be of the very version, patch level included: two 3.11 on one machine are easily mixed up.
include=$(sed -n 's/^_Python_INCLUDE_DIR:[A-Z]*=//p' "$folder/CMakeCache.txt")
headers=$(sed -n 's/^#define PY_VERSION *"\(.*\)"/\1/p' "$include/patchlevel.h")
version=$("$executable" -c 'import platform; print(platform.python_version())')
if [ "$headers" != "$version" ]; then
  echo "build-module: the headers in $include are of Python $headers, the interpreter $executable is $version" >&2
  exit 1
fi
echo "headers: Python $headers in $include"

cmake --build "$folder" --parallel "$jobs" --target vorna
echo "$(realpath "$folder")/python"
