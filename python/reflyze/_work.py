# SPDX-License-Identifier: Apache-2.0
"""What is done with traces. Each function takes traces, files, or results that belong to one."""

from __future__ import annotations

import io
import json
import numbers
import os
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from typing import Any, Dict, Iterable, List, Mapping, Optional, Tuple, Union

import numpy

from . import _core
from ._errors import Error, UnreadableError, UsageError
from ._results import (
    Baseline,
    CableReport,
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
from ._trace import Note, Path, Trace, file_name, open, text
from ._values import CodeMeaning, InputFile

Source = Union[Trace, Stored, Path]
Limits = Union[Path, Mapping[str, Any]]  #: a document of limits, or its JSON as a dict
Reel = Union[float, str, None]  #: km, "auto" or None


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


def _reel(name: str, value: Reel) -> Tuple[bool, Optional[float]]:
    if isinstance(value, str):
        if value != "auto":
            raise UsageError(f"{name} is a length in km, or auto")
        return True, None
    return value is not None, _maybe(name, value)


def _asked_link(limits: Optional[Limits], launch: Reel, receive: Reel) -> _core.AskedLink:
    document = json.dumps(dict(limits)) if isinstance(limits, Mapping) else None
    file = None if limits is None or isinstance(limits, Mapping) else file_name(limits)
    return _core.asked_link(file, document, _reel("launch", launch), _reel("receive", receive))


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
    limits: Optional[Limits] = None,
    launch: Reel = None,
    receive: Reel = None,
) -> EventTable:
    """Finds the events of a trace.

    Thresholds that are not given come from the document `thresholds` (INI, of which `section` is read), then
    from the trace. `most_loss_db` bounds the loss threshold wherever it comes from. `ends_only` keeps the
    first and the last event; `drop_unknown` stores no blocks that nobody here knows;
    `explain` tells in `why` how each event was decided.

    `limits` judges: a document of limits by its file, or as a dict of its JSON. `launch` and `receive` are the reels at
    the ends, in km or "auto"; the link then counts from its first connector.
    """
    taken = _trace(trace)
    asked = _asked(loss_db, reflectance_db, end_db, slope_db_per_km, thresholds, section)
    bound = _maybe("most_loss_db", most_loss_db)
    link = _asked_link(limits, launch, receive)
    made = _core.analyse(taken._held, asked, link, bound, bool(ends_only), bool(drop_unknown), bool(explain))
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
    limits: Optional[Limits] = None,
    launch: Reel = None,
    receive: Reel = None,
) -> MergedTable:
    """Brings the events of both directions of a fibre together; with thresholds, both are analysed first.

    With `launch` or `receive`, in km or "auto", both are analysed, cut to the link between their own reels, and laid on
    each other. `limits` judges, as for `analyse`.
    """
    one, other = _trace(a), _trace(b)
    asked = _asked(loss_db, reflectance_db, end_db, slope_db_per_km, thresholds, section)
    link = _asked_link(limits, launch, receive)
    return result(MergedTable, _core.merge(one._held, other._held, asked, link), one._encoding)


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


def _places(
    at: Optional[float],
    from_km: Optional[float],
    to_km: Optional[float],
    event: Optional[Iterable[float]],
    kind: str,
) -> Tuple[str, List[float]]:
    stretch = from_km is not None or to_km is not None
    if (at is not None) + stretch + (event is not None) != 1:
        raise UsageError("what to measure is told by at, by from_km and to_km, or by event")
    if at is not None:
        return "at", [_number("at", at)]
    if event is not None:
        return "event", [_number("event", km) for km in event]
    return text("kind", kind), [_number("from_km", from_km), _number("to_km", to_km)]


