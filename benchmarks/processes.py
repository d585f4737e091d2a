"""Starting what is measured: the stand-in daemon, the servers, the load generator."""

import contextlib
import json
import os
import subprocess
import time

from operations import NAMES, SOCKETS


class Programs:
    """Where the build has put the programs."""

    def __init__(self, build):
        self.build = build

    def server(self, variant):
        return f"{self.build}/benchmarks/bench-server-{variant}"

    def load(self):
        return f"{self.build}/benchmarks/bench-load"

    def daemon(self):
        return f"{self.build}/src/tools/bluez-simulator/plim-bluez-simulator"


@contextlib.contextmanager
def _running(command, environment=None, expected="ready", stderr=None):
    """A process that has said that it is ready; it ends with the block."""
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=stderr, text=True,
                               env=environment)
    try:
        line = process.stdout.readline()
        if expected not in line:
            raise RuntimeError(f"{command} said {line!r}")
        process.said = line.strip()
        yield process
    finally:
        process.stdin.close()  # servers end with it
        process.terminate()
        process.wait()


def daemon(programs):
    return _running([programs.daemon(), "--accept-everything"])


_environments = {}  # of variants that are not on the common bus


@contextlib.contextmanager
def server(programs, variant, under=()):
    with contextlib.ExitStack() as stack:
        if variant == SOCKETS:
            bus = stack.enter_context(_running(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                               expected="unix:", stderr=subprocess.DEVNULL))
            _environments[variant] = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.said}
        yield stack.enter_context(_running([*under, programs.server(variant)], _environments.get(variant)))


def measure(programs, variant, operation, count, mark=False):
    """One run of the load generator: its figures, by name."""
    command = [programs.load(), NAMES[variant], operation.command, str(count)] + ["--mark"] * mark
    output = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=_environments.get(variant)).stdout
    return json.loads(output)


def start_up(programs, variant):
    """Seconds from the start of a process until its tree and advertisement are registered, and its processor time."""
    begin = time.monotonic()
    process = subprocess.Popen([programs.server(variant), "--startup"], stdin=subprocess.PIPE)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    process.stdin.close()
    if process.returncode != 0:
        raise RuntimeError(f"start-up of {variant} ended with {process.returncode}")
    return {"server": usage.ru_utime + usage.ru_stime, "median": wall, "operations": 1}
