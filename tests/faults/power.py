#!/usr/bin/env python3
"""Cuts the power, and kills, at every call of every durable write.

    power.py [--only NAME,NAME...] DRIVER TOOL DAEMON FAIL_ALLOC USER_LIBRARY   (as run.py takes them)

A run that is killed (strace, SIGKILL) when it enters its k-th call shows the files as they
are between two calls, mapped stores and all. From one such moment to the next the changes
are operations: a name made, moved or removed, a file's length, a block of 4096 bytes.
fsync of a file makes its length and blocks durable, that of a directory its names. After
a power cut at any moment the disk holds all that is durable, and of the rest all but a
choice of up to three operations, or none. Each such state is made and read back:

    bad       a durable file is neither the old nor the new one, or is gone
    late      the call had returned, but the old content is there
    killed    a kill leaves a file that is neither the old nor the new one
    unhealed  the next run after a kill does not end with the new content, or leaves a
              file behind

known.txt has the counts that are known, as "power.bad SCENARIO COUNT reason"; every
other count must be 0. A count may only fall; at 0 its line must go.
"""

import argparse
import collections
import concurrent.futures
import copy
import itertools
import os
import re
import shutil
import sys
import tempfile
import time

import scenes
from run import usable

BLOCK = 4096
MOST = 400  # states of one moment
KILLS = 200  # of a scenario; a command of the tool is killed at each of its calls
DURABLE = ["list_save", "list_save_linked", "list_grow", "list_fill", "params_write",
           "params_write_linked", "state", "state_linked", "tool_pf_set", "tool_pf_del",
           "tool_pf_set_linked"]
MAPPED = {"list_fill"}  # what is stored in a mapping is durable when the system likes


def snapshot(directory):
    """{name: (inode, bytes)}"""
    found = {}
    for name in scenes.listing(directory):
        path = os.path.join(directory, name)
        found[name] = (os.lstat(path).st_ino, open(path, "rb").read())
    return found


def trace_calls(scene, work, rounds=1):
    """All calls after the program was loaded, with the paths of descriptors, and what was left."""
    outcome, home = scenes.run(scene, work, ["strace", "-f", "-y", "-qq", "-o", "TRACE"],
                               {"FAULTS_ROUNDS": str(rounds)}, keep=True)
    calls = scenes.calls_of(outcome.trace)
    directory = os.path.join(home, "d")
    calls = [(n, k, line.replace(directory + "/", "").replace(directory, ".")) for n, k, line in calls]
    done = next((i for i, c in enumerate(calls) if c[0] in ("poll", "exit_group")), len(calls))
    return calls[:done], snapshot(directory), outcome


def killed(scene, work, call, n, rounds=1):
    """What a run leaves that is killed at its n-th call of this name."""
    outcome, home = scenes.run(scene, work, ["strace", "-f", "-qq", "-o", "TRACE", "-e", "trace=" + call,
                                             "-e", f"inject={call}:signal=SIGKILL:when={n}"],
                               {"FAULTS_ROUNDS": str(rounds)}, keep=True)
    found = snapshot(os.path.join(home, "d"))
    again = heal(scene, work, os.path.join(home, "d"))
    shutil.rmtree(home, ignore_errors=True)
    return outcome, found, again


def heal(scene, work, directory):
    """Runs the scenario where the killed one was."""
    scene_again = copy.copy(scene)
    scene_again.template = directory
    return scenes.run(scene_again, work)


def normal(path):
    return os.path.normpath(path)


