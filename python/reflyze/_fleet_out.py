# SPDX-License-Identifier: Apache-2.0
"""Where rows of a fleet go: CSV, JSON lines, Zarr, or tables of databases, each whole or not at all."""

from __future__ import annotations

import io
import os
import re
import shutil
import sqlite3
import tempfile
import time
import uuid
from contextlib import closing, contextmanager, suppress
from typing import Any, Dict, Iterator, List

from ._errors import UnwritableError, UsageError
from ._fleet_rows import FLAG, NUMBER, TEXT
from ._fleet_store import connected, is_database, need, on_server, sentence_of, shown_address
from ._trace import Path

_CHUNK_ROWS = 1 << 16  # of an array: whole chunks are written once

FORMATS = {"csv": "csv", "jsonl": "jsonl", "zarr": "columns", "db": "columns"}  # and how workers send them
_ENDINGS = {".csv": "csv", ".jsonl": "jsonl", ".ndjson": "jsonl", ".zarr": "zarr", ".db": "db", ".sqlite": "db"}
_PATIENCE_S = 60  # with a centre that writes in its store
_PATIENCE_AT_THE_END_S = 600  # with those who hold a table of a server, when the work is done
# What a server that is started anew, or another run, may say: no reason to lose the work of hours.
_PASSING = "08|40|53|57|58|55P03|23505|42P07"


def format_of(path: Path, given: str) -> str:
    """The kind of an output, by its name unless it is told."""
    if on_server(os.fspath(path)):
        if given not in ("", "db"):
            raise UsageError(f"{given}: a server keeps tables alone (db)")
        return "db"
    kind = given or _ENDINGS.get(os.path.splitext(os.fspath(path))[1].lower(), "")
    if kind not in FORMATS:
        raise UsageError(f"{kind or os.fspath(path)}: the format is none of {', '.join(FORMATS)}")
    return kind


class Output:
    """An output that stands beside its place until it is whole."""

    def __init__(self, path: Path, columns: Dict[str, str]) -> None:
        self.path = os.path.abspath(os.fspath(path))
        self.columns = columns
        folder, name = os.path.split(self.path)
        self.beside = os.path.join(folder, f".{name[:100]}.{uuid.uuid4().hex[:12]}")

    def begin(self) -> None:
        raise NotImplementedError

    def add(self, payload: Any) -> None:
        raise NotImplementedError

    def finish(self) -> None:
        raise NotImplementedError

    def drop(self) -> None:
        raise NotImplementedError


class Lines(Output):
    """Texts."""

    heading = b""

    def begin(self) -> None:
        if os.path.isdir(self.path):
            raise UnwritableError("is a folder", self.path)
        self._file = open(os.open(self.beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666), "wb")
        self._file.write(self.heading)

    def add(self, payload: bytes) -> None:
        self._file.write(payload)

    def finish(self) -> None:
        self._file.flush()
        os.fsync(self._file.fileno())
        self._file.close()
        os.replace(self.beside, self.path)

    def drop(self) -> None:
        if hasattr(self, "_file"):
            self._file.close()
            os.unlink(self.beside)


class Csv(Lines):
    def begin(self) -> None:
        self.heading = (",".join(self.columns) + "\n").encode()
        super().begin()


class Zarr(Output):
    """A group with an array a column. NaN is a number that was not measured, -1 a count or a flag without one."""

    def begin(self) -> None:
        if os.path.lexists(self.path) and not os.path.isfile(os.path.join(self.path, ".zgroup")):
            raise UnwritableError("is there, and is no group of Zarr", self.path)
        zarr = need("zarr")
        self._rows: Dict[str, List[Any]] = {name: [] for name in self.columns}
        self._group = zarr.open_group(self.beside, mode="w-")
        self._group.attrs["columns"] = list(self.columns)
        for name, kind in self.columns.items():
            dtype: Any = {NUMBER: "f8", TEXT: str, FLAG: "i1"}.get(kind, "i4")
            fill: Any = {NUMBER: float("nan"), TEXT: ""}.get(kind, -1)
            array = self._group.create_dataset(name, shape=(0,), chunks=(_CHUNK_ROWS,), dtype=dtype, fill_value=fill)
            array.attrs["_ARRAY_DIMENSIONS"] = ["row"]

    def add(self, payload: Dict[str, List[Any]]) -> None:
        for name, values in payload.items():
            self._rows[name] += values
        while len(self._rows["file"]) >= _CHUNK_ROWS:
            self._store(_CHUNK_ROWS)

    def _store(self, count: int) -> None:
        for name, values in self._rows.items():
            array = self._group[name]
            array.append([array.fill_value if value is None else value for value in values[:count]])
            del values[:count]

    def finish(self) -> None:
        if self._rows["file"]:
            self._store(len(self._rows["file"]))
        need("zarr").consolidate_metadata(self._group.store)
        old = f"{self.beside}.old"
        there = os.path.isdir(self.path)
        if there:  # a folder does not take another's place in one step
            os.rename(self.path, old)
        try:
            os.rename(self.beside, self.path)
        except OSError:
            if there:
                os.rename(old, self.path)
            raise
        shutil.rmtree(old, ignore_errors=True)

    def drop(self) -> None:
        shutil.rmtree(self.beside, ignore_errors=True)


