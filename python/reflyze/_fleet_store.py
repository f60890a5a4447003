# SPDX-License-Identifier: Apache-2.0
"""Stores of centres, where a fleet's traces may come from: files of SQLite, and stores on a PostgreSQL server."""

from __future__ import annotations

import importlib
import os
import re
import sqlite3
from contextlib import closing, contextmanager
from typing import Any, Dict, Iterator, List, Tuple, Type

from ._errors import UnreadableError

_SQLITE = b"SQLite format 3\0"
# A server that has not answered by then is not there.
_PATIENCE = {"connect_timeout": 15, "keepalives_idle": 30, "keepalives_interval": 10, "tcp_user_timeout": 60000}
# Signs that part an address are written as such elsewhere: servers' own readers of it differ in what they take.
_SCHEME = r"postgres(ql)?://"
_ADDRESS = _SCHEME + r"([^:@/?]*(:[^@/?]*)?@)?[^@?]*(\?[^@]*)?"
_PLACE = r"(host|hostaddr|port|dbname|service)=[^=%]*"  # what tells one server from another, and no secret
_PACKAGES = {"zarr": "python3-zarr", "psycopg2": "python3-psycopg2"}


def need(module: str) -> Any:
    """A module that not every user has, imported where it is asked for."""
    try:
        return importlib.import_module(module)
    except ImportError as error:
        name = module.partition(".")[0]
        packages = _PACKAGES.get(name, "python3-dask and python3-distributed")
        raise UnreadableError(f"is not installed, and this needs it (Debian: {packages}): {error}", name) from error


def is_database(name: str) -> bool:
    """Whether a file is one of SQLite, such as the store of a centre."""
    try:
        with open(name, "rb") as file:
            return file.read(len(_SQLITE)) == _SQLITE
    except OSError:
        return False


def on_server(name: str) -> bool:
    """Whether a name is the address of a store on a server, as a centre takes it."""
    return re.match(_SCHEME, name) is not None


def shown_address(name: str) -> str:
    """An address as rows and messages may show it: without who logs in, and of its options where the server is."""
    if not on_server(name):
        return name
    if not re.fullmatch(_ADDRESS, name):
        return "postgresql://..."
    where, _, options = re.sub(_SCHEME, "", name.rpartition("@")[2]).partition("?")
    plain = "&".join(option for option in options.split("&") if re.fullmatch(_PLACE, option))
    return f"postgresql://{where}?{plain}".rstrip("?")


def connected(name: str) -> Any:
    """A connection to a server. Throws psycopg2's errors, none of which tells a password."""
    base = need("psycopg2")
    if not re.fullmatch(_ADDRESS, name):
        raise base.ProgrammingError("its address is written with %40, %2F and %3F for each @, / and ? in a name or password")
    try:
        given: Dict[str, Any] = need("psycopg2.extensions").parse_dsn(name)
    except base.ProgrammingError:
        raise base.ProgrammingError("its address has an option that is none, or a % without its two digits") from None
    # What the address says of the same comes first.
    settings: Dict[str, Any] = {**_PATIENCE, **given, "client_encoding": "utf8"}
    return base.connect(**settings)


def sentence_of(error: Exception) -> str:
    """What a database says, in one line."""
    return " ".join(str(error).split())


class Store:
    """A store as it stands, to be read and not written. Throws UnreadableError where it can't be."""

    def __init__(self, name: str) -> None:
        self._shown = shown_address(name)
        self._errors: Tuple[Type[Exception], ...] = (sqlite3.Error,)
        self._place = "?"
        if on_server(name):
            self._errors = (need("psycopg2").Error,)
            self._place = "%s"
        with self._told():
            self._base: Any = self._opened(name)

    @staticmethod
    def _opened(name: str) -> Any:
        if on_server(name):
            base = connected(name)
            base.set_session(readonly=True, autocommit=True)
            return base
        quoted = os.path.abspath(name).replace("%", "%25").replace("?", "%3f").replace("#", "%23")
        return sqlite3.connect(f"file:{quoted}?mode=ro", uri=True, timeout=30)

    @contextmanager
    def _told(self) -> Iterator[None]:
        try:
            yield
        except self._errors as error:
            raise UnreadableError(f"can't be read as a centre's store: {sentence_of(error)}", self._shown) from error

    def rows(self, statement: str, *values: Any) -> List[Any]:
        """All rows that a statement gives; `?` stands for each value."""
        with self._told(), closing(self._base.cursor()) as cursor:
            cursor.execute(statement.replace("?", self._place), values)
            found: List[Any] = cursor.fetchall()
            return found

    def close(self) -> None:
        self._base.close()
