"""Run by the interpreter in question: `PYTHON interpreter.py executable|tag`.

executable: the interpreter itself, behind version-manager shims. tag: a name for its build folder, different for two
interpreters of one version. Anything but CPython 3.9 to 3.13 is refused. Written so that old interpreters can say so.
"""
import platform
import sys
import zlib

version = "%d.%d.%d" % sys.version_info[:3]
if platform.python_implementation() != "CPython" or not (3, 9) <= sys.version_info[:2] <= (3, 13):
    sys.exit("vorna needs CPython 3.9 to 3.13; %s is %s %s"
             % (sys.executable, platform.python_implementation(), version))
if sys.argv[1] == "tag":
    print("py-%s-%04x" % (version, zlib.crc32(sys.executable.encode()) & 0xFFFF))
else:
    print(sys.executable)