class Table(Output):
    """A table "fleet_WORK" of a SQLite database, which may be the store of a centre: its own tables stay as they are.

    The rows stand in a database beside it first: a centre that runs on the store is held up for one transaction alone.
    """

    def __init__(self, path: Path, columns: Dict[str, str], work: str) -> None:
        super().__init__(path, columns)
        self.table = f"fleet_{work}"
        types = {NUMBER: "REAL", TEXT: "TEXT"}
        self._shape = ", ".join(f'"{name}" {types.get(kind, "INTEGER")}' for name, kind in columns.items())

    @contextmanager
    def _told(self) -> Iterator[None]:
        try:
            yield
        except sqlite3.Error as error:
            raise UnwritableError(str(error), self.path) from error

    def begin(self) -> None:
        if os.path.lexists(self.path) and not is_database(self.path):
            raise UnwritableError("is there, and is no database of SQLite", self.path)
        if os.path.lexists(self.path) and not os.access(self.path, os.W_OK):
            raise UnwritableError("can't be written", self.path)
        with self._told():
            self._made = sqlite3.connect(self.beside, isolation_level=None)
            self._made.execute("PRAGMA journal_mode = OFF")
            self._made.execute("PRAGMA synchronous = OFF")
            self._made.execute(f"CREATE TABLE {self.table} ({self._shape})")

    def add(self, payload: Dict[str, List[Any]]) -> None:
        places = ", ".join("?" * len(self.columns))
        with self._told():
            self._made.execute("BEGIN")
            self._made.executemany(
                f"INSERT INTO {self.table} VALUES ({places})", zip(*(payload[name] for name in self.columns))
            )
            self._made.execute("COMMIT")

    def finish(self) -> None:
        self._made.close()
        if not os.path.lexists(self.path):
            with open(self.beside, "rb") as file:
                os.fsync(file.fileno())
            if self._has_moved():
                return
        with self._told(), closing(sqlite3.connect(self.path, timeout=_PATIENCE_S, isolation_level=None)) as store:
            store.execute("ATTACH ? AS made", (os.fsencode(self.beside),))
            store.execute("BEGIN IMMEDIATE")
            shape = "SELECT name, type FROM pragma_table_info(?, ?)"
            old, new = (store.execute(shape, (self.table, where)).fetchall() for where in ("main", "made"))
            if old == new:  # indices and triggers of its user stay
                store.execute(f"DELETE FROM main.{self.table}")
            else:
                store.execute(f"DROP TABLE IF EXISTS main.{self.table}")
                store.execute(f"CREATE TABLE main.{self.table} ({self._shape})")
            store.execute(f"INSERT INTO main.{self.table} SELECT * FROM made.{self.table}")
            store.execute("COMMIT")
        os.unlink(self.beside)

    def _has_moved(self) -> bool:
        # Unlike a move, a link takes nobody's place: a database that was made meanwhile gets the rows. So does a new one
        # where the file system has no links.
        try:
            os.link(self.beside, self.path)
        except OSError:
            return False
        os.unlink(self.beside)
        return True

    def drop(self) -> None:
        if hasattr(self, "_made"):
            self._made.close()
        with suppress(OSError):
            os.unlink(self.beside)


