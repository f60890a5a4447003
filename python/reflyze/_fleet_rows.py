# SPDX-License-Identifier: Apache-2.0
"""What is done with the traces of a fleet, where it is done: rows as plain dicts, and rows as texts."""

from __future__ import annotations

import json
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Tuple

from . import _core
from ._errors import Error, UsageError
from ._fleet_items import Reader, Unit, shown
from ._trace import from_bytes
from ._values import one_line
from ._work import _asked, _asked_link, simulate

Row = Dict[str, Any]

TEXT, NUMBER, WHOLE, FLAG = "text", "number", "whole", "flag"


def _columns(words: str) -> Dict[str, str]:
    kinds = {"": NUMBER, "$": TEXT, "#": WHOLE, "?": FLAG}
    return {word.rstrip("$#?"): kinds[word[len(word.rstrip("$#?")) :]] for word in words.split()}


_DEVIATIONS = " ".join(
    f"{of}_deviation_{unit} {of}_exceeded? {of}_measured_{unit} {of}_measured_sd_{unit}"
    for of, unit in (("lt", "db"), ("rt", "db"), ("ct", "db_per_km"))
)

#: Columns of each work, and what they hold. All rows have all of them, None for what was not measured.
COLUMNS: Dict[str, Dict[str, str]] = {
    "analyse": _columns(
        "file$ part# problem$ warnings$ wavelength_nm pulse_ns length_km total_loss_db total_loss_sd_db orl_db verdict$"
        " number# distance_km distance_sd_m type$ code$ loss_db loss_sd_db reflectance_db reflectance_sd_db"
        " reflectance_at_least? attenuation_db_per_km attenuation_sd_db_per_km cumulated_db probability comment$"
        " loss_verdict$ reflectance_verdict$ attenuation_verdict$"
    ),
    "compare": _columns(
        "file$ baseline$ problem$ warnings$ result# changed? level$ sentences$ number# distance_km type$ code$ loss_db"
        " reflectance_db attenuation_db_per_km cumulated_db comment$ monitored? new? fail? fiber_break?"
        " new_contradicted? " + _DEVIATIONS
    ),
    "merge": _columns(
        "file$ file_b$ problem$ warnings$ pulse_ns length_km link_loss_db link_loss_sd_db orl_db verdict$ number#"
        " distance_km code$ loss_a_db loss_a_sd_db loss_b_db loss_b_sd_db loss_db loss_sd_db reflectance_a_db"
        " reflectance_b_db seen_from$ attenuation_db_per_km attenuation_sd_db_per_km loss_verdict$ reflectance_verdict$"
        " attenuation_verdict$"
    ),
    "judge": _columns(
        "file$ part# problem$ warnings$ wavelength_nm pulse_ns length_km total_loss_db total_loss_sd_db orl_db events#"
        " verdict$ length_verdict$ span_loss_verdict$ return_loss_verdict$ link_attenuation_verdict$ failing_events#"
        " sentences$"
    ),
}

_THRESHOLDS = ("loss_db", "reflectance_db", "end_db", "slope_db_per_km", "thresholds", "section")
_LINK = ("limits", "launch", "receive")
OPTIONS = {
    "analyse": (*_THRESHOLDS, *_LINK, "most_loss_db", "ends_only"),
    "judge": (*_THRESHOLDS, *_LINK),
    "merge": (*_THRESHOLDS, *_LINK),
    "compare": ("recheck",),
}


class Work(NamedTuple):
    """What is to be done with each unit; goes to workers."""

    kind: str
    options: Dict[str, Any]
    folder: str  #: that names count from
    encoding: str = "auto"


class Tally(NamedTuple):
    """What a part has come to."""

    units: int = 0
    rows: int = 0
    changed: int = 0  #: traces that differ from their baseline
    failing: int = 0  #: traces that fail their limits
    problems: int = 0
    first: Tuple[str, ...] = ()  #: sentences of some problems

    def plus(self, other: Tally) -> Tally:
        units, rows, changed, failing, problems = (a + b for a, b in zip(self[:5], other[:5]))
        return Tally(units, rows, changed, failing, problems, (self.first + other.first)[:20])


