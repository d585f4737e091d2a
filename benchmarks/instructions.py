"""Instructions that a server executes per operation, counted by callgrind; they do not depend on other load."""

import glob
import os
import re

from processes import measure, server


def _total(path, trigger):
    """The instructions in a dump that the trigger made, or None if another one did."""
    with open(path, encoding="utf-8", errors="replace") as dump:
        head = dump.read(4000)
        if f"Client Request: {trigger}\n" not in head:
            return None
        total = re.search(r"^(?:summary|totals): (\d+)", head, re.MULTILINE)
        if total:
            return int(total.group(1))
        for line in dump:
            if line.startswith(("summary:", "totals:")):
                return int(line.split()[1])
    raise RuntimeError(f"no total in {path}")


def _counted(folder, variant, trigger):
    """The sum over the dumps that the trigger has made, each kept under the name of the operation."""
    totals = []
    for path in glob.glob(f"{folder}/callgrind.{variant}.[0-9]*"):
        total = _total(path, trigger)
        if total is not None:
            totals.append(total)
    return sum(totals)


def count(programs, variant, operations, folder):
    """Operation to instructions of the server for one of it. The profiles stay in the folder, for callgrind_annotate."""
    os.makedirs(folder, exist_ok=True)
    for old in glob.glob(f"{folder}/*"):
        if f".{variant}." in old:
            os.remove(old)
    output = f"--callgrind-out-file={folder}/callgrind.{variant}"
    counts = {}
    with server(programs, variant, under=["valgrind", "--quiet", "--tool=callgrind", output]):
        for operation in operations:
            builds = operation.command.startswith("build:")
            trigger = "build" if builds else operation.command.split(":")[0]
            # The first run loads what is loaded lazily.
            measure(programs, variant, operation, 1 if builds else 5, mark=True)
            for dump in glob.glob(f"{folder}/callgrind.{variant}.[0-9]*"):
                os.remove(dump)
            figures = measure(programs, variant, operation, operation.counted, mark=True)
            total = _counted(folder, variant, trigger)
            counts[operation] = total / figures["operations"] / operation.per
            for dump in glob.glob(f"{folder}/callgrind.{variant}.[0-9]*"):
                if _total(dump, trigger) is not None:
                    os.replace(dump, f"{folder}/profile.{variant}.{operation.command.replace(':', '-')}")
                else:
                    os.remove(dump)
    return counts
