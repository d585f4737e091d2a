"""What servers do while nothing happens: switches to their threads, system calls, and how their threads wait."""

import os
import platform
import re
import subprocess
import tempfile
import time

# The calls in which a thread can wait: by number, the name and which argument is the time-out.
_WAITS = {
    "x86_64": {7: ("poll", 2), 271: ("ppoll", 2), 202: ("futex", 3), 232: ("epoll_wait", 3), 281: ("epoll_pwait", 3)},
    "aarch64": {73: ("ppoll", 2), 98: ("futex", 3), 22: ("epoll_pwait", 3)},
}
_NO_TIMEOUT = {"poll": 0xFFFFFFFF, "epoll_wait": 0xFFFFFFFF, "epoll_pwait": 0xFFFFFFFF, "ppoll": 0, "futex": 0}


def _tasks(pid, file):
    """The content of a file of each thread of a process."""
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/{file}", encoding="ascii", errors="replace") as content:
            yield content.read()


def _switches(pid):
    """How often the threads of a process have been switched to so far."""
    return sum(
        int(count) for status in _tasks(pid, "status") for count in re.findall(r"ctxt_switches:\s+(\d+)", status)
    )


def _waits(pid):
    """How each thread waits: a call's name, with "timed" where it has a time-out."""
    calls = _WAITS[platform.machine()]
    waits = []
    for line in _tasks(pid, "syscall"):
        number, *arguments = line.split()
        if not number.isdigit() or int(number) not in calls:
            waits.append("timed? " + line.strip())
            continue
        name, index = calls[int(number)]
        timed = int(arguments[index], 16) & 0xFFFFFFFFFFFFFFFF != _NO_TIMEOUT[name]
        waits.append("timed " * timed + name)
    return sorted(waits)


def _system_calls(pids, seconds):
    """Process to how many system calls it began or ended."""
    traces = {}
    for pid in pids:
        file = tempfile.NamedTemporaryFile("r")  # pylint: disable=consider-using-with
        command = ["strace", "-f", "-q", "-s", "0", "-o", file.name, "-p", str(pid)]
        traces[pid] = (subprocess.Popen(command), file)
    time.sleep(seconds)
    counts = {}
    for pid, (process, file) in traces.items():
        process.terminate()
        process.wait()
        lines = file.read().splitlines()
        if not lines:
            raise RuntimeError(f"strace of {pid} saw nothing")
        # A thread that waits all the time shows as one call that is not finished.
        counts[pid] = sum("<detached ...>" not in line and "<unfinished ...>" not in line for line in lines)
    return counts


def watch(pids, seconds):
    """Name to what the process with its pid does in that time, first alone and then under strace."""
    before = {name: _switches(pid) for name, pid in pids.items()}
    time.sleep(seconds)
    result = {name: {"wake-ups": _switches(pid) - before[name], "waits": _waits(pid)} for name, pid in pids.items()}
    calls = _system_calls(pids.values(), seconds)
    for name, pid in pids.items():
        result[name]["system calls"] = calls[pid]
    return result
