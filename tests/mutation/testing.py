"""The tests of CTest: what each costs, which lines it runs, and whether it fails."""

import hashlib
import json
import os
import shutil
import signal
import subprocess
import tempfile
import threading
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from time import monotonic

# A mutant must not take the machine with it.
LIMITS = ["prlimit", "--core=0", f"--as={8 * 2**30}", f"--fsize={8 * 2**30}"]
running = set()


def stop_all():
    for process in list(running):
        kill(process)


def kill(process):
    """And all that it has started."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


class Test:
    def __init__(self, entry):
        self.name = entry["name"]
        self.command = entry["command"]
        properties = {item["name"]: item["value"] for item in entry["properties"]}
        self.directory = properties["WORKING_DIRECTORY"]
        self.most_seconds = properties.get("TIMEOUT", 600)
        self.environment = dict(item.split("=", 1) for item in properties.get("ENVIRONMENT", []))

    def run(self, most_seconds, environment, program=None):
        """None if it passes, else how it fails. Ends at the first failure."""
        scratch = tempfile.mkdtemp(prefix="mutate-")
        os.chmod(scratch, 0o755)
        variables = {**os.environ, "GCOV_PREFIX": scratch, **self.environment, **environment,
                     "TMPDIR": scratch}
        # Python ignores the signal of a file that grows too large, and so is the test to: it is told,
        # as on a disk that has no such files.
        process = subprocess.Popen(
            [*LIMITS, program or self.command[0], *self.command[1:]], cwd=self.directory,
            env=variables, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL, start_new_session=True, restore_signals=False)
        running.add(process)
        late = threading.Event()
        timer = threading.Timer(most_seconds, lambda: (late.set(), kill(process)))
        timer.start()
        try:
            failed = any(line.startswith(b"FAIL!") for line in process.stdout)
            if failed:
                kill(process)
            process.wait()
        finally:
            timer.cancel()
            kill(process)
            running.discard(process)
            process.stdout.close()
            shutil.rmtree(scratch, ignore_errors=True)
        if late.is_set():
            return "too slow"
        if failed or process.returncode > 0:
            return "failed"
        return f"signal {-process.returncode}" if process.returncode else None


def all_tests(directory):
    listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=directory, check=True,
                            stdout=subprocess.PIPE).stdout
    return [Test(entry) for entry in json.loads(listed)["tests"]]


class Coverage:
    """Which tests run which lines, learnt once for as long as nothing changes."""

    def __init__(self, root, program, jobs):
        self._program = program
        self._tests = {test.name: test for test in all_tests(program.directory)}
        cache = program.directory / "coverage.json"
        state = fingerprint(root)
        known = json.loads(cache.read_text()) if cache.exists() else {}
        if known.get("state") != state:
            with ThreadPoolExecutor(jobs) as pool:
                learnt = dict(pool.map(self._learn, self._tests.values()))
            known = {"state": state, "tests": learnt}
            cache.write_text(json.dumps(known))
        self._learnt = known["tests"]

    def _learn(self, test):
        folder = Path(tempfile.mkdtemp(prefix="mutate-coverage-"))
        started = monotonic()
        failure = test.run(test.most_seconds, {"GCOV_PREFIX": str(folder)})
        if failure:
            raise SystemExit(f"{test.name} does not pass without a mutant, either: {failure}")
        learnt = {"seconds": monotonic() - started, "lines": self._lines(folder)}
        shutil.rmtree(folder)
        return test.name, learnt

    def _lines(self, folder):
        """{source: {line: whether it was run}} for the lines with code."""
        counts = []
        for name in self._program.sources:
            notes = (self._program.directory / self._program.object(name)).with_suffix(".gcno")
            count = Path(f"{folder}{notes}").with_suffix(".gcda")
            if count.exists():
                count.with_suffix(".gcno").symlink_to(notes)
                counts.append(count)
        lines = {name: {} for name in self._program.sources}
        if counts:
            said = subprocess.run(["gcov", "--json-format", "--stdout", *counts], check=True,
                                  cwd=folder, stdout=subprocess.PIPE).stdout
            for unit in said.splitlines():
                for file in json.loads(unit)["files"]:
                    name = Path(file["file"]).name
                    for line in file["lines"] if name in lines else []:
                        number = str(line["line_number"])
                        lines[name][number] = lines[name].get(number, False) or line["count"] > 0
        return lines

    def tests_of(self, name, first, last):
        """The tests that run any of these lines, cheapest first."""
        numbers = [str(number) for number in range(first, last + 1)]
        ran = {test: learnt["lines"][name] for test, learnt in self._learnt.items()}
        # Of tables gcov knows nothing: who uses one is among those that run anything of the file.
        found = [test for test, lines in ran.items() if any(map(lines.get, numbers))] \
            or [test for test, lines in ran.items() if any(lines.values())]
        costs = sorted((self._learnt[test]["seconds"], test) for test in found)
        return [(self._tests[test], seconds) for seconds, test in costs]


def fingerprint(root):
    """Of all that decides what the tests do."""
    content = hashlib.sha256()
    for place in ("source", "tests", "cmake", "docs/snippets", "CMakeLists.txt"):
        paths = sorted((root / place).rglob("*")) or [root / place]
        for path in paths:
            if path.is_file() and path.parent.name not in ("mutation", "__pycache__") \
                    and path.name != "mutants.md":
                content.update(str(path).encode() + path.read_bytes())
    return content.hexdigest()
