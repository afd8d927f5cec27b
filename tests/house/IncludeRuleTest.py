"""Who may include whom: a folder of the library includes what lies below it, never what lies above."""

import pathlib
import re
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

BELOW_STORE = {"services", "resources"}
BELOW_FRAME = BELOW_STORE | {"store"}
BELOW_FAMILIES = BELOW_FRAME | {"frame"}

# A folder always includes itself. The families know each other only where one is built on another.
ALLOWED = {
    "resources": set(),
    "services": {"resources"},
    "store": BELOW_STORE,
    "frame": BELOW_FRAME,
    "intake": BELOW_FAMILIES,
    "repair": BELOW_FAMILIES,
    "contour": BELOW_FAMILIES,
    "analysis": BELOW_FAMILIES,
    "dredge": BELOW_FAMILIES,
    # A picture for another system takes the colour table that drawing makes.
    "export": BELOW_FAMILIES | {"render"},
    "geoid": BELOW_FAMILIES,
    "dialogs": BELOW_FAMILIES,
    # Drawing shows spikes as their search finds them, and colours the range that statistics find.
    "render": BELOW_FAMILIES | {"repair", "analysis"},
}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]*)"|<([^>]*)>)')


def includes_of(file):
    """Yields line number, name, and whether it stands in quotes."""
    for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            quoted = match.group(1) is not None
            yield number, match.group(1) if quoted else match.group(2), quoted


def sources_below(folder):
    return sorted(path for path in folder.rglob("*") if path.suffix in (".h", ".cpp"))


def library_fault(folder, name, quoted):
    """What is wrong with a file of the library's `folder` including `name`, or None."""
    if not quoted:
        return "the library's own headers stand in quotes" if name.startswith("vakdtm/") else None
    parts = name.split("/")
    if ".." in parts or parts[0] != "vakdtm" or len(parts) < 3:
        return 'a name in quotes is "vakdtm/<folder>/<header>"; the library includes nothing else of the project'
    if parts[1] != folder and parts[1] not in ALLOWED[folder]:
        return f"{folder} lies not above {parts[1]}"
    return None


def faults_in(root):
    """Every forbidden include below `root`, as one line of text each."""
    faults = []
    library = root / "src" / "vakdtm"
    for file in sources_below(library):
        place = file.relative_to(root)
        folder = file.relative_to(library).parts[0]
        if folder not in ALLOWED:
            faults.append(f"{place}: the table of folders has no {folder}")
            continue
        for number, name, quoted in includes_of(file):
            fault = library_fault(folder, name, quoted)
            if fault:
                faults.append(f"{place}:{number}: {name}: {fault}")
    for file in sources_below(root / "apps"):
        for number, name, quoted in includes_of(file):
            if quoted and re.search(r"\.\.|^(apps|bindings|tests|support|bench)/", name):
                faults.append(f"{file.relative_to(root)}:{number}: {name}: an application stands on the library alone")
    return faults


class IncludeRule(unittest.TestCase):
    def test_no_folder_includes_one_above_it(self):
        self.assertGreater(len(sources_below(ROOT / "src" / "vakdtm")), 0, "no sources found")
        self.assertEqual(faults_in(ROOT), [])

    def test_families_do_not_know_each_other_but_as_said(self):
        families = [folder for folder in ALLOWED if "frame" in ALLOWED[folder]]
        known = {(a, b) for a in families for b in families if b in ALLOWED[a]}
        self.assertEqual(known, {("render", "repair"), ("render", "analysis"), ("export", "render")})

    def test_the_table_has_no_circle(self):
        seen = set()
        while len(seen) < len(ALLOWED):
            ready = {folder for folder in ALLOWED if folder not in seen and ALLOWED[folder] <= seen}
            self.assertTrue(ready, f"these include each other: {sorted(set(ALLOWED) - seen)}")
            seen |= ready


class PlantedInclude(unittest.TestCase):
    """The check itself, on trees with one file each."""

    def faults(self, path, line):
        with tempfile.TemporaryDirectory() as name:
            root = pathlib.Path(name)
            file = root / path
            file.parent.mkdir(parents=True)
            file.write_text(f"#pragma once\n\n{line}\n", encoding="utf-8")
            return faults_in(root)

    def test_is_caught(self):
        cases = {
            "services know no store": ("src/vakdtm/services/files/A.h", '#include "vakdtm/store/B.h"'),
            "the store knows no frame": ("src/vakdtm/store/A.cpp", '#include "vakdtm/frame/B.h"'),
            "the store knows no family": ("src/vakdtm/store/A.cpp", '#include "vakdtm/intake/B.h"'),
            "the frame knows no family": ("src/vakdtm/frame/A.h", '#include "vakdtm/render/B.h"'),
            "a family knows no other": ("src/vakdtm/intake/A.h", '#include "vakdtm/export/B.h"'),
            "one way only": ("src/vakdtm/repair/A.h", '#include "vakdtm/render/B.h"'),
            "strings know nobody": ("src/vakdtm/resources/A.h", '#include "vakdtm/services/text/B.h"'),
            "no application": ("src/vakdtm/store/A.cpp", '#include "apps/vakdtm/Command.h"'),
            "no binding": ("src/vakdtm/store/A.cpp", '#include "bindings/python/Module.h"'),
            "no way around by dots": ("src/vakdtm/services/files/A.h", '#include "vakdtm/services/../store/B.h"'),
            "no neighbour by its bare name": ("src/vakdtm/store/A.cpp", '#include "B.h"'),
            "indented": ("src/vakdtm/store/A.cpp", '  #  include "vakdtm/frame/B.h"'),
            "angle brackets": ("src/vakdtm/services/files/A.h", "#include <vakdtm/store/B.h>"),
            "a folder that is not in the table": ("src/vakdtm/attic/A.h", "#include <vector>"),
            "an application that uses a test": ("apps/vakdtm/A.cpp", '#include "support/TestFolder.h"'),
        }
        for name, (path, line) in cases.items():
            with self.subTest(name):
                self.assertEqual(len(self.faults(path, line)), 1)

    def test_is_let_through_where_allowed(self):
        cases = {
            "among services": ("src/vakdtm/services/files/A.h", '#include "vakdtm/services/platform/B.h"'),
            "store to services": ("src/vakdtm/store/A.h", '#include "vakdtm/services/files/B.h"'),
            "family to store": ("src/vakdtm/intake/A.h", '#include "vakdtm/store/B.h"'),
            "drawing to spikes": ("src/vakdtm/render/A.h", '#include "vakdtm/repair/B.h"'),
            "the C++ library": ("src/vakdtm/store/A.h", "#include <vector>"),
            "application to library": ("apps/vakdtm/A.cpp", '#include "vakdtm/store/B.h"'),
            "application to itself": ("apps/vakdtm/A.cpp", '#include "Command.h"'),
        }
        for name, (path, line) in cases.items():
            with self.subTest(name):
                self.assertEqual(self.faults(path, line), [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
