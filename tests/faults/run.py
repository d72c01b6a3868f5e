#!/usr/bin/env python3
"""Makes every call of every scenario fail, and judges what comes of it.

    run.py [--sample N] [--seed S] [--only NAME,NAME...] DRIVER TOOL DAEMON FAIL_ALLOC USER_LIBRARY

The n-th allocation, and the n-th of each system call, fails alone and from then on, with
each error of the table below that the call can give; files may not grow beyond n bytes;
no more than n descriptors are to be had; descriptors 0 to 2 are closed. Calls are counted
by a run that does not fail. strace(1) injects; --sample takes N injections by chance.

Verdicts:

    crash     ended by a signal
    hang      did not end
    torn      a durable file is neither the old nor the new one
    silent    status 0 and no message, but not the result of a run without failures
    mute      another status than 0, and no message
    misnamed  the messages give the reason of another error, and not that of this one
    leak      more descriptors are open at the end than without failures
    leftover  a file is left that a run without failures does not leave

What is known to fall short stands in known.txt, a line each: VERDICT SCENARIO CALL:ERROR and
the reason, with * in any of the three. What is not there, and a line that no longer
occurs (in a run of everything), is an error. Status 77: strace cannot be used here.
"""

import argparse
import collections
import concurrent.futures
import errno
import fnmatch
import os
import random
import re
import resource
import shutil
import struct
import subprocess
import sys
import tempfile
import time

import scenes

ERRORS = {
    "open openat": "EACCES EIO EMFILE ENFILE ENOSPC EINTR ENOENT EWOULDBLOCK ENOMEM EROFS ELOOP ETXTBSY",
    "read pread64 readv": "EIO EINTR EISDIR ESTALE ENOMEM",
    "write pwrite64 writev": "ENOSPC EIO EDQUOT EINTR EFBIG",
    "fsync fdatasync msync": "EIO ENOSPC",
    "rename renameat renameat2": "EACCES EIO ENOSPC",
    "link linkat symlink": "EPERM EIO ENOSPC",
    "unlink unlinkat": "EACCES EIO",
    "mkdir mkdirat": "EACCES ENOSPC",
    "close": "EIO EINTR ENOSPC EDQUOT",
    "ftruncate truncate fallocate": "EIO ENOSPC EINTR",
    "fstat stat lstat newfstatat statx statfs fstatfs": "EIO ENOMEM EACCES ELOOP ENOENT ESTALE",
    "access faccessat faccessat2 readlink readlinkat": "EACCES EIO ELOOP ENOENT",
    "getcwd chdir fchdir": "ENOENT EACCES",
    "getdents64": "EIO ENOENT",
    "mmap mremap": "ENOMEM EAGAIN",  # brk does not fail with an error, as strace would have it
    "munmap mprotect": "ENOMEM",
    "lseek": "EIO ESPIPE",
    "fcntl": "ENOLCK EINTR EAGAIN EACCES",
    "flock": "ENOLCK EINTR EWOULDBLOCK",
    "pipe2 dup dup2 dup3": "EMFILE ENFILE",
    "clone clone3 fork vfork": "EAGAIN ENOMEM",
    "wait4 waitid": "ECHILD EINTR",
    "fchmod fchown chmod chown utimensat fsetxattr flistxattr fgetxattr": "EPERM EIO",
    "uname getrandom sysinfo ioctl prlimit64": "EINVAL",
    "sendfile copy_file_range": "EIO ENOSPC",
}
ERRORS_OF = {call: errors.split() for calls, errors in ERRORS.items() for call in calls.split()}
PASSING = {"EINTR", "EWOULDBLOCK"}  # nothing fails so for ever
TEXTS = {os.strerror(number) for number in errno.errorcode}

Injection = collections.namedtuple("Injection", "scene kind error n onward")


def strace(*options):
    """strace that stops at the calls of the options only, in children too."""
    quick = [] if any("signal=" in option for option in options) else ["--seccomp-bpf"]
    return ["strace", "-f", *quick, "-qq", "-o", "TRACE", *options]


