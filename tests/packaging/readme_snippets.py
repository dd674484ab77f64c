# The C++ and Python snippets of README's "Use ZQCore from your application" are the code the
# tests run: examples/zq-list/main.cpp, and the marked part of test_zqcore.py.
import re
import sys
import textwrap

source = sys.argv[1]
readme = open(source + "/README.md").read()
section = readme.split("## Use ZQCore from your application", 1)[1].split("\n## ", 1)[0]
blocks = {}
for language, body in re.findall(r"```(\w+)\n(.*?)```", section, re.S):
    blocks.setdefault(language, body)
example = open(source + "/examples/zq-list/main.cpp").read()
test = open(source + "/tests/packaging/test_zqcore.py").read()
python = textwrap.dedent(test.split("# --- README: Python\n", 1)[1].split("    # --- end", 1)[0])
# The README's Python block starts by naming the device; the test names its sample device.
shown_python = blocks.get("python", "")
shown_python = shown_python[shown_python.find("library = "):]
failures = [name for name, shown, real in (("C++", blocks.get("cpp"), example), ("Python", shown_python, python))
            if shown != real]
if failures:
    sys.exit("README's %s snippet differs from the code the tests run" % " and ".join(failures))