class Settings:
    """The options of a work, made ready for the library."""

    def __init__(self, work: Work) -> None:
        unknown = [name for name in work.options if name not in OPTIONS[work.kind]]
        if unknown:
            raise TypeError(f"{work.kind} has no option {', '.join(unknown)}")
        given: Any = work.options
        rules = {name: given.get(name) for name in _THRESHOLDS}
        rules["section"] = given.get("section", "NON")
        self.asked = _asked(**rules)
        self.link = _asked_link(*(given.get(name) for name in _LINK))
        self.most_loss_db = given.get("most_loss_db")
        self.ends_only = bool(given.get("ends_only"))
        self.recheck = bool(given.get("recheck"))
        if work.kind == "judge" and given.get("limits") is None:
            raise UsageError("judging needs limits")


def try_out(work: Work) -> None:
    """Stops a work with wrong options before it begins, by a small trace: later each trace would fail by them."""
    settings = Settings(work)
    link = {"range_km": 3, "points": 2000, "sections": [{"length_km": 2}]}
    trace = from_bytes(bytes(simulate(link).trace), encoding=work.encoding)
    judged = _asked_link(work.options.get("limits"), None, None)  # reels are a matter of the trace
    _core.analyse(trace._held, settings.asked, judged, settings.most_loss_db, False, False, False)


def _filled(columns: Dict[str, str], *parts: Row) -> Row:
    row: Row = dict.fromkeys(columns)
    for part in parts:
        for name, value in part.items():
            if name in row:
                row[name] = value
    return row


def _event_rows(columns: Dict[str, str], head: Row, events: List[Row]) -> Iterator[Row]:
    """A row an event, or one where there is none."""
    for event in events or [{}]:
        verdicts = event.pop("verdict", None) or {}
        flat = {f"{name}_verdict": verdict for name, verdict in verdicts.items()}
        for of, unit in (("lt", "db"), ("rt", "db"), ("ct", "db_per_km")):
            for name, value in (event.pop(of, None) or {}).items():
                flat[f"{of}_{name[:-3]}_{unit}" if name.endswith("_db") else f"{of}_{name}"] = value
        yield _filled(columns, event, flat, head)


def _head(names: Row, made: _core.Made, members: Row) -> Row:
    notes = "; ".join(one_line(text) for text, _ in made.warnings)
    return {**members, **names, "warnings": notes or None}


def _tables(work: Work, settings: Settings, reader: Reader, unit: Unit) -> Iterator[Tuple[_core.Made, Row, Row]]:
    traces = reader.read(unit[0]).traces
    for part, trace in enumerate(traces, 1):
        made = _core.analyse(
            trace._held, settings.asked, settings.link, settings.most_loss_db, settings.ends_only, False, False
        )
        table: Row = json.loads(made.text("json"))
        names = {"file": shown(unit[0].name), "part": part}
        yield made, table, _head(names, made, table)


def _analysed(work: Work, settings: Settings, reader: Reader, unit: Unit) -> Iterator[Row]:
    for _, table, head in _tables(work, settings, reader, unit):
        yield from _event_rows(COLUMNS["analyse"], head, table["events"])


def _judged(work: Work, settings: Settings, reader: Reader, unit: Unit) -> Iterator[Row]:
    for _, table, head in _tables(work, settings, reader, unit):
        span = table.get("span")
        if span:  # between the reels, as the limits see it
            head.update(length_km=span["length_km"], orl_db=span["orl_db"])
            head.update(total_loss_db=span["loss_db"], total_loss_sd_db=span["loss_sd_db"])
        link = dict(table.get("verdicts") or {})
        head["sentences"] = "; ".join(link.pop("sentences", ())) or None
        head.update({f"{name}_verdict": verdict for name, verdict in link.items()})
        head["events"] = len(table["events"])
        head["failing_events"] = sum("fail" in (event.get("verdict") or {}).values() for event in table["events"])
        yield _filled(COLUMNS["judge"], head)


def _compared(work: Work, settings: Settings, reader: Reader, unit: Unit) -> Iterator[Row]:
    baseline, current = unit
    made = _core.compare(reader.read_again(baseline)._held, reader.read(current)._held, settings.recheck)
    table: Row = json.loads(made.text("json"))
    head = _head({"file": shown(current.name), "baseline": shown(baseline.name)}, made, table)
    head["changed"] = table["fail"] or table["result"] != 1
    head["sentences"] = "; ".join(table["sentences"]) or None
    head.pop("fail")  # events have theirs
    yield from _event_rows(COLUMNS["compare"], head, table["events"])


