"""The scenarios of run.py and power.py: those of the driver, the tool's commands, the daemon.

A scenario knows its command, how its files are made, and how the durable ones are read
back. Its Outcome is what a run left: status, output, messages, files, state.
"""

import os
import re
import shutil
import signal
import stat
import subprocess
import tempfile
from dataclasses import dataclass, field

UNDUMP = "\t00000000  7261 696e 016e 6f72 7468                rain_north\n"
TIMEOUT = 12  # seconds; the library gives each step of a process's end 10


@dataclass
class Outcome:
    status: int  # as subprocess tells it: below 0 a signal; None: did not end
    out: str
    err: str
    files: frozenset
    state: str  # what verify printed
    trace: str


@dataclass
class Scenario:
    name: str
    command: list
    driver: str
    make: str = ""  # the driver's scenario whose files it starts from
    verify: str = ""  # the driver's scenario that reads the files back
    stdin: str = ""
    env: dict = field(default_factory=dict)
    inject: list = field(default_factory=list)  # more options for strace
    template: str = ""


def environment(scenario, more=None):
    env = {"HOME": "/tmp", "PATH": "/usr/bin:/bin", "TZ": "UTC", "PFPATH": ".", "ELOG_SIGNALS": ""}
    env.update(scenario.env)
    env.update(more or {})
    return env


def plain(command, directory, env, stdin=""):
    return subprocess.run(command, cwd=directory, env=env, input=stdin, text=True, errors="replace",
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=60).stdout


def copy(template, directory):
    """Copies a tree with its hard links."""
    seen = {}
    for top, directories, files in os.walk(template):
        there = os.path.join(directory, os.path.relpath(top, template))
        os.makedirs(there, exist_ok=True)
        for name in files + [d for d in directories if os.path.islink(os.path.join(top, d))]:
            source, target = os.path.join(top, name), os.path.join(there, name)
            status = os.lstat(source)
            if status.st_ino in seen:
                os.link(seen[status.st_ino], target)
            elif stat.S_ISLNK(status.st_mode):
                os.symlink(os.readlink(source), target)
            else:
                shutil.copy2(source, target)
                seen[status.st_ino] = target


def listing(directory):
    return frozenset(os.path.relpath(os.path.join(top, name), directory)
                     for top, _, files in os.walk(directory) for name in files)


def prepare(scenario, work):
    """Makes the files that each run of the scenario starts from a copy of."""
    scenario.template = os.path.join(work, "made." + scenario.name)
    os.mkdir(scenario.template)
    if scenario.make:
        plain([scenario.driver, "make", scenario.make], scenario.template, environment(scenario))
    if scenario.name == "loadwatch":
        with open(os.path.join(scenario.template, "loadwatch.pf"), "w") as f:
            f.write("samples ./loadwatch.tbl\nstate ./loadwatch.state\npacked\nloadavg load\n"
                    "meminfo memory\ninterval 0.01\ngrace 1\nquiet_until 1 Jan 2008\nkeep 10k\n"
                    "processors 4\nwatch &Tbl{\n\tload1\n\tused\n}\n"
                    "limits &Arr{\n\tload1 4\n\tload5 4\n\tload15 4\n\tused 64G\n}\n")
        with open(os.path.join(scenario.template, "load"), "w") as f:
            f.write("0.50 0.25 0.125 1/95 123\n")
        with open(os.path.join(scenario.template, "memory"), "w") as f:
            f.write("MemTotal: 3000 kB\nMemFree: 1 kB\nMemAvailable: 1000 kB\n")


def verify(scenario, directory):
    if not scenario.verify:
        return ""
    return plain([scenario.driver, "verify", scenario.verify], directory,
                 environment(scenario, {"ELOG_DELIVER": "/dev/null"}))


