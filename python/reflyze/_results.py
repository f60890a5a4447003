# SPDX-License-Identifier: Apache-2.0
"""Results: values with the names of the program's JSON, which can be stored, shown and pickled."""

from __future__ import annotations

import json
from dataclasses import dataclass
from typing import Any, ClassVar, Dict, Optional, Tuple, Type, TypeVar

from . import _core
from ._trace import Note, Path, Trace, file_name, from_bytes
from ._values import (
    CableFibre,
    CableFigures,
    CableJoint,
    CableTotals,
    ComparedEvent,
    EndInLastPercent,
    Event,
    FieldChange,
    FilterEvent,
    Histogram,
    JudgedEvent,
    Launch,
    Level,
    LinkVerdicts,
    MergedEvent,
    Reason,
    SheetCard,
    SheetEvent,
    SheetTotals,
    Span,
    Stretch,
    Thresholds,
    TrueEvent,
    decibels,
    from_json,
    one_line,
)


class Result:
    """What all results can do."""

    _made: _core.Made
    _encoding: str
    warnings: Tuple[Note, ...] = ()  #: what a user should know of the files

    def to_dict(self) -> Dict[str, Any]:
        """The program's JSON, parsed."""
        parsed: Dict[str, Any] = json.loads(self.to_json())
        return parsed

    def to_json(self) -> str:
        """The program's JSON: one line with its end."""
        return self._made.text("json")

    def to_text(self) -> str:
        """What the program prints for people."""
        return self._made.text("text")

    def to_csv(self) -> str:
        """The program's CSV, with its heading."""
        return self._made.text("csv")

    def to_frame(self) -> Any:
        """The events as a pandas.DataFrame, a line each; needs pandas."""
        from ._show import frame

        return frame(self)

    def _about(self) -> str:
        raise NotImplementedError

    def __reduce__(self) -> Tuple[Any, ...]:
        return _restored, (type(self), self._made.parts, self._encoding)

    def __repr__(self) -> str:
        return one_line(f"<{self._about()}>")

    def __str__(self) -> str:
        return self.to_text()


Made = TypeVar("Made", bound=Result)


def result(kind: Type[Made], made: _core.Made, encoding: str) -> Made:
    """The Python value of what the library has made."""
    members = json.loads(made.text("json"))
    members["warnings"] = []
    value = from_json(kind, members)
    # The values are frozen for their users.
    object.__setattr__(value, "_made", made)
    object.__setattr__(value, "_encoding", encoding)
    object.__setattr__(value, "warnings", tuple(Note(text, file) for file, text in made.warnings))
    return value


def _restored(kind: Type[Made], parts: Tuple[Any, Any, Any], encoding: str) -> Made:
    return result(kind, _core.made(*parts), encoding)


class Stored(Result):
    """A result that belongs to a record."""

    file: str

    @property
    def trace(self) -> Trace:
        """The trace with its results: what reading the saved file would give."""
        return from_bytes(bytes(self), self.file, self._encoding)

    def save(self, path: Path) -> None:
        """Stores the record with its results, whole or not at all."""
        self._made.save([file_name(path)])

    def __bytes__(self) -> bytes:
        return self._made.file(0)


@dataclass(frozen=True, repr=False, eq=False)
class EventTable(Stored):
    """The events of one trace, with what they were found by."""

    file: str
    points: int
    wavelength_nm: float
    pulse_ns: float
    spacing_m: float
    thresholds: Thresholds
    noise_floor_db: float
    length_km: Optional[float]
    total_loss_db: Optional[float]
    total_loss_sd_db: Optional[float]  #: standard deviation of its error; None where nothing was measured
    orl_db: Optional[float]
    fibre: bool  #: the trace shows one
    events: Tuple[Event, ...]
    why: Optional[Tuple[Reason, ...]] = None  #: in the order of the decisions; None unless asked for
    span: Optional[Span] = None  #: between the reels; None unless there are some
    verdict: Optional[str] = None  #: pass, warning, marginal, fail; None without limits
    verdicts: Optional[LinkVerdicts] = None

    def _about(self) -> str:
        if not self.fibre:
            return f"events of {self.file}: no fibre"
        loss = decibels(self.total_loss_db, self.total_loss_sd_db)
        return f"events of {self.file}: {len(self.events)}, {self.length_km or 0.0:.4f} km, {loss}"


