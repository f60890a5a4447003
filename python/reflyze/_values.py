# SPDX-License-Identifier: Apache-2.0
"""What results consist of. Names and units are those of the program's JSON; None is its null."""

from __future__ import annotations

import typing
from dataclasses import dataclass, fields, is_dataclass
from datetime import datetime, timezone
from typing import Any, Dict, List, Mapping, Optional, Tuple, Type, TypeVar, Union

Value = TypeVar("Value")


def one_line(text: str) -> str:
    """A text of a record as part of a line: control characters become question marks."""
    return "".join(c if c.isprintable() else "?" for c in text)


def decibels(value: Optional[float], deviation: Optional[float] = None) -> str:
    if value is None:
        return "-"
    return f"{value:.3f} dB" if deviation is None else f"{value:.3f} \u00b1{deviation:.3f} dB"


@dataclass(frozen=True)
class Card:
    """What a record says of itself. Texts may be blank; numbers stand as the file has them."""

    cable: str
    fibre: str
    cable_code: str
    from_: str  #: originating location
    to: str  #: terminating location
    operator_name: str
    comment: str
    supplier: str
    instrument: str
    instrument_serial: str
    module: str
    module_serial: str
    software: str
    fibre_type: int  #: ITU-T recommendation: 652 for G.652
    date_utc: int  #: seconds since 1970, 0 where the file tells none
    wavelength_nm: float
    pulse_ns: float
    points: int
    spacing_m: float
    range_km: float
    group_index: float
    backscatter_db: Optional[float]  #: coefficient for a pulse of 1 ns
    averages: int
    user_offset_km: float  #: the user's zero, from the first sample

    @property
    def date(self) -> Optional[datetime]:
        """When it was measured, in UTC."""
        return datetime.fromtimestamp(self.date_utc, timezone.utc) if self.date_utc else None


@dataclass(frozen=True)
class Thresholds:
    """What an analysis took for an event."""

    lt_db: Optional[float]
    rt_db: Optional[float]
    et_db: Optional[float]
    ct_db_per_km: Optional[float]


@dataclass(frozen=True)
class EventVerdict:
    """What the numbers of an event are worth: pass, warning, marginal, fail; None without a limit or a number.

    Events that can't be told apart are one group, and judged by the sum of their parts.
    """

    loss: Optional[str]
    reflectance: Optional[str]
    attenuation: Optional[str]  #: of the section before
    group: Optional[int] = None  #: from 1
    group_loss_db: Optional[float] = None
    group_limit_db: Optional[float] = None


@dataclass(frozen=True)
class LinkVerdicts:
    """What the numbers of a link are worth."""

    length: Optional[str]
    span_loss: Optional[str]
    return_loss: Optional[str]
    link_attenuation: Optional[str]
    sentences: Tuple[str, ...]  #: what is no pass, along the fibre: number, limit, verdict


@dataclass(frozen=True)
class Span:
    """The link between the reels, with both connectors."""

    first_event: Optional[int]  #: number of its first connector
    last_event: Optional[int]  #: number of its last connector
    launch_reel_km: Optional[float]
    receive_reel_km: Optional[float]
    length_km: float
    loss_db: Optional[float]
    loss_sd_db: Optional[float]
    orl_db: Optional[float]


@dataclass(frozen=True)
class ModuleAnswer:
    """What the search answered for an event before it was measured."""

    ept: int  #: one-way time from the first sample, 100 ps
    loss_db: float
    reflectance_db: Optional[float]
    attenuation_db_per_km: float  #: of the section before


