"""From the rounds to medians, ratios with their spread, a table and a picture."""

import statistics
import subprocess

from operations import SOCKETS, TITLES, VARIANTS


def median(rounds, figure):
    """The median of a figure over the rounds; None where it was not measured."""
    values = [figures[figure] for figures in rounds if figure in figures]
    return statistics.median(values) if values else None


def ratios(rounds, floor, figure):
    """Lower quartile, median and upper quartile of the ratio to the floor, round by round."""
    all_ratios = [a[figure] / b[figure] for a, b in zip(rounds, floor) if b.get(figure)]
    if not all_ratios:
        return None
    if len(all_ratios) < 2:
        return (all_ratios[0],) * 3
    return tuple(statistics.quantiles(all_ratios, n=4, method="inclusive"))


def _text(value, scale=1.0, digits=3):
    if value is None:
        return "-"
    value *= scale
    return f"{value:,.0f}" if value >= 1000 else f"{value:.{digits}g}"


def _ratio_text(spread):
    return "-" if spread is None else "{1:.2f} ({0:.2f}-{2:.2f})".format(*spread)


HEADER = ["", "", "per second", "median", "p99", "server", "bus", "server / Qt", "at most", "instructions", "/ Qt"]
UNITS = ["", "", "1/s", "us", "us", "us", "us", "", "", "", ""]


def figure_of(operation):
    """The figure whose ratio is shown: processor time, or bytes of the heap."""
    return "heap" if operation.title.startswith("heap per") else "server"


def _row(operation, variant, results, counts):
    rounds = results[operation][variant]
    floor = results[operation].get("qt", [])
    figure = figure_of(operation)
    is_heap = figure == "heap"
    instructions = counts.get(variant, {}).get(operation)
    floor_instructions = counts.get("qt", {}).get(operation)
    micro = 1e6 / operation.per
    per_object = 1 if operation.per == 1 else operation.per
    rate = median(rounds, "rate")
    return [
        operation.title if variant == next(iter(operation.variants)) else "",
        TITLES[variant],
        _text(None if rate is None else rate * per_object, digits=4),
        _text(median(rounds, "median"), micro),
        _text(median(rounds, "p99"), micro),
        (_text(median(rounds, "heap")) + " B") if is_heap else _text(median(rounds, "server"), micro),
        _text(median(rounds, "bus"), micro),
        _ratio_text(None if variant == "qt" else ratios(rounds, floor, figure)),
        f"{operation.target:.2f}" if operation.target and variant == "library" else "",
        _text(instructions, digits=4),
        f"{instructions / floor_instructions:.3f}" if instructions and floor_instructions and variant != "qt" else "",
    ]


def format_table(rows):
    """Columns of text: the first two to the left, figures to the right."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = []
    for row in rows:
        cells = [cell.ljust(width) if i < 2 else cell.rjust(width) for i, (cell, width) in enumerate(zip(row, widths))]
        lines.append("  ".join(cells).rstrip())
    return "\n".join(lines)


def table(results, counts):
    """The table of all operations and variants."""
    rows = [HEADER, UNITS]
    for operation in results:
        rows += [_row(operation, variant, results, counts) for variant in operation.variants]
    return format_table(rows)


def notifications_table(results, counts):
    """What a notification costs the server through a socket, and over the bus."""
    rows = [["notification", "", "server us", "quartiles", "/ library's bus", "instructions", "/ library's bus"]]
    by_command = {operation.command: operation for operation in results}
    for bus in [operation for operation in results if operation.command.startswith("notify:")]:
        through_socket = by_command.get(bus.command.replace("notify", "socket"))
        library = counts.get("library", {}).get(bus)
        for variant in (SOCKETS, *bus.variants) if through_socket else ():
            operation = through_socket if variant == SOCKETS else bus
            rounds = results[operation][variant]
            times = [figures["server"] * 1e6 for figures in rounds]
            quartiles = statistics.quantiles(times, n=4, method="inclusive") if len(times) > 1 else times * 3
            instructions = counts.get(variant, {}).get(operation)
            title = bus.title.replace("PropertiesChanged, ", "")
            rows.append([title if variant == SOCKETS else "", TITLES[variant], f"{quartiles[1]:.2f}",
                         f"{quartiles[0]:.2f}-{quartiles[2]:.2f}",
                         _ratio_text(ratios(rounds, results[bus]["library"], "server")), _text(instructions, digits=4),
                         f"{instructions / library:.3f}" if instructions and library else "-"])
    return format_table(rows) if len(rows) > 1 else ""


def destroy_table(results):
    """What building costs in trees of different sizes, and destroying, which Qt decides."""
    rows = [["", "", "destroy us", "bytes of heap"]]
    for operation in results:
        if operation.command.startswith(("build:characteristic", "build:tree")) and figure_of(operation) == "server":
            for variant in operation.variants:
                rounds = results[operation][variant]
                title = operation.title if variant == "library" else ""
                rows.append([title, TITLES[variant], _text(median(rounds, "destroy"), 1e6), _text(median(rounds, "heap"))])
    return format_table(rows)


def verdict(results, counts):
    """The targets: the library's median ratio of processor time or heap, that of instructions, whether it is met."""
    rows = [["target", "at most", "ratio", "", "instructions"]]
    for operation in results:
        if not operation.target:
            continue
        spread = ratios(results[operation]["library"], results[operation]["qt"], figure_of(operation))
        library, floor = (counts.get(variant, {}).get(operation) for variant in ("library", "qt"))
        if spread is not None:
            met = "met" if round(spread[1], 2) <= operation.target else "MISSED"
            counted = f"{library / floor:.3f}" if library and floor else "-"
            rows.append([operation.title, f"{operation.target:.2f}", f"{spread[1]:.3f}", met, counted])
    return format_table(rows)


