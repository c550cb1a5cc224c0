"""The built service in a directory of its own, its peers, and how a test reports what it found.

A script makes one claim after another with check and wait, each of which prints a line, or hands
numbered cases to run_cases. An AssertionError, or any other exception, means that it failed.
"""

import contextlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PATIENCE = 120  # seconds, then a wait counts as failed
EXT, DATA = b"$EXT$:.txt", b"$DATA$"


def eventually(condition, what="", pause=0.02):
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
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


class Service(contextlib.ExitStack):
    """One run of the service.

    Of the settings, those in more come first and so take precedence. A wrapper is a command that
    ends by running its last argument.
    """

    def __init__(self, binaries, more="", wrapper=(), environment=None):
        super().__init__()
        self.home = pathlib.Path(self.enter_context(
            tempfile.TemporaryDirectory(ignore_cleanup_errors=True)))
        self.wrapper = wrapper
        self.environment = {"PATH": os.environ["PATH"], "TMP": f"{self.home}/tmp",
                            "XDG_RUNTIME_DIR": f"{self.home}/run", **(environment or {})}
        for name in ("tmp", "run", "outside"):
            (self.home / name).mkdir()
        for name in ("precious", "outside/precious"):
            (self.home / name).write_text("precious")
        write_script(self.home / "view", 'printf "%s\\n" "$@" >$0.part; mv $0.part $0.ed')
        shutil.copy(f"{binaries}/Quorbin", self.home)
        with socket.create_server(("", 0)) as probe:
            self.port = probe.getsockname()[1]
        self.settings(more)
        self.start()
        self.callback(self.kill)

    def settings(self, more):
        """Replaces the settings in one step, as the service may be reading them."""
        (self.home / "new.ini").write_text(f"{more}\n[Global]\nPort={self.port}\n[Extensions]\n"
                                           f'txt={self.home}/view "%1"\nexe=*deny\n')
        os.replace(self.home / "new.ini", self.home / "quorbin.ini")

    def launch(self):
        with open(self.home / "out", "wb") as out:
            self.process = subprocess.Popen([*self.wrapper, f"{self.home}/Quorbin"], stdout=out,
                                            stderr=out, env=self.environment)

    def start(self):
        """Launches it, and waits until it listens or has ended."""
        self.launch()
        eventually(lambda: b"aktion: listening" in self.shown() or self.process.poll() is not None)

    def connect(self, source=""):
        """A connection, as soon as the service listens."""
        def attempt():
            with contextlib.suppress(ConnectionError):
                return socket.create_connection(("127.0.0.1", self.port), PATIENCE, (source, 0))

        return eventually(attempt, "the service listens", pause=0.0005)

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

    def transfer(self, content, name):
        """Whether the service confirmed the end of the file."""
        header = b"$BUFFLEN$%010d" % (len(content) + 19)
        replies = self.talk(b"$VERSION$:1", EXT, b"$FILETYPE$:B", b"$FILE$:" + name, DATA,
                            header + content, b"$EOF$", b"")
        return b"+OK" in replies[6:]

    def honest(self):
        """The service takes a file, and has touched no files but its own."""
        eventually(lambda: self.transfer(b"honest", b"h.txt"), "an honest sender is served")
        assert self.holds("f$~.h.txt", b"honest"), "an honest sender's file"
        for name in ("../precious", "../outside/precious"):
            assert self.holds(name, b"precious"), name
        assert not (self.home / "precious2").exists(), "a shell has expanded a name"

    def holds(self, name, content):
        return (self.home / "tmp" / name).read_bytes() == content

    def files(self):
        return os.listdir(self.home / "tmp")

    def empty(self):
        return not self.files()

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def shown(self):
        """All of its output so far, the messages on standard error included."""
        return (self.home / "out").read_bytes()

    def kill(self):
        self.process.kill()
        self.process.wait()


class Skip(Exception):
    """The computer does not allow a case."""


def run_cases(cases, binaries, numbers=()):
    """Runs the numbered cases, or all of them, and ends the program: status 1 if one failed.

    A case is a title, a routine and its arguments after the first, a service of its own. After each
    case that must serve an honest sender and hold no more descriptors. A case that the computer
    does not allow is SKIPPED and not counted as passed.
    """
    counts = {"ok": 0, "FAILED": 0, "SKIPPED": 0}
    for number, (title, run, *arguments) in enumerate(cases, 1):
        if numbers and str(number) not in numbers:
            continue
        result, why = "ok", ""
        with Service(binaries) as service:
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
