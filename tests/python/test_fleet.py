# SPDX-License-Identifier: Apache-2.0
"""Archives: the same rows wherever the work is done, whatever dies on the way, and outputs that are whole or not there."""

from __future__ import annotations

import csv
import json
import multiprocessing
import os
import pathlib
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
from contextlib import closing
from typing import Any, Dict, Iterator, List

import pytest
import reflyze
from conftest import BASELINE, CURRENT, METRO, PROGRAM, ROOT
from reflyze import _fleet_run, fleet
from reflyze._fleet_rows import done

LIMITS = {"name": "mine", "one_way": {"splice_db": 0.2}}
SECTIONS = [{"length_km": 1.5, "attenuation_db_per_km": 0.2}, {"length_km": 2.5, "attenuation_db_per_km": 0.2}]
LINK = {"range_km": 6, "points": 6000, "pulse_ns": 50, "sections": SECTIONS, "joints": [{"loss_db": 0.3}]}
BACK = dict(LINK, sections=SECTIONS[::-1])


@pytest.fixture(scope="module")
def archive(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """Forty traces in two folders, and among them a text, a half and a name that leads nowhere."""
    folder = tmp_path_factory.mktemp("archive")
    for fibre in ("K_1", "K_2"):
        (folder / fibre).mkdir()
        for day in range(20):
            reflyze.simulate(LINK, seed=day).save(folder / fibre / f"{day}.sor")
    (folder / "K_1" / "text.sor").write_text("none")
    (folder / "K_2" / "half.sor").write_bytes(pathlib.Path(METRO).read_bytes()[:9000])
    (folder / "K_2" / "gone.sor").symlink_to(folder / "nowhere")
    return folder


@pytest.fixture(scope="module")
def cluster() -> Iterator[Any]:
    distributed = pytest.importorskip("distributed")
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, host="127.0.0.1", dashboard_address=None
    ) as local:
        yield local


def problems(rows: List[fleet.Row]) -> Dict[str, str]:
    return {pathlib.Path(row["file"]).name: row["problem"] for row in rows if row["problem"]}


def small(kind: str, archive: pathlib.Path, **how: Any) -> fleet.Run:
    """A work in many small partitions."""
    how = {"partition_bytes": 30000, "workers": 2, **how}
    if "://" in how.get("scheduler", ""):
        del how["workers"]
    if kind == "compare":
        return fleet.compare(archive, archive.parent / "base.sor", **how)
    if kind == "judge":
        return fleet.judge(archive, limits=LIMITS, **how)
    return fleet.analyse(archive, loss_db=0.02, **how)


def test_all_schedulers_give_the_rows_of_the_package(archive: pathlib.Path, cluster: Any) -> None:
    reflyze.baseline(archive / "K_1" / "0.sor", level="main").save(archive.parent / "base.sor")
    for kind in ("analyse", "compare", "judge"):
        rows = list(small(kind, archive))
        assert list(small(kind, archive, scheduler="processes")) == rows
        assert list(small(kind, archive, scheduler=cluster.scheduler_address)) == rows
        files = [file.name for file in reflyze.files(archive, folders=True)]
        assert list(dict.fromkeys(row["file"] for row in rows)) == files
        found = problems(rows)
        assert set(found) == {"text.sor", "half.sor", "gone.sor"} and "No such file" in found["gone.sor"]
        names = [row["file"] for row in rows if row["problem"]]
        assert len(names) == len(set(names)) == 3 and all(set(row) == set(rows[0]) for row in rows)
        own = [row for row in rows if row["file"] == str(archive / "K_2" / "7.sor")]
        if kind == "analyse":
            table = reflyze.analyse(own[0]["file"], loss_db=0.02)
            for name in ("number", "distance_km", "code", "loss_db", "loss_sd_db", "attenuation_db_per_km"):
                assert [row[name] for row in own] == [getattr(event, name) for event in table.events]
            assert {row["total_loss_db"] for row in own} == {table.total_loss_db}
            assert len(list(fleet.analyse(own[0]["file"], loss_db=0.5))) < len(own)
        elif kind == "compare":
            told = reflyze.compare(archive.parent / "base.sor", own[0]["file"])
            assert [row["lt_deviation_db"] for row in own] == [event.lt.deviation_db for event in told.events]
            assert not any(row["changed"] for row in own)
        else:
            judged = reflyze.analyse(own[0]["file"], limits=LIMITS)
            assert [row["verdict"] for row in own] == [judged.verdict] == ["fail"]
            assert judged.verdicts is not None
            assert own[0]["sentences"] == "; ".join(judged.verdicts.sentences) and own[0]["failing_events"] == 1
    pytest.importorskip("dask.bag")
    assert small("analyse", archive).bag().compute(scheduler="sync") == list(small("analyse", archive))


