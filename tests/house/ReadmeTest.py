"""What README.md and the pages of docs show is so.

    ```console  Every line that begins with "$ " is run by bash, in the order of the page and in one folder that is empty
                at first, and prints what stands below it: standard output and standard error, to the letter but for
                seconds. "..." alone on a line stands for any lines. It has to answer 0 unless it tells its status.
    ```terminals  What is typed into two terminals at the same time: "one$ " begins to run first, and "two$ " once that
                has printed a line. Both go on until they have printed what is shown, any number standing for any
                other, and end with status 130 when Ctrl-C is pressed.
    ```cpp      stands in one of examples/*.cpp, which are compiled and run by the tests.
    ```cmake    stands in the project of the package's test.
    ```sh       is for the reader's machine and isn't run here; the scripts, presets and folders it names are there.

Every subcommand has a section in docs/cli.md, and every option of it a row there. Links within the repository lead
somewhere.

Call: ReadmeTest.py COMMAND
"""

import json
import os
import pathlib
import re
import select
import signal
import subprocess
import sys
import tempfile
import textwrap
import time
import unittest

from IncludeRuleTest import ROOT

COMMAND = "vakdtm"

RUN_PAGES = ("README.md", "docs/cli.md")
TIME_LIMIT = 120  # seconds a command

FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)
SECONDS = (re.compile(r"\b\d+\.\d\d s$", re.MULTILINE), re.compile(r'(?<="seconds":)[0-9.e+-]+'))
OPTION = re.compile(r"(?<![\w-])--[a-z][a-z-]*")


def pages():
    """Every page of the repository that a reader is led to, with its text."""
    found = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md"))]
    return {page.relative_to(ROOT).as_posix(): page.read_text(encoding="utf-8") for page in found}


def blocks(text, kind):
    return [body for found, body in FENCE.findall(text) if found == kind]


def sessions(text):
    """The commands of a page with what is shown below each, in order."""
    found = []
    for body in blocks(text, "console"):
        for line in body.splitlines():
            if line.startswith("$ "):
                found.append((line[2:], []))
            else:
                found[-1][1].append(line)
    return [(command, "".join(line + "\n" for line in shown)) for command, shown in found]


def without_seconds(text):
    for pattern in SECONDS:
        text = pattern.sub("SECONDS", text)
    return text


def is_shown(shown, printed):
    """Whether what a command printed is what is shown below it."""
    parts = [re.escape(part) for part in re.split(r"^\.\.\.\n", without_seconds(shown), flags=re.MULTILINE)]
    return re.fullmatch("(?:.*\n)*".join(parts), without_seconds(printed)) is not None


def environment():
    """With the command that is tested in front of all others."""
    path = f"{pathlib.Path(COMMAND).resolve().parent}{os.pathsep}{os.environ.get('PATH', os.defpath)}"
    return {**os.environ, "PATH": path}


def terminals(text):
    """Of each pair of terminals, what is typed into either and what it shows."""
    found = []
    for body in blocks(text, "terminals"):
        pair = {}
        for line in body.splitlines():
            name, prompt, command = line.partition("$ ")
            if prompt and name in ("one", "two"):
                pair[name] = (command, [])
                last = name
            else:
                pair[last][1].append(line)
        found.append([(pair[name][0], "".join(line + "\n" for line in pair[name][1])) for name in ("one", "two")])
    return found


def whole_lines(text):
    return text[: text.rfind("\n") + 1]


def without_numbers(text):
    return re.sub(r"\d+", "0", text)


class Terminal:
    """A command that runs until Ctrl-C."""

    def __init__(self, command, folder):
        # Without a shell, which would keep Ctrl-C to itself.
        self.process = subprocess.Popen(
            command.split(),
            cwd=folder,
            env=environment(),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        )
        os.set_blocking(self.process.stdout.fileno(), False)
        self.printed = b""

    def awaits(self, condition):
        """@return whether what it has printed so far comes to fulfil the condition."""
        end = time.monotonic() + TIME_LIMIT
        while not condition(self.printed.decode()):
            if time.monotonic() > end or self.process.poll() is not None:
                return False
            select.select([self.process.stdout], [], [], 1)
            self.printed += self.process.stdout.read() or b""
        return True

    def end(self):
        """@return the status."""
        self.process.send_signal(signal.SIGINT)
        try:
            return self.process.wait(TIME_LIMIT)
        finally:
            self.process.kill()
            self.process.stdout.close()


def run(command, folder):
    """@return the status of a command line, and what it prints."""
    result = subprocess.run(
        ["bash", "-c", command],
        cwd=folder,
        env=environment(),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        timeout=TIME_LIMIT,
        check=False,
    )
    return result.returncode, result.stdout


def stands_in(snippet, source):
    """Whether the snippet is in the source as it is, or set in by whole steps."""
    return any(textwrap.indent(snippet, "  " * depth) in source for depth in range(4))