def _merged(work: Work, settings: Settings, reader: Reader, unit: Unit) -> Iterator[Row]:
    if len(unit) == 1:
        raise Error(unit[0].problem or "the other direction is missing", unit[0].name)
    a, b = (reader.read(item) for item in unit)
    made = _core.merge(a._held, b._held, settings.asked, settings.link)
    table: Row = json.loads(made.text("json"))
    head = _head({"file": shown(unit[0].name), "file_b": shown(unit[1].name)}, made, table)
    head.update(link_loss_db=head.pop("loss_db", None), link_loss_sd_db=head.pop("loss_sd_db", None))
    yield from _event_rows(COLUMNS["merge"], head, table["events"])


_WORKS: Dict[str, Callable[[Work, Settings, Reader, Unit], Iterator[Row]]] = {
    "analyse": _analysed,
    "compare": _compared,
    "merge": _merged,
    "judge": _judged,
}


def bad_row(kind: str, unit: Unit, sentence: str, at_fault: str = "") -> Row:
    """The row of a unit that could not be worked on. It names the one of two that is at fault, where one is."""
    own = unit[-1] if kind == "compare" else unit[0]
    names: Row = {"file": shown(own.name)}
    other = shown(unit[0].name if kind == "compare" else unit[-1].name)
    if len(unit) == 2 and other:
        names["baseline" if kind == "compare" else "file_b"] = other
    if at_fault and shown(at_fault) == other != names["file"]:
        sentence = f"{other}: {sentence}"
    return _filled(COLUMNS[kind], names, {"problem": one_line(sentence)})


def rows_of_unit(work: Work, settings: Settings, reader: Reader, unit: Unit) -> List[Row]:
    """Rows of one unit. A bad file costs its own row and nothing else."""
    try:
        return list(_WORKS[work.kind](work, settings, reader, unit))
    except Error as error:
        return [bad_row(work.kind, unit, error.sentence, error.file or "")]
    except OSError as error:
        return [bad_row(work.kind, unit, error.strerror or str(error))]
    except MemoryError:
        return [bad_row(work.kind, unit, "asks for more memory than there is")]


def rows_of(work: Work, units: List[Unit]) -> List[List[Row]]:
    """Rows of each unit of a part."""
    settings = Settings(work)
    with Reader(work.folder, work.encoding) as reader:
        return [rows_of_unit(work, settings, reader, unit) for unit in units]


def _cell(value: Any) -> str:
    if value is None:
        return ""
    if isinstance(value, str):
        return '"' + value.replace('"', '""') + '"'
    return str(int(value)) if isinstance(value, bool) else repr(value)


def encoded(form: str, columns: Dict[str, str], rows: List[Row]) -> Any:
    """Rows as they are sent back: themselves, or bytes of CSV or of JSON lines, or the values of each column."""
    if form == "csv":
        return "".join(",".join(map(_cell, row.values())) + "\n" for row in rows).encode()
    if form == "jsonl":
        one = json.JSONEncoder(ensure_ascii=False, allow_nan=False, separators=(",", ":")).encode
        return "".join(one(row) + "\n" for row in rows).encode()
    if form == "columns":
        return {name: [row[name] for row in rows] for name in columns}
    return rows


def finished(kind: str, form: str, of_units: List[List[Row]]) -> Tuple[Any, Tally]:
    """Rows of a part, made ready to be sent back, and what they come to."""
    rows = [row for own in of_units for row in own]
    problems = [f"{row['file']}: {row['problem']}" for row in rows if row["problem"] is not None]
    tally = Tally(
        len(of_units),
        len(rows),
        sum(any(row.get("changed") for row in own) for own in of_units),
        sum(any(row.get("verdict") == "fail" for row in own) for own in of_units),
        len(problems),
        tuple(problems[:20]),
    )
    return encoded(form, COLUMNS[kind], rows), tally


def done(work: Work, units: List[Unit], form: str) -> Tuple[Any, Tally]:
    """A part, worked on. This is what workers run."""
    return finished(work.kind, form, rows_of(work, units))
