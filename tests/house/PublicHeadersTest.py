"""Every header of the library is public: it compiles on its own and brings nothing but the C++ library.

Call: PublicHeadersTest.py COMPILER
"""

import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from IncludeRuleTest import ROOT, includes_of

COMPILER = "c++"

# The headers of C++20. The C library comes as <cmath>, never as <math.h>.
CXX_LIBRARY = set(
    """
    algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
    clocale cmath codecvt compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint
    cstdio cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream
    functional future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory
    memory_resource mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator
    semaphore set shared_mutex source_location span sstream stack stdexcept stop_token streambuf string string_view
    strstream syncstream system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility
    valarray variant vector version
    """.split()
)

WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]


def headers_of(root):
    return sorted((root / "src" / "vakdtm").rglob("*.h"))


def foreign_includes(root):
    faults = []
    for header in headers_of(root):
        for number, name, quoted in includes_of(header):
            if not quoted and name not in CXX_LIBRARY:
                faults.append(f"{header.relative_to(root)}:{number}: <{name}> belongs into a source file")
    return faults


def compile_alone(root, header):
    """What the compiler says about a source that holds this one include; empty when it is content."""
    name = header.relative_to(root / "src").as_posix()
    command = [COMPILER, "-std=c++20", "-fsyntax-only", *WARNINGS, "-I", str(root / "src"), "-x", "c++", "-"]
    # Twice: the second time must be a no-op.
    source = f'#include "{name}"\n#include "{name}"\n'
    result = subprocess.run(command, input=source, capture_output=True, text=True, check=False)
    return "" if result.returncode == 0 else f"{name}: {result.stderr}"


def begins_its_source(root, header):
    """Whether the header's own source includes it before anything else: compiling that compiles the header alone."""
    source = header.with_suffix(".cpp")
    first = next(iter(includes_of(source)), None) if source.is_file() else None
    return first is not None and first[1] == header.relative_to(root / "src").as_posix()


def repeatable_faults(root):
    return [
        f"{header.relative_to(root)}: begins without #pragma once"
        for header in headers_of(root)
        if not header.read_text(encoding="utf-8").startswith("#pragma once\n")
    ]


def compile_faults(root):
    """Of the headers that the library's own build doesn't compile alone."""
    headers = [header for header in headers_of(root) if not begins_its_source(root, header)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        answers = pool.map(lambda header: compile_alone(root, header), headers)
        return [answer for answer in answers if answer]


class PublicHeaders(unittest.TestCase):
    maxDiff = None

    def test_there_are_some(self):
        self.assertGreater(len(headers_of(ROOT)), 0)

    def test_include_the_cxx_library_alone(self):
        self.assertEqual(foreign_includes(ROOT), [])

    def test_may_be_included_twice(self):
        self.assertEqual(repeatable_faults(ROOT), [])

    def test_compile_on_their_own(self):
        self.assertEqual(compile_faults(ROOT), [])


class PlantedHeader(unittest.TestCase):
    """The checks themselves, on a tree with one header."""

    def plant(self, folder, text):
        header = pathlib.Path(folder) / "src" / "vakdtm" / "store" / "A.h"
        header.parent.mkdir(parents=True)
        header.write_text(text, encoding="utf-8")
        return pathlib.Path(folder)

    def test_that_brings_the_operating_system_is_caught(self):
        for name in ("unistd.h", "sys/mman.h", "nlohmann/json.hpp", "math.h"):
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                root = self.plant(folder, f"#pragma once\n#include <{name}>\n")
                self.assertEqual(len(foreign_includes(root)), 1)

    def test_that_needs_another_before_it_is_caught(self):
        with tempfile.TemporaryDirectory() as folder:
            root = self.plant(folder, "#pragma once\ninline std::vector<int> Rows() { return {}; }\n")
            self.assertEqual(len(compile_faults(root)), 1)

    def test_is_left_to_the_source_that_begins_with_it_alone(self):
        for first, faults in (("store/A.h", 0), ("store/B.h", 1)):
            with self.subTest(first), tempfile.TemporaryDirectory() as folder:
                root = self.plant(folder, "#pragma once\ninline std::vector<int> Rows() { return {}; }\n")
                source = root / "src" / "vakdtm" / "store" / "A.cpp"
                source.write_text(f'#include "vakdtm/{first}"\n#include "vakdtm/store/A.h"\n', encoding="utf-8")
                self.assertEqual(len(compile_faults(root)), faults)

    def test_without_a_guard_is_caught(self):
        with tempfile.TemporaryDirectory() as folder:
            root = self.plant(folder, "struct Cell {};\n")
            self.assertEqual(len(compile_faults(root)), 1)
            self.assertEqual(len(repeatable_faults(root)), 1)

    def test_that_is_complete_passes(self):
        with tempfile.TemporaryDirectory() as folder:
            root = self.plant(folder, "#pragma once\n#include <vector>\ninline std::vector<int> Rows() { return {}; }\n")
            self.assertEqual(compile_faults(root) + foreign_includes(root), [])


if __name__ == "__main__":
    if len(sys.argv) > 1:
        COMPILER = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