@dataclass(frozen=True, repr=False)
class Event:
    """A place on the fibre where light is lost, gained or reflected.

    Each `_sd_` is the standard deviation of the error of the number before it. None stands for what was not
    measured, and for all of the measuring where the table was not measured at all.
    """

    number: int
    ept: int  #: one-way time from the first sample, 100 ps
    distance_km: float  #: from the user's zero
    distance_sd_m: Optional[float]
    type: str
    code: str
    technique: str
    loss_db: Optional[float]
    loss_sd_db: Optional[float]
    reflectance_db: Optional[float]
    reflectance_sd_db: Optional[float]
    reflectance_at_least: bool  #: the receiver was saturated
    attenuation_db_per_km: Optional[float]  #: of the section before
    attenuation_sd_db_per_km: Optional[float]
    cumulated_db: Optional[float]
    probability: Optional[float]  #: that the event is real
    markers: Tuple[int, ...]
    comment: str
    module: Optional[ModuleAnswer]  #: None for an event that only the measuring has found
    verdict: Optional[EventVerdict]  #: None without limits

    def __repr__(self) -> str:
        loss = decibels(self.loss_db, self.loss_sd_db)
        return one_line(f"<event {self.number} at {self.distance_km:.4f} km: {self.type}, loss {loss}>")


@dataclass(frozen=True)
class Reason:
    """Why a stage of the analysis decided as it did: what it looked at, what it chose, and by which limit."""

    search: int  #: the analysis searches again where a table can't be true: which time
    stage: str
    choice: str
    distance_km: float  #: from the user's zero
    value: float
    limit: Optional[float]
    unit: str  #: of value and limit
    reason: str


@dataclass(frozen=True)
class Deviation:
    """A change against the baseline, or the quantity itself where that is limited; dB or dB/km."""

    deviation_db: Optional[float]
    absolute: bool
    compared: bool
    exceeded: bool
    measured_db: Optional[float]  #: the same, measured on both traces; None where one of them does not tell
    measured_sd_db: Optional[float]  #: standard deviation of its error
    contradicted: bool  #: the limit would be exceeded but for what was measured


@dataclass(frozen=True, repr=False)
class ComparedEvent(Event):
    """An event with what became of it."""

    monitored: bool
    new: bool
    fail: bool
    fiber_break: bool
    new_contradicted: bool  #: it was taken for new, but its loss is not
    lt: Deviation
    rt: Deviation
    ct: Deviation


@dataclass(frozen=True)
class Level:
    """An alarm level and its limits."""

    name: str
    lt_db: float
    rt_db: float
    ct_db_per_km: float
    eel_db: float


@dataclass(frozen=True)
class Stretch:
    """A part of the fibre, from the user's zero."""

    from_km: float
    to_km: float


@dataclass(frozen=True)
class MergedEvent:
    """An event as both directions saw it."""

    number: int
    distance_km: float  #: from the first end
    code: str
    loss_a_db: Optional[float]
    loss_a_sd_db: Optional[float]  #: standard deviation of its error
    loss_b_db: Optional[float]
    loss_b_sd_db: Optional[float]
    loss_db: Optional[float]  #: mean of both
    loss_sd_db: Optional[float]
    reflectance_a_db: Optional[float]
    reflectance_b_db: Optional[float]
    seen_from: str
    attenuation_db_per_km: Optional[float] = None  #: of the section before; None unless there are reels
    attenuation_sd_db_per_km: Optional[float] = None
    verdict: Optional[EventVerdict] = None  #: None without limits


@dataclass(frozen=True)
class Launch:
    """How the light came into the fibre."""

    state: str
    quality: Optional[float]  #: smaller is better
    level_db: Optional[float]


@dataclass(frozen=True)
class EndInLastPercent:
    """Whether the fibre ends in the last so many percent of the range."""

    percent: int
    result: Optional[bool]


@dataclass(frozen=True)
class JudgedEvent:
    """An event and how far it can be trusted."""

    number: int
    distance_km: float
    distance_sd_m: Optional[float]  #: standard deviation of the place that was measured
    code: str
    loss_db: Optional[float]
    loss_sd_db: Optional[float]
    probability: Optional[float]  #: that the event is real
    trust_m: float  #: either side of its place
    measurable: str
    two_pulse_loss_db: Optional[float] = None  #: with a longer pulse


