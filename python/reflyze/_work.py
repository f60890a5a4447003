# SPDX-License-Identifier: Apache-2.0
"""What is done with traces. Each function takes traces, files, or results that belong to one."""

from __future__ import annotations

import json
import numbers
from typing import Any, Dict, Iterable, Mapping, Optional, Tuple, Union

from . import _core
from ._errors import UsageError
from ._results import (
    Baseline,
    Comparison,
    Edited,
    EventTable,
    FilterTable,
    MergedTable,
    PlaceMeasure,
    QualityTable,
    Sheet,
    Simulation,
    Stored,
    result,
)
from ._trace import Path, Trace, file_name, open, text
from ._values import CodeMeaning

Source = Union[Trace, Stored, Path]


def _trace(source: Source) -> Trace:
    if isinstance(source, Trace):
        return source
    return source.trace if isinstance(source, Stored) else open(source)


def _number(name: str, value: object) -> float:
    if not isinstance(value, numbers.Real):
        raise TypeError(f"{name} is a number, not {type(value).__name__}")
    return float(value)


def _maybe(name: str, value: object) -> Optional[float]:
    return None if value is None else _number(name, value)


def _whole(name: str, value: object, most: int) -> int:
    if not isinstance(value, numbers.Integral):
        raise TypeError(f"{name} is a whole number, not {type(value).__name__}")
    whole = int(value)
    if not 0 <= whole <= most:
        raise UsageError(f"{name}: {whole} is no whole number from 0 to {most}")
    return whole


def _asked(
    loss_db: Optional[float],
    reflectance_db: Optional[float],
    end_db: Optional[float],
    slope_db_per_km: Optional[float],
    thresholds: Optional[Path],
    section: str,
) -> _core.Asked:
    return _core.asked(
        (
            _maybe("loss_db", loss_db),
            _maybe("reflectance_db", reflectance_db),
            _maybe("end_db", end_db),
            _maybe("slope_db_per_km", slope_db_per_km),
        ),
        None if thresholds is None else file_name(thresholds),
        text("section", section),
    )


def analyse(
    trace: Source,
    *,
    loss_db: Optional[float] = None,
    reflectance_db: Optional[float] = None,
    end_db: Optional[float] = None,
    slope_db_per_km: Optional[float] = None,
    thresholds: Optional[Path] = None,
    section: str = "NON",
    most_loss_db: Optional[float] = None,
    ends_only: bool = False,
    drop_unknown: bool = False,
    explain: bool = False,
) -> EventTable:
    """Finds the events of a trace.

    Thresholds that are not given come from the document `thresholds` (INI, of which `section` is read), then
    from the trace. `most_loss_db` bounds the loss threshold wherever it comes from. `ends_only` keeps the
    first and the last event; `drop_unknown` stores no blocks that nobody here knows;
    `explain` tells in `why` how each event was decided.
    """
    taken = _trace(trace)
    asked = _asked(loss_db, reflectance_db, end_db, slope_db_per_km, thresholds, section)
    bound = _maybe("most_loss_db", most_loss_db)
    made = _core.analyse(taken._held, asked, bound, bool(ends_only), bool(drop_unknown), bool(explain))
    return result(EventTable, made, taken._encoding)


def baseline(
    trace: Source,
    *,
    level: str,
    lt_db: float = 0.2,
    rt_db: float = 2.0,
    ct_db_per_km: float = 0.05,
    eel_db: float = 0.5,
    search: Iterable[Tuple[float, float]] = (),
    settings: Optional[Mapping[str, float]] = None,
) -> Baseline:
    """Makes the baseline of a fibre.

    `level` names the alarm level; the others are limits of what changes. New events are searched in the
    stretches of `search`, pairs of km, else in each section between two events.
    """
    taken = _trace(trace)
    limits = (
        _number("lt_db", lt_db),
        _number("rt_db", rt_db),
        _number("ct_db_per_km", ct_db_per_km),
        _number("eel_db", eel_db),
    )
    stretches = [(_number("search", begin), _number("search", end)) for begin, end in search]
    values = [(text("a setting", name), _number(name, value)) for name, value in (settings or {}).items()]
    made = _core.baseline(taken._held, text("level", level), limits, stretches, values)
    return result(Baseline, made, taken._encoding)


def compare(baseline: Source, current: Source, recheck: bool = False) -> Comparison:
    """Tells what changed since the baseline.

    `recheck` holds the results that are stored in the current trace against the limits again.
    """
    watched, now = _trace(baseline), _trace(current)
    return result(Comparison, _core.compare(watched._held, now._held, bool(recheck)), now._encoding)