def test_workers_that_die_cost_nothing(archive: pathlib.Path, cluster: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    expected = list(small("analyse", archive))
    client_of = pytest.importorskip("distributed").Client
    with client_of(cluster.scheduler_address, set_as_default=False) as client:
        for scheduler in ("processes", cluster.scheduler_address):
            rows: Dict[int, List[fleet.Row]] = {}
            for number, part in small("analyse", archive, scheduler=scheduler).partitions():
                if not rows:
                    if scheduler == "processes":
                        victim = multiprocessing.active_children()[0].pid
                    else:
                        victim = next(iter(client.run(os.getpid).values()))
                    assert victim is not None
                    os.kill(victim, signal.SIGKILL)
                assert number not in rows
                rows[number] = part
            assert [row for number in sorted(rows) for row in rows[number]] == expected

    class Fragile(_fleet_run.Threads):
        """Dies over one file."""

        def result(self, future: Any) -> Any:
            payload = future.result()
            if b"/7.sor" in payload:
                raise _fleet_run.Lost
            return payload

        def alone(self, *task: Any) -> Any:
            if task[1][0][0].name.endswith("K_1/7.sor"):
                raise _fleet_run.Lost
            return super().alone(*task)

        def submit(self, *task: Any) -> Any:
            return self._pool.submit(lambda: b"/7.sor" if "/7.sor" in str(task[1]) else done(*task))

    monkeypatch.setattr("reflyze.fleet.workers_of", lambda *_: Fragile(2))
    fragile = list(small("analyse", archive))
    lost = str(archive / "K_1" / "7.sor")
    assert [row for row in fragile if row["file"] != lost] == [row for row in expected if row["file"] != lost]
    assert problems(fragile)["7.sor"] == "the worker dies over it"


def test_outputs_are_whole_or_not_there(archive: pathlib.Path, tmp_path: pathlib.Path) -> None:
    zarr = pytest.importorskip("zarr")
    rows = list(small("analyse", archive))
    for name in ("a.csv", "a.jsonl", "a.zarr", "a.zarr", "a.db", "a.db"):
        tally = small("analyse", archive, scheduler="processes").write(tmp_path / name)
        assert (tally.units, tally.rows, tally.problems) == (43, len(rows), 3)
    assert [json.loads(line) for line in (tmp_path / "a.jsonl").read_text().splitlines()] == rows
    with open(tmp_path / "a.csv", newline="") as file:
        table = list(csv.DictReader(file))
    assert [row["file"] for row in table] == [row["file"] for row in rows]
    assert [row["loss_db"] for row in table] == ["" if row["loss_db"] is None else repr(row["loss_db"]) for row in rows]
    group = zarr.open_consolidated(str(tmp_path / "a.zarr"))
    for column, missing in (("file", ""), ("number", -1), ("problem", ""), ("reflectance_at_least", -1)):
        assert list(group[column]) == [missing if row[column] is None else row[column] for row in rows]
    assert [None if km != km else km for km in group["distance_km"]] == [row["distance_km"] for row in rows]

    def stop(count: int, of: int) -> None:
        raise KeyboardInterrupt

    before = (tmp_path / "a.csv").read_bytes()
    for name in ("a.csv", "new.jsonl", "new.zarr", "a.db", "new.db"):
        with pytest.raises(KeyboardInterrupt):
            small("analyse", archive).write(tmp_path / name, progress=stop)
    (tmp_path / "mine.zarr").mkdir()
    (tmp_path / "mine.db").write_text("no database")
    for name in ("mine.zarr", "no/a.csv", "mine.db", "no/a.db"):
        with pytest.raises(reflyze.UnwritableError):
            small("analyse", archive).write(tmp_path / name)
    assert (tmp_path / "a.csv").read_bytes() == before
    with closing(sqlite3.connect(tmp_path / "a.db")) as base:
        base.row_factory = sqlite3.Row
        assert [dict(row) for row in base.execute("SELECT * FROM fleet_analyse")] == rows
    assert sorted(os.listdir(tmp_path)) == ["a.csv", "a.db", "a.jsonl", "a.zarr", "mine.db", "mine.zarr"]


def test_traces_find_their_baselines_and_directions(tmp_path: pathlib.Path) -> None:
    for folder in ("archive/K7", "bases", "east", "west"):
        (tmp_path / folder).mkdir(parents=True)
    shutil.copy(CURRENT, tmp_path / "archive" / "K7" / "today.sor")
    shutil.copy(CURRENT, tmp_path / "archive" / "other.sor")
    reflyze.baseline(BASELINE, level="main").save(tmp_path / "bases" / "K7.sor")
    rows = list(fleet.compare(tmp_path / "archive", tmp_path / "bases"))
    assert {row["baseline"] for row in rows if row["changed"]} == {str(tmp_path / "bases" / "K7.sor")}
    assert problems(rows) == {"other.sor": "has no baseline of its name"}
    reflyze.simulate(LINK, seed=1).save(tmp_path / "east" / "K_1_A.sor")
    reflyze.simulate(BACK, seed=2).save(tmp_path / "west" / "K_1_A.sor")
    two = list(fleet.merge(tmp_path / "east", tmp_path / "west", loss_db=0.05))
    shutil.copy(tmp_path / "west" / "K_1_A.sor", tmp_path / "east" / "K_1_B.sor")
    shutil.copy(METRO, tmp_path / "east" / "K_2_A.sor")
    one = list(fleet.merge(tmp_path / "east", loss_db=0.05))
    assert [row["loss_db"] for row in one[:-1]] == [row["loss_db"] for row in two]
    assert any(abs(row["loss_db"] - 0.3) < 0.02 for row in two if row["loss_db"])
    assert problems(one) == {"K_2_A.sor": "the other direction is missing"}


@pytest.fixture
def server() -> Iterator[str]:
    """The address of a PostgreSQL server on a socket, with a password that it doesn't ask for."""
    bins = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))
    if not bins:
        pytest.skip("no PostgreSQL is installed")
    pytest.importorskip("psycopg2")
    with tempfile.TemporaryDirectory(prefix="reflyze-") as folder:
        user: Dict[str, Any] = {}
        if os.getuid() == 0:  # which the server refuses to be
            user = {"user": "postgres"}
            shutil.chown(folder, "postgres")

        def tool(name: str, *words: str) -> None:
            command = [str(bins[-1] / name), "-D", f"{folder}/data", *words]
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL, cwd="/", **user)

        tool("initdb", "-A", "trust", "-U", "postgres")
        tool("pg_ctl", "-l", f"{folder}/log", "-w", "-o", f"-c listen_addresses='' -k {folder}", "start")
        try:
            yield f"postgresql://postgres:secret@/postgres?host={folder}"
        finally:
            tool("pg_ctl", "-m", "immediate", "-w", "stop")