@dataclass(frozen=True)
class CodeMeaning:
    """What an event code says."""

    words: str
    known: bool  #: all of it is of the standard
    by_hand: bool  #: a person has added or moved the event
    ends_fibre: bool  #: the fibre ends there, or leaves the range


@dataclass(frozen=True)
class SheetCard:
    """What a file says of its fibre, its instrument, and how the trace was taken; None where it does not."""

    cable: str
    fibre: str
    cable_code: str
    fibre_type: Optional[int]
    from_: str
    to: str
    direction: Optional[str]  #: ST, RT (from the other end), DT, RF
    state: Optional[str]  #: BC as built, CC as it was at the time, RC as repaired, OT other
    date_utc: Optional[str]
    date_local: Optional[str]  #: by the clock of this place
    operator: str
    comment: str
    supplier: str
    instrument: str
    instrument_serial: str
    module: str
    module_serial: str
    software: str
    wavelength_nm: float
    nominal_nm: float
    pulse_ns: float
    points: int
    spacing_m: Optional[float]
    range_km: Optional[float]
    first_km: Optional[float]  #: where the first point stands
    group_index: float
    backscatter_db: Optional[float]
    averages: Optional[int]
    averaging_time: Optional[int]  #: as stored: tenths of a second by the standard, seconds from many makers
    user_offset_km: Optional[float]
    noise_floor_db: Optional[float]
    thresholds: Thresholds


@dataclass(frozen=True)
class SheetTotals:
    """Length and sums of a link."""

    length_km: Optional[float]
    total_loss_db: Optional[float]
    orl_db: Optional[float]


@dataclass(frozen=True)
class MeasuredBeside:
    """What was measured where a file lists an event, or where it lists none."""

    distance_km: float
    distance_sd_m: Optional[float]
    code: str
    loss_db: Optional[float]
    loss_sd_db: Optional[float]
    reflectance_db: Optional[float]
    reflectance_sd_db: Optional[float]
    reflectance_at_least: bool
    attenuation_db_per_km: Optional[float]
    attenuation_sd_db_per_km: Optional[float]
    probability: Optional[float]


@dataclass(frozen=True)
class SheetDifference:
    """What was measured less what the file has."""

    distance_m: Optional[float]
    loss_db: Optional[float]
    reflectance_db: Optional[float]
    attenuation_db_per_km: Optional[float]


@dataclass(frozen=True)
class SheetEvent:
    """An event of a file; all but the last two are None for one that only measuring has found."""

    number: Optional[int]
    ept: Optional[int]
    distance_km: Optional[float]
    type: Optional[str]
    code: Optional[str]
    technique: Optional[str]
    meaning: Optional[str]  #: the code in words
    by_hand: Optional[bool]  #: a person has added or moved it
    loss_db: Optional[float]
    reflectance_db: Optional[float]
    reflectance_at_least: Optional[bool]
    attenuation_db_per_km: Optional[float]
    cumulated_db: Optional[float]
    markers: Optional[Tuple[int, ...]]
    comment: Optional[str]
    measured: Optional[MeasuredBeside] = None
    difference: Optional[SheetDifference] = None


@dataclass(frozen=True)
class CableNumbers:
    """A fibre at one wavelength."""

    wavelength_nm: int
    file_a: str  #: "" for none
    file_b: str
    length_km: Optional[float]  #: between the connectors
    loss_db: Optional[float]  #: mean of both directions
    orl_db: Optional[float]
    worst_splice_db: Optional[float]
    worst_connector_db: Optional[float]
    events: int
    verdict: Optional[str] = None  #: None without limits
    sentences: Optional[Tuple[str, ...]] = None


@dataclass(frozen=True)
class CableFibre:
    """A fibre of a cable."""

    fibre: str
    verdict: str
    findings: Tuple[str, ...]  #: what is wrong beside its numbers
    wavelengths: Tuple[CableNumbers, ...]


