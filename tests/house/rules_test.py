"""Each rule of scripts/house is one that can be broken: small houses that break one each.

usage: rules_test.py HOUSE COMPILER
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

HOUSE, COMPILER = sys.argv[1:3]

DOCUMENT = """
## The floors

| Floor | Room | What it is for |
|---|---|---|
| 2 | `north` | limits |
| 2 | `east` | averages |
| 1 | `log` | messages |
| 0 | `base` | memory |

### Ports

| Declared in | Answered by | What is asked |
|---|---|---|
| `log/asks.h` | `north/log_asks.cpp` | the limit |

### Exceptions

| File | May use | Why |
|---|---|---|
| `log/gauge.cpp` | `east` | it reports averages |

### Circles

| Room | Files | Why |
|---|---|---|
| `east` | `rain`, `snow` | snow melts |

## What happens where

| Question | File | Function |
|---|---|---|
| Where is rain measured? | `east/rain.cpp` | `rain` |

## The files

{files}

## State of the process

| File | What it holds |
|---|---|
| `north/log_asks.cpp` | the limit |
"""

PICTURE = """<svg xmlns="http://www.w3.org/2000/svg">
<title>north-&gt;log</title><title>log-&gt;base</title><title>log-&gt;north</title>
</svg>
"""

# A house that keeps every rule.
SOUND = {
    "stock/base/memory.h": "",
    "stock/base/memory.cpp": '#include "base/memory.h"\nint memory() { return 1; }\n',
    "stock/log/asks.h": "int ask_limit();\n",
    "stock/log/log.h": "// Shared: messages\nint report();\n",
    "stock/log/report.cpp": '#include "base/memory.h"\n#include "log/asks.h"\n#include "log/log.h"\n'
                            "int report() { return ask_limit(); }\n",
    "stock/log/gauge.cpp": "int rain(); int gauge() { return rain(); }\n",
    "stock/north/log_asks.cpp": '#include "log/asks.h"\n#include "log/log.h"\n'
                                "int limit_in_mm = 1;\nint ask_limit() { return limit_in_mm; }\n",
    "stock/east/rain.cpp": "int snow(); int rain() { return snow(); }\n",
    "stock/east/snow.cpp": "int rain(); int snow() { return rain(); }\n",
}


class Rules(unittest.TestCase):
    def complaints(self, document=DOCUMENT, **changed):
        """What is said of the sound house with these files changed: room__file_cpp=text."""
        files = dict(SOUND)
        for name, text in changed.items():
            room, file = name.split("__")
            files[f"stock/{room}/" + ".".join(file.rsplit("_", 1))] = text
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory)
            lines = "\n".join(f"| `{name.removeprefix('stock/')}` | a file |" for name in files)
            for name, text in {
                    "docs/architecture.md": document.replace("{files}", lines), "docs/architecture.svg": PICTURE,
                    "include/stock/elog.h": "int elog_log(void);\n", "include/deviants.h": "",
                    **{f"lib/utility/{name}": text for name, text in files.items()}}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            for name in files:
                if name.endswith(".cpp"):
                    out = root / f"objects/lib/utility/{name}.o"
                    out.parent.mkdir(parents=True, exist_ok=True)
                    subprocess.run([COMPILER, "-std=c++20", "-I", root / "include", "-I", root / "lib/utility/stock",
                                    "-c", root / f"lib/utility/{name}", "-o", out], check=True)
            run = subprocess.run([sys.executable, HOUSE, "--root", root, "--check", root / "objects"],
                                 capture_output=True, text=True)
            self.assertEqual(run.stderr, "")
            self.assertEqual(run.returncode, 1 if run.stdout else 0)
            return run.stdout.replace("house: ", "").splitlines()

    def test_a_house_that_keeps_every_rule_passes(self):
        self.assertEqual(self.complaints(), [])

    def test_an_include_of_a_higher_room_is_told(self):
        self.assertIn("log/up.cpp includes north/far.h: north is not below log",
                      self.complaints(log__up_cpp='#include "north/far.h"\n', north__far_h="// Shared: far\n",
                                      north__far_cpp='#include "north/far.h"\n'))

    def test_an_include_of_a_room_on_the_same_floor_is_told(self):
        self.assertIn("east/side.cpp includes north/far.h: north is not below east",
                      self.complaints(east__side_cpp='#include "north/far.h"\n', north__far_h="// Shared: far\n",
                                      north__far_cpp='#include "north/far.h"\n'))

    def test_a_room_without_a_floor_is_told(self):
        self.assertIn("west/hail.cpp: the table of floors has no room west", self.complaints(west__hail_cpp=""))

    def test_a_symbol_of_a_higher_room_is_told(self):
        self.assertIn("log/up.cpp uses rain of east/rain.cpp: east is not below log",
                      self.complaints(log__up_cpp="int rain(); int up() { return rain(); }\n"))

    def test_a_symbol_that_no_port_declares_is_told(self):
        self.assertIn("log/up.cpp uses limit_in_mm of north/log_asks.cpp: north is not below log",
                      self.complaints(log__up_cpp="extern int limit_in_mm; int up() { return limit_in_mm; }\n"))

    def test_a_report_may_come_from_anywhere(self):
        self.assertEqual(self.complaints(
            log__elog_cpp='extern "C" int elog_log() { return 1; }\n',
            base__guard_cpp='extern "C" int elog_log(); int guard() { return elog_log(); }\n'), [])

    def test_a_circle_that_the_table_does_not_name_is_told(self):
        self.assertIn("north: these need each other: fog mist",
                      self.complaints(north__fog_cpp="int mist(); int fog() { return mist(); }\n",
                                      north__mist_cpp="int fog(); int mist() { return fog(); }\n"))

    def test_a_circle_that_takes_in_another_file_is_told(self):
        self.assertIn("east: these need each other: hail rain snow",
                      self.complaints(east__hail_cpp="int rain(); int hail() { return rain(); }\n",
                                      east__snow_cpp="int hail(); int snow() { return hail(); }\n"))

    def test_a_shared_header_that_does_not_say_so_is_told(self):
        self.assertIn("log/log.h: another room includes it; its first line begins with '// Shared: '",
                      self.complaints(log__log_h="int report();\n"))

    def test_a_fourth_shared_header_is_told(self):
        more = {f"log__more{i}_h": "// Shared: more\n" for i in range(3)}
        text = "".join(f'#include "log/more{i}.h"\n' for i in range(3))
        self.assertIn("log: 4 of its headers are shared, at most 3 may be",
                      self.complaints(north__far_cpp=text, log__near_cpp=text, **more))

    def test_a_header_of_one_file_is_told(self):
        self.assertIn("east/own.h: one file includes it; make it a part of that file",
                      self.complaints(east__own_h="", east__hail_cpp='#include "east/own.h"\n'))

    def test_variables_outside_the_table_are_told(self):
        told = self.complaints(east__hail_cpp="int hail_in_mm = 1;\n")
        self.assertIn("east/hail.cpp: the table of state does not name it: hail_in_mm", told)

    def test_a_variable_inside_a_function_is_one(self):
        told = self.complaints(east__hail_cpp="int hail() { static int calls; return ++calls; }\n")
        self.assertIn("east/hail.cpp: the table of state does not name it: calls", told)

    def test_constants_are_no_state(self):
        self.assertEqual(self.complaints(
            east__hail_cpp='extern const char *const names[]; const char *const names[] = {"north"};\n'), [])

    def test_a_second_file_with_variables_is_told(self):
        document = DOCUMENT + "| `north/far.cpp` | more |\n"
        self.assertEqual(self.complaints(document, north__far_cpp="int far_mm = 1;\n"),
                         ["north: 2 files have variables: north/far.cpp north/log_asks.cpp"])

    def test_a_row_of_state_without_variables_is_told(self):
        self.assertIn("east/rain.cpp: the table of state names it, and it has no variables",
                      self.complaints(DOCUMENT + "| `east/rain.cpp` | none |\n"))

    def test_a_file_without_a_line_is_told(self):
        self.assertIn("east/rain.cpp: docs/architecture.md has no line for it",
                      self.complaints(DOCUMENT.replace("{files}", "")))

    def test_a_line_without_a_file_is_told(self):
        self.assertIn("docs/architecture.md has a line for east/thaw.cpp, which is not there",
                      self.complaints(DOCUMENT.replace("{files}", "{files}\n| `east/thaw.cpp` | gone |")))

    def test_an_answer_that_names_a_function_elsewhere_is_told(self):
        self.assertIn("docs/architecture.md names snow in east/thaw.cpp, which has no such function",
                      self.complaints(DOCUMENT.replace("`east/rain.cpp` | `rain`", "`east/thaw.cpp` | `snow`")))

    def test_a_picture_that_was_not_drawn_anew_is_told(self):
        self.assertEqual(self.complaints(east__hail_cpp='#include "log/log.h"\n'),
                         ["east -> log: the picture and the includes disagree; run scripts/house to draw it anew"])


unittest.main(argv=sys.argv[:1])
