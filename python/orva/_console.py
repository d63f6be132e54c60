# SPDX-License-Identifier: Apache-2.0
"""The driver's console lines."""

from __future__ import annotations

from . import _orva


def driver_lines() -> list[str]:
    """The latest lines that the driver would have printed, at most a thousand, oldest first."""
    return _orva.console_lines(0)


def show_driver_lines(show: bool = True) -> None:
    """Whether these lines go to standard output and standard error too, as they do in a C++ application.

    Holds for all sensors and recordings of the process.
    """
    _orva.show_console_lines(show)