@dataclass(frozen=True, repr=False, eq=False)
class Baseline(Stored):
    """A trace that others of its fibre are compared with."""

    file: str
    points: int
    wavelength_nm: float
    pulse_ns: float
    spacing_m: float
    thresholds: Thresholds
    noise_floor_db: float
    length_km: Optional[float]
    total_loss_db: Optional[float]
    orl_db: Optional[float]
    fibre: bool
    events: Tuple[Event, ...]
    level: Level
    search: Tuple[Stretch, ...]
    settings: Dict[str, float]

    def _about(self) -> str:
        return f"baseline {self.file}: level {self.level.name}, {len(self.events)} events"


@dataclass(frozen=True, repr=False, eq=False)
class Comparison(Stored):
    """What changed on a fibre since its baseline."""

    file: str
    baseline: str
    result: int
    fail: bool
    level: str
    sentences: Tuple[str, ...]
    events: Tuple[ComparedEvent, ...]

    #: What `result` says: the flags of the events tell; another fibre or none; no level; a broken fibre.
    COMPARED: ClassVar[int] = 1
    NO_LINK: ClassVar[int] = 10002
    NO_ACTIVE_LEVEL: ClassVar[int] = 10003
    FIBRE_BREAK: ClassVar[int] = 10004

    @property
    def changed(self) -> bool:
        """Whether anything did."""
        return self.fail or self.result != self.COMPARED

    def _about(self) -> str:
        return f"comparison of {self.file} with {self.baseline}: {'; '.join(self.sentences)}"


@dataclass(frozen=True, repr=False, eq=False)
class MergedTable(Result):
    """Two directions of one fibre in one table."""

    a: str
    b: str
    pulse_ns: float
    length_km: float
    events: Tuple[MergedEvent, ...]
    span_a: Optional[Span] = None  #: between the reels; None unless there are some
    span_b: Optional[Span] = None
    ends_apart_m: Optional[float] = None  #: length seen from A less that seen from B
    loss_db: Optional[float] = None  #: of the link between its reels, mean of both
    loss_sd_db: Optional[float] = None
    orl_db: Optional[float] = None  #: the worse of both
    verdict: Optional[str] = None  #: None without limits
    verdicts: Optional[LinkVerdicts] = None

    @property
    def traces(self) -> Tuple[Trace, Trace]:
        """Each direction with the events of both."""
        made, encoding = self._made, self._encoding
        return from_bytes(made.file(0), self.a, encoding), from_bytes(made.file(1), self.b, encoding)

    def save(self, path_a: Path, path_b: Path) -> None:
        """Stores both records with their merged events, both or none."""
        self._made.save([file_name(path_a), file_name(path_b)])

    def _about(self) -> str:
        return f"merge of {self.a} and {self.b}: {len(self.events)} events, {self.length_km:.4f} km"


@dataclass(frozen=True, repr=False, eq=False)
class QualityTable(Result):
    """How far a trace and its events can be believed."""

    file: str
    pulse_ns: float
    fibre: bool
    length_km: Optional[float]
    noise_floor_db: float
    measurable_km: Optional[float]  #: up to which losses can be measured
    all_measurable: bool
    launch: Launch
    end_in_last_percent: EndInLastPercent
    events: Tuple[JudgedEvent, ...]
    long_pulse: Optional[str] = None

    def _about(self) -> str:
        reach = "no fibre" if self.measurable_km is None else f"measurable to {self.measurable_km:.4f} km"
        return f"quality of {self.file}: {len(self.events)} events, {reach}"


@dataclass(frozen=True, repr=False, eq=False)
class Sheet(Result):
    """What a file says of itself, and what is measured beside it."""

    file: str
    bytes: int
    revision: int  #: 200 for issue 2 of SR-4731
    card: SheetCard
    length_km: Optional[float]
    total_loss_db: Optional[float]
    orl_db: Optional[float]
    events: Tuple[SheetEvent, ...]
    measured: Optional[SheetTotals] = None  #: None unless it was asked for

    def _about(self) -> str:
        return f"sheet of {self.file}: {len(self.events)} events, {self.card.points} points"


