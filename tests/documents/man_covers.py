"""What the library shows to its users stands in its manual pages.

    - every exported function and variable, and every inline function, is a name of
      exactly one page of section 3, stands in its SYNOPSIS and is told about in its text
    - what a SYNOPSIS declares is what the headers declare
    - every text of words in the library's sources, which is a message or part of one,
      stands in some page, blanks aside
    - every environment variable that the sources name stands in some page
    - every key of a parameter file of data/pf stands in the page of that file
    - every command of the tool stands in the synopsis of stock.1 and is told about there,
      and every long option of a command is
    - every page that a page refers to exists
    - mandoc finds no fault in a page, not even of style

usage: man_covers.py COMPILER SOURCE_DIR MANDOC
"""

import glob
import os
import re
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.append(os.path.join(os.path.dirname(__file__), "../house"))
from exports import declared

# Pages of other people that ours refer to.
OTHERS = set("""
    abort(3) addr2line(1)
    atexit(3) close(2) dlerror(3) dlopen(3) environ(7) errno(3) exit(3) fcntl(2) flock(2) fnmatch(3)
    fopen(3) fork(2) fprintf(3) free(3) gdb(1) getenv(3) glob(3) ld(1) lockf(3) longjmp(3) malloc(3) man(1)
    memcmp(3) mmap(2) nanosleep(2) pkg-config(1) printf(3) pthreads(7) qsort(3) realpath(3)
    regex(3) regex(7) setitimer(2) sh(1) sigaction(2) signal(7) stat(2) statvfs(3) strcmp(3)
    strerror(3) strftime(3) strtod(3) strtol(3) tzset(3) vfprintf(3) write(2)
""".split())

# Their page's synopsis shows the two forms of their names.
CONVERTER = re.compile(r"u?(h[bsilfd]2[mav][bsilfd]|[mav][bsilfd]2h[bsilfd])")

# A text that only the programmer of the library sees, by the word before its call.
INTERNAL = re.compile(r"(throw|static_assert\s*\([^;]*)\s*$")
# The name of an item stands in the out-of-memory message, which is one message.
ALLOCATES = re.compile(r"\b(allocate|allocate_zeroed|reallocate|copy_text|out_of_memory)\s*\(")
TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|\'(?:\\.|[^\'\\\n])+\'|((?:"(?:\\.|[^"\\\n])*"\s*)+)', re.S)
BLANK = {"\\n": " ", "\\t": " ", "\\r": " ", "\\v": " ", "\\f": " ", '\\"': '"', "\\\\": "\\"}


def squeezed(text):
    return " ".join(text.split())


def literals(source):
    """(line, what stands before it, text) of every string literal, neighbours joined."""
    with open(source, encoding="utf-8") as file:
        code = file.read()
    for token in TOKEN.finditer(code):
        if token.group(1):
            parts = re.findall(r'"((?:\\.|[^"\\\n])*)"', token.group(1))
            text = re.sub(r"\\.", lambda m: BLANK.get(m.group(), m.group()), "".join(parts))
            before = code[max(0, token.start() - 300):token.start()]
            yield code.count("\n", 0, token.start()) + 1, before.rpartition(";")[2], text


def is_message(before, text):
    said = re.sub(r"%[-.*0-9]*l?[a-zA-Z]", "%", text)
    two_words = re.search(r"[A-Za-z]{2,}.* .*[A-Za-z]{2,}", said)
    one_word = "%" in said and " " in said and re.search(r"[a-z]{5,}", said)
    return (two_words or one_word) and not INTERNAL.search(before) and not ALLOCATES.search(before)


class Page:
    def __init__(self, path, mandoc):
        self.path = path
        self.file = os.path.basename(path)
        with open(path, encoding="utf-8") as file:
            self.source = file.read()
        shown = subprocess.run([mandoc, "-T", "ascii", "-O", "width=1000", path],
                               capture_output=True, text=True, check=True).stdout
        self.text = squeezed(re.sub(".\b", "", shown))
        self.names = re.findall(r"^\.Nm (\S+)", self.section("NAME"), re.M)
        self.references = {f"{name}({section})" for name, section in
                           re.findall(r"\bXr (\S+) ([1-9])", self.source)}

    def section(self, title):
        found = re.search(rf"^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)", self.source, re.M | re.S)
        return found.group(1) if found else ""