class Disk:
    """The operations of a run, and which of them are durable."""

    def __init__(self, start):
        self.ids, self.names, self.base = {}, {}, {}
        for name, (inode, content) in sorted(start.items()):
            self.names[name] = self.ids.setdefault(inode, len(self.ids))
            self.base[self.names[name]] = content
        self.start, self.content = dict(self.names), dict(self.base)
        self.count, self.operations, self.mapped = len(self.ids), [], set()

    def add(self, *operation):
        self.operations.append([operation, False])

    def advance(self, line, after):
        """Takes in what a call, and the stores behind it, changed."""
        moved = re.search(r" (rename|renameat2?|link|linkat)\((?:[^\"]*)\"([^\"]*)\"(?:[^\"]*)\"([^\"]*)\"", line)
        if moved and "= 0" in line:
            old, new = normal(moved[2]), normal(moved[3])
            if old in self.names and new in after:
                self.names[new] = self.names[old]
                gone = old if moved[1].startswith("rename") else None
                self.add("name", new, self.names[old], gone)
                if gone:
                    del self.names[gone]
        for name in sorted(set(self.names) - set(after)):
            del self.names[name]
            self.add("gone", name)
        for name in sorted(set(after) - set(self.names)):
            self.names[name], self.content[self.count] = self.count, b""
            self.base[self.count] = b""
            self.count += 1
            self.add("name", name, self.names[name], None)
        for name, (_, content) in sorted(after.items()):
            number = self.names[name]
            before = self.content[number]
            if content == before:
                continue
            if len(content) != len(before):
                self.add("length", number, len(content))
            before = before[:len(content)].ljust(len(content), b"\0")
            for at in range(0, len(content), BLOCK):
                if content[at:at + BLOCK] != before[at:at + BLOCK]:
                    self.add("block", number, at, content[at:at + BLOCK])
            self.content[number] = content
        shared = re.search(r" mmap\(.*MAP_SHARED.*<([^>]*)>", line)
        if shared and normal(shared[1]) in self.names:
            self.mapped.add(self.names[normal(shared[1])])

    def sync(self, line):
        match = re.search(r" (fsync|fdatasync)\(\d+<([^>]*)>\) += 0", line)
        numbers, directory = set(), None
        if match:
            path = normal(match[2].replace(" (deleted)", ""))
            if path in self.names:
                numbers = {self.names[path]}
            else:
                directory = path
        elif re.search(r" msync\(.*MS_SYNC.*= 0", line):
            numbers = self.mapped
        for operation in self.operations:
            kind, first = operation[0][:2]
            if kind in ("length", "block"):
                operation[1] |= first in numbers
            elif directory is not None:
                operation[1] |= (os.path.dirname(first) or ".") == directory

    def states(self):
        """What may be on the disk now: the files' names and contents."""
        pending = [i for i, operation in enumerate(self.operations) if not operation[1]]
        choices = itertools.chain([()], [tuple(pending)], *(itertools.combinations(pending, n) for n in (1, 2, 3)))
        for lost in itertools.islice(choices, MOST):
            yield self.without(set(lost))

    def without(self, lost):
        names, content = dict(self.start), dict(self.base)
        for i, (operation, _) in enumerate(self.operations):
            if i in lost:
                continue
            kind, first, *rest = operation
            if kind == "name":
                names[first] = rest[0]
                names.pop(rest[1], None)
            elif kind == "gone":
                names.pop(first, None)
            elif kind == "length":
                content[first] = content[first][:rest[0]].ljust(rest[0], b"\0")
            else:
                at, block = rest
                whole = content[first]
                content[first] = (whole[:at].ljust(at, b"\0") + block + whole[at + len(block):])[:len(whole)]
        return tuple(sorted((name, number, content[number]) for name, number in names.items()))