@dataclass(frozen=True, repr=False, eq=False)
class PlaceMeasure(Result):
    """What was measured between markers; None for what was not asked for, or what noise hides."""

    file: str
    kind: str  #: at, two-point, least-squares, return-loss, event
    places_km: Tuple[float, ...]  #: of the points nearest to those asked for
    level_db: Optional[float]
    level_sd_db: Optional[float]
    loss_db: Optional[float]
    loss_sd_db: Optional[float]
    attenuation_db_per_km: Optional[float]
    attenuation_sd_db_per_km: Optional[float]
    orl_db: Optional[float]
    orl_sd_db: Optional[float]
    orl_at_most: bool  #: the receiver was saturated
    reflectance_db: Optional[float]
    reflectance_sd_db: Optional[float]
    reflectance_at_least: bool  #: the receiver was saturated

    def _about(self) -> str:
        places = ", ".join(f"{km:.4f}" for km in self.places_km)
        return f"measure {self.kind} of {self.file} at {places} km"


@dataclass(frozen=True, repr=False, eq=False)
class CableReport(Result):
    """A cable, judged; its CSV has a row a fibre and wavelength."""

    cable: str
    passing: int
    failing: int
    launch_reel_km: Optional[float]
    receive_reel_km: Optional[float]
    fibres: Tuple[CableFibre, ...]
    joints: Tuple[CableJoint, ...]
    length_km: CableFigures
    wavelengths: Tuple[CableTotals, ...]
    histogram: Histogram
    findings: Tuple[str, ...]  #: of files: duplicates, doubts, what could not be used

    def to_frame(self) -> Any:
        """The same rows as a pandas.DataFrame; needs pandas."""
        import io

        import pandas

        return pandas.read_csv(io.StringIO(self.to_csv()), dtype={"fibre": str})

    def _about(self) -> str:
        return f"cable {self.cable}: {self.passing} fibres pass, {self.failing} fail"


@dataclass(frozen=True, repr=False, eq=False)
class Edited(Stored):
    """A file with changed fields; every other byte is as it was."""

    file: str
    changes: Tuple[FieldChange, ...]

    def to_csv(self) -> str:
        raise TypeError("an edit has no events")

    def to_frame(self) -> Any:
        raise TypeError("an edit has no events")

    def _about(self) -> str:
        return f"edit of {self.file}: {len(self.changes)} changes"


@dataclass(frozen=True, repr=False, eq=False)
class FilterTable(Stored):
    """What a filter did to a trace and found on the way."""

    file: str
    kind: str
    level: float
    points: int
    spacing_m: float
    kernel_points: int
    count: int
    first_begin: int
    ghost_count: int
    ring_count: int
    polar: float
    polar_end: float
    noise_low: Optional[float]
    noise_high: Optional[float]
    events: Tuple[FilterEvent, ...]

    def _about(self) -> str:
        return f"filter {self.kind} of {self.file}: {self.points} points, {self.count} events"


@dataclass(frozen=True, repr=False, eq=False)
class Simulation(Stored):
    """A simulated trace and what stands on it."""

    file: str
    points: int
    wavelength_nm: float
    pulse_ns: float
    spacing_m: float
    thresholds: Thresholds
    noise_floor_db: float
    noise_rms_db: float
    length_km: float
    total_loss_db: float
    orl_db: Optional[float]
    ghosts_km: Tuple[float, ...]
    events: Tuple[TrueEvent, ...]

    def save(self, path: Path, truth: Optional[Path] = None) -> None:
        """Stores the trace, whole or not at all; with `truth` also what stands on it, as JSON, both or none."""
        names = [file_name(path)]
        self._made.save(names if truth is None else names + [file_name(truth)])

    def _about(self) -> str:
        return f"simulation {self.file}: {len(self.events)} events, {self.length_km:.4f} km"
