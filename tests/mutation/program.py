"""The build directory: how a source becomes an object, and objects the library and the tests."""

import json
import re
import shlex
import subprocess
from pathlib import Path

from operators import mutated


class DoesNotBuild(Exception):
    pass


class Program:
    def __init__(self, directory, sources):
        self.directory = directory
        database = json.loads((directory / "compile_commands.json").read_text())
        self._compile = {Path(entry["file"]).name: shlex.split(entry["command"])
                         for entry in database if Path(entry["file"]) in sources}
        self._links = dict(self._read_links())
        self.sources = {path.name: path for path in sources if path.name in self._compile}

    def _read_links(self):
        """(output, command) of all that is linked of the library's objects: it and inner tests."""
        listed = subprocess.run(["ninja", "-t", "commands"], cwd=self.directory, check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        some_object = str(self.object(next(iter(self._compile))))
        for line in listed.splitlines():
            if f" {some_object} " in line and " -c " not in line:
                command = shlex.split(re.sub(r"^: && | && :$", "", line))
                yield command[command.index("-o") + 1], command

    def object(self, name):
        command = self._compile[name]
        return Path(command[command.index("-o") + 1])

    def _library(self):
        return next(output for output, command in self._links.items() if "-shared" in command)

    def build(self, folder, name, mutant):
        """Compiles the mutant alone, and links the library around it."""
        source = self.sources[name]
        text = mutated(source.read_text(), mutant)
        # Messages and __FILE__ go on naming the source.
        (folder / name).write_text(f'#line 1 "{source}"\n{text}')
        old = self._compile[name]
        new = [part for part in old if part not in ("-Werror", "--coverage", str(source), "-c")]
        new[new.index("-o") + 1] = str(folder / "mutant.o")
        self._run([*new, "-w", "-iquote", str(source.parent), "-c", str(folder / name)])
        soname = next(part.rsplit(",", 1)[-1] for part in self._links[self._library()]
                      if "-soname," in part)
        self._link(self._library(), name, folder / soname)

    def test_program(self, folder, name, program):
        """The test with the mutant in it: inner tests have the objects in themselves."""
        path = Path(program)
        output = str(path.relative_to(self.directory)) if path.is_relative_to(self.directory) else ""
        if output not in self._links:
            return program
        linked = folder / path.name
        if not linked.exists():
            self._link(output, name, linked)
        return str(linked)

    def _link(self, output, name, target):
        replaced = {str(self.object(name)): str(target.parent / "mutant.o"), output: str(target)}
        self._run([replaced.get(part, part) for part in self._links[output]])

    def _run(self, command):
        done = subprocess.run(command, cwd=self.directory, stdin=subprocess.DEVNULL, check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if done.returncode != 0:
            raise DoesNotBuild
