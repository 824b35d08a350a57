"""How long `import vorna` takes, next to a bare pybind11 module of as many classes, properties and methods.

    import_time.py FOLDER_OF_VORNA FOLDER_OF_BARE [ROUNDS]

Each import runs in a process of its own. Rounds alternate, and the least time of each counts: all else is noise.
The libraries that vorna links (ZeroMQ brings 20 more) take longer to load than the module itself, so the bare module is
also shown with the same libraries loaded before it.
"""
import re
import subprocess
import sys

LIBRARIES = re.compile(r"^\s*(lib(?:zmq|usb-1\.0|log4cpp)\S*)\s", re.MULTILINE)
CLOCK = "import time, ctypes, sys\nsys.path.insert(0, {folder!r})\nbegin = time.perf_counter()\n{load}\nend = time.perf_counter()\n" \
        "print('took', (end - begin) * 1000)"


def took(folder, load):
    script = CLOCK.format(folder=folder, load=load)
    out = subprocess.run([sys.executable, "-c", script], stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
    return float(out.split("took ")[1])


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    vorna, bare = sys.argv[1:3]
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 30
    find = "import sys; sys.path.insert(0, %r); import vorna; print(vorna.__file__)" % vorna
    module = subprocess.run([sys.executable, "-c", find], stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout.split()[-1]
    linked = LIBRARIES.findall(subprocess.run(["ldd", module], stdout=subprocess.PIPE, universal_newlines=True).stdout)
    libraries = "\n".join("ctypes.CDLL(%r)" % name for name in linked)
    cases = {
        "bare": lambda: took(bare, "import bare"),
        "bare, same libraries": lambda: took(bare, libraries + "\nimport bare"),
        "vorna": lambda: took(vorna, "import vorna"),
    }
    least = {name: float("inf") for name in cases}
    for _ in range(rounds):
        for name, run in cases.items():
            least[name] = min(least[name], run())
    for name, ms in least.items():
        print("%-22s %6.2f ms   vorna takes %.2f times that" % (name, ms, least["vorna"] / ms))


if __name__ == "__main__":
    main()