class Meter:
    """A trace made ready to be measured at many places: it is analysed once. Threads may share it."""

    __slots__ = ("_held", "_encoding")

    def __init__(self, trace: Source) -> None:
        taken = _trace(trace)
        self._held = _core.meter(taken._held)
        self._encoding = taken._encoding

    def measure(
        self,
        *,
        at: Optional[float] = None,
        from_km: Optional[float] = None,
        to_km: Optional[float] = None,
        event: Optional[Iterable[float]] = None,
        kind: str = "two-point",
    ) -> PlaceMeasure:
        """As the function `measure`."""
        asked, places = _places(at, from_km, to_km, event, kind)
        return result(PlaceMeasure, self._held.measure(asked, places), self._encoding)


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
    A and B. For many numbers of one trace, see `Meter`.
    """
    _places(at, from_km, to_km, event, kind)
    return Meter(trace).measure(at=at, from_km=from_km, to_km=to_km, event=event, kind=kind)


def files(names: Union[Path, Iterable[Path]], *, folders: bool = False) -> Tuple[InputFile, ...]:
    """The files that names stand for: themselves, lists (`@FILE`), patterns and, with `folders`, folders of traces.

    In natural order, `_2` before `_10`. What leads nowhere has a `problem`.
    """
    given = [names] if isinstance(names, (str, os.PathLike)) else list(names)
    return tuple(InputFile(*found) for found in _core.files([file_name(name) for name in given], bool(folders)))


def cable(
    traces: Union[Source, Iterable[Source]],
    *,
    loss_db: Optional[float] = None,
    reflectance_db: Optional[float] = None,
    end_db: Optional[float] = None,
    slope_db_per_km: Optional[float] = None,
    thresholds: Optional[Path] = None,
    section: str = "NON",
    limits: Optional[Limits] = None,
    launch: Reel = "auto",
    receive: Reel = "auto",
    jobs: Optional[int] = None,
) -> CableReport:
    """Judges a whole cable: which traces are one fibre, a row a fibre, and the summary.

    Folders stand for the traces in them. A trace that can't be read is among the `findings`. `jobs` traces are
    analysed at once, as many as there are cores without it.
    """
    asked = _asked(loss_db, reflectance_db, end_db, slope_db_per_km, thresholds, section)
    link = _asked_link(limits, launch, receive)
    given: Any = [traces] if isinstance(traces, (Trace, Stored, str, os.PathLike)) else list(traces)
    sources: List[Tuple[str, Any]] = []
    for source in given:
        if isinstance(source, (Trace, Stored)):
            sources.append((_trace(source).name, source))
            continue
        for file in files(source, folders=True):
            broken = Error(file.problem, file.name) if file.problem else None
            sources.append((file.name, broken or file.name))
    notes: List[Note] = []

    def state(source: Any) -> Tuple[bytes, str, List[Tuple[str, str]]]:
        try:
            if isinstance(source, Error):
                raise source
            made, warnings = _core.cable_trace(_trace(source)._held, asked)
            return made, "", warnings
        except Error as error:
            return b"", str(error), []

    states = []
    with ThreadPoolExecutor(jobs or os.cpu_count()) as threads:
        for (name, _), (made, problem, warnings) in zip(sources, threads.map(state, [one for _, one in sources])):
            states.append((os.fsencode(name), made, problem))
            notes += [Note(words, file) for file, words in warnings]
    report = result(CableReport, _core.cable(states, link), "auto")
    object.__setattr__(report, "warnings", tuple(notes))
    return report


@dataclass(frozen=True)
class ImportedCurve:
    """A curve as a trace."""

    trace: Trace
    warnings: Tuple[Note, ...]  #: what was assumed, and levels that were changed


def import_curve(
    source: Union[Path, Tuple[Iterable[float], Iterable[float]]],
    *,
    wavelength_nm: Optional[float] = None,
    pulse_ns: Optional[float] = None,
    group_index: Optional[float] = None,
    user_offset_km: Optional[float] = None,
    backscatter_db: Optional[float] = None,
    distance: str = "",
    level: str = "",
    unit: str = "",
    name: Path = "imported",
) -> ImportedCurve:
    """Makes a trace of a curve: a CSV file, or a pair of arrays, distances in km and levels in dB.

    What is not given is assumed, and a warning names it. `distance` and `level` name columns, or number them from 1;
    `unit` is that of the distances. Distances count from `user_offset_km` behind the launch.
    """
    if isinstance(source, (str, os.PathLike)):
        shown = file_name(source)
        try:
            with io.open(source, "rb") as file:
                words = file.read()
        except OSError as error:
            raise UnreadableError(error.strerror or "cannot be read", os.fspath(source)) from error
    else:
        places, levels = (numpy.asarray(column, dtype=float) for column in source)
        if places.ndim != 1 or places.shape != levels.shape:
            raise UsageError("distances and levels are two arrays of one length")
        rows = "".join(f"{km!r},{db!r}\n" for km, db in zip(places.tolist(), levels.tolist()))
        words, shown = ("distance_km,level_db\n" + rows).encode(), b"curve"
    asked = (
        _maybe("wavelength_nm", wavelength_nm),
        _maybe("pulse_ns", pulse_ns),
        _maybe("group_index", group_index),
        _maybe("user_offset_km", user_offset_km),
        _maybe("backscatter_db", backscatter_db),
    )
    columns = (text("distance", distance), text("level", level), text("unit", unit))
    held, warnings = _core.import_curve(words, asked, columns, file_name(name), shown)
    return ImportedCurve(Trace(held), tuple(Note(told, file) for file, told in warnings))


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
