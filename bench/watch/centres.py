# SPDX-License-Identifier: Apache-2.0
"""What measures a centre: traces, stores, centres that are started and killed, and their news."""
import contextlib
import csv
import http.client
import io
import json
import os
import pathlib
import shutil
import signal
import sqlite3
import subprocess
import sys
import threading
import time
import urllib.parse

START = 1767225600  # seconds since 1970 of the first trace of all


def link_of(points):
    return {"wavelength_nm": 1550, "pulse_ns": 100, "range_km": 12, "points": points, "averages": 30000,
            "launch": {"loss_db": 0.3, "reflectance_db": -45},
            "sections": [{"length_km": 4, "attenuation_db_per_km": 0.2}, {"length_km": 5, "attenuation_db_per_km": 0.2}],
            "joints": [{"loss_db": 0.1}], "end": {"reflectance_db": -20}}


def simulated(program, number, points=1500, every=900):
    """The trace of that number of any fibre: its loss rises for a while, and now and then the fibre is cut."""
    link = link_of(points)
    link["date_utc"] = START + number * every
    if number % 20 >= 12:
        link["joints"][0]["loss_db"] = 0.5
    if number % 20 >= 17:
        link["sections"] = [{"length_km": 2.5, "attenuation_db_per_km": 0.2}]
        link["joints"] = []
    run = subprocess.run([program, "simulate", "-", "-o", "/dev/stdout", "--seed", str(number + 1)],
                         input=json.dumps(link).encode(), stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return run.stdout


def plain(value):
    """Numbers as numbers, whichever database wrote them."""
    try:
        return float(value)
    except (TypeError, ValueError):
        return value


def processor_seconds(process):
    """Of a process by its number; 0 for one that has ended."""
    try:
        words = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return 0.0
    return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")


class Store:
    """A store: a file, or a PostgreSQL server of its own that ends with the block."""

    def __init__(self, folder, shared=False, file=None):
        self.folder, self.shared, self.address = pathlib.Path(folder), shared, str(file or pathlib.Path(folder) / "w.db")

    def __enter__(self):
        self.folder.mkdir(exist_ok=True, parents=True)
        if self.shared:
            bins = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))
            if not bins:
                sys.exit("PostgreSQL is not installed (Debian package postgresql)")
            self.bin, self.place = bins[-1], self.folder / "server"
            self.place.mkdir(mode=0o700)
            self.user = {"user": "postgres"} if os.getuid() == 0 else {}  # the server refuses to be root
            if self.user:
                for up in [self.folder, *self.folder.parents][:2]:
                    up.chmod(0o755)
                shutil.chown(self.place, "postgres")
            self.tool("initdb", "-D", self.place / "data", "-A", "trust", "-U", "postgres")
            self.start()
            self.address = f"postgresql://postgres@/postgres?host={self.place}"
        return self

    def __exit__(self, *_):
        if self.shared:
            self.stop("immediate")

    def start(self):
        self.tool("pg_ctl", "-D", self.place / "data", "-l", self.place / "log", "-w", "-o",
                  f"-c listen_addresses='' -k {self.place}", "start")

    def stop(self, how):
        self.tool("pg_ctl", "-D", self.place / "data", "-m", how, "-w", "stop")

    def tool(self, name, *words):
        subprocess.run([str(self.bin / name), *map(str, words)], check=True, stdout=subprocess.DEVNULL, cwd="/",
                       **self.user)

    def rows(self, query):
        if not self.shared:
            with contextlib.closing(sqlite3.connect(f"file:{self.address}?mode=ro", uri=True, timeout=10)) as store:
                return [tuple(map(plain, row)) for row in store.execute(query)]
        run = subprocess.run([str(self.bin / "psql"), "--csv", "-t", "-c", query, self.address], check=True,
                             stderr=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        return [tuple(map(plain, row)) for row in csv.reader(io.StringIO(run.stdout))]

    def seconds(self):
        """Of processors that the processes of the server have used that live; 0 for a file."""
        if not self.shared:
            return 0.0
        first = (self.place / "data" / "postmaster.pid").read_text().split()[0]
        children = pathlib.Path(f"/proc/{first}/task/{first}/children").read_text().split()
        return sum(map(processor_seconds, [first, *children]))

    def newest(self):
        """The number of the trace that came last."""
        return int(self.rows("SELECT COALESCE(MAX(id), 0) FROM traces")[0][0])

    def compared(self, behind=0):
        """How many traces have been dealt with of those that came behind the one of that number: to count millions takes
        a core from those who are measured. 0 while the store is away."""
        try:
            return int(self.rows(f"SELECT COUNT(*) FROM traces WHERE id > {behind} AND state > 0")[0][0])
        except (sqlite3.Error, subprocess.CalledProcessError):
            return 0


class Centre:
    """A process that watches one spool. `environment` is added to this one's."""

    def __init__(self, program, store, number=0, words=(), environment=None, http_too=True):
        self.spool = store.folder / f"spool{number}"
        self.spool.mkdir()
        self.command = [program, "watch", "--store", store.address, "--spool", str(self.spool), "--learn",
                        "--name", f"centre{number}", *(["--port", "0"] if http_too else ["--no-http"]), *words]
        self.environment = {**os.environ, **(environment or {})}
        self.http_too, self.process, self.address = http_too, None, ""

    def start(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE if self.http_too else subprocess.DEVNULL,
                                        text=True, env=self.environment)
        if self.http_too:
            threading.Thread(target=self._hear, args=(self.process,), daemon=True).start()

    def _hear(self, process):
        self.address = process.stdout.readline().strip()

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.address = ""

    def stop(self, patience=60):
        self.address = ""
        self.process.terminate()
        return self.process.wait(patience)

    def kilobytes(self):
        """Memory that is its own, kB."""
        try:
            text = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
            return int(text.split("VmRSS:")[1].split()[0])
        except (OSError, IndexError):
            return 0

    def seconds(self):
        """Of processors that it has used."""
        return processor_seconds(self.process.pid)

    def ask(self, path):
        place = urllib.parse.urlsplit(self.address)
        connection = http.client.HTTPConnection(place.hostname, place.port, timeout=10)
        try:
            connection.request("GET", path)
            return connection.getresponse().read().decode()
        finally:
            connection.close()


class News(threading.Thread):
    """Listens to a centre's news, and keeps when the result of each trace was told: heard[fibre, taken_at in ms]."""

    def __init__(self, centre, heard):
        super().__init__(daemon=True)
        self.centre, self.heard, self.ended = centre, heard, False

    def run(self):
        while not self.ended:
            try:
                self._listen()
            except (OSError, http.client.HTTPException, ValueError):
                time.sleep(0.2)

    def _listen(self):
        place = urllib.parse.urlsplit(self.centre.address)
        if not place.port:
            raise ValueError("not there yet")
        connection = http.client.HTTPConnection(place.hostname, place.port, timeout=30)
        connection.request("GET", "/news")
        kind, answer = "", connection.getresponse()
        for line in answer:
            if line.startswith(b"event: "):
                kind = line[7:].strip()
            elif kind == b"comparison" and line.startswith(b"data: "):
                now, told = time.time(), json.loads(line[6:])
                self.heard.setdefault((told["fibre"], told["taken_at"]), now)


def put(spool, fibre, name, data):
    """A complete file, as instruments' programs put it: written beside and moved. Of a file that is there already it is
    another name, so that to feed centres takes them no time."""
    place = spool / fibre
    place.mkdir(exist_ok=True)
    if isinstance(data, bytes):
        (place / ".next").write_bytes(data)
    else:
        os.link(data, place / ".next")
    os.rename(place / ".next", place / name)


def quantile(values, share):
    """Of sorted values."""
    return values[min(len(values) - 1, int(share * len(values)))] if values else float("nan")
