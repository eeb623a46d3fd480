"""The works that every server is given, and what has to be reached in each."""

from dataclasses import dataclass

from servers import (ANNOUNCE, ECHO_1, ECHO_2, ECHO_UDP, MEMCACHED, REDIS, SCRAPE, VORRIM,
                     VORRIM_1, VORRIM_2, Server)


@dataclass(frozen=True)
class Bar:
    """Vorrim's figure is to be at most `times` the best of `against`, or at most `absolute`."""

    text: str
    against: tuple[Server, ...] = ()
    times: float = 1.0
    absolute: float | None = None
    of: Server = VORRIM


@dataclass(frozen=True)
class Work:
    key: str
    title: str
    unit: str
    arguments: tuple[str, ...]  # to vorrim-load
    servers: tuple[Server, ...]
    bars: tuple[Bar, ...]
    figure: str = "cpu"  # cpu: us of processor per answer; p50: us; memory: bytes per answer
    scale: float = 1.0  # the figure is divided by this
    once: bool = False  # the same every time: one round is enough
    timed: bool = True
    quick_arguments: tuple[str, ...] = ()


ECHOES = (ECHO_1, ECHO_2)
PEERS = (MEMCACHED, REDIS)
CPU = "s per million"


def below_peers(*peers: Server) -> Bar:
    return Bar("below both peers", peers)


def sources(connections: int, depth: int, times: float) -> Work:
    return Work(
        f"sources_{connections}_{depth}", f"sources, {connections:,} connections, depth {depth}",
        CPU, ("sources", "-c", str(connections), "-d", str(depth)),
        (VORRIM, VORRIM_2, *ECHOES, *PEERS),
        (Bar("the better echo", ECHOES, times), below_peers(*PEERS)))


WORKS = (
    sources(64, 1, 1.15),
    sources(1000, 1, 1.15),
    sources(64, 16, 1.5),
    sources(1000, 16, 1.5),
    Work("one_connection", "one connection, depth 1, p50", "us", ("sources", "-c", "1"),
         (VORRIM, ECHO_1, *PEERS), (Bar("echo", (ECHO_1,), 1.1),), figure="p50"),
    Work("datagrams", "sources by datagram, 16 sockets, depth 16", CPU,
         ("udp-sources", "-c", "16", "-d", "16", "--files", "2000"),
         (VORRIM, ECHO_UDP, MEMCACHED, SCRAPE, ANNOUNCE),
         (Bar("echo", (ECHO_UDP,), 1.4),
          Bar("a third of opentracker", (SCRAPE, ANNOUNCE), 1 / 3))),
    Work("login", "connect, log in, one request, leave", CPU, ("login", "-c", "16"),
         (VORRIM, *ECHOES, *PEERS), (Bar("echo without login", ECHOES, 2.0),)),
    Work("publish", "publish in lists of 200, per file", "us", ("publish", "-c", "4"),
         (VORRIM, *PEERS), (Bar("3 us", absolute=3.0),), scale=200),
    Work("leave", "leave with 10,000 files, per file", "us", ("leave",), (VORRIM,),
         (Bar("1.5 us", absolute=1.5),)),
    Work("workers", "two workers against one, 64 connections, depth 1", CPU,
         ("sources", "-c", "64"), (VORRIM_2, VORRIM_1),
         (Bar("one worker", (VORRIM_1,), 1.15, of=VORRIM_2),)),
    Work("file_memory", "memory per indexed file", "bytes", ("hold", "--files", "1000000"),
         (VORRIM, *PEERS), (Bar("320 bytes", absolute=320),), figure="memory", once=True,
         timed=False, quick_arguments=("hold", "--files", "200000")),
    Work("client_memory", "memory per logged-in idle client", "bytes",
         ("idle", "-c", "10000", "-s", "0.1"), (VORRIM, *PEERS, SCRAPE),
         (Bar("700 bytes", absolute=700),), figure="memory", once=True, timed=False,
         quick_arguments=("idle", "-c", "5000", "-s", "0.1")),
)

# The same question from more and more connections.
CONNECTIONS = (10, 1000, 15000)
GROWTH_SERVERS = (VORRIM, ECHO_1, MEMCACHED, REDIS)

# The same operations on a larger and larger index: how many files, and what is done with them held.
FILES = (10_000, 100_000, 1_000_000, 10_000_000)
FILES_QUICK = (10_000, 100_000)
FILE_WORKS = (
    Work("sources", "sources, 64 connections, depth 1", CPU, ("sources",), (VORRIM,), ()),
    Work("sources_16", "sources, 64 connections, depth 16", CPU, ("sources", "-d", "16"),
         (VORRIM,), ()),
    Work("publish", "publish, per file", "us", ("publish", "-c", "4"), (VORRIM,), (), scale=200),
    Work("leave", "leave, per file", "us", ("leave",), (VORRIM,), ()),
)
GROWS = 2.0  # times at most, from the fewest files to the most
