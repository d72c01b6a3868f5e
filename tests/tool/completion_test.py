#!/usr/bin/env python3
"""Completion as a user meets it: a shell on a terminal of its own, and the tab key.

usage: completion_test.py bash|zsh TOOL COMPLETION_FILE
"""
import os
import pty
import select
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

shell, tool, completion = sys.argv[1], *map(os.path.realpath, sys.argv[2:])
if not shutil.which(shell):
    print(f"there is no {shell}")
    sys.exit(77)

# Names that a shell would run a command for, or cut, if they stood on a line as they are.
HOSTILE = ["aa$(touch RAN)", "ab`touch RAN`", "ac;touch RAN;", "ad&touch RAN&", "ae|touch RAN",
           "af'$(touch RAN)'", "ag\"$(touch RAN)\"", "ah two words", "ai\\$(touch RAN)",
           "aj*", "ak!touch", "bl>RAN", "am${IFS}x", "an(x)", "ao#x", "ap{b,c}", "aq[z]", "ar:b",
           "as=b", "at\\:b", "~au", "=av", "%aw", "#ax", "-ay"]
failures = []


def start(directory):
    """The shell with the completion loaded, in a directory with files to complete."""
    environment = {
        "PATH": os.path.join(directory, "bin") + ":/usr/bin:/bin",
        "HOME": directory,
        "PFPATH": os.path.join(directory, "pf"),
        "TERM": "dumb",
        "LC_ALL": "C",
        "A_LONG_VARIABLE_OF_THE_TEST": "1",
    }
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(directory)
        options = {"bash": ["--norc", "--noprofile", "-i"], "zsh": ["-f", "-i"]}[shell]
        os.execvpe(shell, [shell, *options], environment)
    return child, terminal


def read_until(terminal, text, seconds=20):
    """What the shell prints, up to the text."""
    printed = b""
    end = time.monotonic() + seconds
    while text not in printed:
        ready, _, _ = select.select([terminal], [], [], max(0, end - time.monotonic()))
        if not ready:
            sys.exit(f"{shell}: no {text!r} in {printed!r}")
        printed += os.read(terminal, 65536)
    return printed.decode(errors="replace")


def completed(terminal, line):
    """The command line that the tab key makes of one: it is quoted and printed."""
    # Ctrl-A and Ctrl-E go to the ends of the line, so that it becomes the words of printf.
    os.write(terminal, line.encode() + b"\t\x01printf '<%s>' \x05; echo '<'end'>'\r")
    printed = read_until(terminal, b"<end>")
    return printed[printed.find("<stock>"):printed.find("<end>")]


def expect(terminal, line, words):
    got = completed(terminal, line)
    wanted = "".join(f"<{word}>" for word in words)
    if got != wanted:
        failures.append(f"{line!r} became {got!r}, not {wanted!r}")


def expect_names_as_they_are(terminal):
    """Each hostile name, of which two letters were typed, in the ways to begin a word."""
    for name in HOSTILE:
        start = name[:3] if name[0] in "~=%#-" else name[:2]
        for quote in ("", "'", '"'):
            if name[0] == "-" or (quote == "" and start != name[:2]):
                continue  # it looks like an option, or the shell takes it for something else
            if shell == "bash" and set(name) & set({"": "", "'": "'", '"': "\\\"$`!"}[quote]):
                continue  # it offers none that would need to be escaped there
            expect(terminal, f"stock pf get {quote}{start}", ["stock", "pf", "get", name])
            expect(terminal, f"stock pf show {quote}{start}", ["stock", "pf", "show", name])
        if name[0] != "=":  # which begins a word of its own in bash
            expect(terminal, f"stock dump data/{start}", ["stock", "dump", f"data/{name}.pf"])


