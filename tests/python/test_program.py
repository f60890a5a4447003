# SPDX-License-Identifier: Apache-2.0
"""Python gives what the program gives: the same texts, the same files, the same sentences."""

from __future__ import annotations

import dataclasses
import json
import pathlib
from typing import Any, Callable, List, Optional, Tuple

import pytest
import reflyze
from conftest import BASELINE, CURRENT, METRO, ROOT, TRACES, program, two_traces

ANY = [pytest.param(trace, id=pathlib.Path(trace).name) for trace in TRACES]
Call = Callable[[], reflyze.Result]


def same_names(value: Any, member: Any) -> None:
    """Attributes have the names and values of the JSON, and none more but warnings.

    A name that Python has for itself has an underscore behind it.
    """
    if isinstance(member, dict) and dataclasses.is_dataclass(value):
        fields = {field.name.rstrip("_"): field.name for field in dataclasses.fields(value)}
        assert set(member) - {"warnings"} <= set(fields)
        for key, name in fields.items():
            same_names(getattr(value, name), member.get(key))
    elif isinstance(member, list):
        assert len(value) == len(member)
        for one, other in zip(value, member):
            same_names(one, other)
    else:
        assert value == member and (member is None or type(value) is type(member))


def check(call: Call, *arguments: str, good: int = 0) -> Optional[reflyze.Result]:
    """What the call gives, held against the program's run."""
    ran = program(*arguments, "--format", "json")
    if ran.status not in (0, good):
        with pytest.raises(reflyze.Error) as raised:
            call()
        assert ran.error.splitlines()[-1] == f"reflyze: {raised.value}"
        return None
    result = call()
    assert result.to_json() == ran.out
    assert result.to_dict() == json.loads(ran.out)
    assert [f"reflyze: {note.file}: warning: {note}" for note in result.warnings] == ran.error.splitlines()
    same_names(result, result.to_dict())
    assert result.to_text() == program(*arguments).out
    if arguments[0] != "edit":
        assert result.to_csv() == program(*arguments, "--format", "csv").out
    return result


def written(tmp_path: pathlib.Path, names: List[str]) -> List[str]:
    return [str(tmp_path / name) for name in names]


@pytest.mark.parametrize("trace", ANY)
def test_one_trace(trace: str, tmp_path: pathlib.Path) -> None:
    out, mine = written(tmp_path, ["program.sor", "mine.sor"])
    thresholds = ["--lt", "0.02", "--rt", "-55.5", "--et", "6", "--ct", "0.4"]
    calls: List[Tuple[List[str], Call]] = [
        ([], lambda: reflyze.analyse(trace)),
        (thresholds, lambda: reflyze.open(trace).analyse(loss_db=0.02, reflectance_db=-55.5, end_db=6,
                                                         slope_db_per_km=0.4)),
        (["--ends-only"], lambda: reflyze.open(trace).analyse(ends_only=True)),
        (["--explain"], lambda: reflyze.open(trace).analyse(explain=True)),
    ]  # fmt: skip
    for options, call in calls:
        table = check(call, "analyse", trace, *options)
        if table is None:
            continue
        assert isinstance(table, reflyze.EventTable)
        program("analyse", trace, *options, "-o", out)
        table.save(mine)
        assert bytes(table) == pathlib.Path(out).read_bytes() == pathlib.Path(mine).read_bytes()
    check(lambda: reflyze.quality(trace), "quality", trace)
    check(lambda: reflyze.quality(trace, long_pulse=METRO, last_percent=30), "quality", trace,
          "--long-pulse", METRO, "--last-percent", "30")  # fmt: skip
    for measure in (False, True):
        options = ["--measure"] if measure else []
        sheet = check(lambda: reflyze.show(trace, measure=measure), "show", trace, *options)
        if isinstance(sheet, reflyze.Sheet):
            words = [reflyze.meaning_of(event.code, event.technique or "").words for event in sheet.events if event.code]
            assert words == [event.meaning for event in sheet.events if event.code]
            assert sheet.card.from_ == reflyze.open(trace).card.from_
    check(lambda: reflyze.measure(trace, at=0.5), "measure", trace, "--at", "0.5")
    check(lambda: reflyze.measure(trace, from_km=0.2, to_km=0.7), "measure", trace, "--from", "0.2", "--to", "0.7")
    for kind, flag in (("least-squares", "--lsa"), ("return-loss", "--orl")):
        check(lambda: reflyze.measure(trace, from_km=0.2, to_km=0.7, kind=kind),
              "measure", trace, "--from", "0.2", "--to", "0.7", flag)  # fmt: skip
    check(lambda: reflyze.measure(trace, event=(0.1, 0.3, 0.5, 0.7)), "measure", trace, "--event", "0.1,0.3,0.5,0.7")
    fields = ["--set", "fibre=007", "--set", "to=K\u00f6ln", "--set", "index=1.4712"]
    edited = check(lambda: reflyze.edit(trace, {"fibre": "007", "to": "K\u00f6ln", "index": 1.4712}),
                   "edit", trace, *fields, "-o", out)  # fmt: skip
    if isinstance(edited, reflyze.Edited):
        assert bytes(edited) == pathlib.Path(out).read_bytes()
        assert edited.trace.card.fibre == "007" and edited.changes[0].after == '"007"'
    for kind in ("auto", "fast", "kernel"):
        smooth = check(lambda: reflyze.filter(trace, kind=kind), "filter", trace, "-o", out, "--kind", kind)
        if isinstance(smooth, reflyze.FilterTable):
            assert bytes(smooth) == pathlib.Path(out).read_bytes()
    assert reflyze.dump(trace) == json.loads(program("dump", trace, "--format", "json").out)
    assert reflyze.dump_text(trace, samples=False, native=True) == program(
        "dump", trace, "--no-data", "--native").out  # fmt: skip
    opened = reflyze.open(trace)
    assert bytes(opened) == pathlib.Path(trace).read_bytes()
    if program("copy", trace, out, "--native").status == 0:
        opened.save(mine, native=True)
        assert pathlib.Path(mine).read_bytes() == pathlib.Path(out).read_bytes()


