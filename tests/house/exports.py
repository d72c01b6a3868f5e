"""The library exports what its headers declare: no symbol more, none less.

usage: exports.py COMPILER INCLUDE_DIR LIBRARY
"""

import re
import subprocess
import sys


def declared(compiler, include):
    """Names that a declaration marked STOCK_API gives."""
    text = '#include "stock.h"\n#include "deviants.h"\n'
    source = subprocess.run(
        [compiler, "-E", "-P", "-x", "c++", "-DSTOCK_API=@api", "-I", include, "-"],
        input=text, capture_output=True, text=True, check=True).stdout
    names = set()
    for declaration in re.findall(r"@api([^;{]*)[;{]", source):
        declaration = re.sub(r"__attribute__\s*\(\(.*?\)\)(?=\s|$)", "", declaration, flags=re.S)
        # The name stands before the first parenthesis or bracket that opens an
        # argument list or an array, or behind "(*" of a function pointer.
        name = (re.match(r"[^()]*\(\s*\*\s*(\w+)", declaration)
                or re.match(r"[^(]*?(\w+)\s*\(", declaration)
                or re.match(r"[^\[]*?(\w+)\s*(\[|$)", declaration.strip()))
        if not name:
            sys.exit(f"no name in declaration: {declaration}")
        names.add(name.group(1))
    return names


def exported(library):
    lines = subprocess.run(["nm", "-D", "--defined-only", library],
                           capture_output=True, text=True, check=True).stdout.splitlines()
    rows = [line.split() for line in lines]
    return {row[-1].split("@")[0] for row in rows if row[-2] in "TDBRVWi"} - {"_init", "_fini"}


def main():
    compiler, include, library = sys.argv[1:]
    want, have = declared(compiler, include), exported(library)
    # The sanitizers and the standard library's templates leave weak symbols behind.
    have = {name for name in have if not re.match(r"_Z|__(asan|odr_asan|ubsan|tsan|gcov|llvm)", name)}
    for name in sorted(want - have):
        print(f"declared but not exported: {name}")
    for name in sorted(have - want):
        print(f"exported but not declared: {name}")
    print(f"{len(want & have)} symbols agree")
    return 1 if want != have or not want else 0


if __name__ == "__main__":
    sys.exit(main())
