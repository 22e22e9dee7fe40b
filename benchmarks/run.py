#!/usr/bin/env python3
"""Runs the cases, every participant in turn in each round, and prints the medians."""

import argparse
import json
import shutil
import subprocess
import sys
from pathlib import Path
from statistics import median

from cases import ALL, FAST, TOOLS, Bench, all_cases, content_sizes
from participants import COMMANDS

DRAWN = FAST + ALL
QUEUE_STEPS = ("add", "refuse", "abort", "abortList")
# Whose figures are given as multiples of these ones'.
REFERENCES = ("curl", "libcurl-h2", "manager", "library")
# What must not grow faster than its size: a case, a larger one, and the figures to compare.
GROWTHS = (("queue-10000", "queue-100000", QUEUE_STEPS), ("memory-32", "memory-128", ("seconds",)))


def make_content(directory, full):
    directory.mkdir(exist_ok=True)
    block = Path("/dev/urandom")
    for name, size in content_sizes(full).items():
        with block.open("rb") as source, (directory / name).open("wb") as target:
            for _ in range(size // 2**20):
                target.write(source.read(2**20))


def processor_times():
    """What the processors have spent so far: on work, and in all."""
    times = [int(ticks) for ticks in Path("/proc/stat").read_text().split("\n")[0].split()[1:9]]
    _user, _nice, _system, idle, waiting, *_ = times
    return sum(times) - idle - waiting, sum(times)


def measure(bench, case, participant):
    """One run: what it took, or None when the work was not done."""
    work = bench.prepare(case, participant)
    report = bench.directory / "report"
    command = [work.tool("bench_launch"), str(report)] + COMMANDS[participant](work)
    before = processor_times()
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL,
                              timeout=300, check=False)
        busy, elapsed = (now - then for now, then in zip(processor_times(), before))
        right = done.returncode == 0 and bench.verify(case, participant, work, done.stdout)
    except (subprocess.TimeoutExpired, ValueError):
        right = False
    if not right:
        return None
    usage = json.loads(report.read_text())
    run = {**timing(bench, case, participant, done.stdout, usage["wall"]),
           "cpu": usage["user"] + usage["system"], "memory": usage["memory"],
           "busy": busy / max(elapsed, 1)}
    return run if run["seconds"] > 0 else None


def timing(bench, case, participant, output, wall):
    """Who has a clock of its own is believed; the start of a process is not the transfer's."""
    if case.kind == "queue":
        steps = json.loads(output)
        return {"seconds": sum(steps[step] for step in QUEUE_STEPS),
                **{step: steps[step] for step in QUEUE_STEPS}}
    if participant not in TOOLS:
        times = json.loads(output)
        return {name: times[name] for name in ("seconds", "secondsWithCopy", "resident")
                if name in times}
    if participant == "curl" and case.kind == "files":
        seconds = float(output) if case.count == 1 else wall
        return {"seconds": seconds, "secondsWithCopy": seconds + copy(bench)}
    return {"seconds": wall}


def copy(bench):
    report = bench.directory / "report-copy"
    target = bench.directory / "copy"
    subprocess.run([bench.programs / "bench_launch", report, "cp", "-r", bench.directory / "out",
                    target], check=True)
    shutil.rmtree(target)
    return json.loads(report.read_text())["wall"]


def run_case(bench, case, rounds):
    """The runs of every participant, in the order of the rounds."""
    runs = {participant: [] for participant in case.participants}
    for number in range(rounds):
        # Nobody always comes first.
        turn = number % len(case.participants)
        for participant in case.participants[turn:] + case.participants[:turn]:
            runs[participant].append(measure(bench, case, participant))
    return runs


def ratio(runs, reference, key):
    """Median of the rounds' ratios; above 1 is better than the reference."""
    pairs = [(mine[key], other[key]) for mine, other in zip(runs, reference)]
    return median(other / mine for mine, other in pairs if mine > 0)