def main():
    with tempfile.TemporaryDirectory() as directory:
        for name in ("bin", "pf", "data", "data/deep"):
            os.mkdir(os.path.join(directory, name))
        os.symlink(tool, os.path.join(directory, "bin", "stock"))
        for name in ("pf/stations.pf", "pf/stages.pf", "pf/unread.txt", "data/alone.dat",
                     "data/two words.tbl"):
            with open(os.path.join(directory, name), "w", encoding="ascii") as file:
                file.write("a 1\nsettings &Arr{\n  deep 2\n}\n")
        for name in HOSTILE:
            for place in ("pf", "data"):
                with open(os.path.join(directory, place, name + ".pf"), "w", encoding="ascii"):
                    pass
        os.symlink("/bin/true", os.path.join(directory, "bin", "zz$(touch RAN)"))
        with open(os.path.join(directory, "pf", "line\n$(touch RAN)x.pf"), "w", encoding="ascii"):
            pass
        child, terminal = start(directory)
        if shell == "bash":
            setup = f"bind 'set bell-style none'; source {shlex.quote(completion)}"
        else:
            functions = os.path.join(directory, "functions")
            os.mkdir(functions)
            shutil.copy(completion, functions)
            setup = ("bindkey -e; unsetopt beep prompt_sp auto_remove_slash; "
                     f"fpath=({shlex.quote(functions)} $fpath); autoload -Uz compinit; compinit -u -D")
        os.write(terminal, f"{setup}; echo 'rea'dy\r".encode())
        read_until(terminal, b"ready\r")

        expect(terminal, "stock sig", ["stock", "signals"])
        expect(terminal, "stock pf exp", ["stock", "pf", "explain"])
        expect(terminal, "stock path cl", ["stock", "path", "clean"])
        expect(terminal, "stock pf get --ty", ["stock", "pf", "get", "--type"])
        expect(terminal, "stock pf get --type bool", ["stock", "pf", "get", "--type", "boolean"])
        expect(terminal, "stock --vers", ["stock", "--version"])
        expect(terminal, "stock pf get stat", ["stock", "pf", "get", "stations"])
        expect(terminal, "stock pf show x stag", ["stock", "pf", "show", "x", "stages"])
        expect(terminal, "stock pf get unr", ["stock", "pf", "get", "unr"])
        expect(terminal, "stock convert hd2m", ["stock", "convert", "hd2m"])
        expect(terminal, "stock convert uhd2mb", ["stock", "convert", "uhd2mb"])
        expect(terminal, "stock convert vl2h", ["stock", "convert", "vl2h"])
        expect(terminal, "stock pf get stations set", ["stock", "pf", "get", "stations", "settings"])
        # Without the quote zsh takes the brace for one of its own.
        expect(terminal, "stock pf get stations 'settings{d",
               ["stock", "pf", "get", "stations", "settings{deep}"])
        if shell == "bash":
            expect(terminal, "stock pf get stations settings{d",
                   ["stock", "pf", "get", "stations", "settings{deep}"])
        expect(terminal, "stock dump data/al", ["stock", "dump", "data/alone.dat"])
        expect(terminal, "stock tbl data/two", ["stock", "tbl", "data/two words.tbl"])
        expect(terminal, "stock path rel dat", ["stock", "path", "rel", "data/"])
        expect(terminal, "stock find --path A_LONG",
               ["stock", "find", "--path", "A_LONG_VARIABLE_OF_THE_TEST"])
        expect(terminal, "stock time -z US/Paci", ["stock", "time", "-z", "US/Pacific"])
        expect(terminal, "stock nosuch ", ["stock", "nosuch"])
        expect_names_as_they_are(terminal)
        expect(terminal, "stock pf get line", ["stock", "pf", "get", "line"])
        expect(terminal, "stock time --until now zz",
               ["stock", "time", "--until", "now", "zz$(touch RAN)"])
        if os.path.exists(os.path.join(directory, "RAN")):
            failures.append("a completion ran a command")
        os.write(terminal, b"exit\r")
        os.close(terminal)
        os.waitpid(child, 0)


main()
for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
