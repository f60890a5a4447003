# SPDX-License-Identifier: Apache-2.0
"""Traces."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Mapping, Optional, Tuple, Union

import numpy
import numpy.typing

from . import _core
from ._values import Card, one_line

if TYPE_CHECKING:
    from ._results import EventTable

Path = Union[str, "os.PathLike[str]"]
Samples = numpy.typing.NDArray[numpy.float64]


class Note(str):
    """What a user should know of a file that was taken all the same; `file` is its name."""

    file: str

    def __new__(cls, text: str, file: str = "") -> Note:
        note = super().__new__(cls, text)
        note.file = file
        return note

    def __getnewargs__(self) -> Tuple[str, str]:  # type: ignore[override]
        return str(self), self.file


def file_name(path: Path) -> bytes:
    """The name of a file as the system takes it. Bytes are no name: JSON has names as texts."""
    if not isinstance(path, (str, os.PathLike)):
        raise TypeError(f"a file is named by a text or a path, not by {type(path).__name__}")
    name = os.fsencode(path)
    if b"\0" in name:
        raise ValueError("no file's name has a zero in it")
    return name


def text(name: str, value: object) -> str:
    """A text that is one, for the library."""
    if not isinstance(value, str):
        raise TypeError(f"{name} is a text, not {type(value).__name__}")
    return value


class Trace:
    """A trace as its file has it. Nothing changes it; threads may share it.

    Made by `reflyze.open`, `reflyze.from_bytes` and by results.
    """

    __slots__ = ("_held", "_encoding", "_whole", "__weakref__")

    def __init__(
        self, held: _core.Trace, encoding: str = "auto", whole: Optional[Tuple[Trace, int]] = None
    ) -> None:
        if not isinstance(held, _core.Trace):
            raise TypeError("a trace comes from reflyze.open or reflyze.from_bytes")
        self._held = held
        self._encoding = encoding
        self._whole = whole  # the file's trace and the place in it, for one of several

    @property
    def name(self) -> str:
        """The file, as it was named."""
        return self._held.name

    @property
    def encoding(self) -> str:
        """How the texts of the record are read."""
        return self._encoding

    @property
    def warnings(self) -> Tuple[Note, ...]:
        """What a user has to know of the file."""
        return tuple(Note(text, file) for file, text in self._held.warnings)

    @property
    def card(self) -> Card:
        """What the record says of itself."""
        fields: Any = self._held.card
        return Card(**fields)

    @property
    def levels_db(self) -> Samples:
        """Level of each point, dB, 5 log10 of power. Read-only, without a copy."""
        return self._held.levels_db

    @property
    def distance_km(self) -> Samples:
        """Distance of each point along the fibre, km from the user's zero. Read-only, without a copy."""
        return self._held.distance_km

    @property
    def why_unusable(self) -> Optional[str]:
        """Why the trace can't be measured; None where it can."""
        return self._held.why_unusable or None

    @property
    def second_table_warning(self) -> Optional[str]:
        """What to know where the trace is stored with new events: its maker's own table stays. Or None."""
        return self._held.second_table_warning or None

    @property
    def traces(self) -> Tuple[Trace, ...]:
        """The traces of a file that holds several, each by itself; else this one."""
        count = self._held.count()
        if count < 2:
            return (self,)
        return tuple(Trace(self._held.part(i), self._encoding, (self, i)) for i in range(count))

    def analyse(
        self,
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
        limits: Optional[Union[Path, Mapping[str, Any]]] = None,
        launch: Union[float, str, None] = None,
        receive: Union[float, str, None] = None,
    ) -> EventTable:
        """Finds the events; see `reflyze.analyse`."""
        from ._work import analyse

        return analyse(
            self,
            loss_db=loss_db,
            reflectance_db=reflectance_db,
            end_db=end_db,
            slope_db_per_km=slope_db_per_km,
            thresholds=thresholds,
            section=section,
            most_loss_db=most_loss_db,
            ends_only=ends_only,
            drop_unknown=drop_unknown,
            explain=explain,
            limits=limits,
            launch=launch,
            receive=receive,
        )

    def stored_events(self, *, as_stored: bool = False) -> EventTable:
        """The events that stand in the file; `as_stored` with a number in every place, as a record has it."""
        from ._results import EventTable, result

        return result(EventTable, _core.stored_events(self._held, bool(as_stored)), self._encoding)

    def to_bytes(
        self, *, native: bool = False, no_proprietary: bool = False, no_unknown: bool = False
    ) -> bytes:
        """The file: byte for byte, or written anew, or without blocks of some kinds."""
        return self._held.to_bytes(bool(native), bool(no_proprietary), bool(no_unknown))

    def save(
        self, path: Path, *, native: bool = False, no_proprietary: bool = False, no_unknown: bool = False
    ) -> None:
        """Writes the file, whole or not at all; options as of `to_bytes`."""
        self._held.save(file_name(path), bool(native), bool(no_proprietary), bool(no_unknown))

    def plot(self, result: Optional[EventTable] = None, *, ax: Any = None, **line: Any) -> Any:
        """Draws the trace, and the events of a result; needs matplotlib. Returns the axes."""
        from ._show import plot

        return plot(self, result, ax, line)

    def __bytes__(self) -> bytes:
        return self.to_bytes()

    def __copy__(self) -> Trace:
        return self

    def __deepcopy__(self, memo: object) -> Trace:
        return self

    def __reduce__(self) -> Tuple[Any, ...]:
        if self._whole is not None:
            return _one_of, self._whole
        return from_bytes, (bytes(self), self.name, self._encoding)

    def __repr__(self) -> str:
        card = self.card
        return one_line(
            f"<trace {self.name}: {card.points} points, {card.range_km:.3f} km,"
            f" {card.wavelength_nm:g} nm, {card.pulse_ns:g} ns>"
        )


def _one_of(whole: Trace, index: int) -> Trace:
    return whole.traces[index]


def open(path: Path, *, encoding: str = "auto") -> Trace:
    """Reads a trace record (SR-4731).

    `encoding` is that of the texts in it: "auto" takes what is valid UTF-8 so and all else as ISO 8859-1.
    """
    return Trace(_core.open(file_name(path), text("encoding", encoding)), encoding)


def from_bytes(data: Any, name: str = "bytes", encoding: str = "auto") -> Trace:
    """The same of bytes at hand; `name` stands for the file."""
    whole = data if isinstance(data, bytes) else bytes(memoryview(data))
    return Trace(_core.from_bytes(file_name(name), whole, text("encoding", encoding)), encoding)
