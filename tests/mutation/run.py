#!/usr/bin/env python3
"""Draws mutants, and tells which of them the tests notice. For script/mutate, which explains it."""

import argparse
import os
import random
import shutil
import signal
import sys
import threading
from collections import namedtuple
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from time import monotonic

import report
import testing
from operators import mutants
from program import DoesNotBuild, Program
from source import masked, surroundings

Result = namedtuple("Result", "name mutant fate why diff")


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--seed", type=int, default=random.randrange(1000000))
    parser.add_argument("--most", type=int, default=40)
    parser.add_argument("--file", action="append", default=[])
    parser.add_argument("--only", action="append", default=[])
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--at-least", type=float, default=0)
    parser.add_argument("--equivalents", type=Path, default=Path("tests/mutants.md"))
    return parser.parse_args()


def drawn(sources, seed):
    """(file, mutant): the files take turns, and in each file the operators do."""
    dice = random.Random(seed)
    queues = [[(path.name, mutant) for mutant in
               in_turn(mutants(path.name, path.read_text()).values(), dice)] for path in sources]
    return in_turn(queues, dice, shuffled=False)


def in_turn(groups, dice, shuffled=True):
    groups = [list(group) for group in groups]
    dice.shuffle(groups)
    if shuffled:
        for group in groups:
            dice.shuffle(group)
    return [group[turn] for turn in range(max(map(len, groups), default=0))
            for group in groups if turn < len(group)]


class Run:
    def __init__(self, options, program, coverage, candidates):
        self._options = options
        self._program = program
        self._coverage = coverage
        self._candidates = iter(candidates)
        self._lock = threading.Lock()
        self._most = len(candidates) if options.only else min(options.most, len(candidates))
        self._left = self._most
        self._drawn = 0
        self._equivalents = report.equivalents(options.root / options.equivalents)
        self.results = []

    def work(self):
        """Until enough have been tried. Each thread does this."""
        while True:
            with self._lock:
                candidate = next(self._candidates, None) if self._left > 0 else None
                if candidate is None:
                    return
                self._left -= 1
                self._drawn += 1
                number = self._drawn
            started = monotonic()
            result = self._try(number, *candidate)
            with self._lock:
                self._note(result, monotonic() - started)

    def _note(self, result, seconds):
        if result.fate == "not counted":
            self._left += 1
        else:
            self.results.append(result)
        print(f"{len(self.results):4}/{self._most:<4} {result.mutant.id:<40} {result.fate:<11} "
              f"{result.why:<44} {seconds:5.1f} s", flush=True)

    def _try(self, number, name, mutant):
        folder = self._program.directory / "mutants" / str(number)
        folder.mkdir(parents=True)
        text = self._program.sources[name].read_text()
        path = self._program.sources[name].relative_to(self._options.root)
        difference = report.diff(path, text, mutant)
        fate, why = self._fate(folder, name, mutant, text)
        if fate == "survived" and report.key(name, difference) in self._equivalents:
            fate = "equivalent"
        if fate != "survived":
            shutil.rmtree(folder)
        return Result(name, mutant, fate, why, difference)

    def _fate(self, folder, name, mutant, text):
        lines = surroundings(masked(text), mutant.start, mutant.end)
        tests = self._coverage.tests_of(name, *lines)
        try:
            self._program.build(folder, name, mutant)
            for test, seconds in tests:
                program = self._program.test_program(folder, name, test.command[0])
                failure = test.run(max(20, 10 * seconds), {"LD_LIBRARY_PATH": str(folder)}, program)
                if failure:
                    return "killed", f"{test.name}, {failure}"
        except DoesNotBuild:
            return "not counted", "does not compile"
        return "survived", f"{len(tests)} tests pass" if tests else "no test runs it"


def interrupt(*_):
    testing.stop_all()
    os._exit(130)


def main():
    options = arguments()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, interrupt)
    sources = sorted((options.root / "source/appl").glob("*.cpp"))
    program = Program(options.build, sources)
    names = [Path(name).name for name in options.file] or list(program.sources)
    unknown = set(names) - set(program.sources)
    if unknown:
        raise SystemExit(f"no source of the library: {', '.join(unknown)}")
    candidates = drawn([program.sources[name] for name in sorted(names)], options.seed)
    if options.only:
        candidates = [each for each in candidates if each[1].id in options.only]
        if len(candidates) < len(set(options.only)):
            raise SystemExit("not all of these mutants are known")
    print(f"{len(candidates)} mutants to choose from, seed {options.seed}", flush=True)
    run = Run(options, program, testing.Coverage(options.root, program, options.jobs), candidates)
    shutil.rmtree(options.build / "mutants", ignore_errors=True)
    with ThreadPoolExecutor(options.jobs) as pool:
        for worker in [pool.submit(run.work) for _ in range(options.jobs)]:
            worker.result()
    text = report.write(run.results, options.seed)
    (options.build / "report.md").write_text(text)
    print("\n" + text)
    return 0 if report.percent(run.results) >= options.at_least else 1


if __name__ == "__main__":
    sys.exit(main())