def arguments(line):
    """The arguments of a macro line, quotes undone."""
    return [(quoted or plain).replace("\\&", "")
            for quoted, plain in re.findall(r'"([^"]*)"|(\S+)', line)]


def declarations(page):
    """(line of the page, C text) of what its SYNOPSIS declares."""
    start = page.source.find(".Sh SYNOPSIS\n")
    first = page.source.count("\n", 0, start) + 2
    result, name, parameters = "", None, []
    for number, line in enumerate(page.section("SYNOPSIS").splitlines(), first):
        macro, _, rest = line.partition(" ")
        words_of = arguments(rest)
        if macro == ".Ft":
            result = " ".join(words_of)
        elif macro == ".Fn":
            yield number, f"{result} {words_of[0]}({fixed(words_of[1:])});"
        elif macro == ".Fo":
            name, parameters = words_of[0], []
        elif macro == ".Fa" and name:
            parameters += words_of
        elif macro == ".Fc":
            yield number, f"{result} {name}({fixed(parameters)});"
            name = None
        elif macro == ".Vt" and words_of[0] == "extern":
            yield number, " ".join(words_of)


def fixed(parameters):
    return ", ".join(parameters) or "void"


def conflicts(compiler, include, pages):
    """What the compiler says about declarations of the pages beside the headers."""
    text = "#include <stock.h>\n#include <deviants.h>\n"
    for page in pages:
        for line, declaration in declarations(page):
            if "Xt2hy" not in declaration and "hy2Xt" not in declaration:
                text += f'#line {line} "{page.file}"\n{declaration}\n'
    done = subprocess.run([compiler, "-x", "c", "-std=c11", "-D_GNU_SOURCE", "-Wall", "-Werror",
                           "-fsyntax-only", "-I", include, "-"],
                          input=text, capture_output=True, text=True, check=False)
    return done.stderr.splitlines() if done.returncode else []


def commands_of(top):
    """The commands of the tool, such as "root" and "pf get", from its tables."""
    families = {}
    for source in glob.glob(f"{top}/tools/*.cpp"):
        with open(source, encoding="utf-8") as file:
            code = file.read()
        family = re.search(r'run_family\("stock ?(\w*)"', code)
        if family:
            families[family.group(1)] = re.findall(r'^    \{"(\w+)", "', code, re.M)
    return {f"{family} {name}".strip() for family, names in families.items()
            for name in names if name not in families}


def options_of(top):
    """Every long option that a source of the tool names."""
    found = set()
    for source in glob.glob(f"{top}/tools/*.cpp"):
        with open(source, encoding="utf-8") as file:
            found |= set(re.findall(r'"--(\w+)"', file.read()))
    return found


def untold(top, page):
    """What the page of the tool does not tell about."""
    commands, options = commands_of(top), options_of(top)
    synopsis, description = page.section("SYNOPSIS"), page.section("DESCRIPTION")
    for command in sorted(commands):
        if not re.search(rf"^\.Cm {command}$", synopsis, re.M):
            yield f"{page.file}: the synopsis lacks {command}"
        if not re.search(rf"^\.It Cm {command}( |$)", description, re.M):
            yield f"{page.file}: {command} is not told about"
    for option in sorted(options):
        if not re.search(rf"\bFl\b.* -{option}\b", page.source):
            yield f"{page.file}: --{option} is not told about"
    if not (commands and options):
        yield "the tool has no commands"


def words(text):
    return set(re.findall(r"\w+", text))


