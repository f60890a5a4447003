# SPDX-License-Identifier: Apache-2.0
"""Which traces a fleet is, where their bytes are, and which of them belong together. No trace is read here."""

from __future__ import annotations

import os
from contextlib import closing
from typing import Dict, Iterable, Iterator, List, NamedTuple, Optional, Tuple, Union

from ._errors import UnreadableError, UsageError
from ._fleet_store import Store, is_database, on_server, shown_address
from ._trace import Path, Trace, from_bytes
from ._work import files


class Item(NamedTuple):
    """A trace of a fleet."""

    name: str  #: as rows name it
    size: int = 0  #: bytes
    below: str = ""  #: its path below the folder that was named
    store: str = ""  #: the centre's store that holds it; "" for a file
    table: str = ""  #: of that store
    key: int = 0  #: in that table
    fibre: int = 0  #: of that store
    problem: str = ""  #: why there is none

    def __repr__(self) -> str:
        return f"Item({self.name!r}, size={self.size})"  # the store's address may hold a password


Inputs = Union[Path, Item, Iterable[Union[Path, Item]]]
Unit = Tuple[Item, ...]  #: what is worked on at once: a trace, a baseline and a trace, or two directions

_LEAST_SIZE = 1 << 12  # a name that leads nowhere costs its look, too


def shown(name: str) -> str:
    """A name for people and for JSON: U+FFFD stands for each byte that is no text."""
    return os.fsencode(name).decode("utf-8", "replace")


def _of_store(name: str, statement: str) -> List[Tuple[int, int, str, Optional[int]]]:
    with closing(Store(name)) as store:
        return store.rows(statement)


def _traces_of_store(name: str) -> Iterator[Item]:
    rows = _of_store(
        name,
        "SELECT traces.id, fibres.id, fibres.name, length(bytes) FROM traces JOIN fibres ON fibres.id = traces.fibre"
        " LEFT JOIN trace_bytes ON trace_bytes.id = traces.id ORDER BY traces.id",
    )
    shown = shown_address(name)
    for key, fibre, title, size in rows:
        problem = "" if size else "the store has no bytes of it"
        yield Item(f"{shown}:{title}/{key}", size or 0, f"{title}/{key}", name, "trace_bytes", key, fibre, problem)


def _baselines_of_store(name: str) -> Dict[int, Item]:
    rows = _of_store(
        name,
        "SELECT baseline_bytes.id, fibres.id, fibres.name, length(bytes) FROM fibres"
        " JOIN baseline_bytes ON baseline_bytes.id = fibres.baseline",
    )
    return {
        fibre: Item(f"{shown_address(name)}:{title}/baseline", size or 0, "", name, "baseline_bytes", key, fibre)
        for key, fibre, title, size in rows
    }


def _of_file(name: str, below: str, problem: str) -> Item:
    size = 0
    try:
        size = 0 if problem else os.stat(name).st_size
    except OSError as error:
        problem = error.strerror or "cannot be read"
    return Item(name, size, below, problem=problem)


def items(inputs: Inputs) -> List[Item]:
    """The traces that names stand for: files, lists (`@FILE`), patterns, folders, and the stores of centres."""
    if isinstance(inputs, Item) or isinstance(inputs, (str, os.PathLike)):
        inputs = [inputs]
    found: List[Item] = []
    for one in inputs:
        if isinstance(one, Item):
            found.append(one)
        elif on_server(os.fspath(one)) or is_database(os.fspath(one)):
            found += _traces_of_store(os.fspath(one))
        else:
            found += [_of_file(file.name, file.below, file.problem) for file in files(one, folders=True)]
    return found


def alone(inputs: Inputs) -> List[Unit]:
    return [(item,) for item in items(inputs)]


def with_baselines(inputs: Inputs, baselines: Optional[Inputs]) -> List[Unit]:
    """Each trace behind its baseline.

    One file is the baseline of all. Of a folder, the one with the same path below it; else the one that is called as
    the trace's folder, for archives that have a folder a fibre. A trace of a store has the baseline of its fibre.
    """
    current = items(inputs)
    if baselines is None:
        if not all(item.store for item in current):
            raise UsageError("a comparison needs baselines: a file, or a folder of them")
        held = {name: _baselines_of_store(name) for name in {item.store for item in current}}
        none = Item("", problem="its fibre has no baseline")
        return [(held[item.store].get(item.fibre, none), item) for item in current]
    known = items(baselines)
    single = isinstance(baselines, Item) or (
        isinstance(baselines, (str, os.PathLike)) and not os.path.isdir(baselines) and len(known) == 1
    )
    if single:
        return [(known[0], item) for item in current]
    by_path = {os.path.splitext(item.below or os.path.basename(item.name))[0]: item for item in known}

    def of(item: Item) -> Item:
        path = os.path.splitext(item.below or os.path.basename(item.name))[0]
        folders = (os.path.dirname(path), os.path.basename(os.path.dirname(item.name)))
        for name in (path, *folders):
            if name in by_path:
                return by_path[name]
        return Item("", problem="has no baseline of its name")

    return [(of(item), item) for item in current]


