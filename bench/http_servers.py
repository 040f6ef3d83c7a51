"""The HTTP servers of the comparison: ours, nginx and rclone, each started privately on loopback."""

import os
import re
import signal
import subprocess
import time

from comparison import Comparison_Failed

NGINX = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "interop",
                     "nginx_dav.sh")
PATIENCE = 20  # seconds, to start and to end
TICKS = os.sysconf("SC_CLK_TCK")


class Server:
    """Serves DIRECTORY/files while a `with` block lasts, in a session of its own, so that all of
    its processes can be told."""

    dialect = False  # of WebDAV

    def __init__(self, name, directory, command, tls):
        self.name = name
        self.files = os.path.join(directory, "files")
        self.up = os.path.join(self.files, "up")
        self.output = os.path.join(directory, "printed")
        self.command = command
        self.scheme = "https" if tls else "http"
        self.process = None
        self.uri = None
        os.makedirs(self.files, exist_ok=True)

    def __enter__(self):
        with open(self.output, "wb") as output:
            # nginx_dav.sh runs until its standard input ends.
            self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=output,
                                            stderr=output, start_new_session=True)
        try:
            self.uri = await_value(self.printed_uri, f"{self.name} does not start")
            self.started()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *_):
        self.stop()

    def started(self):
        """What is to be done when it serves."""

    def stop(self):
        self.process.stdin.close()
        try:
            os.killpg(self.process.pid, signal.SIGTERM)
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        except ProcessLookupError:
            self.process.wait()

    def printed_uri(self):
        if self.process.poll() is not None:
            with open(self.output, errors="replace") as file:
                raise Comparison_Failed(f"{self.name} has ended: {file.read(2000)}")
        with open(self.output, errors="replace") as file:
            found = re.search(rf"\b{self.scheme}://127\.0\.0\.1:\d+", file.read())
        return found and found.group() + "/"

    def processes(self):
        """The process ids, each with the fields of /proc/PID/stat behind the name."""
        found = {}
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{pid}/stat") as file:
                    fields = file.read().rpartition(")")[2].split()
            except OSError:  # it has ended
                continue
            if int(fields[3]) == self.process.pid:
                found[int(pid)] = fields
        return found

    def cpu(self):
        """Seconds of CPU time, user and system, until now."""
        return sum(int(fields[11]) + int(fields[12]) for fields in self.processes().values()) / TICKS

    def peak(self):
        """The most memory, in bytes, that a process of it has had."""
        most = 0
        for pid in self.processes():
            with open(f"/proc/{pid}/status") as file:
                most = max(most, int(re.search(r"VmHWM:\s*(\d+) kB", file.read()).group(1)) << 10)
        return most


class Cio_Serve(Server):
    def __init__(self, name, directory, cio, certificate, *flags):
        tls = ["--tls-cert", certificate.chain, "--tls-key", certificate.key] if certificate else []
        super().__init__(name, directory, None, certificate is not None)
        self.command = [cio, "serve", "http", "--root", self.files, "--listen", "127.0.0.1:0",
                        *tls, *flags]


class Nginx(Server):
    dialect = True

    def __init__(self, directory, certificate):
        super().__init__("nginx", directory, [NGINX, directory], certificate is not None)
        self.configuration = os.path.join(directory, "nginx.conf")
        if certificate:
            certificate.link_into(directory)

    def started(self):
        """Sends files as Debian's configuration does, which the one for tests has not."""
        with open(self.configuration) as file:
            text = file.read()
        with open(self.configuration, "w") as file:
            file.write(text.replace("http {", "http {\n    sendfile on;\n    tcp_nopush on;", 1))
        with open(os.path.join(os.path.dirname(self.configuration), "nginx.pid")) as file:
            master = int(file.read())
        before = self.workers(master)
        os.kill(master, signal.SIGHUP)
        await_value(lambda: self.workers(master) and not before & self.workers(master),
                    "nginx does not read its configuration again")

    def workers(self, master):
        return {pid for pid, fields in self.processes().items() if int(fields[1]) == master}


class Rclone_Serve(Server):
    dialect = True

    def __init__(self, directory, certificate):
        tls = ["--cert", certificate.chain, "--key", certificate.key] if certificate else []
        super().__init__("rclone serve", directory, None, certificate is not None)
        # Files come and go behind its back.
        self.command = ["rclone", "serve", "webdav", "--config", os.devnull, "--dir-cache-time",
                        "0s", "--addr", "127.0.0.1:0", *tls, self.files]


class Certificate:
    """One that signed itself, for 127.0.0.1; every client is told to trust it."""

    def __init__(self, directory):
        self.chain = os.path.join(directory, "certificate.pem")
        self.key = os.path.join(directory, "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                        "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout", self.key,
                        "-out", self.chain], stderr=subprocess.DEVNULL, check=True)

    def link_into(self, directory):
        for path in (self.chain, self.key):
            os.link(path, os.path.join(directory, os.path.basename(path)))


def await_value(get, failure, patience=PATIENCE):
    """What get() returns, as soon as that is something."""
    end = time.monotonic() + patience
    while time.monotonic() < end:
        value = get()
        if value:
            return value
        time.sleep(0.01)
    raise Comparison_Failed(failure)
