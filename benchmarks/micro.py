"""Runs the micro-benchmarks of the program's parts.

The limit of a benchmark is the benchmark of the same name with the suffix Limit.
"""

import json
import subprocess

import results


def measure(program, rounds):
    command = [program, "--benchmark_format=json", f"--benchmark_repetitions={rounds}",
               "--benchmark_min_time=0.2", "--benchmark_enable_random_interleaving=true"]
    run = subprocess.run(command, capture_output=True, text=True)
    if run.returncode != 0:
        raise RuntimeError(f"{program} failed: {run.stderr}")
    entries = [entry for entry in json.loads(run.stdout)["benchmarks"]
               if entry["run_type"] == "iteration"]
    entries.sort(key=lambda entry: (entry["family_index"], entry["per_family_instance_index"],
                                    entry["repetition_index"]))
    results.write("micro", [
        {
            "benchmark": entry["run_name"].split("/iterations:")[0],
            "round": entry["repetition_index"] + 1,
            "ns": entry["cpu_time"],
            "frames/s": entry.get("items_per_second", ""),
            "bytes/s": entry.get("bytes_per_second", ""),
        }
        for entry in entries])
