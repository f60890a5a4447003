# SPDX-License-Identifier: Apache-2.0
"""Talks to a centre that watches a network (``reflyze watch``), with the standard library alone.

    from reflyze.watch import Centre

    centre = Centre("https://centre.example:8717", token="rfz_...")
    centre.put_fibre("north", title="North ring", every_s=900)
    centre.set_baseline("north", "north.sor")
    centre.hand_in("north", "now.sor")
    for alarm in centre.alarms():
        print(alarm["fibre"], alarm["sentence"])

Rows are dicts with the keys of the interface, which ``openapi()`` describes. Times are milliseconds since 1970,
UTC; lengths are km of fibre. Lists that may be long are iterators that ask for the next page when it is needed.
"""

from __future__ import annotations

import base64
import http.client
import json
import os
import ssl
import time
from dataclasses import dataclass
from pathlib import Path as _Path
from typing import Any, Dict, Iterator, List, Mapping, Optional, Tuple, Union
from urllib.parse import quote, urlencode, urlsplit

from ._errors import Error, UsageError

__all__ = ["Centre", "CentreError", "NewsItem", "NotAllowed", "NotNow", "NotThere", "Refused"]

Row = Dict[str, Any]
Bytes = Union[bytes, bytearray, memoryview, str, "os.PathLike[str]"]  #: bytes, or the name of a file

_LEAST_WAIT = 0.2  # seconds between two tries
_NEWS_TIMEOUT = 60.0  # a centre that lives says so every ten seconds
_PAGE = 1000  # rows


class CentreError(Error):
    """A centre can't be reached, or did not do what it was asked for."""

    kind = "centre"

    def __init__(self, sentence: str, status: int = 0, retry_after: Optional[float] = None) -> None:
        super().__init__(sentence)
        self.status = status  #: of the answer; 0 where none came
        self.retry_after = retry_after  #: seconds after which it may be tried again, where the centre says so


class NotAllowed(CentreError):
    """The centre does not know who asks, or who asks may not do this."""


class NotThere(CentreError):
    """There is no such fibre, trace, alarm, user or token."""


class NotNow(CentreError):
    """Too much was asked for, or the store can't be had at the moment. Nothing was done; it may be tried again."""


class Refused(CentreError):
    """What was sent is not what it should be, or does not fit what is there."""


@dataclass(frozen=True)
class NewsItem:
    """Something that has just happened."""

    id: str  #: to go on behind it
    kind: str  #: "comparison", "alarm", "fibre"; "missed": there was more, look at the lists again
    data: Row


def _content(trace: Bytes) -> bytes:
    if isinstance(trace, (bytes, bytearray, memoryview)):
        return bytes(trace)
    return _Path(trace).read_bytes()


def _failure(status: int, body: bytes, retry: Optional[str]) -> CentreError:
    try:
        sentence = str(json.loads(body)["error"])
    except (ValueError, KeyError, TypeError):
        sentence = f"the centre answered with status {status}"
    after = float(retry) if retry and retry.isdigit() else None
    if status in (401, 403):
        return NotAllowed(sentence, status, after)
    if status == 404:
        return NotThere(sentence, status, after)
    if status in (429, 503, 507):
        return NotNow(sentence, status, after)
    if 400 <= status < 500:
        return Refused(sentence, status, after)
    return CentreError(sentence, status, after)


