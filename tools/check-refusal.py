"""check-refusal.py MODULE VERSION: loads a module that was built for Python VERSION ("3.9") into this interpreter, of another
version, and expects to be refused with both versions in the text. Nothing newer than 3.8 here."""
import importlib.machinery
import importlib.util
import sys

loader = importlib.machinery.ExtensionFileLoader("vorna", sys.argv[1])
expected = ("Python version mismatch: module was compiled for Python %s, but the interpreter version is incompatible: %s."
            % (sys.argv[2], sys.version))
try:
    importlib.util.module_from_spec(importlib.util.spec_from_file_location("vorna", sys.argv[1], loader=loader))
except ImportError as error:
    sys.exit(0 if str(error) == expected else "refused with another text: %s" % error)
sys.exit("loaded into Python " + sys.version)
