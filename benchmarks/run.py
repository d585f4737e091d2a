"""Measures the library against the floor of Qt D-Bus and the floor of the bus. Called by scripts/bench, on a private bus."""

import argparse
import contextlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

import idle
import instructions
import report
from operations import NAMES, OPERATIONS, TITLES, Operation
from processes import Programs, daemon, measure, server, start_up

START_UP = Operation("start-up until registered, 10", "startup", 5)


def say(text=""):
    """Prints a line at once."""
    print(text, flush=True)


def parse():
    """The command line."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True, help="folder of the build")
    parser.add_argument("--smoke", action="store_true", help="only check that everything works; figures mean nothing")
    parser.add_argument("--rounds", type=int, default=24, help="rounds over all operations (default: 24)")
    parser.add_argument("--only", default="", help="operations whose title matches this regular expression")
    parser.add_argument("--no-instructions", action="store_true", help="without callgrind")
    parser.add_argument("--idle", type=float, default=60, help="seconds to watch idle servers; 0: not at all")
    arguments = parser.parse_args()
    if arguments.smoke:
        arguments.rounds, arguments.idle = 1, 1
    return arguments


def output_of(*command):
    """What a command prints, or nothing where it cannot be run."""
    with contextlib.suppress(OSError):
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout
    return ""


def environment():
    """The machine and the versions that the figures belong to."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = re.findall(r"(?:model name|CPU part)\s*: (.*)", file.read())
    versions = output_of("dpkg-query", "-W", "-f=${Package} ${Version}; ", "libqt5dbus5", "libdbus-1-3", "dbus-daemon",
                         "libsystemd0", "liblog4cplus-2.0.5", "libc6", "g++")
    return "\n".join([
        f"machine   {models[0] if models else 'unknown'}, {os.cpu_count()} processors, {' '.join(os.uname()[::2])}",
        f"versions  {versions.strip('; ')}",
        f"load      {' '.join(f'{load:.2f}' for load in os.getloadavg())} (1, 5, 15 minutes)",
    ])


def library_sizes(build):
    """The size of each library once it is stripped."""
    rows = [["stripped library", "bytes"]]
    with tempfile.TemporaryDirectory() as folder:
        for name in "src/api/core/libplim_api", "src/lib/dbus/libplim_dbus", "src/lib/ble/libplim_ble":
            # The name ends in -qt6 in a build with Qt 6.
            path = next(path for path in (f"{build}/{name}{suffix}.so" for suffix in ("", "-qt6"))
                        if os.path.exists(path))
            stripped = f"{folder}/{os.path.basename(path)}"
            subprocess.run(["strip", "-o", stripped, path], check=True)
            rows.append([os.path.basename(path), f"{os.path.getsize(stripped):,}"])
    return "\n".join(f"{name:24}{size:>12}" for name, size in rows)


def turn(variants, number):
    """The variants in the order of a round or a run."""
    start = number % len(variants)
    return variants[start:] + variants[:start]


def one_round(programs, operations, number, smoke, results):
    """Every operation with every variant, close to each other and in turning order."""
    for operation in operations:
        if operation.heavy and number % 4:
            continue
        for run in range(1 if smoke else operation.runs):
            for variant in turn(operation.variants, number + run):
                figures = measure(programs, variant, operation, 1 if smoke else operation.count)
                results[operation][variant].append(figures)
    for variant in turn(START_UP.variants, number):
        results[START_UP][variant].append(start_up(programs, variant))


def measure_rounds(programs, operations, arguments):
    """Figures of all rounds by operation and variant, and what the servers did while they were idle."""
    results = {op: {variant: [] for variant in op.variants} for op in [*operations, START_UP]}
    watched = {}
    with daemon(programs):
        for number in range(arguments.rounds):
            # Each round has new processes: where one happens to lie in memory makes it faster or slower for ever.
            begin = time.monotonic()
            with all_servers(programs) as servers:
                one_round(programs, operations, number, arguments.smoke, results)
                say(f"round {number + 1} of {arguments.rounds}: {time.monotonic() - begin:.0f} s, load {os.getloadavg()[0]:.1f}")
                if arguments.idle and number == arguments.rounds - 1:
                    say(f"idle: {2 * arguments.idle:g} s ...")
                    watched = idle.watch({name: process.pid for name, process in servers.items()}, arguments.idle)
    return results, watched


@contextlib.contextmanager
def all_servers(programs):
    """A process of each variant, warm."""
    with contextlib.ExitStack() as stack:
        servers = {variant: stack.enter_context(server(programs, variant)) for variant in NAMES}
        for variant in servers:
            for operation in [operation for operation in OPERATIONS if variant in operation.variants][:3]:
                measure(programs, variant, operation, 20)
        yield servers


def count_instructions(programs, operations, arguments, folder):
    """Variant to operation to instructions."""
    if arguments.no_instructions:
        return {}
    counts = {}
    for variant in NAMES:
        say(f"counting instructions of {TITLES[variant]} ...")
        counted = [op for op in operations if op.counted and variant in op.variants]
        counts[variant] = instructions.count(programs, variant, counted, f"{folder}/callgrind")
    return counts


def main():
    """Measures, and prints and keeps the results."""
    arguments = parse()
    programs = Programs(arguments.build)
    folder = f"{arguments.build}/bench"
    os.makedirs(folder, exist_ok=True)
    operations = [op for op in OPERATIONS if re.search(arguments.only, op.title) and (not arguments.smoke or op.smoke())]
    say(environment())
    results, watched = measure_rounds(programs, operations, arguments)
    if arguments.smoke:
        operations = operations[::4]
    counts = count_instructions(programs, operations, arguments, folder)
    parts = [
        environment(),
        f"{arguments.rounds} rounds; medians; ratios to Qt D-Bus alone of the same round: median (quartiles)",
        report.notifications_table(results, counts),
        report.table(results, counts),
        report.destroy_table(results),
        report.idle_table(watched, arguments.idle),
        library_sizes(arguments.build),
    ]
    if arguments.smoke:
        parts.append("smoke: everything works; the figures mean nothing")
    else:
        parts += [report.verdict(results, counts), report.evenness(results), report.idle_verdict(watched)]
    text = "\n\n".join(filter(None, parts))
    with open(f"{folder}/table.txt", "w", encoding="utf-8") as file:
        file.write(text + "\n")
    with open(f"{folder}/results.json", "w", encoding="utf-8") as file:
        json.dump({op.title: rounds for op, rounds in results.items()}, file, indent=1)
    say("\n" + text)
    say(f"\ntable {folder}/table.txt, picture {report.picture(results, folder)}, all figures {folder}/results.json")


if __name__ == "__main__":
    if not shutil.which("strace"):
        sys.exit("strace is missing; scripts/setup installs it")
    main()
