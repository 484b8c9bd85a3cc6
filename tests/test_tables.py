"""The table of settings agrees with the programs, and what is generated with all tables."""

import re

from support.processes import Ended


def test_generated_parts_are_current(run, source):
    """Documents, completions and the example say what the tables and CMakeLists.txt say."""
    assert run("/usr/bin/python3", source / "tools/generate-from-tables", "--check") == Ended(0)


def test_every_setting_that_is_read_is_in_the_table(source):
    """The settings that the sources look up are those of the table."""
    table = (source / "common/env/settings.def").read_text()
    lookup = re.compile(
        r'(?:env(?:String|Path|Flag|IsSet)|uncachedValue|logFileName)\(\s*"([A-Z0-9_]+)"')
    # Without the look-up itself.
    programs = [file for file in source.glob("*/**/*.cpp")
                if file.relative_to(source).parts[0] not in ("build", "tests")
                and file.name != "zorvenv.cpp"]
    assert {name for file in programs for name in lookup.findall(file.read_text())} == set(
        re.findall(r'^SETTING\("([^"]+)"', table, re.MULTILINE))
