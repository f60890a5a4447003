# SPDX-License-Identifier: Apache-2.0
"""The command: python3 -m reflyze.fleet, which is reflyze fleet."""

from __future__ import annotations

import argparse
import sys
import time
from typing import Any, List, Optional, Sequence

from . import fleet
from ._errors import Error, UnwritableError, UsageError
from ._fleet_out import FORMATS, format_of
from ._fleet_store import need

_DONE, _CHANGED, _USAGE, _UNREADABLE, _UNWRITABLE, _FAILS = range(6)  # as the program's


def _say(sentence: str) -> None:
    print(f"reflyze: {sentence}", file=sys.stderr)


def _bytes(words: str) -> int:
    scale = {"k": 1 << 10, "M": 1 << 20, "G": 1 << 30}.get(words[-1:], 0)
    count = int(words[:-1] if scale else words) * (scale or 1)
    if count < 1:
        raise ValueError
    return count


def _reel(words: str) -> Any:
    return words if words == "auto" else float(words)


def _rules(parser: argparse.ArgumentParser, judged: bool) -> None:
    numbers = (("--lt", "loss_db"), ("--rt", "reflectance_db"), ("--et", "end_db"), ("--ct", "slope_db_per_km"))
    for (flag, name), of in zip(numbers, ("loss", "reflectance", "the end of the fibre", "sections")):
        unit = "DB_PER_KM" if flag == "--ct" else "DB"
        parser.add_argument(flag, dest=name, type=float, metavar=unit, help=f"threshold of {of}")
    parser.add_argument("--thresholds", metavar="FILE", help="document of thresholds (INI)")
    parser.add_argument("--section", metavar="NAME", help="section of that document")
    parser.add_argument("--limits", required=judged, metavar="FILE", help="document of limits to judge by")
    for end in ("launch", "receive"):
        parser.add_argument(f"--{end}", type=_reel, metavar="KM|auto", help=f"{end} reel")


def _how(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("inputs", nargs="+", metavar="INPUT", help="trace, folder, @LIST, pattern, or a centre's store")
    parser.add_argument("-o", "--output", required=True, metavar="OUT", help="where the rows go, whole or not at all")
    parser.add_argument("--format", default="", choices=list(FORMATS), help="else the ending of OUT tells")
    parser.add_argument(
        "--scheduler", default="processes", metavar="WHERE", help="threads, processes (default), or tcp://HOST:PORT"
    )
    parser.add_argument("-j", "--workers", type=int, metavar="N", help="threads or processes; else one a core")
    parser.add_argument("--partition-bytes", type=_bytes, metavar="N[k|M|G]", help="most that a worker takes at once")
    parser.add_argument("--retries", type=int, default=3, metavar="N", help="of a partition whose worker died")
    parser.add_argument("--encoding", default="auto", metavar="NAME", help="of texts in records")
    parser.add_argument("-q", "--quiet", action="store_true", help="show no progress")


def _parser() -> argparse.ArgumentParser:
    # A line that begins with @ is a list of the package's own, not one of options.
    parser = argparse.ArgumentParser("reflyze fleet", description="Works on archives of traces.", allow_abbrev=False)
    works = parser.add_subparsers(dest="work", required=True, metavar="analyse|compare|merge|judge")
    told = {
        "analyse": "event tables, a row an event",
        "compare": "what has changed since the baselines",
        "merge": "both directions of each fibre in one table",
        "judge": "links held against limits, a row a trace",
    }
    for name, sentence in told.items():
        work = works.add_parser(name, help=sentence, description=sentence, allow_abbrev=False)
        _how(work)
        if name == "compare":
            work.add_argument("--baseline", dest="baselines", metavar="INPUT", help="one for all, or a folder of them")
            work.add_argument("--recheck", action="store_true", help="hold stored results against the limits again")
            continue
        _rules(work, name == "judge")
        if name == "analyse":
            work.add_argument("--ends-only", action="store_true", help="the first and the last event")
        if name == "merge":
            work.add_argument("--other", metavar="INPUT", help="the other direction, under the same names")
    return parser


class _Progress:
    """A line of a terminal: how far the work is, and the time left."""

    def __init__(self, quiet: bool) -> None:
        self._shown = not quiet and sys.stderr.isatty()
        self._begin = time.monotonic()

    def __call__(self, count: int, of: int) -> None:
        if self._shown:
            left = (time.monotonic() - self._begin) * (of - count) / max(count, 1)
            end = "\n" if count == of else ""
            print(f"\r{count} of {of}, {left:.0f} s left   ", end=end, file=sys.stderr, flush=True)


def _status(total: fleet.Tally) -> int:
    statuses = [_DONE]
    statuses += [_CHANGED] if total.changed else []
    statuses += [_UNREADABLE] if total.problems else []
    statuses += [_FAILS] if total.failing else []
    return max(statuses)


def _run(arguments: Sequence[str]) -> int:
    options = vars(_parser().parse_args(arguments))
    work, inputs, out = options.pop("work"), options.pop("inputs"), options.pop("output")
    kind, quiet = options.pop("format"), options.pop("quiet")
    if format_of(out, kind) == "zarr":
        need("zarr")
    total = getattr(fleet, work)(inputs, **options).write(out, kind, progress=_Progress(quiet))
    for sentence in total.first:
        _say(sentence)
    if total.problems > len(total.first):
        _say(f"and {total.problems - len(total.first)} more, which have their rows")
    return _status(total)


def main(arguments: Optional[List[str]] = None) -> int:
    """Runs the command and gives its exit status."""
    try:
        return _run(sys.argv[1:] if arguments is None else arguments)
    except UsageError as error:
        _say(str(error))
        return _USAGE
    except UnwritableError as error:
        _say(str(error))
        return _UNWRITABLE
    except Error as error:
        _say(str(error))
        return _UNREADABLE
    except KeyboardInterrupt:
        _say("interrupted; nothing is written")
        return 130
