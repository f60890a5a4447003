# SPDX-License-Identifier: Apache-2.0
"""Objects of the package among those of Python: arrays, pickles, threads, errors, wrong arguments."""

from __future__ import annotations

import copy
import gc
import pathlib
import pickle
import threading
import time
from concurrent.futures import ProcessPoolExecutor, ThreadPoolExecutor
from multiprocessing import get_context
from typing import Any, Callable, List, Optional, Tuple

import numpy
import pytest
import reflyze
from conftest import BASELINE, CURRENT, METRO, ROOT, two_traces

Call = Callable[[], object]
LINK = {"range_km": 3, "points": 9000, "sections": [{"length_km": 2}]}


def some_results() -> List[Any]:
    return [
        reflyze.analyse(METRO),
        reflyze.open(METRO).stored_events(as_stored=True),
        reflyze.baseline(BASELINE, level="main"),
        reflyze.compare(reflyze.baseline(BASELINE, level="main"), CURRENT),
        reflyze.merge(BASELINE, CURRENT),
        reflyze.quality(METRO, long_pulse=METRO),
        reflyze.filter(METRO),
        reflyze.simulate(LINK),
    ]


def test_arrays_show_the_trace_and_keep_it() -> None:
    trace = reflyze.open(pathlib.Path(METRO))
    levels, places = trace.levels_db, trace.distance_km
    assert levels.dtype == places.dtype == numpy.float64
    assert levels.shape == places.shape == (trace.card.points,)
    assert places[1] - places[0] == pytest.approx(trace.card.spacing_m / 1000)
    assert numpy.shares_memory(levels, trace.levels_db)
    with pytest.raises(ValueError):
        levels[0] = 1.0
    with pytest.raises(ValueError):
        levels.flags.writeable = True
    before = levels.copy()
    trace.analyse()  # works on a copy of its own
    del trace
    gc.collect()
    for _ in range(20):
        reflyze.open(CURRENT).levels_db.sum()
    assert numpy.array_equal(levels, before)


def test_pickles_and_copies_are_the_same() -> None:
    for result in some_results():
        for other in (pickle.loads(pickle.dumps(result)), copy.copy(result), copy.deepcopy(result)):
            assert type(other) is type(result) and repr(other) == repr(result)
            assert (other.to_json(), other.to_text()) == (result.to_json(), result.to_text())
            assert [(note, note.file) for note in other.warnings] == [(n, n.file) for n in result.warnings]
            if hasattr(result, "trace"):
                assert bytes(other) == bytes(result) == bytes(other.trace)
            if hasattr(result, "traces"):
                assert [bytes(t) for t in other.traces] == [bytes(t) for t in result.traces]
    latin = reflyze.open(METRO, encoding="iso-8859-1")
    several = reflyze.from_bytes(two_traces(bytes(latin)), "two").traces
    for trace in (latin, *several):
        other = pickle.loads(pickle.dumps(trace))
        assert (other.name, other.encoding, other.card) == (trace.name, trace.encoding, trace.card)
        assert other.analyse().to_json() == trace.analyse().to_json()
    error = pickle.loads(pickle.dumps(reflyze.UnreadableError("is cut", "a.sor", "DataPts", 7)))
    assert (str(error), error.block, error.offset) == ("a.sor: is cut", "DataPts", 7)


def test_other_processes_and_threads_give_the_same() -> None:
    traces = [reflyze.open(METRO), reflyze.open(CURRENT)]
    alone = [trace.analyse().to_json() for trace in traces]
    with ProcessPoolExecutor(2, mp_context=get_context("spawn")) as processes:
        assert [r.to_json() for r in processes.map(reflyze.analyse, traces)] == alone
    with ThreadPoolExecutor(4) as threads:
        assert [r.to_json() for r in threads.map(reflyze.analyse, traces * 6)] == alone * 6


def test_work_lets_other_threads_go_on() -> None:
    large = reflyze.simulate({"range_km": 100, "points": 1000000, "sections": [{"length_km": 90}]}).trace
    stamps: List[float] = []
    done = threading.Event()

    def tick() -> None:
        while not done.wait(0.0005):
            stamps.append(time.monotonic())

    ticking = threading.Thread(target=tick)
    ticking.start()
    try:
        works: List[Call] = [large.analyse, lambda: reflyze.quality(large), lambda: reflyze.filter(large),
                             lambda: reflyze.simulate(dict(LINK, points=1000000)),
                             lambda: reflyze.merge(large, METRO), lambda: reflyze.dump_text(large)]  # fmt: skip
        for work in works:
            begin = time.monotonic()
            try:
                work()
            except reflyze.Error:
                pass
            quarter = (time.monotonic() - begin) / 4
            assert any(begin + quarter < stamp < begin + 3 * quarter for stamp in stamps), work
    finally:
        done.set()
        ticking.join()


