# SPDX-License-Identifier: Apache-2.0
"""Tables of pandas and pictures of matplotlib, where they are there."""

from __future__ import annotations

import typing
from dataclasses import asdict
from typing import Any, Dict, Optional

from ._results import EventTable, Result
from ._trace import Trace
from ._values import column_names


def frame(result: Result) -> Any:
    import pandas

    held: Any = result
    kind = typing.get_args(typing.get_type_hints(type(result))["events"])[0]
    columns = column_names(kind)
    table = pandas.json_normalize([asdict(event) for event in held.events], sep="_")
    table = table.reindex(columns=columns)
    # What was not measured is NaN, also where nothing was.
    for name in columns:
        if name.endswith(("_db", "_km", "_m", "probability")):
            table[name] = table[name].astype(float)
    return table


def plot(trace: Trace, result: Optional[EventTable], ax: Any, line: Dict[str, Any]) -> Any:
    from matplotlib import pyplot

    if ax is None:
        ax = pyplot.subplots()[1]
    ax.plot(trace.distance_km, trace.levels_db, **{"linewidth": 0.8, **line})
    ax.set_xlabel("distance, km")
    ax.set_ylabel("level, dB")
    ax.set_title(trace.name, parse_math=False, pad=18)
    top = ax.get_xaxis_transform()  # distances across, the height of the picture upwards
    for event in result.events if result is not None else ():
        ax.axvline(event.distance_km, color="grey", linewidth=0.5)
        ax.text(event.distance_km, 1.01, str(event.number), transform=top, ha="center")
    return ax
