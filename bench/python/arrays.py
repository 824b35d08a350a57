"""What it costs to set and read an array member, next to a copy of the same bytes.

    arrays.py FOLDER_OF_VORNA [ROUNDS]

The array is a layer's weights of 64 x 64 x 3 x 3 signed bytes (36,864). The least time of the rounds counts, since all
else is the machine's; the floor includes the call from Python to C, as the others do. Needs numpy.
"""
import ctypes
import sys
import time

import numpy


def least(action, rounds):
    """Microseconds of one call, in the quickest of the rounds."""
    calls, best = 1, float("inf")
    while calls < 1 << 16:
        begin = time.perf_counter()
        for _ in range(calls):
            action()
        if time.perf_counter() - begin > 0.005:
            break
        calls *= 2
    for _ in range(rounds):
        begin = time.perf_counter()
        for _ in range(calls):
            action()
        best = min(best, (time.perf_counter() - begin) / calls)
    return best * 1e6


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.path.insert(0, sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 10
    import vorna
    layer = vorna.tessel.configuration.CNNLayerConfig()
    array = numpy.random.default_rng(1).integers(-128, 128, (64, 64, 3, 3), dtype=numpy.int8)
    fortran, bits, lists = numpy.asfortranarray(array), array > 0, array.tolist()
    copy = numpy.empty_like(array)
    source, target, size = array.ctypes.data, copy.ctypes.data, array.nbytes
    cases = {
        "memmove": lambda: ctypes.memmove(target, source, size),
        "weights from numpy": lambda: setattr(layer, "weights", array),
        "weights from numpy, Fortran order": lambda: setattr(layer, "weights", fortran),
        "kill bits from numpy": lambda: setattr(layer, "weights_kill_bit", bits),
        "weights from nested lists": lambda: setattr(layer, "weights", lists),
        "weights to nested lists": lambda: layer.weights,
        "numpy's own tolist": array.tolist,
    }
    floor = None
    for name, action in cases.items():
        us = least(action, rounds)
        floor = floor or us
        print("%-34s %9.2f us   %8.1f times memmove" % (name, us, us / floor))


if __name__ == "__main__":
    main()