def anchors(text):
    """What the headings of a page can be linked by."""
    without_code = FENCE.sub("", text)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in HEADING.findall(without_code)}


def section(text, heading):
    match = re.search(rf"^## {re.escape(heading)}\n(.*?)(?=^## |\Z)", text, re.MULTILINE | re.DOTALL)
    return match.group(1) if match else ""


def first_column(text):
    """The first cells of all tables."""
    return [line.split("|")[1].strip() for line in FENCE.sub("", text).splitlines() if line.startswith("| ")]


class Shown(unittest.TestCase):
    maxDiff = None

    def test_commands_print_what_is_shown(self):
        for page in RUN_PAGES:
            session = sessions(pages()[page])
            self.assertGreater(len(session), 3, f"hardly any command in {page}")
            with tempfile.TemporaryDirectory(prefix="vakdtm-readme-") as folder:
                for command, shown in session:
                    with self.subTest(page=page, command=command):
                        status, printed = run(command, folder)
                        if not is_shown(shown, printed):
                            self.assertEqual(without_seconds(printed), without_seconds(shown))
                        self.assertEqual(status, 0)

    def test_two_terminals_show_what_is_shown(self):
        pairs = [(page, pair) for page, text in pages().items() for pair in terminals(text)]
        self.assertGreater(len(pairs), 1)
        for page, pair in pairs:
            with self.subTest(page=page), tempfile.TemporaryDirectory(prefix="vakdtm-readme-") as folder:
                opened = []
                try:
                    for command, _ in pair:
                        opened.append(Terminal(command, folder))
                        self.assertTrue(opened[-1].awaits(lambda printed: "\n" in printed), opened[-1].printed)
                    for terminal, (_, shown) in zip(opened, pair):
                        wanted = without_numbers(shown)
                        seen = terminal.awaits(
                            lambda printed, wanted=wanted: is_shown(wanted, without_numbers(whole_lines(printed)))
                        )
                        self.assertTrue(seen, terminal.printed.decode())
                finally:
                    statuses = [terminal.end() for terminal in reversed(opened)]
                self.assertEqual(statuses, [130, 130])

    def test_commands_of_the_demonstration_are_shown(self):
        demo = (ROOT / "scripts" / "demo").read_text(encoding="utf-8")
        count = re.search(r"^count=(\d+)$", demo, re.MULTILINE).group(1)
        runs = [line.partition(" | ")[0] for line in re.findall(r"^run (.*)$", demo, re.MULTILINE)]
        self.assertGreater(len(runs), 3)
        shown = [command for command, _ in sessions(pages()["README.md"])]
        for arguments in runs:
            self.assertIn("vakdtm " + arguments.replace('"$count"', count), shown)

    def test_code_is_that_of_the_examples(self):
        sources = [path.read_text(encoding="utf-8") for path in (ROOT / "examples").glob("*.cpp")]
        snippets = [snippet for text in pages().values() for snippet in blocks(text, "cpp")]
        self.assertGreater(len(snippets), 0)
        for snippet in snippets:
            self.assertTrue(any(stands_in(snippet, source) for source in sources), f"in no example:\n{snippet}")

    def test_project_is_that_of_the_package_test(self):
        source = (ROOT / "tests" / "house" / "consumer" / "CMakeLists.txt").read_text(encoding="utf-8")
        snippets = blocks(pages()["README.md"], "cmake")
        self.assertGreater(len(snippets), 0)
        for snippet in snippets:
            self.assertTrue(stands_in(snippet, source), f"not in the project:\n{snippet}")

    def test_scripts_and_presets_are_there(self):
        presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
        names = {preset["name"] for preset in presets["configurePresets"] if not preset.get("hidden")}
        lines = [line for text in pages().values() for body in blocks(text, "sh") for line in body.splitlines()]
        self.assertGreater(len(lines), 0)
        for line in lines:
            words = line.split()
            with self.subTest(line):
                if words[0].startswith("scripts/"):
                    self.assertTrue(os.access(ROOT / words[0], os.X_OK))
                else:
                    self.assertEqual(words[0], "cmake")
                    named = [words[i + 1] for i, word in enumerate(words) if word == "--preset"]
                    named += [word.removeprefix("build/") for word in words if word.startswith("build/")]
                    self.assertLessEqual(set(named), names)
                    self.assertGreater(len(named), 0)

    def test_links_lead_somewhere(self):
        broken = []
        for page, text in pages().items():
            for link in LINK.findall(FENCE.sub("", text)):
                if re.match(r"[a-z]+:", link):
                    continue
                path, _, anchor = link.partition("#")
                target = (ROOT / page).parent / path if path else ROOT / page
                if not target.exists():
                    broken.append(f"{page}: {link}")
                elif anchor and anchor not in anchors(target.read_text(encoding="utf-8")):
                    broken.append(f"{page}: {link}: no such heading")
        self.assertEqual(broken, [])


