"""One run of the service in a directory of its own, and peers that speak to it."""
import contextlib, os, pathlib, shutil, socket, subprocess, tempfile, time

EXT, DATA = b"$EXT$:.txt", b"$DATA$"


def eventually(condition):
    end = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.005)


class Service:
    """The settings in more come first; wrapper goes before the program, prepare runs in its process."""

    def __init__(self, binaries, more="", wrapper=(), prepare=None):
        self.home, self.wrapper, self.prepare = pathlib.Path(tempfile.mkdtemp()), wrapper, prepare
        for name in ("tmp", "run", "outside"): (self.home / name).mkdir()
        for name in ("precious", "outside/precious"): (self.home / name).write_text("precious")
        (self.home / "view").write_text('#!/bin/sh\nprintf "%s\\n" "$@" > $0.part; mv $0.part $0.ed\n')
        (self.home / "view").chmod(0o700)
        shutil.copy(f"{binaries}/Quorbin", self.home)
        with socket.create_server(("", 0)) as probe: self.port = probe.getsockname()[1]
        self.settings(more)
        self.start()

    def settings(self, more):
        (self.home / "new.ini").write_text(f"{more}\n[Global]\nPort={self.port}\n[Extensions]\n"
                                           f"txt={self.home}/view \"%1\"\nexe=*deny\n")
        os.replace(self.home / "new.ini", self.home / "quorbin.ini")

    def start(self):
        env = {"PATH": os.environ["PATH"], "TMP": f"{self.home}/tmp", "XDG_RUNTIME_DIR": f"{self.home}/run"}
        with open(self.home / "out", "wb") as out:
            self.process = subprocess.Popen([*self.wrapper, f"{self.home}/Quorbin"], env=env, stdout=out,
                                            stderr=out, preexec_fn=self.prepare)
        eventually(lambda: b"aktion: listening" in self.shown() or self.process.poll() is not None)

    def connect(self, host="127.0.0.1", source=""):
        def attempt():
            with contextlib.suppress(ConnectionError):
                self.peer = socket.create_connection((host, self.port), 20, (source, 0))
                return True
        eventually(attempt)
        return self.peer

    def talk(self, *messages, peer=None, host="127.0.0.1"):
        """The replies, up to the end of the connection, which stays open if it was given."""
        replies, used = [], peer or self.connect(host)
        with contextlib.suppress(ConnectionError), contextlib.nullcontext() if peer else used:
            for message in messages:
                used.sendall(message)
                replies.append(used.recv(65536))
                if not replies[-1]: break
        return replies

    def transfer(self, content, name, **peer):
        head = b"$BUFFLEN$%010d" % (len(content) + 19)
        replies = self.talk(b"$VERSION$:1", EXT, b"$FILETYPE$:B", b"$FILE$:" + name, DATA, head + content,
                            b"$EOF$", b"", **peer)
        return b"+OK" in replies[6:]

    def holds(self, name, content): return (self.home / "tmp" / name).read_bytes() == content
    def empty(self): return not any((self.home / "tmp").iterdir())
    def descriptors(self): return len(os.listdir(f"/proc/{self.process.pid}/fd"))
    def shown(self): return (self.home / "out").read_bytes()

    def honest(self):
        eventually(lambda: self.transfer(b"honest", b"h.txt"))
        assert self.holds("f$~.h.txt", b"honest")
        assert self.holds("../precious", b"precious") and self.holds("../outside/precious", b"precious")
        assert not (self.home / "precious2").exists()

    def end(self):
        self.process.kill(), self.process.wait()
        shutil.rmtree(self.home, ignore_errors=True)