STORE = """CREATE TABLE fibres (id BIGINT PRIMARY KEY, name TEXT, baseline BIGINT);
CREATE TABLE traces (id BIGINT PRIMARY KEY, fibre BIGINT, hash TEXT);
CREATE TABLE trace_bytes (id BIGINT PRIMARY KEY, bytes BYTEA);
CREATE TABLE baseline_bytes (id BIGINT PRIMARY KEY, bytes BYTEA);
INSERT INTO fibres VALUES (1, 'K7', 3), (2, 'K8', 0);
INSERT INTO traces VALUES (1, 1, ''), (2, 2, ''), (3, 1, '')"""


@pytest.mark.parametrize("kind", ["file", "server"])
def test_stores_of_centres(kind: str, tmp_path: pathlib.Path, request: pytest.FixtureRequest) -> None:
    address = shown = str(tmp_path / "centre 100%.db")
    place = "?"
    if kind == "server":
        address, place = request.getfixturevalue("server"), "%s"
        shown = address.replace("postgres:secret@", "")
    reflyze.baseline(BASELINE, level="main").save(tmp_path / "K7.sor")
    rows = [row["lt_deviation_db"] for row in fleet.compare(CURRENT, tmp_path / "K7.sor")]
    current, base = pathlib.Path(CURRENT).read_bytes(), (tmp_path / "K7.sor").read_bytes()

    def opened() -> Any:
        return closing(sqlite3.connect(address) if kind == "file" else pytest.importorskip("psycopg2").connect(address))

    def table(columns: str = "*") -> List[Any]:
        with opened() as store:
            cursor = store.cursor()
            cursor.execute(f"SELECT {columns} FROM fleet_compare")
            return list(cursor.fetchall())

    with opened() as store:
        cursor = store.cursor()
        for statement in STORE.split(";"):
            cursor.execute(statement)
        for name, key, data in (("trace", 1, current), ("trace", 2, current), ("baseline", 3, base)):
            cursor.execute(f"INSERT INTO {name}_bytes VALUES ({place}, {place})", (key, data))
        cursor.execute("CREATE TABLE fleet_compare (other BIGINT)")  # of another release
        store.commit()
    run = fleet.compare(address, scheduler="processes", workers=1)
    stored = list(run)
    assert [row["lt_deviation_db"] for row in stored if not row["problem"]] == rows
    assert {row["file"]: row["problem"] for row in stored if row["problem"]} == {
        f"{shown}:K8/2": "its fibre has no baseline", f"{shown}:K7/3": "the store has no bytes of it"}  # fmt: skip
    assert len(problems(list(fleet.analyse(address)))) == 1
    assert "secret" not in repr(fleet.items(address))

    # Rows go back into it, in the place of older ones, whose views stay, and not by halves.
    def stop(count: int, of: int) -> None:
        raise KeyboardInterrupt

    fleet.compare(CURRENT, tmp_path / "K7.sor").write(address)
    with opened() as store:
        store.cursor().execute("CREATE VIEW mine AS SELECT file FROM fleet_compare")
        store.commit()
    assert [row for row, in table("lt_deviation_db")] == rows
    with pytest.raises(KeyboardInterrupt):
        run.write(address, progress=stop)
    assert [row for row, in table("lt_deviation_db")] == rows
    run.write(address)
    assert [dict(zip(run.columns, row)) for row in table()] == stored
    with opened() as store:
        cursor = store.cursor()
        cursor.execute("SELECT count(*) FROM mine")
        assert cursor.fetchall() == [(len(stored),)]
        cursor.execute("DROP TABLE fibres")
        store.commit()
    with pytest.raises(reflyze.UnreadableError, match="store") as caught:
        fleet.analyse(address)
    assert "secret" not in str(caught.value)


