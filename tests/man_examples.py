"""The examples of the manual pages are what they say: they compile, link and run.

In the section EXAMPLES every literal display is one of these:

    a line begins with "int main"    a C program that compiles without a warning, links,
                                     and ends with status 0; it is called prog
    .\\" exits N stands before it     one that ends with status N, or by signal -N
    .\\" builds stands before it      one that is not run: what it shows takes a person,
                                     a daemon or a day
    .\\" output stands before it      what the program before it prints, on both streams
    .\\" file NAME stands before it   a file in the directory where the page's programs run
    .\\" shell stands before it       commands for sh, with the tool stock in PATH

usage: man_examples.py COMPILER INCLUDE_DIR LIBRARY TOOL ROOT [-FLAG...] PAGE...
"""

import os
import re
import subprocess
import sys
import tempfile

COMPILE = ["-std=c11", "-D_GNU_SOURCE", "-Wall", "-Wextra", "-Werror", "-pthread"]
LINK = ["-pthread", "-rdynamic", "-lm"]
ESCAPES = {"\\e": "\\", "\\-": "-", "\\&": "", "\\(aq": "'", "\\(dq": '"'}


def plain(line, where):
    """A line of a literal display as its reader sees it."""
    def seen(match):
        if match.group() not in ESCAPES:
            sys.exit(f"{where}: unknown escape {match.group()}")
        return ESCAPES[match.group()]
    return re.sub(r"\\(\(..|.)", seen, line)


def displays(page):
    """Line number, mark and text of every literal display of the section EXAMPLES."""
    found, inside, mark, start, body = [], False, "", 0, None
    with open(page, encoding="utf-8") as file:
        lines = file.read().splitlines()
    for number, line in enumerate(lines, 1):
        if body is None:
            if line.startswith(".Sh "):
                inside = line == ".Sh EXAMPLES"
            elif inside and line.startswith('.\\" '):
                mark = line[4:].strip()
            elif inside and line.startswith(".Bd -literal"):
                start, body = number, ""
        elif line == ".Ed":
            found.append((start, mark, body))
            mark, body = "", None
        else:
            body += plain(line, f"{page}:{number}") + "\n"
    return found


class Example:
    """A program, or commands for the shell."""

    def __init__(self, page, line, text):
        self.name = f"{page}.{line}"
        self.text = text
        self.command = ["sh", "-euc", text]
        self.runs = True
        self.status = 0
        self.output = None

    def trouble(self, directory, environment):
        """What is wrong with it when it runs, or an empty text."""
        try:
            done = subprocess.run(self.command, cwd=directory, env=environment, timeout=60,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, check=False)
        except subprocess.TimeoutExpired:
            return "does not end"
        printed = done.stdout.decode("utf-8", "replace")
        if done.returncode != self.status:
            return f"ends with {done.returncode}, not {self.status}, and prints\n{printed}"
        if self.output is not None and printed != self.output:
            return f"prints\n{printed}instead of\n{self.output}"
        return ""


def examples(page, directory):
    """The examples of a page; its files are written into the directory."""
    name, found = os.path.basename(page), []
    for line, mark, text in displays(page):
        kind, _, rest = mark.partition(" ")
        if kind == "file" and rest:
            with open(os.path.join(directory, rest), "w", encoding="utf-8") as file:
                file.write(text)
        elif kind == "output" and found:
            found[-1].output = text
        elif kind == "shell" or (kind in ("", "exits", "builds") and re.search("^int main", text, re.M)):
            found.append(Example(name, line, text))
            found[-1].runs = kind != "builds"
            if kind != "shell":
                found[-1].command = None
            if kind == "exits":
                found[-1].status = int(rest)
        else:
            sys.exit(f"{page}:{line}: neither a program nor marked as something else")
    return found


def main():
    compiler, include, library, tool, root, *rest = sys.argv[1:]
    flags = [word for word in rest if word.startswith("-")]
    include, library = os.path.abspath(include), os.path.abspath(library)
    environment = {"PATH": os.path.dirname(os.path.abspath(tool)) + ":" + os.environ["PATH"],
                   "TALUVINE": root, "TZ": "UTC", "LC_ALL": "C"}
    failed = count = 0
    with tempfile.TemporaryDirectory() as work:
        pages = []
        for page in (word for word in rest if not word.startswith("-")):
            directory = os.path.join(work, "run." + os.path.basename(page))
            os.mkdir(directory)
            pages.append((directory, examples(page, directory)))
        programs = [one for _, found in pages for one in found if not one.command]
        for one in programs:
            with open(os.path.join(work, one.name + ".c"), "w", encoding="utf-8") as file:
                page, line = one.name.rsplit(".", 1)
                file.write(f'#line {int(line) + 1} "{page}"\n{one.text}')
        if subprocess.run([compiler, *COMPILE, *flags, "-I", include, "-c",
                           *(one.name + ".c" for one in programs)], cwd=work, check=False).returncode:
            return 1
        for one in programs:
            directory = os.path.join(work, "bin." + one.name)
            os.mkdir(directory)
            one.command = [os.path.join(directory, "prog")]
            if subprocess.run([compiler, *flags, "-o", *one.command, one.name + ".o", library,
                               "-Wl,-rpath," + os.path.dirname(library), *LINK],
                              cwd=work, check=False).returncode:
                return 1
        for directory, found in pages:
            for one in found:
                count += 1
                trouble = one.trouble(directory, environment) if one.runs else ""
                if trouble:
                    failed += 1
                    print(f"{one.name}: {trouble}")
    print(f"{count} examples, {failed} fail")
    return 1 if failed or not count else 0


sys.exit(main())
