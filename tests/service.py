"""The built programs under test: the service in a directory of its own, its peers, other users.

A module NAME_test.py holds cases of unittest and ends with main(), a script makes one claim after
another with check and wait, each of which prints a line, or hands numbered cases to run_cases. All
are called with the directory of the programs, build/bin if the first argument is none, and then the
cases to run.
"""

import contextlib
import os
import pathlib
import random
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 and os.path.isdir(sys.argv[1])
                   else ROOT / "build/bin").resolve()
PATIENCE = 120  # seconds, then a wait counts as failed
NOBODY = 65534
EXT, DATA = b"$EXT$:.txt", b"$DATA$"
# What a build with sanitizers and valgrind read of the caller's environment.
PASSED_ON = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "VALGRIND_OPTS")


def eventually(condition, what="", pause=0.01):
    """Waits for something that raises no event, and returns it."""
    end = time.monotonic() + PATIENCE
    while not (found := condition()):
        assert time.monotonic() < end, f"waited in vain: {what}"
        time.sleep(pause)
    return found


def check(what, condition, seen=""):
    assert condition, f"{what}: {seen}"
    print("ok:", what, flush=True)


def wait(what, condition, pause=0.02):
    eventually(condition, what, pause)
    print("ok:", what, flush=True)


def write_script(path, commands):
    path.write_text(f"#!/bin/sh\n{commands}\n")
    path.chmod(0o755)


@contextlib.contextmanager
def running(*command, **options):
    """A process, which is killed at the end with all that it has started."""
    process = subprocess.Popen(command, start_new_session=True, **options)
    try:
        yield process
    finally:
        with contextlib.suppress(ProcessLookupError):  # all have ended
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def as_nobody(work):
    """Starts a process of another user, and returns its number: waitpid gives what work returns."""
    if pid := os.fork():
        return pid
    status = 99
    try:
        os.setgroups([])
        os.setresgid(NOBODY, NOBODY, NOBODY)
        os.setresuid(NOBODY, NOBODY, NOBODY)
        status = work()
    finally:
        os._exit(status)


def shell(commands):
    """A wrapper of shell commands for a service."""
    return ["sh", "-ec", f'{commands}; exec "$@"', "sh"]


def free_port():
    """A port that nobody has, for a service whose port must be known before or survive it.

    The system hands out none below 32768, so nobody else gets it by chance. Port 0 leaves no gap
    at all and is better where it does.
    """
    while True:
        with (contextlib.suppress(OSError),
              socket.socket(socket.AF_INET6) as v6, socket.socket() as v4):
            v6.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
            v6.bind(("", random.randrange(10000, 32768)))
            v4.bind(("", port := v6.getsockname()[1]))
            return port


def connection(family, address, source=""):
    """A connected socket. Its calls block up to a limit; those of Python's own time limits would
    not, so that a full queue would be an error."""
    peer = socket.socket(family)
    try:
        for limit in socket.SO_RCVTIMEO, socket.SO_SNDTIMEO:
            peer.setsockopt(socket.SOL_SOCKET, limit, struct.pack("ll", PATIENCE, 0))
        if family != socket.AF_UNIX:
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            peer.bind((source, 0))
        peer.connect(address)
    except BaseException:
        peer.close()
        raise
    return peer


def ask(peer, *messages):
    """The reply to the last of the messages; empty once the service has closed the connection."""
    reply = b""
    for message in messages:
        peer.sendall(message)
        reply = peer.recv(65536)
    return reply


def read_all(peer):
    """Everything up to the end of the connection, which must be no reset."""
    return b"".join(iter(lambda: peer.recv(65536), b""))


