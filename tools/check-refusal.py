"""check-refusal.py FOLDER VERSION: imports vorna, as a user does, from the folder of a module that was built for Python VERSION
("3.9"), in this interpreter, of another version, and expects to be refused with both versions in the text. Nothing newer than
3.8 here."""
import sys

sys.path.insert(0, sys.argv[1])
expected = ("Python version mismatch: module was compiled for Python %s, but the interpreter version is incompatible: %s."
            % (sys.argv[2], sys.version))
try:
    import vorna
except ImportError as error:
    sys.exit(0 if str(error) == expected else "refused with another text: %s" % error)
sys.exit("imported %s into Python %s" % (vorna, sys.version))
