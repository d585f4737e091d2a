"""What the libraries cost a device, for different compiler flags. Called by scripts/footprint, on a private bus."""

import argparse
import contextlib
import glob
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

import instructions
from operations import OPERATIONS
from processes import Programs, daemon, measure, server, start_up

REQUIRED = "libplim_api", "libplim_dbus", "libplim_ble"
PERIPHERAL = "libplim_peripheral"
TITLES = {
    "default": "the default: `-O2`, some files `-Os`",
    "O2": "`-O2` for all files",
    "O3": "`-O3` for all files",
    "Os": "`-Os` for all files",
    "lto": "the default with LTO",
    "qt6": "the default, with Qt 6",
}
MEASURED = "ReadValue, 20 bytes", "WriteValue, 20 bytes", "PropertiesChanged, 20 bytes", "GetManagedObjects, each of 100"
PAGE = "docs/footprint.md"
BEGIN, END = "<!-- figures: written by scripts/footprint -->\n", "<!-- end of the figures -->\n"


def say(text=""):
    """Prints a line at once."""
    print(text, flush=True)


def parse():
    """The command line."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", required=True, help="folder with the build of the programs and one for each set of flags")
    parser.add_argument("--sets", required=True, help="the sets of flags, separated by commas")
    parser.add_argument("--rounds", type=int, required=True, help="rounds for times")
    parser.add_argument("--traffic", type=int, required=True, help="reads, writes and notifications of a day")
    parser.add_argument("--sizes-only", action="store_true", help="measure only sizes")
    parser.add_argument("--write", action="store_true", help=f"put the figures into {PAGE}")
    return parser.parse_args()


def table(head, rows):
    """A Markdown table."""
    return "\n".join(f"| {' | '.join(row)} |" for row in [head, ["---"] * len(head), *rows])


def library(build, name):
    """The path of a library in a build."""
    found = [path for path in glob.glob(f"{build}/src/*/*/{name}*.so") if re.search(rf"/{name}(-qt6)?\.so$", path)]
    if len(found) != 1:
        raise RuntimeError(f"{name} is not in {build}")
    return found[0]


def stripped(path):
    """The size of a file once it is stripped."""
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run(["strip", "-o", copy.name, path], check=True)
        return os.path.getsize(copy.name)


def sizes(builds):
    """The table of the libraries' sizes."""
    rows = []
    for number, (name, build) in enumerate(builds.items()):
        size = [stripped(library(build, each)) for each in REQUIRED]
        # Only the first set has the peripheral layer.
        peripheral = "" if number else f"{stripped(library(build, PERIPHERAL)):,}"
        rows.append([TITLES[name], *(f"{each:,}" for each in size), f"**{sum(size):,}**", peripheral])
    head = ["bytes, stripped", *(f"`{name}`" for name in REQUIRED), "these three", f"`{PERIPHERAL}`"]
    return table(head, rows)


@contextlib.contextmanager
def libraries_of(build, names=REQUIRED):
    """Programs that start in this block load these libraries of this build."""
    os.environ["LD_LIBRARY_PATH"] = ":".join(os.path.dirname(library(build, name)) for name in names)
    try:
        yield
    finally:
        del os.environ["LD_LIBRARY_PATH"]


def counted(programs, builds, operations, folder):
    """Set of flags to operation to instructions; waits of threads only add some, so the lowest of three counts."""
    result = {}
    for name, build in builds.items():
        say(f"footprint: counting instructions, {name} ...")
        with libraries_of(build):
            runs = [instructions.count(programs, "library", operations, f"{folder}/callgrind-{name}") for _ in range(3)]
        result[name] = {operation: min(run[operation] for run in runs) for operation in operations}
    return result


def timed(programs, builds, operations, rounds):
    """Set of flags to operation to seconds of processor time of each round; the sets take turns."""
    result = {name: {operation: [] for operation in operations} for name in builds}
    starts = {name: [] for name in builds}
    for number in range(rounds):
        begin = time.monotonic()
        names = list(builds)
        for name in names[number % len(names):] + names[:number % len(names)]:
            with libraries_of(builds[name]):
                with server(programs, "library"):
                    for operation in operations:
                        measure(programs, "library", operation, 20)
                        figures = [measure(programs, "library", operation, operation.count)["server"] for _ in range(4)]
                        result[name][operation].append(statistics.median(figures) / operation.per)
                starts[name].append(start_up(programs, "library"))
        say(f"footprint: round {number + 1} of {rounds}: {time.monotonic() - begin:.0f} s, load {os.getloadavg()[0]:.1f}")
    return result, starts


