# SPDX-License-Identifier: Apache-2.0
"""Hands the parts of a fleet to workers, and survives those that die."""

from __future__ import annotations

import multiprocessing
import os
import queue
from concurrent.futures import Executor, ProcessPoolExecutor, ThreadPoolExecutor
from concurrent.futures.process import BrokenProcessPool
from typing import Any, Dict, Iterator, List, Optional, Tuple

from ._errors import UnreadableError, UsageError
from ._fleet_items import Unit
from ._fleet_rows import Row, Tally, Work, bad_row, done, finished
from ._fleet_store import need

_AHEAD = 16  # parts for each worker that may be done before the oldest one is: they wait in memory


class Lost(Exception):
    """The worker has died over it."""


class Threads:
    """Threads of this process. They share the interpreter, which only the library's own work leaves free."""

    def __init__(self, workers: Optional[int]) -> None:
        self.workers = workers or os.cpu_count() or 1
        self._pool: Executor = self._made()

    def _made(self) -> Executor:
        return ThreadPoolExecutor(self.workers)

    def submit(self, *task: Any) -> Any:
        return self._pool.submit(done, *task)

    def result(self, future: Any) -> Any:
        return future.result()

    def alone(self, *task: Any) -> Any:
        return done(*task)

    def close(self) -> None:
        self._pool.shutdown(wait=True, cancel_futures=True)


class Processes(Threads):
    """Processes of this machine. One that dies takes the pool along, so that there is a new one."""

    def _made(self) -> Executor:
        return self._of(self.workers)

    @staticmethod
    def _of(workers: int) -> Executor:
        # Of their own making, not copies of this one: its threads would be missing there, and their locks held.
        return ProcessPoolExecutor(workers, mp_context=multiprocessing.get_context("spawn"))

    def submit(self, *task: Any) -> Any:
        try:
            return super().submit(*task)
        except BrokenProcessPool:
            self._pool.shutdown(wait=False)
            self._pool = self._made()
            return super().submit(*task)

    def result(self, future: Any) -> Any:
        try:
            return future.result()
        except BrokenProcessPool as error:
            raise Lost from error

    def alone(self, *task: Any) -> Any:
        """In a process of its own, so that it kills nobody else's work."""
        with self._of(1) as pool:
            try:
                return pool.submit(done, *task).result()
            except BrokenProcessPool as error:
                raise Lost from error


class Cluster:
    """Workers of a scheduler, by its address or by a client of it. They read the traces themselves."""

    def __init__(self, scheduler: Any) -> None:
        distributed = need("distributed")
        self._killed = distributed.scheduler.KilledWorker
        self._own = isinstance(scheduler, str)
        try:
            self._client = (
                distributed.Client(scheduler, timeout="10s", set_as_default=False) if self._own else scheduler
            )
        except (OSError, ValueError) as error:
            raise UnreadableError(f"no scheduler answers: {error}", str(scheduler)) from error
        self.workers = max(1, sum(self._client.nthreads().values()))

    def submit(self, *task: Any) -> Any:
        return self._client.submit(done, *task, pure=False)

    def result(self, future: Any) -> Any:
        from concurrent.futures import CancelledError

        try:
            return future.result()
        except self._killed as error:
            raise Lost from error
        except CancelledError as error:
            raise UnreadableError("the scheduler has gone, and the work with it") from error
        except ModuleNotFoundError as error:
            raise UnreadableError(f"a worker lacks a package: {error}") from error

    def alone(self, *task: Any) -> Any:
        return self.result(self.submit(*task))

    def close(self) -> None:
        if self._own:
            self._client.close()


def workers_of(scheduler: Any, workers: Optional[int]) -> Any:
    """Those that a name, an address or a client of Dask's stands for."""
    if workers is not None and workers < 1:
        raise UsageError("there is at least one worker")
    if scheduler == "threads":
        return Threads(workers)
    if scheduler == "processes":
        return Processes(workers)
    if isinstance(scheduler, str) and "://" not in scheduler:
        raise UsageError(f"{scheduler}: a scheduler is threads, processes, or an address such as tcp://HOST:8786")
    if workers is not None:
        raise UsageError("a scheduler has its own workers")
    return Cluster(scheduler)


def _one_by_one(team: Any, work: Work, units: List[Unit], form: str) -> Tuple[Any, Tally]:
    """A part that workers keep dying over: the file that kills them costs its own row, the others are worked on."""
    rows: List[List[Row]] = []
    for unit in units:
        for _ in range(2):
            try:
                rows.append(team.alone(work, [unit], "rows")[0])
                break
            except Lost:
                continue
        else:
            rows.append([bad_row(work.kind, unit, "the worker dies over it")])
    return finished(work.kind, form, rows)


def completed(
    team: Any, work: Work, parts: List[List[Unit]], form: str, retries: int
) -> Iterator[Tuple[int, Any, Tally]]:
    """Parts as they are done: number, what has come of it, and its tally.

    A part is handed out only when there is a worker for it soon, and never far ahead of the oldest that is not done:
    neither the scheduler nor those who wait for the next in order have to keep the whole fleet.
    """
    results: Any = queue.SimpleQueue()
    tries: Dict[int, int] = {}  # of the parts that are out
    open_parts = set(range(len(parts)))
    next_part = oldest = 0

    def hand_out(number: int) -> None:
        future = team.submit(work, parts[number], form)
        future.add_done_callback(lambda done_one: results.put((number, done_one)))

    while open_parts:
        while (
            next_part < len(parts)
            and len(tries) < 2 * team.workers + 2
            and next_part < oldest + _AHEAD * team.workers
        ):
            tries[next_part] = 0
            hand_out(next_part)
            next_part += 1
        number, future = results.get()
        try:
            payload, tally = team.result(future)
        except Lost:
            tries[number] += 1
            if tries[number] <= retries:
                hand_out(number)
                continue
            payload, tally = _one_by_one(team, work, parts[number], form)
        del tries[number], future
        open_parts.discard(number)
        while oldest not in open_parts and oldest < next_part:
            oldest += 1
        yield number, payload, tally

