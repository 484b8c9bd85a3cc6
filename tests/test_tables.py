"""The table of settings agrees with the programs, and what is generated with all tables."""

import re
from pathlib import Path

from support.processes import Ended
from support.tables import settings


def test_generated_parts_are_current(run, source):
    """Documents, completions and the example say what the tables and CMakeLists.txt say."""
    assert run("/usr/bin/python3", source / "tools/generate-from-tables", "--check") == Ended(0)


def test_every_setting_that_is_read_is_in_the_table(source):
    """The settings that the sources look up are those of the table."""
    lookup = re.compile(
        r'(?:env(?:String|Path|Flag|IsSet)|uncachedValue|logFileName)\(\s*"([A-Z0-9_]+)"')
    assert sorted({name for file in program_sources(source)
                   for name in lookup.findall(file.read_text())}) == settings()


def program_sources(source: Path) -> list[Path]:
    """The sources of the programs, without the look-up itself."""
    return [file for file in source.glob("*/**/*.cpp")
            if file.relative_to(source).parts[0] not in ("build", "tests")
            and file.name != "zorvenv.cpp"]
