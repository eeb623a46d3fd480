"""The servers that are compared, each started afresh for every measurement."""

import os
import random
import shutil
import socket
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

DATAGRAM_OFFSET = 4  # of Vorrim's port for datagrams
START_LIMIT = 10.0  # seconds


@dataclass(frozen=True)
class Server:
    """What to start, and what it speaks (see tools/vorrim-load/Dialect.h)."""

    name: str
    speaks: str
    program: str
    arguments: tuple[str, ...] = ()
    threads: int | None = None

    def is_there(self, build: Path) -> bool:
        return self.path(build) is not None

    def path(self, build: Path) -> str | None:
        ours = build / self.program
        return str(ours) if ours.exists() else shutil.which(self.program)


ECHO_1 = Server("echo, 1 thread", "echo", "echo_server", ("tcp", "{port}", "1"))
ECHO_2 = Server("echo, 2 threads", "echo", "echo_server", ("tcp", "{port}", "2"))
ECHO_UDP = Server("echo, datagrams", "echo", "echo_server", ("udp", "{port}"))


def vorrim(name: str, threads: int | None = None) -> Server:
    return Server(name, "vorrim", "vorrim", threads=threads)


VORRIM = vorrim("Vorrim")
VORRIM_1 = vorrim("Vorrim, 1 worker", 1)
VORRIM_2 = vorrim("Vorrim, 2 workers", 2)
MEMCACHED = Server(
    "memcached", "memcached", "memcached",
    ("-l", "127.0.0.1", "-p", "{port}", "-U", "{port}", "-u", "nobody", "-c", "20000",
     "-m", "4096"))
REDIS = Server(
    "redis", "redis", "redis-server",
    ("--bind", "127.0.0.1", "--port", "{port}", "--save", "", "--appendonly", "no",
     "--maxclients", "19000", "--dir", "{folder}"))


def tracker(speaks: str) -> Server:
    return Server(
        speaks.replace("tracker-", "opentracker, "), speaks, "opentracker",
        ("-i", "127.0.0.1", "-p", "{port}", "-P", "{port}", "-d", "{folder}", "-u", "nobody",
         "-w", "list"))


SCRAPE = tracker("tracker-scrape")
ANNOUNCE = tracker("tracker-announce")


def free_port() -> int:
    """A port that is free for streams and datagrams, as is the one that Vorrim adds to it."""
    while True:
        port = random.randrange(20000, 30000)
        try:
            for kind in (socket.SOCK_STREAM, socket.SOCK_DGRAM):
                for one in (port, port + DATAGRAM_OFFSET):
                    with socket.socket(socket.AF_INET, kind) as probe:
                        probe.bind(("127.0.0.1", one))
            return port
        except OSError:
            continue


class Running:
    """A server while it runs, in a folder of its own that goes with it."""

    def __init__(self, server: Server, build: Path, tracker_list: str = ""):
        self.server = server
        self.port = free_port()
        self._folder = tempfile.TemporaryDirectory(prefix="compare-")
        folder = Path(self._folder.name)
        folder.chmod(0o755)
        arguments = [a.format(port=self.port, folder=folder) for a in server.arguments]
        if server.speaks == "vorrim":
            settings = [f"port={self.port}", "maxClients=20000", "console=false",
                        "thisIP=127.0.0.1"]
            if server.threads:
                settings.append(f"threads={server.threads}")
            (folder / "vorrim.ini").write_text("[server]\n" + "\n".join(settings) + "\n")
        (folder / "list").write_text(tracker_list)
        self._process = subprocess.Popen(
            [server.path(build), *arguments], cwd=folder, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._await_start()

    @property
    def pid(self) -> int:
        return self._process.pid

    def _await_start(self) -> None:
        datagrams_only = "udp" in self.server.arguments
        end = time.monotonic() + START_LIMIT
        while time.monotonic() < end and self._process.poll() is None:
            try:
                if not datagrams_only:
                    socket.create_connection(("127.0.0.1", self.port), 1).close()
                time.sleep(0.1)  # its other threads and ports
                return
            except OSError:
                time.sleep(0.02)
        self.stop()
        raise RuntimeError(f"{self.server.name} does not start")

    def stop(self) -> None:
        self._process.terminate()
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._folder.cleanup()

    def __enter__(self) -> "Running":
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()


def raise_descriptor_limit() -> None:
    import resource

    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))


def machine() -> dict[str, str | int]:
    """What the figures depend on; nothing that names the machine."""

    def first_line(path: str, default: str) -> str:
        try:
            return Path(path).read_text().splitlines()[0].strip()
        except (OSError, IndexError):
            return default

    model = "unknown"
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    memory = int(first_line("/proc/meminfo", "MemTotal: 0").split()[1]) // (1024 * 1024)
    return {
        "processor": model,
        "cores": os.cpu_count() or 0,
        "memory_gib": memory,
        "kernel": os.uname().release.split("-")[0],
        "governor": first_line("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor",
                               "not visible"),
    }
