"""The tables of settings and options, as far as tests need them."""

import re
from pathlib import Path
from typing import NamedTuple

SOURCE = Path(__file__).resolve().parent.parent.parent


class Option(NamedTuple):
    """An option with its spellings of manual-launch mode."""

    name: str
    simple_names: list[str]


def options() -> list[Option]:
    """The rows of the table of options."""
    rows = re.findall(r'^\w+_OPTION\("([^"]+)", "([^"]*)"', (
        SOURCE / "backend/options.def").read_text(), re.MULTILINE)
    return [Option(name, simple_names.split()) for name, simple_names in rows]


def settings() -> list[str]:
    """The names in the table of settings, sorted."""
    return sorted(re.findall(r'^SETTING\("([^"]+)"', (
        SOURCE / "common/env/settings.def").read_text(), re.MULTILINE))
