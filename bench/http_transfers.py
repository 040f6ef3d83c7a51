"""The cases of bench/compare for HTTP: clients against the same server, and servers under the same
client, on loopback, plain and with TLS."""

import contextlib
import filecmp
import os
import re
import shutil
import signal
import subprocess

from comparison import (MIB, Case, Comparison_Failed, Program, Target, aside, to_file, verdict,
                        warm)
from data import (TREE_FILES, TREE_MOST, check_copy, check_lines, make_entries, make_random,
                  make_tree)
from http_servers import Certificate, Cio_Serve, Nginx, Rclone_Serve, await_value

FEW_ENTRIES = 1000
PART_OF_TIME = 1 / 1.5  # for 1.5 times the rate
# What `cio get --resume` compares of the bytes that are there before it goes on.
COMPARED_AGAIN = MIB


class Bench:
    """The folders of these cases, and the clients' command lines for a server.

    A server has what is fetched in `down` and `tree`; what it is sent goes into `up`."""

    def __init__(self, runner, cio, size, directories):
        self.runner = runner
        self.cio = cio
        self.size = size
        self.directories = directories
        self.work = os.path.join(runner.work, "http")
        self.file = os.path.join(self.work, "down", "data.bin")
        self.tree = os.path.join(self.work, "tree")
        self.copy = os.path.join(self.work, "copy")
        self.certificate = None
        for folder in (os.path.dirname(self.file), self.tree, self.copy):
            os.makedirs(folder)
        aside(make_random, self.file, size)
        aside(make_tree, self.tree, directories)

    @contextlib.contextmanager
    def servers(self, certificate):
        """Ours, nginx, and rclone's, which share the data."""
        self.certificate = certificate
        folders = {}
        for name in ("cio", "nginx", "rclone"):
            folders[name] = os.path.join(self.work, "servers", name)
            files = os.path.join(folders[name], "files")
            os.makedirs(os.path.join(files, "up"))  # Server.up
            for data in (os.path.dirname(self.file), self.tree):
                shutil.copytree(data, os.path.join(files, os.path.basename(data)),
                                copy_function=os.link)
        # The others do not wait for the disk.
        with Cio_Serve("cio serve", folders["cio"], self.cio, certificate, "--no-sync") as ours, \
                Nginx(folders["nginx"], certificate) as nginx, \
                Rclone_Serve(folders["rclone"], certificate) as rclone:
            yield ours, nginx, rclone
        shutil.rmtree(os.path.join(self.work, "servers"))

    def cio_command(self, server, *arguments):
        dialect = ["-o", "extra_opts.HTTP_DIALECT=webdav"] if server.dialect else []
        trust = ["-o", f"extra_opts.TLS_CA_FILE={self.certificate.chain}"] if self.certificate else []
        return [self.cio, *arguments[:1], *dialect, *trust, *arguments[1:]]

    def curl_command(self, *arguments):
        trust = ["--cacert", self.certificate.chain] if self.certificate else []
        return ["curl", "-sSf", *trust, *arguments]

    def rclone_command(self, server, *arguments):
        """`:webdav:` or, for ours, `:http:` stands for the server in the arguments."""
        trust = ["--ca-cert", self.certificate.chain] if self.certificate else []
        kind = "--webdav-url" if server.dialect else "--http-url"
        return ["rclone", *arguments[:1], *trust, kind, server.uri, *arguments[1:]]

    def clear(self, *folders):
        for folder in folders:
            shutil.rmtree(folder)
            os.mkdir(folder)
        warm(os.path.dirname(self.file))
        warm(self.tree)

    def check_files(self, program, paths, contents):
        for path in paths:
            if os.path.getsize(path) != self.size:
                raise Comparison_Failed(f"{program.name}: another size than the source")
            if contents and not filecmp.cmp(self.file, path, shallow=False):
                raise Comparison_Failed(f"{program.name}: other contents than the source")


