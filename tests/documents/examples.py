"""The examples of the documents are what they say: they compile, link and run.

In the section EXAMPLES of a manual page every literal display is one of these, and so is
every fenced block of a Markdown file, whose marks are comments, <!-- exits 1 -->:

    a line begins with "int main"    a program that compiles without a warning, links,
                                     and ends with status 0; it is called prog
    .\\" exits N stands before it     one that ends with status N, or by signal -N
    .\\" builds stands before it      one that is not run: what it shows takes a person,
                                     a daemon or a day
    .\\" output stands before it      what the program before it prints, on both streams
    .\\" file NAME stands before it   a file in the directory where the page's programs run
    .\\" shell stands before it       commands for sh, with the tool stock in PATH
    .\\" shown stands before it       something that is only looked at

Programs are C11; in fences that say cpp, and with "c++" before the rest of the mark in a
manual page, C++20.

usage: examples.py CC CXX INCLUDE_DIR LIBRARY TOOL ROOT [-FLAG...] PAGE...
"""

import os
import re
import subprocess
import sys
import tempfile

STANDARD = {"c": "-std=c11", "cpp": "-std=c++20"}
COMPILE = ["-D_GNU_SOURCE", "-Wall", "-Wextra", "-Werror", "-pthread"]
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
    """Line number, mark, text and language of every example of a document."""
    if page.endswith(".md"):
        return list(fences(page))
    return [(line, mark.removeprefix("c++").strip(), text, "cpp" if mark.startswith("c++") else "c")
            for line, mark, text in literal_displays(page)]


def fences(page):
    with open(page, encoding="utf-8") as file:
        text = file.read()
    for found in re.finditer(r"^(?:<!-- ([^\n]*) -->\n)?```(\w*)\n(.*?)^```$", text, re.M | re.S):
        line = text.count("\n", 0, found.start(2)) + 1
        yield line, found.group(1) or "", found.group(3), found.group(2) or "c"


def literal_displays(page):
    """The same of a manual page: the literal displays of its section EXAMPLES."""
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

    def __init__(self, page, line, text, language):
        self.name = f"{page}.{line}"
        self.language = language
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
    for line, mark, text, language in displays(page):
        kind, _, rest = mark.partition(" ")
        if kind == "file" and rest:
            with open(os.path.join(directory, rest), "w", encoding="utf-8") as file:
                file.write(text)
        elif kind == "shown":
            pass
        elif kind == "output" and found:
            found[-1].output = text
        elif kind == "shell" or (kind in ("", "exits", "builds") and re.search("^int main", text, re.M)):
            found.append(Example(name, line, text, language))
            found[-1].runs = kind != "builds"
            if kind != "shell":
                found[-1].command = None
            if kind == "exits":
                found[-1].status = int(rest)
        else:
            sys.exit(f"{page}:{line}: neither a program nor marked as something else")
    return found


def main():
    cc, cxx, include, library, tool, root, *rest = sys.argv[1:]
    compilers = {"c": cc, "cpp": cxx}
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
            with open(os.path.join(work, f"{one.name}.{one.language}"), "w", encoding="utf-8") as file:
                page, line = one.name.rsplit(".", 1)
                file.write(f'#line {int(line) + 1} "{page}"\n{one.text}')
        for language, compiler in compilers.items():
            sources = [f"{one.name}.{language}" for one in programs if one.language == language]
            if sources and subprocess.run([compiler, STANDARD[language], *COMPILE, *flags, "-I", include, "-c", *sources],
                                          cwd=work, check=False).returncode:
                return 1
        for one in programs:
            directory = os.path.join(work, "bin." + one.name)
            os.mkdir(directory)
            one.command = [os.path.join(directory, "prog")]
            if subprocess.run([compilers[one.language], *flags, "-o", *one.command, one.name + ".o", library,
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