def main():
    compiler, top, mandoc = sys.argv[1:]
    pages = [Page(path, mandoc) for path in sorted(glob.glob(f"{top}/man/*.[1-9]"))]
    all_text = "\n".join(page.text for page in pages)
    all_words = words(all_text)
    wrong = []

    # Faults, except that the pages of this library are not installed here.
    faults = subprocess.run([mandoc, "-T", "lint", *(page.path for page in pages)],
                            capture_output=True, text=True, check=False).stdout.splitlines()
    wrong += [fault for fault in faults if "referenced manual not found" not in fault]

    # Functions and variables.
    functions = declared(compiler, f"{top}/include")
    for header in glob.glob(f"{top}/include/stock/*.h") + [f"{top}/include/deviants.h"]:
        with open(header, encoding="utf-8") as file:
            functions |= set(re.findall(r"^STOCK_INLINE [^(]*?(\w+)\(", file.read(), re.M))
    homes = {}
    for page in pages:
        if page.file.endswith(".3"):
            synopsis = words(page.section("SYNOPSIS"))
            told = words(page.section("DESCRIPTION") + page.section("RETURN VALUES"))
            for name in page.names:
                homes.setdefault(name, []).append(page.file)
                if CONVERTER.fullmatch(name):
                    continue
                if name in functions and name not in synopsis:
                    wrong.append(f"{page.file}: {name} is not in the synopsis")
                if name in functions and name not in told:
                    wrong.append(f"{page.file}: {name} is not told about")
                if name not in functions and f"{name}.3" != page.file:
                    wrong.append(f"{page.file}: there is no function {name}")
    for name in sorted(functions - set(homes)):
        wrong.append(f"no page has the name {name}")
    for name in sorted(homes):
        if len(homes[name]) > 1:
            wrong.append(f"{name} is a name of {', '.join(homes[name])}")

    of_c = [page for page in pages if re.fullmatch(r"\w+\.3", page.file)]
    wrong += conflicts(compiler, f"{top}/include", of_c)

    # Messages and variables of the environment.
    messages = variables = 0
    for source in sorted(glob.glob(f"{top}/lib/**/*.cpp", recursive=True)
                         + glob.glob(f"{top}/lib/**/*.h", recursive=True)):
        where = os.path.relpath(source, top)
        found = list(literals(source))
        reads_environment = "getenv" in open(source, encoding="utf-8").read()
        for line, before, text in found:
            if is_message(before, text):
                messages += 1
                if squeezed(text) not in all_text:
                    wrong.append(f"{where}:{line}: no page has: {squeezed(text)}")
            if reads_environment and re.fullmatch(r"[A-Z][A-Z_]+", text):
                variables += 1
                if text not in all_words:
                    wrong.append(f"{where}:{line}: no page has the variable {text}")

    # Settings.
    settings = 0
    for path in sorted(glob.glob(f"{top}/data/pf/*.pf")):
        name = os.path.basename(path)
        page = [page for page in pages if page.file == f"{name}.5"]
        if not page:
            wrong.append(f"{name} has no page")
            continue
        with open(path, encoding="utf-8") as file:
            keys = re.findall(r"^(?:    |#)?([A-Za-z_]\w*)(?:[ \t]{2,}|$)", file.read(), re.M)
        for key in keys:
            settings += 1
            if key not in words(page[0].text):
                wrong.append(f"{page[0].file}: does not tell about {key}")

    # The tool.
    wrong += untold(top, next(page for page in pages if page.file == "stock.1"))

    # References.
    known = OTHERS | {page.file[:-2] + f"({page.file[-1]})" for page in pages}
    known |= {name + "(3)" for name in homes}
    for page in pages:
        for reference in sorted(page.references - known):
            wrong.append(f"{page.file}: there is no page {reference}")

    print("\n".join(wrong))
    print(f"{len(functions)} functions and variables, {messages} messages, {variables} variables "
          f"of the environment, {settings} settings: {len(wrong)} complaints")
    return 1 if wrong or not (functions and messages and variables and settings) else 0


if __name__ == "__main__":
    sys.exit(main())
