"""What is measured: operations, how often, and how much of the floor of Qt D-Bus the library may take."""

from dataclasses import dataclass
from typing import Optional

VARIANTS = {"library": "org.example.Bench.Library", "qt": "org.example.Bench.Qt", "sdbus": "org.example.Bench.SdBus"}
# A server on a bus of its own, on which the load generator plays BlueZ.
SOCKETS = "sockets"
NAMES = {**VARIANTS, SOCKETS: "org.example.Bench.Sockets"}
TITLES = {SOCKETS: "sockets", "library": "the library", "qt": "Qt D-Bus alone", "sdbus": "sd-bus"}


@dataclass(frozen=True)
class Operation:
    title: str
    command: str  # of bench-load
    count: int  # in one run of the load generator
    target: Optional[float] = None  # ratio of the server's processor time to the floor of Qt D-Bus
    per: int = 1  # objects in one operation; figures are shown for one of them
    runs: int = 1  # in one round, each with one variant after the other
    heavy: bool = False  # measured in every fourth round only
    counted: int = 50  # operations under callgrind; 0: too slow for it
    variants: tuple = tuple(VARIANTS)

    def smoke(self):
        """Whether the smoke form runs it: whatever takes no time."""
        return self.per <= 100 and not self.heavy


# Short runs that take turns: other load on the machine comes and goes more slowly, and so hits all variants alike.
RUNS = 8


def _calls():
    yield Operation("ReadValue, 20 bytes", "read:1", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("ReadValue, 512 bytes", "read:2", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("ReadValue, 20 bytes, callback", "read:3", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("ReadValue, 512 bytes, callback", "read:4", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("ReadValue, a page of 512 bytes", "read:5", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("WriteValue, 20 bytes", "write:1:20", 150, 1.05, runs=RUNS, counted=200)
    yield Operation("WriteValue, 512 bytes", "write:1:512", 150, 1.05, runs=RUNS, counted=200)
    for size in 20, 244:
        yield Operation(f"PropertiesChanged, {size} bytes", f"notify:{size}", 600, 1.03, runs=RUNS, counted=600)
        yield Operation(f"notification through a socket, {size} bytes", f"socket:{size}", 600, runs=RUNS, counted=600,
                        variants=(SOCKETS,))
    yield Operation("Properties.GetAll", "getall:1", 150, runs=RUNS, counted=200)


def _trees():
    for size, count in (10, 200), (100, 50), (1000, 10), (16000, 3):
        heavy = size > 1000
        yield Operation(f"GetManagedObjects, each of {size:,}", f"managed:{size}", count, 1.3, per=size, heavy=heavy,
                        counted=0 if heavy else max(1, 200 // size))
    yield Operation("GetManagedObjects of a new tree of 1,000", "first:1000", 1, per=1000, counted=1)
    for size, count in (10, 100), (100, 20), (1000, 4), (16000, 1):
        heavy = size > 1000
        yield Operation(f"building, each of {size:,}", f"build:characteristic:{size}", count, 1.3, heavy=heavy,
                        counted=0 if heavy else max(1, 200 // size))
    for size, count in (10, 20), (100, 5), (1000, 1), (16000, 1):
        yield Operation(f"whole tree, each of {size:,}", f"build:tree:{size}", count, heavy=size > 1000,
                        counted=0 if size > 100 else 2)
    for what in "service", "characteristic", "descriptor", "advertisement":
        target = 1.3 if what == "characteristic" else None
        yield Operation(f"heap per {what}", f"build:{what}:500", 1, target, counted=0)


def _daemon():
    for size, count in (10, 20), (1000, 3):
        yield Operation(f"registering {size:,} characteristics", f"register:{size}", count,
                        counted=0)
    yield Operation("changing a held advertisement, of 50", "burst:50", 4, counted=0)


def _local():
    yield Operation("getter with a log statement, level off", "build:getter:10000", 20, counted=1,
                    variants=("library", "qt"))


OPERATIONS = [*_calls(), *_trees(), *_daemon(), *_local()]
