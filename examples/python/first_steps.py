#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""First steps: opens a trace, finds its events, watches a fibre, and merges both directions of one."""

import pathlib
import sys
import tempfile

import reflyze


def main(folder: pathlib.Path) -> None:
    trace = reflyze.open(folder / "metro-40km.sor")
    print(f"{trace.card.cable}: {trace.card.wavelength_nm:g} nm, {len(trace.levels_db)} points")
    table = trace.analyse(loss_db=0.02)
    for event in table.events:
        loss = "" if event.loss_db is None else f"{event.loss_db:.3f} dB"
        print(f"{event.distance_km:9.4f} km  {event.type:12} {loss}")

    baseline = reflyze.baseline(folder / "baseline-40km.sor", level="main", lt_db=0.2)
    comparison = reflyze.compare(baseline, folder / "current-40km.sor")
    print("changed:" if comparison.changed else "as before:", *comparison.sentences, sep="\n  ")

    # The same fibre, seen from both ends: what is a gain from one is a loss from the other.
    link = (folder / "links" / "metro-40km-back.json").read_text(encoding="utf-8")
    merged = reflyze.merge(trace, reflyze.simulate(link, seed=6, name="back.sor"))
    print(merged.to_text(), end="")
    with tempfile.TemporaryDirectory() as kept:
        merged.save(pathlib.Path(kept) / "a.sor", pathlib.Path(kept) / "b.sor")
        print("stored:", reflyze.open(pathlib.Path(kept) / "a.sor").stored_events().total_loss_db, "dB")


main(pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "examples"))