def ratio(values, base):
    """The median of the ratios of the same rounds, with quartiles."""
    ratios = [value / other for value, other in zip(values, base)]
    if len(ratios) < 2:
        return f"{ratios[0]:.2f}"
    low, middle, high = statistics.quantiles(ratios, n=4, method="inclusive")
    return f"{middle:.2f} ({low:.2f}-{high:.2f})"


def speed(programs, builds, rounds, folder):
    """The tables of instructions and of times."""
    operations = [operation for title in MEASURED for operation in OPERATIONS if operation.title == title]
    with daemon(programs):
        counts = counted(programs, builds, operations, folder)
        times, starts = timed(programs, builds, operations, rounds)
    first = next(iter(builds))
    head = ["", *(f"`{title}`" if " " not in title else title for title in MEASURED)]
    rows = [[TITLES[name], *(f"{counts[name][operation]:,.0f}" for operation in operations)] for name in builds]
    parts = ["Instructions of the process for one operation:", table(head, rows)]
    rows = [[TITLES[first], *(f"{statistics.median(times[first][operation]) * 1e6:.1f} µs" for operation in operations)]]
    rows += [[TITLES[name], *(ratio(times[name][operation], times[first][operation]) for operation in operations)]
             for name in builds if name != first]
    parts += [f"Processor time of the process, median of {rounds} rounds; below the first row, the ratio to it in the same "
              "round, with quartiles:", table(head, rows)]
    rows = [[TITLES[name], *(f"{statistics.median(each[what] for each in starts[name]) * 1000:.0f} ms"
                             for what in ("server", "median"))] for name in builds]
    parts += ["From the start of a process until BlueZ's stand-in has accepted 10 characteristics and an advertisement, "
              f"median of {rounds}:", table(["", "processor time", "wall time"], rows)]
    return parts


def until(condition, what, seconds=60):
    """Waits for a condition, and returns its result."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.1)
    raise RuntimeError(f"{what} did not happen in {seconds} s")


def is_on_air():
    """Whether the advertisement of example 05 is registered."""
    said = subprocess.run(["busctl", f"--address={os.environ['DBUS_SYSTEM_BUS_ADDRESS']}", "call",
                           "org.plim.BluezSimulator", "/org/plim/BluezSimulator", "org.plim.BluezSimulator1", "OnAir"],
                          stdout=subprocess.PIPE, text=True, check=True).stdout
    return "/com/example/thermostat/advertisement" in said


def memory_of(process):
    """The kernel's totals for a process, in KB."""
    with open(f"/proc/{process.pid}/smaps_rollup", encoding="ascii") as file:
        kb = {key: int(value) for key, value in re.findall(r"^(\w+): +(\d+) kB", file.read(), re.MULTILINE)}
    return [f"{kb['Private_Dirty']:,}", f"{kb['Private_Clean']:,}", f"{kb['Shared_Clean'] + kb['Shared_Dirty']:,}",
            f"{kb['Pss']:,}"]


def loaded_by(process):
    """The shared libraries that a process has loaded."""
    with open(f"/proc/{process.pid}/maps", encoding="utf-8") as file:
        return sorted(set(re.findall(r" (/\S+\.so(?:\.\S+)?)$", file.read(), re.MULTILINE)))


def needed_by(path):
    """A library, and all that the loader loads for it."""
    said = subprocess.run(["ldd", path], stdout=subprocess.PIPE, text=True, check=True).stdout
    return {os.path.realpath(each) for each in re.findall(r"(/\S+) \(0x", said)} | {path}