class Service(contextlib.ExitStack):
    """One run of the service.

    Of the settings, those in more come first and so take precedence; they begin in the section
    Extensions. A local service listens on a Unix socket. Port 0 lets the service pick its port,
    for one run. A wrapper is a command that ends by running the
    program named by its last arguments. The environment comes on top of a small one.
    """

    def __init__(self, more="", *, local=False, port=0, wrapper=(), environment=None, start=True):
        super().__init__()
        self.home = pathlib.Path(self.enter_context(
            tempfile.TemporaryDirectory(ignore_cleanup_errors=True)))
        self.local, self.port, self.process = local, port, None
        self.environment = {"PATH": os.environ["PATH"], "TMP": f"{self.home}/tmp",
                            "XDG_RUNTIME_DIR": f"{self.home}/run",
                            "XDG_CONFIG_HOME": f"{self.home}/config",
                            **{name: os.environ[name] for name in PASSED_ON if name in os.environ},
                            **(environment or {})}
        for name in ("tmp", "run", "config/quorbin", "outside"):
            (self.home / name).mkdir(parents=True)
        for name in ("precious", "outside/precious"):
            (self.home / name).write_text("precious")
        # Each of its copies of a file gets its last name when it is whole.
        write_script(self.home / "view", 'printf "%s\\n" "$@" >$0.arguments\n'
                                         'cat "$1" >$0.$$.part; mv $0.$$.part $0.$$.ed')
        shutil.copy(f"{BIN}/Quorbin", self.home)
        if not port and not local:  # else a port of 0 means the usual one
            (self.home / "config/quorbin/classes.reg").write_text(
                'REGEDIT4\n[HKEY_CLASSES_ROOT\\quorbin]\n"port"="none"\n')
        self.callback(self.kill)
        self.settings(more)
        if start:
            self.start(wrapper)

    def settings(self, more=""):
        """Replaces the settings in one step, as the service may be reading them."""
        listen = "Listen=*local\n" if self.local else ""
        (self.home / "new.ini").write_text(
            f'[Extensions]\n{more}\n[Extensions]\ntxt={self.home}/view "%1"\nexe=*deny\n'
            f"[Global]\nControl=2\nPort={self.port}\n{listen}"
            "[Hosts]\nDefault=*deny\n127.0.0.1=*allow\n::1=*allow\n*local=*allow\n")
        os.replace(self.home / "new.ini", self.home / "quorbin.ini")

    def launch(self, wrapper=(), environment=None, **options):
        """Starts the program. The options are those of Popen."""
        # They name a file for what is found.
        valgrind = ["valgrind"] if "VALGRIND_OPTS" in self.environment else []
        with open(self.home / "out", "wb") as out, open(self.home / "err", "wb") as err:
            self.process = subprocess.Popen(
                [*wrapper, *valgrind, f"{self.home}/Quorbin"], stderr=err,
                env={**self.environment, **(environment or {})}, **{"stdout": out, **options})

    def start(self, wrapper=(), **options):
        """Launches it, and waits until it listens."""
        self.launch(wrapper, **options)
        self.shows(b"aktion: listening\n")
        self.find_port()

    def find_port(self):
        """The program names the port that it has picked."""
        if not self.local and not self.port:
            self.eventually(lambda: b"on port " in self.errors(), "a port is named")
            self.port = int(self.errors().partition(b"on port ")[2].partition(b"\n")[0])

    def no_start(self):
        """The message that the program ends with at once, and with nothing else."""
        self.launch()
        assert self.wait() == 1 and self.shown() == b"", self.shown()
        message = self.errors().decode()
        begin = "Error while loadingQuorbin: "
        assert message.startswith(begin) and message.endswith("\n"), message
        return message[len(begin):-1]

    def eventually(self, condition, what="", pause=0.005):
        """Waits for something that the service brings about, which must not end before."""
        def holds():
            ended = self.process.poll() is not None
            found = condition()
            assert found or not ended, (f"{what}: ended with {self.process.returncode}: "
                                        f"{self.errors().decode(errors='replace')}")
            return found

        return eventually(holds, what, pause)

    def shows(self, text):
        """Waits for the text on standard output."""
        self.eventually(lambda: text in self.shown(), text)

    def wait(self):
        """The exit status, or minus the number of the signal that ended the program."""
        return self.process.wait(PATIENCE)

    def stop(self, signal_number=signal.SIGTERM):
        self.process.send_signal(signal_number)
        return self.wait()

    def kill(self):
        if self.process:
            self.process.kill()
            self.process.wait()

    def try_to_connect(self, source="", family=socket.AF_INET):
        """A connection, or a ConnectionError."""
        if self.local:
            return connection(socket.AF_UNIX, f"{self.home}/run/Quorbin/in")
        self.find_port()
        return connection(family, ("127.0.0.1" if family == socket.AF_INET else "::1", self.port),
                          source)

    def connect(self, *arguments, **options):
        """A connection, as soon as the service listens."""
        def attempt():
            with contextlib.suppress(ConnectionError, FileNotFoundError):
                return self.try_to_connect(*arguments, **options)

        return self.eventually(attempt, "the service listens", pause=0.0005)

    def talk(self, *messages, source=""):
        """The replies, up to the end of the connection."""
        replies = []
        with contextlib.suppress(ConnectionError), self.connect(source) as peer:
            for message in messages:
                peer.sendall(message)
                replies.append(peer.recv(65536))
                if not replies[-1]:
                    break
        return replies

    def link(self, lines):
        """The answers of the link channel to the lines."""
        with self.link_client() as client:
            client.sendall(lines)
            client.shutdown(socket.SHUT_WR)
            return read_all(client)

    def link_client(self):
        return connection(socket.AF_UNIX, f"{self.home}/run/Quorbin/qbstop")

    def transfer(self, content, name):
        """Whether the service confirmed the end of the file."""
        header = b"$BUFFLEN$%010d" % (len(content) + 19)
        replies = self.talk(b"$VERSION$:1", EXT, b"$FILETYPE$:B", b"$FILE$:" + name, DATA,
                            header + content, b"$EOF$", b"")
        return b"+OK" in replies[6:]

    def honest(self):
        """The service takes a file and shows it, and has touched no files but its own."""
        self.eventually(lambda: self.transfer(b"honest", b"h.txt"), "an honest sender is served")
        assert self.holds("f$~.h.txt", b"honest"), "an honest sender's file"
        while self.viewed() != b"honest":  # that of an earlier file may have been slow
            pass
        for name in ("../precious", "../outside/precious"):
            assert self.holds(name, b"precious"), name
        assert not (self.home / "precious2").exists(), "a shell has expanded a name"

    def viewed(self):
        """What the viewer got of the next file."""
        self.eventually(self.views, "a viewer starts")
        view = min(self.views(), key=lambda path: path.stat().st_mtime_ns)
        content = view.read_bytes()
        view.unlink()
        return content

    def views(self):
        """The viewer's copies of files that have not been asked for."""
        return list(self.home.glob("view.*.ed"))

    def holds(self, name, content):
        return (self.home / "tmp" / name).read_bytes() == content

    def files(self):
        return os.listdir(self.home / "tmp")

    def empty(self):
        return not self.files()

    def proc(self, name):
        return pathlib.Path(f"/proc/{self.process.pid}/{name}")

    def descriptors(self):
        return len(os.listdir(self.proc("fd")))

    def shown(self):
        """Its standard output so far."""
        return (self.home / "out").read_bytes()

    def errors(self):
        """Its standard error so far."""
        return (self.home / "err").read_bytes()


