# SPDX-License-Identifier: Apache-2.0
"""Where the program and the traces are, and records that no file of the project holds."""

from __future__ import annotations

import os
import pathlib
import struct
import subprocess
from dataclasses import dataclass
from typing import Dict, List, Tuple

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = os.environ.get("REFLYZE_PROGRAM", str(ROOT / "build" / "reflyze"))
TRACES = sorted(str(path) for path in ROOT.glob("examples/*.sor"))
TRACES += sorted(str(path) for path in (ROOT / ".." / "shared" / "traces").resolve().glob("*.sor"))
METRO = str(ROOT / "examples" / "metro-40km.sor")
BASELINE = str(ROOT / "examples" / "baseline-40km.sor")
CURRENT = str(ROOT / "examples" / "current-40km.sor")


@dataclass
class Ran:
    status: int
    out: str
    error: str


def program(*arguments: str) -> Ran:
    ran = subprocess.run([PROGRAM, *arguments], capture_output=True, check=False)
    return Ran(ran.returncode, ran.stdout.decode(), ran.stderr.decode())


def two_traces(data: bytes) -> bytes:
    """A file with the trace of another one twice, as two stretches whose samples follow each other."""
    blocks: List[Tuple[bytes, bytes, bytes]] = []
    revision, size, count = struct.unpack_from("<HIH", data, 4)
    at, body = 12, size
    for _ in range(count - 1):
        end = data.index(b"\0", at) + 1
        length = struct.unpack_from("<I", data, end + 2)[0]
        blocks.append((data[at:end], data[end : end + 2], data[body : body + length]))
        at, body = end + 6, body + length
    bodies: Dict[bytes, bytes] = {name: whole for name, _, whole in blocks}
    fixed = bodies[b"FxdParams\0"]
    pulses = 10 + 18  # behind the name: time, unit, wavelength, offsets, and the number of stretches
    assert struct.unpack_from("<H", fixed, pulses - 2) == (1,), "the trace is one stretch"
    one = fixed[pulses : pulses + 10]  # pulse, spacing, points
    twice = b"".join(part * 2 for part in (one[:2], one[2:6], one[6:10]))
    bodies[b"FxdParams\0"] = fixed[: pulses - 2] + b"\2\0" + twice + fixed[pulses + 10 :]
    points = bodies[b"DataPts\0"]
    samples = points[8 + 12 :]
    number = len(samples) // 2 * 2
    head = struct.pack("<IHI", number, 1, number) + points[8 + 10 : 8 + 12]
    bodies[b"DataPts\0"] = points[:8] + head + samples * 2
    standard = [b"GenParams\0", b"SupParams\0", b"FxdParams\0", b"DataPts\0"]
    entries = b"".join(n + r + struct.pack("<I", len(bodies[n])) for n, r, _ in blocks if n in standard)
    record_map = b"Map\0" + struct.pack("<HIH", revision, 12 + len(entries), len(standard) + 1) + entries
    return record_map + b"".join(bodies[n] for n, _, _ in blocks if n in standard)