def client_cases(bench, server):
    """One file, several clients, one server."""
    title = f"one file of {bench.size // MIB} MiB"
    copy = os.path.join(bench.copy, "data.bin")
    targets = [Target("cpu", 1.0, "curl"), Target("wall", 1.0, "rclone"),
               Target("cpu", 0.5, "rclone"), Target("peak", 64)]
    # `get` lists the directory, which the dialect cannot.
    fetch = ("cio get", bench.cio_command(server, "get", server.uri, "down/data.bin", copy))
    if server.dialect:
        fetch = ("cio cat", to_file(bench.cio_command(server, "cat", server.uri, "down/data.bin"),
                                    copy))
    backend = ":webdav:" if server.dialect else ":http:"
    programs = [fetch,
                ("curl", bench.curl_command("-o", copy, server.uri + "down/data.bin")),
                ("rclone", bench.rclone_command(server, "copyto", backend + "down/data.bin", copy))]
    yield Case(f"{title} from {server.name}, {server.scheme}",
               [Program(name, command, server) for name, command in programs], targets,
               5 * bench.size // 4, lambda: bench.clear(bench.copy),
               lambda program, thorough: bench.check_files(program, [copy], thorough))

    programs = [("cio put", bench.cio_command(server, "put", bench.file, server.uri, "up/data.bin")),
                ("curl", bench.curl_command("-T", bench.file, server.uri + "up/data.bin"))]
    if server.dialect:
        programs.append(("rclone", bench.rclone_command(server, "copyto", bench.file,
                                                        ":webdav:up/data.bin")))
    else:  # it would need PROPFIND
        targets = [target for target in targets if target.other != "rclone"]
    stored = os.path.join(server.up, "data.bin")
    yield Case(f"{title} to {server.name}, {server.scheme}",
               [Program(name, command, server) for name, command in programs], targets,
               5 * bench.size // 4, lambda: bench.clear(server.up),
               lambda program, thorough: bench.check_files(program, [stored], thorough))