def usable():
    try:
        return subprocess.run(["strace", "-f", "-qq", "-o", "/dev/null", "true"], timeout=20,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
    except (OSError, subprocess.TimeoutExpired):
        return False


class Judge:
    def __init__(self, options, work):
        self.options, self.work = options, work

    def baseline(self, scene):
        """A run without failures; its calls, and how much memory it asks for."""
        scenes.prepare(scene, self.work)
        scene.old = scenes.listing(scene.template)
        whole = scenes.run(scene, self.work, ["strace", "-f", "-qq", "-o", "TRACE", *scene.inject])
        scene.calls, scene.whole = scenes.calls_of(whole.trace), whole
        counter = tempfile.NamedTemporaryFile(dir=self.work)
        counter.write(bytes(8))
        counter.flush()
        self.allocate(scene, {"FAIL_ALLOC_COUNT": counter.name})
        scene.allocations = struct.unpack("l", open(counter.name, "rb").read(8))[0]
        scene.largest = max((os.path.getsize(os.path.join(top, f)) for top, _, files in
                             os.walk(scene.template) for f in files), default=0)
        if whole.status != 0:
            print(f"{scene.name}: status {whole.status} without a failure: {whole.err}")
        return scene

    def injections(self, scene):
        for onward in (False, True):
            for n in range(1, scene.allocations + 1):
                yield Injection(scene, "malloc", "ENOMEM", n, onward)
            for call, n, line in scene.calls:
                for error in ERRORS_OF.get(call, ()):
                    if not (onward and error in PASSING):
                        yield Injection(scene, call, error, n, onward)
        largest = 0 if scene.inject else scene.largest
        for size in range(0, 2 * largest + 1200, 17):
            yield Injection(scene, "size", "EFBIG", size, True)
        for n in range(3, 9) if not scene.inject else ():
            yield Injection(scene, "descriptors", "EMFILE", n, True)
        for n in range(1, 8) if not scene.inject else ():
            yield Injection(scene, "closed", "EBADF", n, True)

    def allocate(self, scene, variables):
        variables = dict(variables, LD_PRELOAD=self.options.fail_alloc)
        if not scene.inject:
            return scenes.run(scene, self.work, (), variables)
        given = [w for pair in variables.items() for w in ("-E", "=".join(pair))]
        return scenes.run(scene, self.work, strace("-e", "trace=clock_nanosleep", *scene.inject, *given))

    def inject(self, i):
        """Runs one injection. Returns its outcome, None when it was never reached."""
        scene, plus = i.scene, "+" if i.onward else ""
        if i.kind == "malloc":
            return self.allocate(scene, {"FAIL_ALLOC_AT": str(i.n),
                                         **({"FAIL_ALLOC_ON": "1"} if i.onward else {})})
        before, limit = (strace("-e", "trace=clock_nanosleep", *scene.inject) if scene.inject else ()), None
        if i.kind == "size":
            before = ["prlimit", f"--fsize={i.n}"]
        elif i.kind == "descriptors":
            limit = lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (i.n, i.n))
        elif i.kind == "closed":
            gone = " ".join(f"{fd}>&-" for fd in range(3) if i.n >> fd & 1)
            before = ["sh", "-c", f'exec "$@" {gone}', "sh"]
        else:
            what = f"inject={i.kind}:error={i.error}:when={i.n}{plus}"
            others = scene.inject if i.kind != "clock_nanosleep" else []
            traced = i.kind + (",clock_nanosleep" if others else "")
            before = strace("-e", "trace=" + traced, *others, "-e", what)
        outcome = scenes.run(scene, self.work, before, None, limit)
        if i.kind in ERRORS_OF and "INJECTED" not in outcome.trace:
            return None
        return outcome

    def judge(self, i, got):
        """The verdicts on an outcome."""
        whole, text = i.scene.whole, os.strerror(getattr(errno, i.error))
        output_gone = i.kind in ("write", "writev", "size") or (i.kind == "closed" and i.n >> 1 & 3)
        if got.status is None:
            yield "hang"
            return
        if got.status < 0 or got.status in (134, 139):
            yield "crash"
        if "BAD" in got.state:
            yield "torn"
        if got.status in (5, 9) and i.scene.command[0] == i.scene.driver:
            return  # a call of the driver itself failed
        told = got.err != whole.err and got.err or whole.err
        results = lambda o: re.sub(r"descriptors \d+\n", "", o.out)
        same = results(got) == results(whole) and got.state == whole.state
        if got.status == 0 and not got.err and not same and i.kind != "closed":
            yield "silent"
        elif "gauge" in whole.state + whole.err or "rain.log" in whole.state:
            lost = sum(n == "-" for n in got.state.split()) > sum(n == "-" for n in whole.state.split())
            if got.status == 0 and lost and not all(
                    f"gauge {n // 2} is {'wet' if n % 2 else 'dry'}" in got.err or mark == "+" or old == "-"
                    for n, (mark, old) in enumerate(zip(got.state.split()[1:], whole.state.split()[1:]))):
                yield "silent"
        if got.status > 0 and not told and not output_gone:
            yield "mute"
        others = {t for t in TEXTS if t in got.err and t not in whole.err and t not in text and text not in t}
        if others and text not in got.err and i.kind not in ("descriptors", "closed", "size"):
            yield "misnamed"
        number = lambda o: int(o.out.rpartition("descriptors ")[2] or 0) if "descriptors " in o.out else 0
        if i.kind not in ("close", "closed") and number(got) > number(whole):
            yield "leak"
        if got.files - whole.files - i.scene.old and i.kind not in ("unlink", "unlinkat"):
            yield "leftover"

    def one(self, i):
        outcome = self.inject(i)
        return i, outcome, list(self.judge(i, outcome)) if outcome else None