def evenness(results):
    """Whether building one characteristic costs the same in a small and in a large tree."""
    sizes = {}
    for operation in results:
        if operation.command.startswith("build:characteristic:") and figure_of(operation) == "server":
            sizes[int(operation.command.split(":")[2])] = median(results[operation]["library"], "server")
    small, large = sizes.get(10), sizes.get(16000)
    if not small or not large:
        return ""
    met = "met" if abs(large / small - 1) <= 0.2 else "MISSED"
    return f"building one of 16,000 against one of 10: {large / small:.2f}, {met} (within 20 %)"


def idle_table(watched, seconds):
    """What each server did while nothing happened."""
    rows = [[f"idle for {seconds:g} s each", "", "wake-ups", "system calls", "its threads wait in"]]
    for variant, seen in watched.items():
        rows.append(["", TITLES[variant], str(seen["wake-ups"]), str(seen["system calls"]), ", ".join(seen["waits"])])
    return format_table(rows)


def idle_verdict(watched):
    """Whether the idle library does nothing at all."""
    if not watched:
        return "idle: not watched"
    seen = watched["library"]
    timers = sum("timed" in wait for wait in seen["waits"])
    met = "met" if seen["wake-ups"] + seen["system calls"] + timers == 0 else "MISSED"
    return f"idle: {timers} waits with a time-out, {seen['wake-ups']} wake-ups, {seen['system calls']} system calls: {met}"


def picture(results, folder):
    """Draws the ratios to the floor of Qt D-Bus with gnuplot. @return the path of the SVG"""
    rows = []
    for operation in reversed([operation for operation in results if "qt" in operation.variants]):
        spreads = {
            variant: ratios(results[operation][variant], results[operation]["qt"], figure_of(operation))
            for variant in operation.variants
            if variant != "qt"
        }
        if all(spreads.values()):
            values = [f"{value:.4f}" for v in VARIANTS if v != "qt" for value in spreads.get(v, [float("nan")] * 3)]
            rows.append([f'"{operation.title}"', *values, str(operation.target or "NaN")])
    data = "\n".join(f"{i} " + " ".join(row) for i, row in enumerate(rows))
    path = f"{folder}/bench.svg"
    script = f"""
set terminal svg size 900,{120 + 24 * len(rows)} font "sans,11" background "white"
set output "{path}"
set title "Processor time or heap of the server, as a ratio to Qt D-Bus alone (bars: quartiles)"
set yrange [-0.7:{len(rows)}]
set xrange [0:*]
set grid x
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor "gray30"
set key outside bottom center horizontal
$data << EOD
{data}
EOD
plot $data using 4:1:3:5:ytic(2) with xerrorbars pointtype 7 linecolor "#0060ad" title "the library", \\
     $data using 7:1:6:8 with xerrorbars pointtype 6 linecolor "#888888" title "sd-bus", \\
     $data using 9:1 with points pointtype 9 linecolor "#dd181f" title "at most"
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return path