class Centre:
    """A centre by its address. Any thread may use it; each request has a connection of its own.

    ``token``, or ``user`` with ``password``, says who asks. ``patience`` is how many seconds a request is tried
    again while the centre says that it can't be done now. ``context`` is for TLS with certificates of one's own.
    """

    def __init__(
        self,
        url: str,
        token: Optional[str] = None,
        *,
        user: Optional[str] = None,
        password: Optional[str] = None,
        timeout: float = 30.0,
        patience: float = 0.0,
        context: Optional[ssl.SSLContext] = None,
    ) -> None:
        parts = urlsplit(url)
        if parts.scheme not in ("http", "https") or not parts.hostname:
            raise UsageError(f'"{url.rpartition("@")[2]}" is no address of a centre: http://HOST:PORT')
        if token is not None and user is not None:
            raise UsageError("either a token or a user says who asks")
        self._secure = parts.scheme == "https"
        self._host, self._port = parts.hostname, parts.port
        self._base = parts.path.rstrip("/")
        self._timeout, self._patience, self._context = timeout, patience, context
        self._headers = {"X-Requested-With": "reflyze", "Connection": "close"}
        if token is not None:
            self._headers["Authorization"] = f"Bearer {token}"
        elif user is not None:
            pair = base64.b64encode(f"{user}:{password or ''}".encode()).decode("ascii")
            self._headers["Authorization"] = f"Basic {pair}"

    # The line to the centre.

    def _connect(self, timeout: float) -> http.client.HTTPConnection:
        if self._secure:
            context = self._context or ssl.create_default_context()
            return http.client.HTTPSConnection(self._host, self._port, timeout=timeout, context=context)
        return http.client.HTTPConnection(self._host, self._port, timeout=timeout)

    def _open(
        self, method: str, path: str, body: Optional[bytes], timeout: float, more: Mapping[str, str]
    ) -> Tuple[http.client.HTTPConnection, http.client.HTTPResponse]:
        connection = self._connect(timeout)
        try:
            try:
                connection.request(method, self._base + path, body, {**self._headers, **more})
            except (BrokenPipeError, ConnectionResetError):
                pass  # it may have answered before it heard all
            return connection, connection.getresponse()
        except (OSError, http.client.HTTPException) as error:
            connection.close()
            raise CentreError(f"the centre at {self._host} can't be reached: {error}") from error

    def _once(self, method: str, path: str, body: Optional[bytes]) -> bytes:
        connection, response = self._open(method, path, body, self._timeout, {})
        try:
            content = response.read()
        except (OSError, http.client.HTTPException) as error:
            raise CentreError(f"the answer of {self._host} broke off: {error}") from error
        finally:
            connection.close()
        if response.status >= 300:
            raise _failure(response.status, content, response.getheader("Retry-After"))
        return content

    def _ask(self, method: str, path: str, body: Optional[bytes] = None) -> bytes:
        until = time.monotonic() + self._patience
        while True:
            try:
                return self._once(method, path, body)
            except NotNow as error:
                wait = max(error.retry_after or 0.0, _LEAST_WAIT)
                if time.monotonic() + wait > until:
                    raise
                time.sleep(wait)

    def _row(self, method: str, path: str, value: Optional[Mapping[str, Any]] = None) -> Row:
        body = None if value is None else json.dumps(value).encode()
        content = self._ask(method, path, body)
        row: Row = json.loads(content) if content else {}
        return row

    def _rows(self, path: str, key: str, at: str, query: Dict[str, Any], most: Optional[int]) -> Iterator[Row]:
        left = most
        while left is None or left > 0:
            query["limit"] = _PAGE if left is None else min(left, _PAGE)
            page = self._row("GET", f"{path}?{urlencode(query)}")
            yield from page[key]
            if page["next"] is None:
                return
            query[at] = page["next"]
            if left is not None:
                left -= len(page[key])

    @staticmethod
    def _fibre(name: str, rest: str = "") -> str:
        return f"/fibres/{quote(name, safe='')}{rest}"

    # Fibres.

    def fibres(self, *, routes: bool = False) -> Iterator[Row]:
        """All fibres with their states, in the order of their names; with their routes if asked for."""
        return self._rows("/fibres", "fibres", "after", {"routes": int(routes)}, None)

    def fibre(self, name: str) -> Row:
        """One fibre, with its route."""
        return self._row("GET", self._fibre(name))

    def put_fibre(self, name: str, **changes: Any) -> Row:
        """Adds a fibre, or changes what is given: title, to, instrument, route, limits, confirm, every_s.

        ``from`` is a word of Python; ``from_`` stands for it.
        """
        if "from_" in changes:
            changes["from"] = changes.pop("from_")
        return self._row("PUT", self._fibre(name), changes)

    def drop_fibre(self, name: str) -> None:
        """Forgets a fibre with all that came of it."""
        self._ask("DELETE", self._fibre(name))

    def place(self, fibre: str, km: float, sd_km: float = 0.0) -> Row:
        """Where on the route of a fibre a place is."""
        return self._row("GET", self._fibre(fibre, f"/place?{urlencode({'km': km, 'sd_km': sd_km})}"))

    def limits(self) -> List[Row]:
        """All limits, by their names."""
        rows: List[Row] = self._row("GET", "/limits")["limits"]
        return rows

    def set_limits(self, name: str, **changes: Any) -> Row:
        """Adds limits, or changes what is given: level, lt_db, rt_db, ct_db_per_km, eel_db."""
        return self._row("PUT", f"/limits/{quote(name, safe='')}", changes)

    # Traces.

    def hand_in(self, fibre: str, trace: Bytes) -> Row:
        """Hands in a trace. Gives its number, and whether it was known; what it gives back is on disk there.

        The same bytes count once, so that it can be called again when nobody knows what became of the first time.
        """
        return _object(self._ask("PUT", self._fibre(fibre, "/traces"), _content(trace)))

    def traces(self, fibre: str, most: Optional[int] = None) -> Iterator[Row]:
        """The traces of a fibre, the newest first."""
        return self._rows(self._fibre(fibre, "/traces"), "traces", "before", {}, most)

    def trace_bytes(self, fibre: str, number: int) -> bytes:
        """A trace as it came, byte for byte."""
        return self._ask("GET", self._fibre(fibre, f"/traces/{int(number)}"))

    def comparisons(self, fibre: str, most: Optional[int] = None) -> Iterator[Row]:
        """What the traces of a fibre came to, the newest first."""
        return self._rows(self._fibre(fibre, "/comparisons"), "comparisons", "before", {}, most)

    def set_baseline(self, fibre: str, trace: Bytes) -> Row:
        """Makes a trace the baseline of a fibre."""
        return _object(self._ask("PUT", self._fibre(fibre, "/baseline"), _content(trace)))

    def baseline(self, fibre: str) -> Row:
        """The card and the events of the baseline of a fibre."""
        return self._row("GET", self._fibre(fibre, "/baseline"))

    def baseline_bytes(self, fibre: str) -> bytes:
        """The record of the baseline of a fibre."""
        return self._ask("GET", self._fibre(fibre, "/baseline/file"))

    def trends(self, fibre: str) -> List[Row]:
        """How the events of a fibre move over months."""
        rows: List[Row] = self._row("GET", self._fibre(fibre, "/trends"))["trends"]
        return rows

    def days(self, fibre: str, event: int) -> List[Row]:
        """The daily means of an event of the baseline, counted from 0."""
        rows: List[Row] = self._row("GET", self._fibre(fibre, f"/days/{int(event)}"))["days"]
        return rows

    # Alarms.

    def alarms(
        self, *, state: str = "open", fibre: Optional[str] = None, most: Optional[int] = None
    ) -> Iterator[Row]:
        """The alarms, the newest first: those that are open, or "all"; of one fibre if told."""
        query: Dict[str, Any] = {"state": state}
        if fibre is not None:
            query["fibre"] = fibre
        return self._rows("/alarms", "alarms", "before", query, most)

    def acknowledge(self, alarm: int) -> Row:
        """Says that somebody takes care of an alarm."""
        return self._row("POST", f"/alarms/{int(alarm)}/acknowledge")

    def dead_letters(self, most: int = 100) -> List[Row]:
        """Messages that could not be told."""
        rows: List[Row] = self._row("GET", f"/deliveries/dead?limit={int(most)}")["deliveries"]
        return rows

    def retry_deliveries(self) -> int:
        """Lets those messages wait again. Gives how many."""
        return int(self._row("POST", "/deliveries/retry")["retried"])

    def news(self, last: Optional[str] = None) -> Iterator[NewsItem]:
        """What happens, as it happens, without end; behind the item with the id ``last`` if told.

        A line that breaks is taken up again, so that only a refusal ends it.
        """
        while True:
            try:
                for item in self._stream(last):
                    last = item.id or last
                    yield item
            except CentreError as error:
                if error.status not in (0, 429, 503, 507):
                    raise
                time.sleep(error.retry_after or 2.0)

    def _stream(self, last: Optional[str]) -> Iterator[NewsItem]:
        more = {"Accept": "text/event-stream", **({"Last-Event-ID": last} if last else {})}
        connection, response = self._open("GET", "/news", None, _NEWS_TIMEOUT, more)
        try:
            if response.status != 200:
                raise _failure(response.status, response.read(), response.getheader("Retry-After"))
            fields: Dict[str, str] = {}
            for raw in response:
                line = raw.decode("utf-8", "replace").rstrip("\r\n")
                if line:
                    name, _, value = line.partition(":")
                    fields[name] = value[1:] if value.startswith(" ") else value
                    continue
                if "data" in fields:
                    kind = fields.get("event", "message")
                    yield NewsItem(fields.get("id", ""), kind, json.loads(fields["data"]))
                fields = {}
        except (OSError, http.client.HTTPException) as error:
            raise CentreError(f"the news of {self._host} broke off: {error}") from error
        finally:
            connection.close()

    # People.

    def me(self) -> Row:
        """Who asks, and the role."""
        return self._row("GET", "/me")

    def users(self) -> List[Row]:
        """All users."""
        rows: List[Row] = self._row("GET", "/users")["users"]
        return rows

    def user(self, name: str) -> Row:
        """One user."""
        return self._row("GET", f"/users/{quote(name, safe='')}")

    def set_user(self, name: str, *, role: Optional[str] = None, password: Optional[str] = None) -> Row:
        """Adds a user, or changes the role, the password or both."""
        asked = {"role": role, "password": password}
        given = {key: value for key, value in asked.items() if value is not None}
        return self._row("PUT", f"/users/{quote(name, safe='')}", given)

    def drop_user(self, name: str) -> None:
        """Removes a user."""
        self._ask("DELETE", f"/users/{quote(name, safe='')}")

    def tokens(self) -> List[Row]:
        """All tokens, without their secrets."""
        rows: List[Row] = self._row("GET", "/tokens")["tokens"]
        return rows

    def add_token(
        self, name: str, *, fibres: str = "", role: str = "instrument", expires_at: int = 0
    ) -> Row:
        """Makes a token. Key "token" of what it gives is the secret, which nobody can show again.

        That of an instrument hands in traces of ``fibres``: names with a blank between, each perhaps with "*".
        """
        asked = {"name": name, "role": role, "fibres": fibres, "expires_at": expires_at}
        return self._row("POST", "/tokens", asked)

    def drop_token(self, number: int) -> None:
        """Removes a token."""
        self._ask("DELETE", f"/tokens/{int(number)}")

    def audit(self, most: Optional[int] = None) -> Iterator[Row]:
        """Who changed what, the newest first."""
        return self._rows("/audit", "deeds", "before", {}, most)

    # The centre itself.

    def health(self) -> Row:
        """Whether the centre and its store answer. Throws NotNow where the store is away."""
        return self._row("GET", "/health")

    def metrics(self) -> str:
        """Figures for monitoring, in the text form of Prometheus."""
        return self._ask("GET", "/metrics").decode()

    def map(self) -> Row:
        """Address and credit of the pictures behind the map of the page."""
        return self._row("GET", "/map")

    def openapi(self) -> Row:
        """The description of the interface."""
        return self._row("GET", "/openapi.json")


def _object(content: bytes) -> Row:
    """The object in an answer."""
    row: Row = json.loads(content)
    return row