class ServerTable(Output):
    """The same on a PostgreSQL server.

    The rows wait in a local file. The server has them in one transaction at the end, in which those who read the table
    see the old rows; what a run needs there is tried before it begins. Two runs of the same work wait for each other.
    """

    def __init__(self, path: Path, columns: Dict[str, str], work: str) -> None:
        super().__init__(".", columns)
        self._address = os.fspath(path)
        self.path = shown_address(self._address)
        self.table = f"fleet_{work}"
        types = {NUMBER: "double precision", TEXT: "text", FLAG: "boolean"}
        self._shape = [(name, types.get(kind, "bigint")) for name, kind in columns.items()]

    @contextmanager
    def _transaction(self, patience_s: int) -> Iterator[Any]:
        try:
            with closing(connected(self._address)) as base, base.cursor() as cursor:
                base.set_session(isolation_level="READ COMMITTED")  # each statement sees what the run before has left
                cursor.execute(f"SET lock_timeout = '{patience_s}s'")
                cursor.execute("SELECT pg_advisory_xact_lock(hashtext(%s))", (self.table,))
                yield cursor
                base.commit()
        except need("psycopg2").Error as error:
            raise UnwritableError(sentence_of(error), self.path) from error

    def _place_in(self, cursor: Any) -> str:
        """The table that takes the rows: the one that is there, with its views and rights, if it has their columns."""
        cursor.execute("SELECT relnamespace::regnamespace FROM pg_class WHERE oid = to_regclass(%s)", (self.table,))
        place = ".".join([*(schema for (schema,) in cursor.fetchall()), self.table])
        cursor.execute(
            "SELECT attname, format_type(atttypid, atttypmod) FROM pg_attribute"
            " WHERE attrelid = to_regclass(%s) AND attnum > 0 AND NOT attisdropped ORDER BY attnum",
            (self.table,),
        )
        if cursor.fetchall() != self._shape:
            cursor.execute(f"DROP TABLE IF EXISTS {place}")
            shape = ", ".join(f'"{name}" {kind}' for name, kind in self._shape)
            cursor.execute(f"CREATE TABLE {place} ({shape})")
        return place

    def begin(self) -> None:
        with self._transaction(_PATIENCE_S) as cursor:
            place = self._place_in(cursor)
            cursor.execute(f"DELETE FROM {place} WHERE false")
            cursor.copy_expert(f"COPY {place} FROM STDIN", io.BytesIO())
            cursor.execute("SHOW server_encoding")
            ((encoding,),) = cursor.fetchall()
            if encoding not in ("UTF8", "SQL_ASCII"):
                raise UnwritableError(f"the database keeps texts as {encoding}, and rows are UTF8", self.path)
            cursor.connection.rollback()
        self._rows = tempfile.TemporaryFile()

    def add(self, payload: Dict[str, List[Any]]) -> None:
        with self._kept():
            for row in zip(*(payload[name] for name in self.columns)):
                self._rows.write(("\t".join(map(_copied, row)) + "\n").encode("utf-8", "replace"))

    @contextmanager
    def _kept(self) -> Iterator[None]:
        try:
            yield
        except OSError as error:
            raise UnwritableError(error.strerror or str(error), tempfile.gettempdir()) from error

    def finish(self) -> None:
        for pause_s in (5, 20, 0):
            try:
                with self._kept():
                    self._rows.seek(0)
                with self._transaction(_PATIENCE_AT_THE_END_S) as cursor:
                    place = self._place_in(cursor)
                    cursor.execute(f"DELETE FROM {place}")
                    cursor.copy_expert(f"COPY {place} FROM STDIN", self._rows)
                break
            except UnwritableError as error:
                if not pause_s or not re.match(_PASSING, getattr(error.__cause__, "pgcode", None) or "08"):
                    raise
                time.sleep(pause_s)
        self.drop()

    def drop(self) -> None:
        if hasattr(self, "_rows"):
            with suppress(OSError):  # what could not be written before can't be now
                self._rows.close()


# Texts of the server have no zero byte.
_SIGNS = str.maketrans({"\\": "\\\\", "\t": "\\t", "\n": "\\n", "\r": "\\r", "\0": "\ufffd"})


def _copied(value: Any) -> str:
    """A value as the server's COPY reads it."""
    return "\\N" if value is None else str(value).translate(_SIGNS)


def output(path: Path, kind: str, columns: Dict[str, str], work: str) -> Output:
    if kind == "db":
        return (ServerTable if on_server(os.fspath(path)) else Table)(path, columns, work)
    return {"csv": Csv, "jsonl": Lines, "zarr": Zarr}[kind](path, columns)