def how(i):
    """The command that shows an injection, but for its directory."""
    plus = "+" if i.onward else ""
    if i.kind == "malloc":
        return f"FAIL_ALLOC_AT={i.n}{' FAIL_ALLOC_ON=1' if i.onward else ''}"
    if i.kind == "size":
        return f"prlimit --fsize={i.n}"
    if i.kind == "descriptors":
        return f"prlimit --nofile={i.n}"
    if i.kind == "closed":
        return "closed " + " ".join(f"{fd}" for fd in range(3) if i.n >> fd & 1)
    return f"strace -f -e inject={i.kind}:error={i.error}:when={i.n}{plus}"


def read_known(path):
    lines = [line.split(None, 3) for line in open(path) 
             if line.strip() and line[0] != "#" and not line.startswith("power.")]
    return {tuple(words[:3]): (words[3].strip() if len(words) > 3 else "") for words in lines}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=15)
    parser.add_argument("--only", type=lambda names: names.split(","), default=[])
    parser.add_argument("--seconds", type=float, help="stop after so many")
    parser.add_argument("--report", help="write each verdict, with how to show it, to this file")
    parser.add_argument("--known", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "known.txt"))
    for name in ("driver", "tool", "daemon", "fail_alloc", "library"):
        parser.add_argument(name, type=os.path.abspath)
    options = parser.parse_args()
    if not usable():
        print("faults: skipped: strace is not there or may not trace")
        return 77
    known = read_known(options.known)
    work = tempfile.mkdtemp(prefix="stock_faults")
    report = open(options.report, "w", buffering=1) if options.report else None
    start, counts, found, examples = time.time(), collections.Counter(), collections.Counter(), {}
    try:
        judge = Judge(options, work)
        all_of = scenes.everything(options.driver, options.tool, options.daemon, options.library)
        chosen = [s for s in all_of if not options.only or s.name in options.only]
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            todo = [i for s in pool.map(judge.baseline, chosen) for i in judge.injections(s)]
            # The slow ones, which wait for a lock, are not all in one place.
            random.Random(options.seed).shuffle(todo)
            if report:
                report.write(f"# {len(todo)} injections in {len(chosen)} scenarios\n")
            if options.sample:
                todo = todo[:options.sample]
            late = lambda: options.seconds and time.time() - start > options.seconds
            for i, outcome, verdicts in pool.map(lambda i: (i, None, None) if late() else judge.one(i), todo):
                if outcome is None:
                    continue
                counts["malloc" if i.kind == "malloc" else "other" if i.kind not in ERRORS_OF else "calls"] += 1
                for verdict in verdicts:
                    key = (verdict, i.scene.name, f"{i.kind}:{i.error}")
                    found[key] += 1
                    examples.setdefault(key, (i, outcome))
                    if report:
                        report.write(f"{' '.join(key)} {how(i)} | status {outcome.status} | "
                                     f"{outcome.err.strip()[:300]!r} | {outcome.out.strip()[-80:]!r} | {outcome.state.strip()!r} "
                                     f"{sorted(outcome.files - i.scene.whole.files - i.scene.old)}\n")
    finally:
        shutil.rmtree(work, ignore_errors=True)

    total, hit, bad = sum(counts.values()), set(), 0
    for key in sorted(found):
        line = next((k for k in known if all(fnmatch.fnmatchcase(a, b) for a, b in zip(key, k))), None)
        if line:
            hit.add(line)
        i, outcome = examples[key]
        if not line:
            bad += 1
            print(" ".join(key), f"({found[key]} times): {how(i)}: status {outcome.status}, "
                  f"{outcome.err.strip()[-160:]!r} {outcome.state.strip()!r}")
    if not (options.sample or options.only or options.seconds):
        for line in sorted(set(known) - hit):
            bad += 1
            print("no longer occurs, take it out of known.txt:", " ".join(line))
    print(f"faults: {total} injections ({counts['malloc']} allocations, {counts['calls']} system calls, "
          f"{counts['other']} limits) in {len(chosen)} scenarios, {time.time() - start:.0f} s; "
          f"{sum(found.values())} fall short in {len(found)} ways, {bad} of them are not known")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