@pytest.mark.parametrize("trace", ANY)
def test_watching(trace: str, tmp_path: pathlib.Path) -> None:
    base, out = written(tmp_path, ["base.sor", "out.sor"])
    baseline = check(
        lambda: reflyze.baseline(trace, level="main", lt_db=0.3, rt_db=1.5, ct_db_per_km=0.1, eel_db=0.7,
                                 search=[(0.25, 1.5)], settings={"AutoLT": 0.25, "EOFLMN": -1}),
        "baseline", trace, "-o", base, "--level", "main", "--lt", "0.3", "--rt", "1.5", "--ct", "0.1",
        "--eel", "0.7", "--search", "0.25:1.5", "--set", "AutoLT=0.25", "--set", "EOFLMN=-1",
    )  # fmt: skip
    if baseline is None:
        return
    assert isinstance(baseline, reflyze.Baseline)
    assert bytes(baseline) == pathlib.Path(base).read_bytes()
    for current in (trace, CURRENT):
        told = check(lambda: reflyze.compare(base, current), "compare", base, current, good=1)
        if told is None:
            continue
        assert isinstance(told, reflyze.Comparison)
        assert told.changed == (program("compare", base, current, "-o", out).status == 1)
        assert bytes(told) == pathlib.Path(out).read_bytes()
        check(lambda: reflyze.compare(base, out, recheck=True), "compare", base, out, "--recheck", good=1)
        # A baseline that was never stored is as good as its file.
        assert reflyze.compare(baseline, current).to_dict()["events"] == told.to_dict()["events"]


