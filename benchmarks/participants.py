"""Who takes part in the benchmarks, and the command with which each does its work."""

from dataclasses import replace

PARALLEL = 5


def _numbered(work, count):
    return f"{work.url}?[0-{count - 1}]"


def _url_list(work, with_names):
    """The file that names every URL, for who cannot count."""
    path = work.directory / "urls"
    with path.open("w") as lines:
        for number in range(work.count):
            lines.write(f"{work.url}?{number}\n")
            if with_names:
                lines.write(f" out={number}\n")
    return str(path)


def _engine(engine):
    def command(work):
        options = {**work.options} if work.kind == "queue" else {"engine": engine, **work.options}
        return [work.program] + [f"--{name}={value}" for name, value in options.items()]

    return command


def _verifying(engine):
    def command(work, **more):
        return _engine(engine)(replace(work, options={
            **work.options, "authority": work.directory / "server.crt", **more}))

    return command


def _strict_hash(work):
    return _verifying("strict")(work, hash=work.digest())


def _sha256(work):
    return _engine("sha256")(replace(work, options={
        "url": work.source, "count": 1, "size": 0, "directory": work.directory}))


def _libcurl(protocol):
    def command(work):
        mode = work.options["method"] if work.kind == "requests" else work.kind
        return [work.tool("bench_libcurl"), protocol, mode, work.url, str(work.count),
                str(work.directory)]

    return command


def _curl(work):
    command = ["curl", "--silent", "--no-progress-meter", "--insecure", "--http1.1"]
    if work.count > 1:
        command += ["--parallel", "--parallel-max", str(PARALLEL)]
    if work.kind == "requests":
        command += ["--output", "/dev/null", "--write-out", "%{http_code} %{size_download}\\n"]
        command += ["--data", '{"number": 1}'] if work.is_post else []
        return command + [_numbered(work, work.count)]
    command += ["--header", "Connection: close", "--output", f"{work.directory}/out/#1"]
    if work.resumed:
        # It does not look for a file whose name it has to make up first.
        command[-1] = f"{work.directory}/out/0"
        return command + ["--continue-at", "-", "--write-out", "%{time_total}", f"{work.url}?0"]
    if work.count == 1:
        command += ["--write-out", "%{time_total}"]
    return command + [_numbered(work, work.count)]


def _wget(work):
    command = ["wget", "--quiet", "--no-check-certificate"]
    if work.kind == "requests":
        command += ["--post-data", '{"number": 1}'] if work.is_post else []
        return command + ["--output-document", "-", "--input-file", _url_list(work, False)]
    command += ["--no-http-keep-alive"]
    if work.count == 1:
        command += ["--continue"] if work.resumed else []
        return command + ["--output-document", f"{work.directory}/out/0", f"{work.url}?0"]
    return command + ["--directory-prefix", f"{work.directory}/out", "--input-file",
                      _url_list(work, False)]


def _aria2(work):
    keep_alive = "true" if work.kind == "requests" else "false"
    return ["aria2c", "--no-conf", "--quiet", "--check-certificate=false", "--split=1",
            "--max-connection-per-server=1", "--file-allocation=none", "--continue=true",
            f"--enable-http-keep-alive={keep_alive}", f"--max-concurrent-downloads={PARALLEL}",
            f"--dir={work.directory}/out", f"--input-file={_url_list(work, True)}"]


COMMANDS = {
    "library": _engine("library"),
    "strict": _verifying("strict"),
    "strict-hash": _strict_hash,
    "sha256": _sha256,
    "fast": _verifying("fast"),
    "manager": _engine("manager"),
    "manager-h2": _engine("manager-h2"),
    "libcurl": _libcurl("http1.1"),
    "libcurl-h2": _libcurl("http2"),
    "curl": _curl,
    "wget": _wget,
    "aria2": _aria2,
}