def materialize(scene, state, directory):
    scenes.copy(scene.template, directory)
    for name in scenes.listing(directory):
        os.unlink(os.path.join(directory, name))
    made = {}
    for name, number, content in state:
        path = os.path.join(directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if number in made:
            os.link(made[number], path)
        else:
            with open(path, "wb") as f:
                f.write(content)
            made[number] = path


def check(scene, work, state):
    home = tempfile.mkdtemp(dir=work)
    materialize(scene, state, os.path.join(home, "d"))
    said = scenes.verify(scene, os.path.join(home, "d"))
    shutil.rmtree(home, ignore_errors=True)
    return said


def examine(scene, work, pool, counts, shown):
    scenes.prepare(scene, work)
    calls, end, whole = trace_calls(scene, work)
    kills = list(pool.map(lambda c: killed(scene, work, c[0], c[1]), calls))
    moments = [k[1] for k in kills] + [end]  # those of one round
    wanted = scenes.listing(scene.template) | whole.files
    if scene.command[0] == scene.driver:  # again and again, for so many moments
        rounds, wanted_kills = KILLS // 4, max(0, KILLS - len(calls))
        more = trace_calls(scene, work, rounds)[0][len(calls):]
        more = more[::max(1, len(more) // max(1, wanted_kills))][:wanted_kills]
        calls_killed = calls + more
        kills += pool.map(lambda c: killed(scene, work, c[0], c[1], rounds), more)
    else:
        calls_killed = calls
    for (call, n, _), (outcome, _, again) in zip(calls_killed, kills):
        counts["kills", scene.name] += 1
        how = f"strace -e inject={call}:signal=SIGKILL:when={n}"
        if "BAD" in outcome.state or not outcome.state:
            counts["killed", scene.name] += 1
            shown.setdefault(("killed", scene.name), how + ": " + outcome.state.strip())
        renewed = again.state == whole.state or scene.name in MAPPED and "BAD" not in again.state
        if not renewed or again.files - wanted:
            counts["unhealed", scene.name] += 1
            shown.setdefault(("unhealed", scene.name),
                             f"{how}, then again: status {again.status} {again.err.strip()[-160:]!r} "
                             f"{again.state.strip()} {sorted(again.files - wanted)}")
    disk, seen, todo = Disk(moments[0]), set(), []

    def take(where, done):
        for state in disk.states():
            if (state, done) not in seen:
                seen.add((state, done))
                todo.append((state, where, done))

    for (_, _, line), after in zip(calls, moments[1:]):
        disk.advance(line, after)
        take(line, False)
        disk.sync(line)
    take("the end", True)
    for (state, where, done), said in zip(todo, pool.map(lambda t: check(scene, work, t[0]), todo)):
        counts["states", scene.name] += 1
        kind = "bad" if "BAD" in said or (scene.verify and not said) else \
            "late" if done and said != whole.state and scene.name not in MAPPED else None
        if kind:
            counts[kind, scene.name] += 1
            shown.setdefault((kind, scene.name), f"cut behind {where.split(None, 1)[-1][:150]}: {said.strip()}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--only", type=lambda names: names.split(","), default=DURABLE)
    parser.add_argument("--known", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "known.txt"))
    for name in ("driver", "tool", "daemon", "fail_alloc", "library"):
        parser.add_argument(name, type=os.path.abspath)
    options = parser.parse_args()
    if not usable():
        print("faults: skipped: strace is not there or may not trace")
        return 77
    known = {}
    for line in open(options.known):
        if line.startswith("power."):
            kind, name, count = line.split()[:3]
            known[kind[6:], name] = int(count)
    work, start = tempfile.mkdtemp(prefix="stock_power"), time.time()
    counts, shown, wrong = collections.Counter(), {}, 0
    try:
        all_of = {s.name: s for s in scenes.everything(options.driver, options.tool, options.daemon, options.library)}
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for name in options.only:
                examine(all_of[name], work, pool, counts, shown)
                print(f"{name}: " + ", ".join(f"{counts[k, name]} {k}" for k in
                                              ("states", "bad", "late", "kills", "killed", "unhealed")), flush=True)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for name in options.only:
        for kind in ("bad", "late", "killed", "unhealed"):
            count, allowed = counts[kind, name], known.get((kind, name), 0)
            if count > allowed:
                wrong += 1
                print(f"power.{kind} {name} {count}, not {allowed}: {shown[kind, name]}")
            elif count < allowed:
                wrong += count == 0
                print(f"power.{kind} {name} fell from {allowed} to {count}: say so in known.txt")
    total = lambda kind: sum(counts[kind, name] for name in options.only)
    print(f"power: {total('states')} states, {total('bad')} bad, {total('late')} late; {total('kills')} kills, "
          f"{total('killed')} bad, {total('unhealed')} not healed; {time.time() - start:.0f} s")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
