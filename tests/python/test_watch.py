# SPDX-License-Identifier: Apache-2.0
"""The client and a centre that runs: what goes in comes out, and refusals are exceptions of their kind."""

from __future__ import annotations

import pathlib
import sqlite3
import subprocess
import time
from contextlib import closing
from typing import Callable, Iterator, TypeVar

import pytest
from conftest import BASELINE, CURRENT, PROGRAM, program
from reflyze import fleet
from reflyze.watch import Centre, CentreError, NotAllowed, NotThere, Refused

Found = TypeVar("Found")


@pytest.fixture()
def centre(tmp_path: pathlib.Path) -> Iterator[Centre]:
    store = str(tmp_path / "w.db")
    if program("watch", "--check", "--store", store).status != 0:
        pytest.skip("the centre is not built")
    running = subprocess.Popen(
        [PROGRAM, "watch", "--store", store, "--port", "0"], stdout=subprocess.PIPE, text=True
    )
    try:
        assert running.stdout is not None
        yield Centre(running.stdout.readline().strip(), patience=10.0)
    finally:
        running.terminate()
        assert running.wait(20) == 0


def eventually(look: Callable[[], Found]) -> Found:
    until = time.monotonic() + 20.0
    while time.monotonic() < until:
        found = look()
        if found:
            return found
        time.sleep(0.05)
    raise AssertionError("it does not come")


def test_a_trace_becomes_an_alarm(centre: Centre, tmp_path: pathlib.Path) -> None:
    assert centre.put_fibre("north", title="North", from_="A", confirm=1, every_s=0)["from"] == "A"
    assert centre.set_baseline("north", BASELINE) == centre.baseline("north")
    centre.put_fibre("south")
    taken = centre.hand_in("north", CURRENT)
    assert centre.hand_in("north", pathlib.Path(CURRENT).read_bytes()) == {"id": taken["id"], "known": True}
    assert centre.trace_bytes("north", taken["id"]) == pathlib.Path(CURRENT).read_bytes()
    alarm = eventually(lambda: list(centre.alarms(fibre="north")))[0]
    assert alarm["kind"] == "loss" and abs(alarm["km"] - 22.88) < 0.01
    assert centre.acknowledge(alarm["id"])["acknowledged_by"] == "local"
    with pytest.raises(Refused, match="has acknowledged it") as refused:
        centre.acknowledge(alarm["id"])
    assert refused.value.status == 409
    assert [row["trace"] for row in centre.comparisons("north")] == [taken["id"]]
    # What archives say of its store goes back into it, while it runs.
    name = str(tmp_path / "w.db")
    for run in (fleet.analyse(name), fleet.compare(name), fleet.compare(name)):
        assert run.write(name).units == 1
    with closing(sqlite3.connect(name)) as store:
        store.row_factory = sqlite3.Row
        assert [dict(row) for row in store.execute("SELECT * FROM fleet_compare")] == list(fleet.compare(name))
        assert store.execute("SELECT COUNT(*) FROM fleet_analyse WHERE loss_db > 0").fetchone()[0] > 1
    assert centre.hand_in("north", BASELINE)["known"] is False
    assert [row["name"] for row in centre.fibres()] == ["north", "south"]
    assert len(centre.baseline_bytes("north")) > 1000 and centre.trends("north") == []
    centre.drop_fibre("south")
    with pytest.raises(NotThere):
        centre.fibre("south")
    with pytest.raises(Refused, match="is not a trace record"):
        centre.hand_in("north", b"no trace")


def test_news_come_as_they_happen(centre: Centre) -> None:
    news = centre.news("older-1")
    first = next(news)
    assert first.kind == "missed"
    centre.put_fibre("north")
    second = next(news)
    assert (second.kind, second.data["fibre"]) == ("fibre", "north")
    centre.put_fibre("south")
    assert [item.data["fibre"] for item in (next(centre.news(second.id)),)] == ["south"]


def test_people_and_tokens(centre: Centre) -> None:
    address = f"http://127.0.0.1:{centre._port}"
    centre.put_fibre("north")
    centre.put_fibre("south")
    with pytest.raises(Refused, match="administrator"):
        centre.set_user("ada", role="reader", password="lovelace1")
    centre.set_user("ada", role="administrator", password="lovelace1")
    with pytest.raises(NotAllowed):
        next(centre.fibres())
    ada = Centre(address, user="ada", password="lovelace1")
    token = ada.add_token("probe", fibres="no*")
    probe = Centre(address, token["token"])
    assert probe.hand_in("north", CURRENT)["known"] is False
    with pytest.raises(NotAllowed, match="may not do this"):
        probe.hand_in("south", CURRENT)
    with pytest.raises(NotAllowed, match="may not do this"):
        probe.fibre("north")
    ada.drop_token(token["id"])
    with pytest.raises(NotAllowed, match="no such token"):
        probe.me()
    assert [row["what"] for row in ada.audit(2)] == ["drop token", "add token"]


def test_nobody_there() -> None:
    with pytest.raises(CentreError, match="can't be reached"):
        Centre("http://127.0.0.1:1").health()