def server_cases(bench, servers):
    """Several servers under the same client."""
    count = max(1, 2048 * MIB // bench.size)
    total = f"{count} x {bench.size // MIB} MiB"
    names = [f"data-{number}.bin" for number in range(count)]
    copies = [os.path.join(bench.copy, name) for name in names]
    scheme = servers[0].scheme

    def download(server):
        wanted = [word for copy in copies for word in ("-o", copy, server.uri + "down/data.bin")]
        return Program(server.name, bench.curl_command(*wanted), server)

    def upload(server):
        sent = [word for name in names for word in ("-T", bench.file, server.uri + "up/" + name)]
        return Program(server.name, bench.curl_command(*sent), server)

    yield Case(f"servers: {total} to curl, {scheme}", [download(server) for server in servers],
               [Target("server", 1.2, "nginx")], 5 * count * bench.size // 4, lambda: bench.clear(bench.copy),
               lambda program, thorough: bench.check_files(program, copies, thorough))
    yield Case(f"servers: {total} from curl, {scheme}", [upload(server) for server in servers],
               [Target("server", 1.0, "nginx")], 5 * count * bench.size // 4,
               lambda: bench.clear(*(server.up for server in servers)),
               lambda program, thorough: bench.check_files(
                   program, [os.path.join(program.server.up, name) for name in names], thorough))


def tree_cases(bench, ours, nginx, rclone):
    """Many small files over four connections."""
    title = f"a tree of {bench.directories * TREE_FILES} small files"

    def cio_put(server):
        return Program(f"cio, {server.name}",
                       bench.cio_command(server, "put", "--jobs", "4", bench.tree + "/", server.uri,
                                         "up"), server)

    def rclone_copy(server, source, target):
        return Program(f"rclone, {server.name}",
                       bench.rclone_command(server, "copy", "--transfers", "4", "--checkers", "4",
                                            source, target), server)

    # rclone's server makes no parents of what it is sent, which cio expects of every server.
    programs = [cio_put(server) for server in (ours, nginx)]
    programs += [rclone_copy(server, bench.tree, ":webdav:up") for server in (nginx, rclone)]
    yield Case(f"{title}, put, {ours.scheme}", programs,
               [Target("wall", PART_OF_TIME, f"rclone, {nginx.name}", f"cio, {nginx.name}"),
                Target("wall", PART_OF_TIME, f"rclone, {rclone.name}")],
               TREE_MOST, lambda: bench.clear(ours.up, nginx.up, rclone.up),
               lambda program, thorough: check_copy(program, bench.tree, program.server.up,
                                                    thorough))

    # The others cannot list for cio, nor ours for rclone.
    programs = [Program(f"cio, {ours.name}",
                        bench.cio_command(ours, "get", "--jobs", "4", ours.uri, "tree/",
                                          bench.copy + "/"), ours)]
    programs += [rclone_copy(server, ":webdav:tree", bench.copy) for server in (nginx, rclone)]
    yield Case(f"{title}, get, {ours.scheme}", programs,
               [Target("wall", PART_OF_TIME, f"rclone, {server.name}")
                for server in (nginx, rclone)],
               TREE_MOST, lambda: bench.clear(bench.copy),
               lambda program, thorough: check_copy(program, bench.tree, bench.copy, thorough))


def log_lines(path):
    """Method, path, status and bytes sent of each request in an access log."""
    with open(path) as file:
        return re.findall(r'"(\S+) (\S+) HTTP/1\.1" (\d+) (\d+) ', file.read())


def resume_case(bench):
    """What a download that was killed at 90 % asks for when it goes on."""
    folder = os.path.join(bench.work, "resume")
    copy = os.path.join(bench.copy, "data.bin")
    log = os.path.join(folder, "access.log")
    kept = bench.size * 9 // 10
    bench.certificate = None
    bench.clear(bench.copy)
    os.makedirs(os.path.join(folder, "files"))
    os.link(bench.file, os.path.join(folder, "files", "data.bin"))
    with Cio_Serve("cio serve", folder, bench.cio, None, "--access-log", log) as server:
        command = bench.cio_command(server, "get", server.uri, "data.bin", copy)
        with subprocess.Popen(command, env=bench.runner.environment,
                              stdout=subprocess.DEVNULL) as client:
            await_value(lambda: os.path.exists(copy) and os.path.getsize(copy) >= kept,
                        "the download does not reach 90 %", patience=600)
            client.send_signal(signal.SIGKILL)
        if client.returncode != -signal.SIGKILL:
            raise Comparison_Failed("the download was complete before it could be killed")
        os.truncate(copy, kept)
        await_value(lambda: any(method == "GET" and path.endswith("data.bin")
                                for method, path, *_ in log_lines(log)),
                    "the killed download is not in the access log")
        before = len(log_lines(log))
        bench.runner.measure(bench.cio_command(server, "get", "--resume", server.uri, "data.bin",
                                               copy))
    if not filecmp.cmp(bench.file, copy, shallow=False):
        raise Comparison_Failed("the resumed download is not the source")
    requests = log_lines(log)[before:]
    print(f"\na download of {bench.size // MIB} MiB, killed at 90 %, goes on with these requests")
    for method, path, status, sent in requests:
        print(f"  {method} {path}: {status}, {sent} bytes")
    heads = sum(method == "HEAD" for method, *_ in requests)
    others = sum(method != "HEAD" and not path.endswith("data.bin") for method, path, *_ in requests)
    sent = sum(int(sent) for _, path, _, sent in requests if path.endswith("data.bin"))
    print(f"  HEAD {heads}, target 1: {verdict(heads, 1)}\n"
          f"  requests for anything else {others}, target 0: {verdict(others, 0)}\n"
          f"  bytes of the file {sent}, target {bench.size - kept} and the {COMPARED_AGAIN} before: "
          f"{verdict(sent, bench.size - kept + COMPARED_AGAIN)}", flush=True)


def listing_case(bench, entries):
    """Memory of both sides for a long listing, against a short one."""
    peaks = []
    print(f"\nlistings of {FEW_ENTRIES} and {entries} entries by `cio ls -l` from cio serve")
    bench.certificate = None
    for count in (FEW_ENTRIES, entries):
        folder = os.path.join(bench.work, f"listing-{count}")
        os.makedirs(os.path.join(folder, "files", "many"))
        aside(make_entries, os.path.join(folder, "files", "many"), count)
        with Cio_Serve("cio serve", folder, bench.cio, None) as server:
            run = bench.runner.measure_beside(
                server, bench.cio_command(server, "ls", "-l", server.uri, "many"))
            check_lines("cio ls -l", bench.runner.stdout, count)
            peaks.append(server.peak())
        print(f"  {count} entries: {run.wall:.2f} s, CPU {run.cpu:.2f} s, peak {run.peak / MIB:.1f} "
              f"MiB; server: CPU {run.server:.2f} s, peak {peaks[-1] / MIB:.1f} MiB")
    more = (peaks[1] - peaks[0]) / MIB
    print(f"  server peak {more:.1f} MiB more, target 16: {verdict(more, 16)}\n"
          f"  client peak {run.peak / MIB:.1f} MiB, target 512: {verdict(run.peak / MIB, 512)}",
          flush=True)


def run_http(runner, cio, size, directories, entries):
    bench = Bench(runner, cio, size, directories)
    for certificate in (None, Certificate(bench.work)):
        with bench.servers(certificate) as (ours, nginx, rclone):
            for server in (ours, nginx):
                for case in client_cases(bench, server):
                    runner.run(case)
            for case in server_cases(bench, (ours, nginx, rclone)):
                runner.run(case)
            for case in tree_cases(bench, ours, nginx, rclone):
                runner.run(case)
    resume_case(bench)
    listing_case(bench, entries)
    shutil.rmtree(bench.work)
