"""Every test that docs/reliability.md names exists.

usage: promises.py DOCUMENT TESTS_DIRECTORY
"""

import pathlib
import re
import sys


def defined(directory):
    """The names of all tests and of their suites."""
    names = set()
    for path in directory.rglob("*.cpp"):
        for suite, test in re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", path.read_text(), re.M):
            names |= {suite, f"{suite}.{test}"}
    return names


def main():
    document, directory = map(pathlib.Path, sys.argv[1:])
    there = defined(directory)
    named = re.findall(r"`([A-Z]\w*(?:\.[A-Z]\w+)?)`", document.read_text())
    missing = [name for name in named if name not in there]
    for name in missing:
        print(f"{document.name} names {name}, which is no test")
    return 1 if missing or not named else 0


sys.exit(main())