def closure(paths):
    """The table of what a process has loaded."""
    qt = set().union(*(needed_by(path) for path in paths if re.search(r"/libQt\dDBus", path)))
    kinds = {"the four libraries": [], "what they need beyond Qt": [], "Qt, and what it needs": []}
    for path in map(os.path.realpath, paths):
        kind = 0 if "/libplim_" in path else 2 if path in qt else 1
        kinds[list(kinds)[kind]].append(path)
    rows = []
    for kind, members in kinds.items():
        names = sorted(f"`{re.sub(r'[.]so.*', '', os.path.basename(path))}`" for path in members)
        rows.append([kind, f"{sum(map(stripped, members)):,}", ", ".join(names)])
    beyond = sum(stripped(path) for kind in list(kinds)[:2] for path in kinds[kind])
    rows.append(["**all beyond Qt**", f"**{beyond:,}**", ""])
    return table(["loaded by example 05", "bytes, stripped", "libraries"], rows)


def example(programs, build, traffic):
    """The tables of memory and of loaded libraries of example 05."""
    with daemon(programs), libraries_of(build, [*REQUIRED, PERIPHERAL]):
        process = subprocess.Popen([f"{programs.build}/examples/example-05-whole-device"], stdout=subprocess.DEVNULL)
        try:
            until(is_on_air, "the registration of example 05")
            time.sleep(2)  # what follows a registration
            rows = [["registered", *memory_of(process)]]
            for amount, what in (traffic // 100, "after a hundredth of the day"), (traffic, "after the day"):
                say(f"footprint: {amount:,} reads, writes and notifications ...")
                subprocess.run([f"{programs.build}/benchmarks/bench-traffic", "com.example.Thermostat",
                                "/com/example/thermostat/c0de0001_5f2a_4d6b_9a57_1f6d0a3b0005"
                                "/c0de0002_5f2a_4d6b_9a57_1f6d0a3b0005", str(amount)], check=True, timeout=1800)
                rows.append([what, *memory_of(process)])
            if process.poll() is not None:
                raise RuntimeError("example 05 has ended")
            paths = loaded_by(process)
        finally:
            process.terminate()
            process.wait()
    if not any(path.startswith(os.path.realpath(build)) for path in paths):
        raise RuntimeError(f"example 05 did not load the libraries of {build}")
    head = ["KB", "private, written", "private, unchanged", "shared", "proportional (PSS)"]
    return [f"Memory of example 05. A day is {traffic:,} reads, {traffic:,} writes and {traffic:,} notifications, without "
            "pauses:", table(head, rows), closure(paths)]


def write(text):
    """Replaces the figures in the page."""
    with open(PAGE, encoding="utf-8") as file:
        page = file.read()
    if page.count(BEGIN) != 1 or page.count(END) != 1:
        raise RuntimeError(f"{PAGE} has no place for the figures")
    head, rest = page.split(BEGIN)
    with open(PAGE, "w", encoding="utf-8") as file:
        file.write(f"{head}{BEGIN}\n{text}\n\n{END}{rest.split(END)[1]}")


def main():
    """Measures, prints and keeps the tables."""
    arguments = parse()
    builds = {name: f"{arguments.root}/footprint-{name}" for name in arguments.sets.split(",")}
    compiler = subprocess.run(["g++", "-dumpfullversion"], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
    parts = [f"{os.uname().machine}, GCC {compiler}, {time.strftime('%Y-%m-%d')}.", sizes(builds)]
    say("footprint: sizes\n\n" + parts[-1] + "\n")
    if not arguments.sizes_only:
        first = next(iter(builds.values()))
        programs = Programs(f"{arguments.root}/release")
        parts += example(programs, first, arguments.traffic)
        # Programs for Qt 5 cannot load libraries for Qt 6.
        same = {name: build for name, build in builds.items() if name != "qt6"}
        parts += speed(programs, same, arguments.rounds, f"{arguments.root}/footprint")
    text = "\n\n".join(parts)
    with open(f"{arguments.root}/footprint/table.md", "w", encoding="utf-8") as file:
        file.write(text + "\n")
    if arguments.write:
        write(text)
    say(f"\n{text}\n\nfootprint: kept in {arguments.root}/footprint/table.md" + (f" and {PAGE}" if arguments.write else ""))


if __name__ == "__main__":
    try:
        main()
    except (RuntimeError, OSError, subprocess.SubprocessError) as error:
        sys.exit(f"footprint: {error}")
