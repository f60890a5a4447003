# SPDX-License-Identifier: Apache-2.0
"""Reads, analyses, compares, merges, judges and simulates traces of optical time-domain reflectometers."""

from . import _core
from ._errors import Error, UnreadableError, UnwritableError, UsageError
from ._results import (
    Baseline,
    Comparison,
    Edited,
    EventTable,
    FilterTable,
    MergedTable,
    PlaceMeasure,
    QualityTable,
    Result,
    Sheet,
    Simulation,
)
from ._trace import Note, Trace, from_bytes, open
from ._values import (
    Card,
    CodeMeaning,
    ComparedEvent,
    Event,
    JudgedEvent,
    MergedEvent,
    ModuleAnswer,
    Reason,
    SheetEvent,
    Thresholds,
    TrueEvent,
)
from ._work import analyse, baseline, compare, dump, dump_text, edit, filter, meaning_of, measure, merge, quality, show, simulate

__version__ = _core.library_version()
module_version = _core.module_version()

__all__ = [
    "Baseline",
    "Card",
    "CodeMeaning",
    "ComparedEvent",
    "Comparison",
    "Edited",
    "Error",
    "Event",
    "EventTable",
    "FilterTable",
    "JudgedEvent",
    "MergedEvent",
    "MergedTable",
    "ModuleAnswer",
    "Note",
    "PlaceMeasure",
    "QualityTable",
    "Reason",
    "Result",
    "Sheet",
    "SheetEvent",
    "Simulation",
    "Thresholds",
    "Trace",
    "TrueEvent",
    "UnreadableError",
    "UnwritableError",
    "UsageError",
    "analyse",
    "baseline",
    "compare",
    "dump",
    "dump_text",
    "edit",
    "filter",
    "from_bytes",
    "meaning_of",
    "measure",
    "merge",
    "module_version",
    "open",
    "quality",
    "show",
    "simulate",
]
