"""check-refusal.py FOLDER VERSION: imports vorna, as a user does, from FOLDER, which holds a module for Python VERSION
("3.9"). This interpreter is of another version, so the import must be refused, with both versions in the text. The code
runs on Python 3.8 too."""
import sys

sys.path.insert(0, sys.argv[1])
expected = ("Python version mismatch: module was compiled for Python %s, but the interpreter version is incompatible: %s."
            % (sys.argv[2], sys.version))
try:
    import vorna
except ImportError as error:
    sys.exit(0 if str(error) == expected else "refused with another text: %s" % error)
sys.exit("imported %s into Python %s" % (vorna, sys.version))
