# SPDX-License-Identifier: Apache-2.0
"""Archives of traces: analysed, compared, merged and judged on threads, on processes, or on a cluster of Dask.

Inputs are files, folders, lists (`@FILE`), patterns, and the stores of centres: files, or "postgresql://...". Each call
gives a `Run`, which works when it is asked for its rows:

    run = fleet.analyse("archive", loss_db=0.02, scheduler="tcp://head:8786")
    run.write("events.zarr")

Rows are plain dicts with the columns of `run.columns`. The same call gives the same rows on every scheduler. A bad file
costs its own row, which has `file` and `problem`.
"""

from __future__ import annotations

import os
from typing import Any, Callable, Dict, Iterator, List, Optional, Tuple

from ._errors import UnwritableError, UsageError
from ._fleet_items import Inputs, Item, Unit, alone, in_pairs, items, partitions, with_baselines
from ._fleet_out import FORMATS, format_of, output
from ._fleet_rows import COLUMNS, Row, Tally, Work, done, try_out
from ._fleet_run import completed, workers_of
from ._fleet_store import need, shown_address
from ._trace import Path

__all__ = ["Item", "Row", "Run", "Tally", "analyse", "compare", "items", "judge", "merge"]

Progress = Callable[[int, int], None]  #: traces or pairs that are done, and all of them


def _rows_of_part(work: Work, units: List[Unit]) -> List[Row]:
    rows: List[Row] = done(work, units, "rows")[0]
    return rows


class Run:
    """A work on a fleet. Each way of asking for its rows does the work."""

    def __init__(
        self,
        kind: str,
        units: List[Unit],
        options: Dict[str, Any],
        *,
        scheduler: Any = "threads",
        workers: Optional[int] = None,
        partition_bytes: Optional[int] = None,
        retries: int = 3,
        encoding: str = "auto",
    ) -> None:
        if partition_bytes is not None and partition_bytes < 1:
            raise UsageError("a partition has a byte at least")
        given = {name: value for name, value in options.items() if value is not None}
        for name in ("limits", "thresholds"):  # documents, which workers find wherever they run
            if isinstance(given.get(name), (str, os.PathLike)):
                given[name] = os.path.abspath(given[name])
        self._work = Work(kind, given, os.getcwd(), encoding)
        try_out(self._work)
        self._units = units
        self._scheduler = scheduler
        self._workers = workers
        self._bytes = partition_bytes
        self._retries = retries

    @property
    def columns(self) -> Tuple[str, ...]:
        """What each row has, in this order."""
        return tuple(COLUMNS[self._work.kind])

    def __len__(self) -> int:
        """Traces, or pairs of them."""
        return len(self._units)

    def _parts(self, form: str) -> Iterator[Tuple[int, Any, Tally]]:
        team = workers_of(self._scheduler, self._workers)
        try:
            parts = partitions(self._units, self._bytes, team.workers)
            yield from completed(team, self._work, parts, form, self._retries)
        finally:
            team.close()

    def _in_order(self, form: str) -> Iterator[Tuple[Any, Tally]]:
        waiting: Dict[int, Tuple[Any, Tally]] = {}
        first = 0
        for number, payload, tally in self._parts(form):
            waiting[number] = payload, tally
            while first in waiting:
                yield waiting.pop(first)
                first += 1

    def partitions(self) -> Iterator[Tuple[int, List[Row]]]:
        """Rows of each partition as it is done, with its number."""
        for number, rows, _ in self._parts("rows"):
            yield number, rows

    def __iter__(self) -> Iterator[Row]:
        """Rows in the order of the fleet."""
        for rows, _ in self._in_order("rows"):
            yield from rows

    def write(self, path: Path, format: str = "", *, progress: Optional[Progress] = None) -> Tally:
        """Stores the rows in the order of the fleet, whole or not at all, and tells what they come to.

        `format` is "csv", "jsonl", "zarr" or "db" (SQLite); else the ending of the name tells. In a database that is there,
        such as the store of a centre, also of one on a server ("postgresql://..."), they become the table "fleet_analyse",
        "fleet_compare" and so on.
        """
        kind = format_of(path, format)
        sink = output(path, kind, COLUMNS[self._work.kind], self._work.kind)
        total = Tally()
        try:
            sink.begin()
            for payload, tally in self._in_order(FORMATS[kind]):
                sink.add(payload)
                total = total.plus(tally)
                if progress is not None:
                    progress(total.units, len(self._units))
            sink.finish()
        except OSError as error:
            sink.drop()
            raise UnwritableError(error.strerror or str(error), shown_address(os.fspath(path))) from error
        except BaseException:
            sink.drop()
            raise
        return total

    def bag(self) -> Any:
        """The rows as a dask.bag.Bag, for whatever else Dask is to do with them; it is worked on where Dask says."""
        bags, delayed = need("dask.bag"), need("dask").delayed
        parts = partitions(self._units, self._bytes, self._workers or os.cpu_count() or 1)
        return bags.from_delayed([delayed(_rows_of_part, pure=False)(self._work, part) for part in parts])


def analyse(inputs: Inputs, **options: Any) -> Run:
    """Event tables: a row an event, and one for a trace without any.

    Options are those of `reflyze.analyse` (`loss_db`, `reflectance_db`, `end_db`, `slope_db_per_km`, `thresholds`,
    `section`, `most_loss_db`, `ends_only`, `limits`, `launch`, `receive`), and how the work is done:

    `scheduler` is "threads", "processes", the address of a scheduler of Dask, or a client of one. `workers` says how
    many of the first two there are, else as many as cores. `partition_bytes` bounds the bytes that a worker takes at
    once. A partition whose worker has died is tried `retries` times more. `encoding` is that of texts in records.
    """
    return _run("analyse", alone(inputs), options)


def judge(inputs: Inputs, *, limits: Any, **options: Any) -> Run:
    """Links held against limits: a row a trace, with its totals, verdicts, and what fails in words.

    Options are those of `analyse`. With reels, totals are those of the link between them.
    """
    return _run("judge", alone(inputs), {**options, "limits": limits})


def compare(inputs: Inputs, baselines: Optional[Inputs] = None, **options: Any) -> Run:
    """What has changed since the baselines: a row an event of each trace.

    `baselines` is one file for all traces, or a folder (or several inputs), where a trace has the baseline with the same
    path below it, else the one that is called as the trace's own folder. Traces of a centre's store have those of their
    fibres without it. `recheck`, and how the work is done, as for `analyse`.
    """
    return _run("compare", with_baselines(inputs, baselines), options)


def merge(inputs: Inputs, other: Optional[Inputs] = None, **options: Any) -> Run:
    """Both directions of each fibre in one table: a row an event.

    Directions are told by the end of the name (`_A` and `_B`, `_AB` and `_BA`, `_OE` and `_EO`), or are the traces of
    the same names in `inputs` and in `other`. Options are those of `reflyze.merge`, and how the work is done.
    """
    return _run("merge", in_pairs(inputs, other), options)


_HOW = ("scheduler", "workers", "partition_bytes", "retries", "encoding")


def _run(kind: str, units: List[Unit], options: Dict[str, Any]) -> Run:
    how = {name: options.pop(name) for name in _HOW if name in options}
    return Run(kind, units, options, **how)


if __name__ == "__main__":
    from ._fleet_main import main

    raise SystemExit(main())