class CommandPage(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.text = pages()["docs/cli.md"]
        status, text = run("vakdtm --help", ROOT)
        if status != 0:
            raise AssertionError(text)
        listed = re.search(r"^Subcommands:\n(.*?)\n\n", text, re.MULTILINE | re.DOTALL)
        cls.subcommands = re.findall(r"^  (\w[\w-]*)", listed.group(1), re.MULTILINE)

    def test_every_subcommand_is_listed_and_has_a_section(self):
        self.assertGreater(len(self.subcommands), 4)
        for page in RUN_PAGES:
            linked = [re.match(r"\[`(\w+)`\]", cell) for cell in first_column(pages()[page])]
            self.assertEqual([match.group(1) for match in linked if match], self.subcommands, page)
        for name in self.subcommands:
            self.assertNotEqual(section(self.text, name), "", name)

    def options_of(self, name):
        """What a subcommand offers, with what its own subcommands do."""
        _, text = run(f"vakdtm {name} --help", ROOT)
        options = re.search(r"^Options:\n(.*?)\n\n", text, re.MULTILINE | re.DOTALL).group(1)
        offered = {
            option
            for line in options.splitlines()
            for option in OPTION.findall(line.split("  ")[1])
            if option not in ("--help", "--quiet")
        }
        inner = re.search(r"^Subcommands:\n(.*?)\n\n", text, re.MULTILINE | re.DOTALL)
        for word in re.findall(r"^  (\w[\w-]*)", inner.group(1), re.MULTILINE) if inner else []:
            offered |= self.options_of(f"{name} {word}")
        return offered

    def test_every_option_has_a_row_and_every_row_an_option(self):
        for name in self.subcommands:
            offered = self.options_of(name)
            rows = {option for cell in first_column(section(self.text, name)) for option in OPTION.findall(cell)}
            with self.subTest(name):
                self.assertEqual(rows, offered)

    def test_every_key_has_a_row(self):
        checked = 0
        for name in self.subcommands:
            text = section(self.text, name)
            for command, shown in sessions(text) + [one for pair in terminals(text) for one in pair]:
                for line in shown.splitlines():
                    if not line.startswith("{") or f"vakdtm {name}" not in command:
                        continue
                    keys = [cell.strip("`") for cell in first_column(text) if re.fullmatch(r"`[a-z_]+`", cell)]
                    self.assertEqual(keys, list(json.loads(line)), name)
                    checked += 1
        self.assertGreater(checked, 1)

    def test_every_kind_of_value_has_a_row(self):
        _, text = run("vakdtm create nothing.dtm --cell-size 1 --blocks NONE", ROOT)
        known = re.search(r"there are ([A-Z]+(?:, [A-Z]+)*)", text).group(1).split(", ")
        rows = [cell.strip("`") for cell in first_column(self.text) if re.fullmatch(r"`[A-Z]+`", cell)]
        self.assertEqual(rows, known)


class Reading(unittest.TestCase):
    """The test itself sees what it is to see."""

    def test_other_output_is_told_from_what_is_shown(self):
        cases = {
            "the same": ("a\nb\n", "a\nb\n", True),
            "another word": ("a\nb\n", "a\nc\n", False),
            "a line more": ("a\n", "a\nb\n", False),
            "a line less": ("a\nb\n", "a\n", False),
            "nothing shown": ("", "a\n", False),
            "another time": ("in 0.52 s\n", "in 12.01 s\n", True),
            "another number": ("z 0.52 to 1\n", "z 0.53 to 1\n", False),
            "another time in JSON": ('{"n":1,"seconds":0.5}\n', '{"n":1,"seconds":1e-05}\n', True),
            "left out": ("a\n...\nd\n", "a\nb\nc\nd\n", True),
            "nothing left out": ("a\n...\nb\n", "a\nb\n", True),
            "wrong behind what is left out": ("a\n...\nd\n", "a\nb\nc\n", False),
        }
        for name, (shown, printed, same) in cases.items():
            with self.subTest(name):
                self.assertEqual(is_shown(shown, printed), same)

    def test_sessions_are_taken_apart(self):
        text = "x\n```console\n$ one\nout\n$ two\n```\n```sh\n$ not\n```\n```console\n$ three\n```\n"
        self.assertEqual(sessions(text), [("one", "out\n"), ("two", ""), ("three", "")])

    def test_terminals_are_taken_apart(self):
        text = "```terminals\none$ a b\n{}\ntwo$ c\nout\nmore\n```\n"
        self.assertEqual(terminals(text), [[("a b", "{}\n"), ("c", "out\nmore\n")]])

    def test_snippets_are_found_set_in_and_not_otherwise(self):
        self.assertTrue(stands_in("a;\n\n  b;\n", "{\n    a;\n\n      b;\n}\n"))
        self.assertFalse(stands_in("a;\n  c;\n", "{\n  a;\n    b;\n}\n"))


if __name__ == "__main__":
    if len(sys.argv) > 1:
        COMMAND = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