@dataclass(frozen=True)
class CableJoint:
    """Joints at the same place through all fibres."""

    distance_km: float
    kind: str  #: splice, connector
    fibres: int
    mean_db: float
    sd_db: float
    largest_db: float
    bad: Tuple[str, ...]  #: names of fibres
    for_all: bool  #: the place is bad, and not a splice


@dataclass(frozen=True)
class CableFigures:
    """A number over all fibres."""

    count: int
    least: Optional[float]
    mean: Optional[float]
    largest: Optional[float]
    sd: Optional[float]


@dataclass(frozen=True)
class CableTotals:
    """One wavelength of a cable."""

    wavelength_nm: int
    loss_db: CableFigures
    orl_db: CableFigures
    splice_db: CableFigures


@dataclass(frozen=True)
class Histogram:
    """Splices by their loss: gains, then steps of `width_db`, the last one open."""

    width_db: float
    counts: Tuple[int, ...]


@dataclass(frozen=True)
class InputFile:
    """One file of a job, or what could not be made one."""

    name: str
    below: str  #: its path below the folder that was named
    problem: str  #: "" where there is a file


@dataclass(frozen=True)
class FieldChange:
    """What an edit has changed, in words."""

    field: str
    before: str
    after: str


@dataclass(frozen=True)
class FilterPlaces:
    """The same quantity at three points of what the filter found."""

    begin: float
    peak: float
    end: float


@dataclass(frozen=True)
class FilterEvent:
    """Where the automatic filter stopped; points of the trace."""

    begin: int
    rise: int
    peak: int
    end: int
    tail: int
    gradeUp: int
    gradeDown: int
    width: int
    type: str
    level_db: FilterPlaces
    distance_km: FilterPlaces


@dataclass(frozen=True)
class TrueEvent:
    """What stands on a simulated fibre, as an ideal analysis would report it."""

    number: int
    ept: float
    distance_km: float
    code: str
    loss_db: float
    insertion_loss_db: float
    reflectance_db: Optional[float]
    peak_db: float
    attenuation_db_per_km: float
    snr_db: float


_types: Dict[type, Dict[str, Any]] = {}


def _types_of(kind: type) -> Dict[str, Any]:
    if kind not in _types:
        _types[kind] = typing.get_type_hints(kind)
    return _types[kind]


def from_json(kind: Type[Value], members: Mapping[str, Any]) -> Value:
    """A value from the members of a JSON object that have its names; None where one may be missing and is.

    A name that Python has for itself has an underscore behind it.
    """
    types = _types_of(kind)
    keys = {field.name: field.name.rstrip("_") for field in fields(kind)}
    names = [name for name, key in keys.items() if key in members or _inside(types[name])[1]]
    return kind(**{name: _converted(types[name], members.get(keys[name])) for name in names})


def _inside(kind: Any) -> Tuple[Any, bool]:
    """The type of a value, and whether it may be None."""
    if typing.get_origin(kind) is not Union:
        return kind, False
    return typing.get_args(kind)[0], True


def _converted(kind: Any, value: Any) -> Any:
    if value is None:
        return None
    origin, inner = typing.get_origin(kind), typing.get_args(kind)
    if origin is Union:
        return _converted(inner[0], value)
    if origin is tuple:
        return tuple(_converted(inner[0], item) for item in value)
    if is_dataclass(kind):
        return from_json(kind, value)
    return float(value) if kind is float else value


def column_names(kind: type) -> List[str]:
    """Columns of a table of such values, those of values inside behind the name that holds them."""
    names = []
    for field in fields(kind):
        inside = _inside(_types_of(kind)[field.name])[0]
        names += (
            [f"{field.name}_{name}" for name in column_names(inside)] if is_dataclass(inside) else [field.name]
        )
    return names