def test_addresses_keep_their_passwords() -> None:
    pytest.importorskip("psycopg2")
    for secret in ("u:pa?hush@h", "u:pa@hush@h", "u:pa/hush@h", "u:100%hush@h", "h:1?passw%6Frd=hush&sslmode=none",
                   "h?password=pa@hush", "h?hush=1", "@/?host=%2Fnone&password=hush", "u:hush@/x?host=/none", "u:hush@[::1/db"):  # fmt: skip
        with pytest.raises(reflyze.UnreadableError) as unread:
            fleet.analyse(f"postgresql://{secret}")
        with pytest.raises(reflyze.UnwritableError) as unwritten:
            fleet.analyse(CURRENT).write(f"postgresql://{secret}")
        assert "hush" not in f"{unread.value} {unwritten.value}", secret


def test_command(archive: pathlib.Path, tmp_path: pathlib.Path) -> None:
    environment = dict(os.environ, REFLYZE_PYTHON=sys.executable)

    def run(*arguments: str, **more: str) -> "subprocess.CompletedProcess[str]":
        command = [PROGRAM, "fleet", *arguments]
        return subprocess.run(command, capture_output=True, text=True, env={**environment, **more}, cwd=tmp_path)

    there = str(archive / "K_1" / "1.sor")
    limits = str(ROOT / "examples/limits/carrier.ini")
    reflyze.baseline(BASELINE, level="main").save(tmp_path / "base")
    for status, arguments in (
        (0, ["analyse", there, "--lt", "0.02", "-o", "a.jsonl"]),
        (3, ["analyse", str(archive), "-o", "a.csv", "--scheduler", "threads"]),
        (1, ["compare", CURRENT, "--baseline", "base", "-o", "c.csv"]),
        (5, ["judge", there, "--limits", "strict", "-o", "j.csv"]),
        (0, ["judge", there, "--limits", limits, "-o", "j.csv", "--scheduler", "threads"]),
        (2, ["judge", there, "-o", "j.csv"]),
        (2, ["compare", there, "-o", "x.csv"]),
        (2, ["analyse", there, "-o", "x"]),
        (2, ["analyse", there, "-o", "x.csv", "--scheduler", "clouds"]),
        (3, ["analyse", there, "-o", "x.csv", "--thresholds", "none.ini"]),
        (2, ["analyse", there, "-o", "x.csv", "--encoding", "klingon"]),
        (3, ["analyse", there, "-o", "x.csv", "--scheduler", "tcp://127.0.0.1:9"]),
        (4, ["analyse", there, "-o", "none/x.csv"]),
    ):
        (tmp_path / "strict").write_text("[one way]\nsplice_db = 0.01\n")
        ran = run(*arguments)
        assert ran.returncode == status, (arguments, ran.stderr)
        assert "Traceback" not in ran.stderr
        assert status == 2 or all(line.startswith("reflyze: ") for line in ran.stderr.splitlines())
    assert (tmp_path / "a.jsonl").read_text().splitlines() == [
        json.dumps(row, separators=(",", ":")) for row in fleet.analyse(there, loss_db=0.02)]  # fmt: skip
    assert not list(tmp_path.glob("x*"))
    # What is missing is said, in a line.
    (tmp_path / "distributed.py").write_text("raise ImportError('none here')")
    without = run("analyse", there, "-o", "x.csv", "--scheduler", "tcp://127.0.0.1:9",
                  PYTHONPATH=f"{tmp_path}:{os.environ.get('PYTHONPATH', '')}")  # fmt: skip
    assert without.returncode == 3 and "python3-distributed" in without.stderr
    none = run("analyse", there, "-o", "x.csv", REFLYZE_PYTHON=str(tmp_path / "none"))
    assert none.returncode == 3 and "needs Python" in none.stderr and len(none.stderr.splitlines()) == 1