def merge(
    a: Source,
    b: Source,
    *,
    loss_db: Optional[float] = None,
    reflectance_db: Optional[float] = None,
    end_db: Optional[float] = None,
    slope_db_per_km: Optional[float] = None,
    thresholds: Optional[Path] = None,
    section: str = "NON",
) -> MergedTable:
    """Brings the events of both directions of a fibre together; with thresholds, both are analysed first."""
    one, other = _trace(a), _trace(b)
    asked = _asked(loss_db, reflectance_db, end_db, slope_db_per_km, thresholds, section)
    return result(MergedTable, _core.merge(one._held, other._held, asked), one._encoding)


def quality(trace: Source, *, long_pulse: Optional[Source] = None, last_percent: int = 10) -> QualityTable:
    """Tells how far each event's place and loss can be trusted.

    `long_pulse` is the same fibre with a longer pulse, for losses within dead zones. Does the fibre end in the
    last `last_percent` of the range?
    """
    taken = _trace(trace)
    longer = None if long_pulse is None else _trace(long_pulse)._held
    made = _core.quality(taken._held, longer, _whole("last_percent", last_percent, 100))
    return result(QualityTable, made, taken._encoding)


def show(trace: Source, *, measure: bool = False) -> Sheet:
    """What a file says of itself: its card and its own event table, codes in words.

    `measure` sets beside it what is measured on the trace, with the differences.
    """
    taken = _trace(trace)
    return result(Sheet, _core.show(taken._held, bool(measure)), taken._encoding)


def meaning_of(code: str, technique: str = "") -> CodeMeaning:
    """What an event code of SR-4731 says, such as "1F9999"; its technique may stand behind it."""
    return CodeMeaning(*_core.meaning(text("code", code), text("technique", technique)))


def measure(
    trace: Source,
    *,
    at: Optional[float] = None,
    from_km: Optional[float] = None,
    to_km: Optional[float] = None,
    event: Optional[Iterable[float]] = None,
    kind: str = "two-point",
) -> PlaceMeasure:
    """One number at a place or between places, with its standard deviation; places are km.

    `at` gives the level there, and the reflectance of a peak. Between `from_km` and `to_km` it is of the `kind`
    "two-point", "least-squares" or "return-loss". `event` has four places a, A, B, b, and the event stands between
    A and B.
    """
    stretch = from_km is not None or to_km is not None
    if (at is not None) + stretch + (event is not None) != 1:
        raise UsageError("what to measure is told by at, by from_km and to_km, or by event")
    if at is not None:
        asked, places = "at", [_number("at", at)]
    elif event is not None:
        asked, places = "event", [_number("event", km) for km in event]
    else:
        asked, places = text("kind", kind), [_number("from_km", from_km), _number("to_km", to_km)]
    taken = _trace(trace)
    return result(PlaceMeasure, _core.measure(taken._held, asked, places), taken._encoding)


def edit(trace: Source, fields: Mapping[str, object]) -> Edited:
    """Changes fields of a file, as {"fibre": "007", "index": 1.4682}, and nothing else in it.

    Fields are those of the program: cable, fibre, from, to, operator, comment, wavelength, index, backscatter,
    user-offset, date, event.2.comment, event.add and the others; numbers are in their units.
    """
    taken = _trace(trace)
    edits = []
    for name, value in fields.items():
        known = isinstance(value, (str, numbers.Real)) and not isinstance(value, bool)
        if not known:
            raise TypeError(f"{name} is a text or a number, not {type(value).__name__}")
        edits.append((text("a field", name), str(value)))
    return result(Edited, _core.edit(taken._held, edits), taken._encoding)


def filter(trace: Source, *, kind: str = "auto", level: Optional[float] = None) -> FilterTable:
    """Smooths a trace, by a mean that stops at events (auto), a low pass (fast) or its own kernel (kernel)."""
    taken = _trace(trace)
    made = _core.filter(taken._held, text("kind", kind), _maybe("level", level))
    return result(FilterTable, made, taken._encoding)


def simulate(link: Union[Mapping[str, Any], str], *, seed: int = 1, name: str = "simulated") -> Simulation:
    """The trace that a described link would give, and what stands on it; `link` is a dict or JSON text."""
    document = link if isinstance(link, str) else json.dumps(dict(link))
    made = _core.simulate(document, _whole("seed", seed, 2**64 - 1), file_name(name), "link")
    return result(Simulation, made, "auto")


def dump(trace: Source, *, samples: bool = True, native: bool = False) -> Dict[str, Any]:
    """Every field of every block of a file, as the program's JSON has it.

    `native` shows every block that a record has in memory, also those that the file does not have.
    """
    parsed: Dict[str, Any] = json.loads(_core.dump(_trace(trace)._held, bool(samples), bool(native), False))
    return parsed


def dump_text(trace: Source, *, samples: bool = True, native: bool = False) -> str:
    """The same for people."""
    return _core.dump(_trace(trace)._held, bool(samples), bool(native), True)
