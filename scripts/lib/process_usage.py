"""Resource usage of running processes."""

import dataclasses
import os


@dataclasses.dataclass
class Usage:
    cpu_seconds: float = 0
    switches: int = 0  # context switches, voluntary or not
    wakeups: int = 0  # voluntary switches: the process had waited
    resident_kib: int = 0
    peak_kib: int = 0


def usage_of(pids):
    """The sum over all threads of these processes."""
    total = Usage()
    for pid in pids:
        for thread in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{thread}/schedstat") as file:
                total.cpu_seconds += int(file.read().split()[0]) / 1e9
            status = read_status(f"/proc/{pid}/task/{thread}/status")
            waits = status["voluntary_ctxt_switches"]
            total.wakeups += waits
            total.switches += waits + status["nonvoluntary_ctxt_switches"]
        status = read_status(f"/proc/{pid}/status")
        total.resident_kib += status["VmRSS"]
        total.peak_kib += status["VmHWM"]
    return total


def read_status(path):
    """The lines of a status file whose value begins with a whole number."""
    numbers = {}
    with open(path) as file:
        for line in file:
            name, value = line.split(":", 1)
            if value.split() and value.split()[0].isdecimal():
                numbers[name] = int(value.split()[0])
    return numbers