_DIRECTIONS = {"A": 0, "AB": 0, "OE": 0, "B": 1, "BA": 1, "EO": 1}


def _split(item: Item) -> Tuple[str, Optional[int]]:
    """What both directions of a fibre are called, and which of them this is: cable_007_1550_A.sor."""
    stem = os.path.splitext(item.name)[0]
    cut = max(stem.rfind("_"), stem.rfind(" "))
    way = _DIRECTIONS.get(stem[cut + 1 :].upper()) if cut > 0 else None
    return (stem[:cut], way) if way is not None else (stem, None)


def in_pairs(inputs: Inputs, other: Optional[Inputs]) -> List[Unit]:
    """Both directions of each fibre, by their names: the same path below two folders, or a direction at the end.

    What has no partner is alone.
    """
    if other is None:
        places: Dict[str, List[Item]] = {}
        for item in items(inputs):
            name, way = _split(item)
            group = places.setdefault(name if way is not None else item.name, [])
            group.append(item)
        units: List[Unit] = []
        for group in places.values():
            ways = [_split(item)[1] for item in group]
            if sorted(ways, key=str) == [0, 1]:
                units.append(tuple(group[::-1] if ways[0] else group))
            else:
                units += [(item,) for item in group]
        return units
    backward = {item.below or os.path.basename(item.name): item for item in items(other)}
    units = []
    for item in items(inputs):
        partner = backward.pop(item.below or os.path.basename(item.name), None)
        units.append((item,) if partner is None else (item, partner))
    return units + [(item,) for item in backward.values()]


def partitions(units: List[Unit], size: Optional[int], workers: int) -> List[List[Unit]]:
    """Parts of about so many bytes, in the order of the fleet.

    Unless it is told, a part is large enough that handing it out costs little beside working on it (a second or so),
    and small enough that the last ones end at the same time.
    """
    sizes = [sum(max(item.size, _LEAST_SIZE) for item in unit) for unit in units]
    if size is None:
        size = min(8 << 20, max(256 << 10, sum(sizes) // (8 * workers)))
    parts: List[List[Unit]] = []
    room = 0
    for unit, taken in zip(units, sizes):
        if not parts or room < taken:
            parts.append([])
            room = size
        parts[-1].append(unit)
        room -= taken
    return parts


class Reader:
    """Reads traces of a fleet where the work is done. Stores are opened once a part."""

    def __init__(self, folder: str, encoding: str) -> None:
        self._folder = folder  # that names count from
        self._encoding = encoding
        self._stores: Dict[str, Store] = {}
        self._away: Dict[str, str] = {}  # stores that can't be opened: the rest of the part needs not wait for them
        self._last: Dict[Item, Trace] = {}  # a baseline serves many

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, *_: object) -> None:
        for store in self._stores.values():
            store.close()

    def _bytes(self, item: Item) -> bytes:
        if not item.store:
            with open(os.path.join(self._folder, item.name), "rb") as file:
                return file.read()
        found = self._of_store(item)
        if not found:
            raise UnreadableError("is no longer in the store", item.name)
        return bytes(found[0][0])

    def _of_store(self, item: Item) -> List[Tuple[bytes]]:
        path = item.store if on_server(item.store) else os.path.join(self._folder, item.store)
        if path in self._away:
            raise UnreadableError(self._away[path], shown_address(path))
        if path not in self._stores:
            self._stores[path] = self._opened(path)
        try:
            return self._stores[path].rows(f"SELECT bytes FROM {item.table} WHERE id = ?", item.key)
        except UnreadableError:
            self._stores.pop(path).close()  # a server that was away may be back for the next trace
            raise

    def _opened(self, path: str) -> Store:
        try:
            return Store(path)
        except UnreadableError as error:
            self._away[path] = error.sentence
            raise

    def read(self, item: Item) -> Trace:
        """Throws what is wrong with it."""
        if item.problem:
            raise UnreadableError(item.problem, item.name)
        return from_bytes(self._bytes(item), item.name, self._encoding)

    def read_again(self, item: Item) -> Trace:
        """The same of what is likely to be asked for again next."""
        if item not in self._last:
            self._last = {item: self.read(item)}
        return self._last[item]