def test_two_directions_and_simulations(tmp_path: pathlib.Path) -> None:
    outs = written(tmp_path, ["a.sor", "b.sor", "mine-a.sor", "mine-b.sor"])
    rules = tmp_path / "rules.ini"
    rules.write_text("[MINE]\nTHLoss=0.05\nTHRef=-70\n")
    pairs = [(a, b) for a in TRACES for b in TRACES if a != b]
    merged = 0
    for a, b in pairs[:: max(1, len(pairs) // 30)] + [(BASELINE, CURRENT)]:
        table = check(lambda: reflyze.merge(a, b), "merge", a, b, "-o", *outs[:2])
        if table is None:
            continue
        merged += 1
        assert isinstance(table, reflyze.MergedTable)
        table.save(*outs[2:])
        files = [pathlib.Path(out).read_bytes() for out in outs]
        assert files[:2] == files[2:] == [bytes(trace) for trace in table.traces]
    assert merged > 0
    check(lambda: reflyze.merge(BASELINE, reflyze.open(CURRENT), thresholds=rules, section="MINE", loss_db=0.1),
          "merge", BASELINE, CURRENT, "-o", *outs[:2], "--thresholds", str(rules), "--section", "MINE",
          "--lt", "0.1")  # fmt: skip

    for link in sorted(ROOT.glob("examples/links/*.json")):
        name, truth, mine, mine_truth = written(tmp_path, ["s.sor", "s.json", "m.sor", "m.json"])
        document = json.loads(link.read_text())
        made = check(lambda: reflyze.simulate(document, seed=2**64 - 1, name=name),
                     "simulate", str(link), "-o", name, "--truth", truth, "--seed", str(2**64 - 1))  # fmt: skip
        assert isinstance(made, reflyze.Simulation)
        made.save(mine, truth=mine_truth)
        assert pathlib.Path(mine).read_bytes() == pathlib.Path(name).read_bytes() == bytes(made.trace)
        assert pathlib.Path(mine_truth).read_bytes() == pathlib.Path(truth).read_bytes()


def test_links_and_cables(tmp_path: pathlib.Path) -> None:
    sections = [{"length_km": km, "attenuation_db_per_km": 0.2} for km in (1.0, 4.0, 3.0, 0.5)]
    joints = [{"loss_db": 0.3, "reflectance_db": -50}, {"loss_db": 0.1}, {"loss_db": 0.3, "reflectance_db": -50}]
    names = []
    for number, (fibre, direction) in enumerate((f, d) for f in "12" for d in "AB"):
        link = {"range_km": 12, "points": 16000, "pulse_ns": 100, "sections": sections, "joints": joints}
        names += written(tmp_path, [f"K_{fibre}_1550_{direction}.sor"])
        reflyze.simulate(link, seed=number).save(names[-1])
    limits = str(ROOT / "examples/limits/carrier.ini")
    out = written(tmp_path, ["a", "b"])
    reels = ["--launch", "auto", "--receive", "0.5", "--limits", limits]
    table = check(lambda: reflyze.analyse(names[0], launch="auto", receive=0.5, limits=limits),
                  "analyse", names[0], *reels, "-o", out[0], good=5)  # fmt: skip
    assert isinstance(table, reflyze.EventTable) and table.span is not None and table.events[1].verdict is not None
    assert bytes(table) == pathlib.Path(out[0]).read_bytes()
    merged = check(lambda: reflyze.merge(names[0], names[1], launch="auto", receive=0.5, limits=limits),
                   "merge", *names[:2], "-o", *out, *reels, good=5)  # fmt: skip
    assert isinstance(merged, reflyze.MergedTable) and merged.verdicts is not None
    assert [bytes(trace) for trace in merged.traces] == [pathlib.Path(name).read_bytes() for name in out]
    judged = check(lambda: reflyze.cable(tmp_path / "K_*.sor", limits=limits),
                   "cable", str(tmp_path / "K_*.sor"), "--limits", limits, good=5)  # fmt: skip
    assert isinstance(judged, reflyze.CableReport) and len(judged.fibres) == 2
    dict_limits = {"name": "mine", "one_way": {"span_loss_db": 0.1}}
    assert reflyze.analyse(names[0], limits=dict_limits).verdict == "fail"
    (tmp_path / "K_3_1550_A.sor").write_text("none")
    assert any("K_3_1550_A.sor" in finding for finding in reflyze.cable(tmp_path).findings)
    found = reflyze.files(tmp_path, folders=True)
    assert [pathlib.Path(file.name).name for file in found[:2]] == ["K_1_1550_A.sor", "K_1_1550_B.sor"]
    assert reflyze.files("none*.sor")[0].problem == "no file has such a name"


def test_curves_come_back_and_meters_measure_the_same(tmp_path: pathlib.Path) -> None:
    listed, stored = written(tmp_path, ["metro.csv", "metro.sor"])
    pathlib.Path(listed).write_text(program("show", "--curve", METRO).out)
    ran = program("import", listed, "-o", stored, "--pulse", "300")
    curve = reflyze.import_curve(listed, pulse_ns=300, name=stored)
    assert bytes(curve.trace) == pathlib.Path(stored).read_bytes()
    assert [f"reflyze: {note.file}: warning: {note}" for note in curve.warnings] == ran.error.splitlines()
    trace = reflyze.open(METRO)
    again = reflyze.import_curve((trace.distance_km, trace.levels_db)).trace
    assert abs(again.levels_db - trace.levels_db).max() < 0.00051
    assert abs(again.distance_km - trace.distance_km).max() < 1.1e-6
    with pytest.raises(reflyze.UsageError):
        reflyze.import_curve((trace.distance_km, trace.levels_db[1:]))
    with pytest.raises(reflyze.UnreadableError):
        reflyze.import_curve(listed + "none")
    meter = reflyze.Meter(METRO)
    check(lambda: meter.measure(at=1.0), "measure", METRO, "--at", "1.0")
    check(lambda: meter.measure(from_km=1.2, to_km=7.4, kind="least-squares"),
          "measure", METRO, "--from", "1.2", "--to", "7.4", "--lsa")  # fmt: skip


def test_file_with_several_traces(tmp_path: pathlib.Path) -> None:
    (file,) = written(tmp_path, ["two.sor"])
    pathlib.Path(file).write_bytes(two_traces(pathlib.Path(METRO).read_bytes()))
    whole = reflyze.open(file)
    lines = program("analyse", file, "--format", "json").out.splitlines(keepends=True)
    assert [part.analyse().to_json() for part in whole.traces] == lines
    assert len(lines) == 2 and len(reflyze.open(METRO).traces) == 1
    check(whole.analyse, "analyse", file, "-o", str(tmp_path / "out.sor"))  # refused: which of them?