def summarize(bench, case, runs):
    rows = {}
    good = {name: each for name, each in runs.items() if None not in each}
    for name, each in runs.items():
        if name not in good:
            rows[name] = {"void": True}
            continue
        seconds = median(run["seconds"] for run in each)
        cpu = median(run["cpu"] for run in each)
        row = {"seconds": seconds, "rate": bench.amount(case) / seconds,
               "cpu": cpu / bench.amount(case), "memory": median(run["memory"] for run in each),
               "busy": median(run["busy"] for run in each)}
        for reference in REFERENCES:
            if reference in good:
                row[f"of-{reference}"] = ratio(each, good[reference], "seconds")
                row[f"cpu-of-{reference}"] = 1 / ratio(each, good[reference], "cpu")
        if name != "curl" and "secondsWithCopy" in each[0] and "curl" in good:
            row["with-copy-of-curl"] = ratio(each, good["curl"], "secondsWithCopy")
        if case.kind == "many":
            row["resident"] = [median(step) for step in zip(*(run["resident"] for run in each))]
        if case.kind == "queue":
            row.update({step: median(run[step] for run in each) for step in QUEUE_STEPS})
        rows[name] = row
    return {"title": case.title, "kind": case.kind, "amount": bench.amount(case), "rows": rows,
            "runs": runs}


def show(summary):
    print(f"\n{summary['title']}")
    for name, row in summary["rows"].items():
        print(f"  {name:11}  " + (describe(summary["kind"], row) if "void" not in row else "void"))
    sys.stdout.flush()


def describe(kind, row):
    if kind == "queue":
        return "  ".join(f"{step} {row[step] * 1e3:.1f} ms" for step in QUEUE_STEPS)
    if kind in ("files", "memory"):
        text = f"{row['rate'] / 1e6:8.0f} MB/s  {row['cpu'] * 1e9:6.2f} CPU s/GB"
    else:
        text = f"{row['rate']:8.0f} /s    {row['cpu'] * 1e6:6.0f} CPU us each"
    text += f"  {row['memory'] / 1e6:6.0f} MB  {row['busy'] * 100:3.0f} % busy"
    if "resident" in row:
        steps = ", ".join(f"{step / 1e6:.0f}" for step in row["resident"])
        text += f"  after each thousand {steps}"
    for key, title in (("of-curl", "of curl"), ("of-libcurl-h2", "of libcurl-h2"),
                       ("of-manager", "of manager"), ("of-library", "of library"),
                       ("with-copy-of-curl", "of curl && cp"),
                       ("cpu-of-manager", "of the manager's CPU")):
        if key in row:
            text += f"  {row[key]:5.2f} {title}"
    return text


def growths(cases):
    """How many times longer the library takes for the larger cases."""
    rows = {name: case["rows"]["library"] for name, case in cases.items()
            if "void" not in case["rows"]["library"]}
    return {f"{small} to {large}": {key: rows[large][key] / rows[small][key] for key in keys}
            for small, large, keys in GROWTHS if small in rows and large in rows}


def write_plot_data(results, path):
    """A line for each case that curl takes part in, its ratios in the order of the participants."""
    with path.open("w") as data:
        data.write("case " + " ".join(DRAWN) + "\n")
        for summary in results["cases"].values():
            rows = summary["rows"]
            if "of-curl" not in rows.get("library", {}):
                continue
            ratios = (str(rows.get(name, {}).get("of-curl", "NaN")) for name in DRAWN)
            data.write(f'"{summary["title"]}" ' + " ".join(ratios) + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--directory", type=Path, required=True)
    parser.add_argument("--programs", type=Path, required=True)
    parser.add_argument("--results", type=Path, required=True)
    parser.add_argument("--ports", nargs=3, required=True, metavar=("HTTP", "HTTPS", "TLS12"))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--full", action="store_true")
    parser.add_argument("--case", action="append", help="only cases whose name begins like this")
    options = parser.parse_args()

    ports = dict(zip(("http", "https", "tls12"), options.ports))
    bench = Bench(options.directory, options.programs, ports)
    make_content(bench.content, options.full)
    results = {"full": options.full, "rounds": options.rounds, "cases": {}}
    for case in all_cases(options.full):
        if options.case and not case.name.startswith(tuple(options.case)):
            continue
        summary = summarize(bench, case, run_case(bench, case, options.rounds))
        results["cases"][case.name] = summary
        show(summary)
    results["growths"] = growths(results["cases"])
    for title, factors in results["growths"].items():
        print(f"\n{title}: " + ", ".join(f"{key} {value:.1f} times" for key, value in factors.items()))
    for name in ("out", "temp"):
        shutil.rmtree(bench.directory / name, ignore_errors=True)
    options.results.write_text(json.dumps(results, indent=1) + "\n")
    write_plot_data(results, options.results.with_suffix(".dat"))
    voids = [f"{name}: {row}" for name, summary in results["cases"].items()
             for row, values in summary["rows"].items() if "void" in values]
    if voids:
        sys.exit("The work was not done by " + ", ".join(voids))


main()