class TestCase(unittest.TestCase):
    """A case of a module."""

    maxDiff = None

    def serve(self, more="", **options):
        """A service for the rest of the case."""
        return self.enterContext(Service(more, **options))


def main():
    """Runs the cases of the calling module; with --list it only prints their names."""
    if sys.argv[1:] != ["--list"]:
        unittest.main(verbosity=2)
    suites = [unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"])]
    while suites:
        suite = suites.pop()
        if isinstance(suite, unittest.TestCase):
            print(suite.id().partition(".")[2])
        else:
            suites += reversed(list(suite))


class Skip(Exception):
    """The computer does not allow a case."""


def run_cases(cases):
    """Runs the cases numbered by the arguments, or all of them; status 1 if one failed.

    A case is a title, a routine and its arguments after the first, a service of its own. After each
    case that must serve an honest sender and hold no more descriptors. A case that the computer
    does not allow is SKIPPED and not counted as passed.
    """
    counts = {"ok": 0, "FAILED": 0, "SKIPPED": 0}
    for number, (title, run, *arguments) in enumerate(cases, 1):
        if sys.argv[1:] and str(number) not in sys.argv[1:]:
            continue
        result, why = "ok", ""
        with Service() as service:
            held = service.descriptors()
            try:
                run(service, *arguments)
                service.honest()
                eventually(lambda: service.descriptors() <= held, "descriptors are closed")
            except Skip as error:
                result, why = "SKIPPED", f": {error}"
            except (AssertionError, OSError) as error:
                result, why = "FAILED", f": {type(error).__name__} {error}"
        counts[result] += 1
        print(f"{result:<8}{number:>3}  {title}{why}", flush=True)
    print(", ".join(f"{count} {result}" for result, count in counts.items()))
    sys.exit(counts["FAILED"] > 0)
