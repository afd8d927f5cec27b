"""What is written here stands on its own: it points at no paper that a reader of this repository doesn't have, and at
no folder of the machine that it was written on. Thread suites stand where the build looks for them."""

import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

FOLDERS = ("src", "apps", "bindings", "tests", "bench", "examples", "docs", "scripts", "cmake", ".ci")
SUFFIXES = {"", ".h", ".cpp", ".py", ".md", ".txt", ".cmake", ".in", ".json", ".sh"}
NO_TEXT = ("tests/fuzz/corpus/",)

# Written so that no pattern finds itself.
FORBIDDEN = {
    "a numbered part of a paper": re.compile(r"\bParts? [0-9]+\.[0-9]"),
    "a paper by its file name": re.compile(r"\bspec\.md"),
    "a paper by its kind": re.compile(r"\b[Tt]he[ ]spec(?:ification)?\b"),
    "a folder of one machine": re.compile(r"(?<![\w.}/])/(?:tmp|home|root|work|Users)/\w"),
}


def files_of(root):
    found = [path for path in root.iterdir() if path.is_file() and path.name != ".git"]
    for folder in FOLDERS:
        found += [path for path in (root / folder).rglob("*") if path.is_file()]
    for path in sorted(found):
        name = path.relative_to(root).as_posix()
        if path.suffix in SUFFIXES and not name.startswith(NO_TEXT) and "__pycache__" not in name:
            yield name, path


def faults_in_text(name, text):
    faults = []
    for number, line in enumerate(text.splitlines(), 1):
        for what, pattern in FORBIDDEN.items():
            if pattern.search(line):
                faults.append(f"{name}:{number}: {what}: {line.strip()}")
    return faults


THREAD_SUITE = re.compile(r"^\s*(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w*ThreadTest)\s*,", re.MULTILINE)


class Words(unittest.TestCase):
    maxDiff = None

    def test_texts_stand_on_their_own(self):
        faults = []
        seen = 0
        for name, path in files_of(ROOT):
            faults += faults_in_text(name, path.read_text(encoding="utf-8"))
            seen += 1
        self.assertGreater(seen, 20, "hardly any file found")
        self.assertEqual(faults, [])

    def test_planted_words_are_caught(self):
        # Put together here, so that this file passes its own test.
        cases = {
            "part": "as Part" + " 1.4 says",
            "parts": "see Parts" + " 1.2 and 3.1",
            "file": "spec" + ".md",
            "specification": "by the" + " specification",
            "short": "The" + " spec wants it",
            "temporary": '"/tmp' + '/model.dtm"',
            "home": "in /home" + "/somebody",
        }
        for name, text in cases.items():
            with self.subTest(name):
                self.assertEqual(len(faults_in_text(name, text)), 1)

    def test_innocent_words_pass(self):
        for text in ("part 1 of 2", "${TMPDIR:-/tmp}", "a special case", "https://example.org/home/page", "/dev/full"):
            with self.subTest(text):
                self.assertEqual(faults_in_text("text", text), [])


class ThreadSuites(unittest.TestCase):
    """The build makes a program of its own of the *ThreadTest.cpp of a folder; ThreadSanitizer runs these alone."""

    def test_stand_in_files_named_for_them(self):
        misplaced = []
        for name, path in files_of(ROOT):
            if path.suffix == ".cpp" and not name.endswith("ThreadTest.cpp"):
                misplaced += [f"{name}: {suite}" for suite in THREAD_SUITE.findall(path.read_text(encoding="utf-8"))]
        self.assertEqual(misplaced, [])

    def test_are_recognised(self):
        self.assertEqual(THREAD_SUITE.findall("TEST(CellThreadTest, A) {\nTEST_F(BlockThreadTest, B) {\n"),
                         ["CellThreadTest", "BlockThreadTest"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
