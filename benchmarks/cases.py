"""The cases of the benchmarks: what is to be done, and how to see that it was done."""

import filecmp
import hashlib
import json
import shutil
from dataclasses import dataclass, field
from functools import lru_cache
from pathlib import Path

MIB = 1024 * 1024
QT_AND_LIBCURL = ("library", "manager", "libcurl")
TOOLS = ("curl", "wget", "aria2")
ALL = QT_AND_LIBCURL + TOOLS
# The client that makes use of all that the server offers, and who else speaks HTTP/2.
FAST = ("fast",)
HTTP2 = ("manager-h2", "libcurl-h2")
# The client with a policy, without and with a hash to check, and what that hash takes by itself.
STRICT = ("strict", "strict-hash", "sha256")


@lru_cache(maxsize=None)
def _sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


@dataclass
class Work:
    """What a participant is to do in one run."""

    kind: str
    program: str
    options: dict
    directory: Path
    programs: Path
    url: str = ""
    count: int = 1
    resumed: bool = False
    source: Path = None  # what the server sends

    def digest(self):
        return _sha256(self.source)

    @property
    def is_post(self):
        return self.options.get("method") == "post"

    def tool(self, name):
        return str(self.programs / name)


@dataclass
class Case:
    name: str
    title: str
    kind: str  # files, many (of them, small), requests, memory, queue or construction
    participants: tuple = ALL
    port: str = ""  # name of the server's port
    content: str = ""
    count: int = 1
    resumed: bool = False
    options: dict = field(default_factory=dict)

    @property
    def program(self):
        return "bench_" + ("download" if self.is_download else self.kind)

    @property
    def is_download(self):
        return self.kind in ("files", "many")


def content_sizes(full):
    """The files that the server has."""
    large = 1024 if full else 256
    sizes = {"large.bin": large * MIB, "quarter.bin": large // 4 * MIB, "one.bin": MIB}
    for mebibytes in memory_sizes(full):
        sizes[f"memory{mebibytes}.bin"] = mebibytes * MIB
    return sizes


def memory_sizes(full):
    return (32, 64, 128, 256) if full else (32, 128)


def all_cases(full):
    cases = []
    for scheme in ("http", "https"):
        upper = scheme.upper()
        cases += [
            Case(f"large-{scheme}", f"Large file, {upper}", "files", ALL + STRICT + FAST,
                 scheme, "large.bin"),
            Case(f"resume-{scheme}", f"Its second half, {upper}", "files", ALL, scheme,
                 "large.bin", resumed=True),
            Case(f"five-{scheme}", f"Five at once, {upper}", "files", ALL + FAST, scheme,
                 "quarter.bin", 5),
        ]
    for version in ("1.3", "1.2"):
        cases.append(Case(f"closing-tls{version}", f"1 MiB files, TLS {version}", "files",
                          ALL + ("strict", "libcurl-h2") + FAST,
                          "https" if version == "1.3" else "tls12", "one.bin",
                          500 if full else 100))
    cases.append(Case("many", "3,000 small files", "many", ("library", "strict") + FAST, "https",
                      "small.json", 3000))
    cases.append(Case("get", "Small GETs", "requests", ALL, "http", "small.json",
                      10000 if full else 2000, options={"method": "get"}))
    cases.append(Case("get-https", "Small GETs, HTTPS", "requests",
                      QT_AND_LIBCURL + ("curl",) + HTTP2 + FAST, "https", "small.json",
                      10000 if full else 2000, options={"method": "get"}))
    for size in memory_sizes(full):
        cases.append(Case(f"memory-{size}", f"{size} MiB in memory", "memory", QT_AND_LIBCURL,
                          "http", f"memory{size}.bin", options={"chunk": 65536}))
    for count in (1000, 10000, 100000):
        cases.append(Case(f"queue-{count}", f"Queue of {count:,}", "queue", ("library",),
                          count=count))
    cases.append(Case("construction", "Construction", "construction", ("library", "manager"),
                      count=1000))
    # Fewer, and last: each of them waits for 44 ms.
    cases.append(Case("post", "Small POSTs", "requests", ALL[:-2], "http", "post",
                      2000 if full else 500, options={"method": "post"}))
    cases.append(Case("post-https", "Small POSTs, HTTPS", "requests",
                      QT_AND_LIBCURL + ("curl",) + HTTP2 + FAST, "https", "post",
                      2000 if full else 500, options={"method": "post"}))
    return cases


class Bench:
    """Prepares runs below a directory and checks what came of them."""

    def __init__(self, directory, programs, ports):
        self.directory = directory
        self.programs = programs
        self.ports = ports
        self.content = directory / "content"

    def prepare(self, case, participant):
        for name in ("out", "temp"):
            shutil.rmtree(self.directory / name, ignore_errors=True)
            (self.directory / name).mkdir()
        work = Work(case.kind, str(self.programs / case.program), dict(case.options),
                    self.directory, self.programs, count=case.count, resumed=case.resumed)
        if case.port:
            scheme = "http" if case.port == "http" else "https"
            work.url = f"{scheme}://127.0.0.1:{self.ports[case.port]}/{case.content}"
            work.options["url"] = work.url
        if case.kind != "memory":
            work.options["count"] = case.count
        if case.kind == "queue":
            work.options = {"count": case.count}
        if case.is_download:
            work.options["size"] = (self.content / case.content).stat().st_size
            work.options["directory"] = self.directory
            work.source = self.content / case.content
        if case.resumed:
            self._lay_first_half(case, participant)
        return work

    def _lay_first_half(self, case, participant):
        is_qt = participant in ("library", "manager")
        path = self.directory / ("temp/0.vtxdownload" if is_qt else "out/0")
        half = (self.content / case.content).stat().st_size // 2
        with (self.content / case.content).open("rb") as source, path.open("wb") as target:
            for _ in range(half // MIB):
                target.write(source.read(MIB))

    def verify(self, case, participant, work, output):
        """Whether the work was done."""
        check = getattr(self, "_verify_" + case.kind, self._verify_count)
        return check(case, participant, work, output)

    def _verify_files(self, case, participant, work, output):
        if participant == "sha256":
            return self._verify_count(case, participant, work, output)
        files = list((self.directory / "out").iterdir())
        source = self.content / case.content
        return len(files) == work.count and all(
            filecmp.cmp(path, source, shallow=False) for path in files)

    _verify_many = _verify_files

    def _verify_requests(self, case, participant, work, output):
        answer = (self.content / "small.json").read_bytes()
        if participant == "curl":
            return output.split(b"\n").count(b"200 %d" % len(answer)) == case.count
        if participant == "wget":
            return output == answer * case.count
        if participant == "aria2":
            files = list((self.directory / "out").iterdir())
            return len(files) == case.count and all(f.read_bytes() == answer for f in files)
        return self._verify_count(case, participant, work, output)

    def _verify_memory(self, case, participant, work, output):
        if participant == "libcurl":
            return self._verify_count(case, participant, work, output)
        digest = hashlib.sha1((self.content / case.content).read_bytes()).hexdigest()
        return json.loads(output)["sha1"] == digest

    @staticmethod
    def _verify_count(case, _participant, _work, output):
        return json.loads(output)["count"] == case.count

    def amount(self, case):
        """Bytes of a transfer, otherwise the number of requests."""
        if case.kind not in ("files", "memory"):
            return case.count
        size = (self.content / case.content).stat().st_size
        return size // 2 if case.resumed else size * case.count