def run(scenario, work, before=(), more=None, limit=None, keep=False):
    """Runs the scenario in a directory of its own, behind the words of `before`."""
    home = tempfile.mkdtemp(dir=work)
    directory = os.path.join(home, "d")
    copy(scenario.template, directory)
    trace = os.path.join(home, "trace")
    with open(os.path.join(home, "out"), "w+", errors="replace") as out, \
            open(os.path.join(home, "err"), "w+", errors="replace") as err:
        command = [w.replace("TRACE", trace) for w in before] + scenario.command
        env = environment(scenario, more)
        with open(os.path.join(home, "in"), "w+") as given:
            given.write(scenario.stdin)
            given.seek(0)
            child = subprocess.Popen(command, cwd=directory, env=env, stdin=given, stdout=out,
                                     stderr=err, start_new_session=True, preexec_fn=limit)
        try:
            status = child.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            status = None
        out.seek(0)
        err.seek(0)
        said, told = (f.read().replace(directory, ".") for f in (out, err))
        if scenario.name == "tool_fs":
            said = re.sub(r"[0-9.]+", "N", said)  # other programs fill the disk, too
    outcome = Outcome(status, said, told, listing(directory), verify(scenario, directory),
                      open(trace, errors="replace").read() if os.path.exists(trace) else "")
    if keep:
        return outcome, home
    shutil.rmtree(home, ignore_errors=True)
    return outcome


def calls_of(trace):
    """The calls of the first process after it was loaded: [(name, how manyeth, line)]."""
    calls, count, loaded, first = [], {}, False, None
    for line in trace.splitlines():
        match = re.match(r"(\d+) +(?:\[pid \d+\] )?(\w+)\(", line)
        if not match:
            continue
        first = first or match[1]
        if match[1] != first:
            continue
        name = match[2]
        count[name] = count.get(name, 0) + 1
        if loaded:
            calls.append((name, count[name], line))
        elif name == "munmap":  # the loader is done with its cache
            loaded = True
    return calls


def everything(driver, tool, daemon, library):
    """All scenarios, by name."""
    names = plain([driver, "list"], "/", {}).split()
    scenes = [Scenario(n, [driver, "run", n], driver, n, n) for n in names]
    for scene in scenes:
        if scene.name == "log_file":
            scene.env["ELOG_DELIVER"] = "./rain.log"
        if scene.name == "method":
            scene.env["USER_LIBRARY"] = library

    def command(name, words, make="", verify="", stdin="", **env):
        scenes.append(Scenario("tool_" + name, [tool] + words, driver, make, verify, stdin, env))

    command("version", ["--version"])
    command("pf_get", ["pf", "get", "rain", "warn"], "params_read")
    command("pf_show", ["pf", "show", "rain"], "params_read")
    command("pf_files", ["pf", "files", "rain"], "params_read")
    command("pf_check", ["pf", "check", "rain.pf"], "params_read")
    command("pf_explain", ["pf", "explain", "rain", "warn"], "params_read")
    command("pf_shell", ["pf", "shell", "rain", "x"], "params_read")
    command("pf_set", ["pf", "set", "rain.pf", "limit", "99"], "params_read", "params_write")
    command("pf_del", ["pf", "del", "rain.pf", "names"], "params_read", "params_write")
    command("pf_set_linked", ["pf", "set", "rain.pf", "limit", "99"], "params_write_linked",
            "params_write_linked")
    command("time", ["time", "-z", "Europe/Paris", "-f", "%Y-%m-%d %H:%M:%S %Z", "2008-02-01 12:30"])
    command("convert", ["convert", "hd2mi"], stdin="1\n2\n3\n")
    command("dump", ["dump", "rain.pf"], "params_read")
    command("undump", ["undump"], stdin=UNDUMP)
    command("find", ["find", "rain.pf"], "params_read", DATAPATH="gauges:.")
    command("fs", ["fs", "/"])
    command("log", ["log", "north", "is", "dry"], "", "log_file")
    command("log_file", ["log", "gauge", "0", "is", "wet"], "", "log_file", ELOG_DELIVER="./rain.log")
    command("path_abs", ["path", "abs", "gauges"], "walks")
    command("path_rel", ["path", "rel", "gauges", "rain.pf"], "walks")
    command("path_clean", ["path", "clean", "--links", "link/../gauges"], "walks")
    command("root", ["root"], TALUVINE="/tmp")
    command("signals", ["signals", "HUP"])
    command("state", ["state", "state/rain"], "state")
    command("tbl", ["tbl", "rain.tbl"], "list_read")
    command("complete", ["complete", "stock", "pf", ""])
    scenes.append(Scenario("loadwatch", [daemon], driver,
                           inject=["-e", "inject=clock_nanosleep:signal=SIGTERM:when=3"]))
    return scenes