def test_failures_have_a_kind_a_file_and_a_sentence(tmp_path: pathlib.Path) -> None:
    cut = reflyze.from_bytes(pathlib.Path(METRO).read_bytes()[:9000], "cut")
    assert cut.warnings and cut.warnings[0].file == "cut" and cut.why_unusable
    failures: List[Tuple[Call, str, Optional[str], str]] = [
        (lambda: reflyze.open(tmp_path / "no.sor"), "unreadable", str(tmp_path / "no.sor"), "No such file"),
        (lambda: reflyze.open("/no/\udcff.sor"), "unreadable", "/no/\udcff.sor", "No such file"),
        (lambda: reflyze.from_bytes(b""), "unreadable", "bytes", "is empty"),
        (cut.analyse, "unreadable", "cut", "ends inside its samples"),
        (lambda: reflyze.open(METRO).save(tmp_path / "no" / "a"), "unwritable", str(tmp_path / "no" / "a"), ""),
        (lambda: reflyze.analyse(METRO).save(tmp_path), "unwritable", str(tmp_path), ""),
        (lambda: reflyze.simulate("{"), "unreadable", "link", ""),
        (lambda: reflyze.open(METRO, encoding="klingon"), "usage", None, "no encoding"),
        (lambda: reflyze.analyse(METRO, loss_db=float("nan")), "usage", None, "threshold of loss"),
        (lambda: reflyze.analyse(METRO, most_loss_db=-1), "usage", None, "threshold of loss"),
        (lambda: reflyze.filter(METRO, kind="new"), "usage", None, "none of auto"),
        (lambda: reflyze.filter(METRO, level=1e9), "usage", None, "filter level"),
        (lambda: reflyze.quality(METRO, last_percent=101), "usage", None, "last_percent"),
        (lambda: reflyze.baseline(METRO, level=" "), "usage", None, "no name"),
        (lambda: reflyze.baseline(METRO, level="a", settings={"x": 1}), "usage", None, "no setting"),
        (lambda: reflyze.simulate(LINK, seed=-1), "usage", None, "seed"),
    ]  # fmt: skip
    for call, kind, file, part in failures:
        with pytest.raises(reflyze.Error) as raised:
            call()
        error = raised.value
        assert (error.kind, error.file) == (kind, file) and part in error.sentence
        assert str(error) == (f"{file}: {error.sentence}" if file else error.sentence)
        assert type(error).__name__.lower() == f"{kind}error"


def test_wrong_types_are_type_errors() -> None:
    untyped: Any = reflyze
    trace = untyped.open(METRO)
    held: Any = type(trace._held)
    calls: List[Call] = [
        lambda: untyped.open(3), lambda: untyped.open(b"a"), lambda: untyped.open(None),
        lambda: untyped.from_bytes("text"), lambda: untyped.from_bytes(5), lambda: untyped.Trace(5),
        lambda: untyped.open(METRO, encoding=None), lambda: trace.analyse(loss_db="0.02"),
        lambda: trace.analyse(0.02), lambda: trace.analyse(los_db=1), lambda: trace.analyse(section=3),
        lambda: trace.analyse(thresholds=[]), lambda: untyped.compare(trace, 3),
        lambda: untyped.baseline(trace, level=3), lambda: untyped.baseline(trace, level="a", search=[(1, "x")]),
        lambda: untyped.baseline(trace, level="a", settings={1: 1}), lambda: untyped.merge(trace),
        lambda: untyped.quality(trace, last_percent=10.5), lambda: untyped.quality(trace, long_pulse=1),
        lambda: untyped.filter(trace, kind=5), lambda: untyped.simulate(5), lambda: untyped.simulate({}, seed=1.5),
        lambda: trace.save(None), lambda: held(),
        lambda: held.__new__(held), lambda: held.mro()[-1].__new__(held),  # without what they hold
    ]  # fmt: skip
    for call in calls:
        with pytest.raises(TypeError):
            call()
    for change in ("levels_db", "name", "other"):
        with pytest.raises(AttributeError):
            setattr(trace, change, 1)


def test_no_bytes_crash() -> None:
    for file in sorted(path for path in ROOT.glob("tests/fuzz/inputs/*/*") if path.is_file()):
        try:
            trace = reflyze.from_bytes(bytearray(file.read_bytes()), file.name)
            assert len(trace.levels_db) == len(trace.distance_km) and repr(trace) and trace.card
            for part in trace.traces:
                reflyze.quality(pickle.loads(pickle.dumps(part.analyse())))
        except reflyze.Error as error:
            assert error.kind == "unreadable"


def test_frames_pictures_and_lines() -> None:
    for value in [*some_results(), reflyze.open(METRO), reflyze.analyse(METRO).events[1], reflyze.open(METRO).card]:
        assert "\n" not in repr(value) and "object at" not in repr(value)
    pandas = pytest.importorskip("pandas")
    for result in some_results():
        frame = result.to_frame()
        assert isinstance(frame, pandas.DataFrame) and len(frame) == len(result.events)
        assert list(frame["distance_km" if "distance_km" in frame else "begin"]) == [
            getattr(event, "distance_km" if "distance_km" in frame else "begin") for event in result.events]  # fmt: skip
    told = reflyze.compare(reflyze.baseline(BASELINE, level="main"), CURRENT)
    assert told.to_frame()["lt_deviation_db"].max() == max(e.lt.deviation_db or 0 for e in told.events)
    nothing = reflyze.analyse(reflyze.simulate({"range_km": 3, "points": 9000}).trace)
    assert not nothing.fibre and nothing.to_frame()["loss_db"].dtype == float
    matplotlib = pytest.importorskip("matplotlib")
    matplotlib.use("agg")
    table = reflyze.analyse(METRO)
    axes = reflyze.open(METRO).plot(table, color="black")
    assert len(axes.get_lines()) == 1 + len(table.events) and axes.get_xlabel() == "distance, km"
