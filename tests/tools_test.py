#!/usr/bin/env python3
"""The built clients against small services within the test, and all documented senders against the
real one."""

import contextlib
import os
import pathlib
import pwd
import random
import select
import shlex
import socket
import subprocess
import tempfile
import threading
import time

from service import BIN, ROOT, Service, TestCase, main, write_script

SEND, LINK = f"{BIN}/quorbin-send", f"{BIN}/quorbin-link"
VERSION, EOF = b"$VERSION$:", b"$EOF$"


def blocks(*contents):
    return b"".join(b"$BUFFLEN$%010d%s|" % (len(content) + 19, content) for content in contents)


@contextlib.contextmanager
def server(serve, address=("127.0.0.1", 0)):
    """Serves connections to the address, one after the other. Yields its port or path."""
    family = socket.AF_INET if isinstance(address, tuple) else socket.AF_UNIX

    def loop():
        with contextlib.suppress(OSError):
            while True:
                peer = listener.accept()[0]
                with peer, contextlib.suppress(ConnectionError):
                    serve(peer)

    with socket.socket(family) as listener:
        listener.bind(address)
        listener.listen(5)
        thread = threading.Thread(target=loop)
        thread.start()
        try:
            name = listener.getsockname()
            yield name if family == socket.AF_UNIX else name[1]
        finally:
            listener.shutdown(socket.SHUT_RDWR)
            thread.join()


def run(command):
    """The exit status of a shell command, a colon, and the output on both streams."""
    done = subprocess.run(["bash", "-c", command], stdout=subprocess.PIPE, check=False,
                          stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                          env={**os.environ, "LC_ALL": "C"})
    return f"{done.returncode}:".encode() + done.stdout


def documented_sender(path):
    """The sender in Python, from the documents."""
    readme = (ROOT / "README.md").read_text()
    path.write_text(readme.partition("save it as `send.py`")[2]
                    .partition("```python\n")[2].partition("```\n")[0])


def markers(chance, count):
    """Text full of what the service acts upon at the border of a chunk."""
    words = [b"$EOF$", b"$BUFFLEN$", b"$BUFFLEN$0000000025", b"$BUFFLEN$ -0000005", b"$BUFFLEN",
             b"$EOF", b"BUFFLEN$0000000001", b"$", b"\r\n", b"x", b"y" * 60]
    return b"".join(chance.choices(words, k=count))


class Tool(TestCase):

    def setUp(self):
        self.chunks = b""  # of all connections
        self.resets = 0  # connections that are reset at first
        here = self.enterContext(tempfile.TemporaryDirectory())
        self.enterContext(contextlib.chdir(here))
        self.here = pathlib.Path(here)

    def receive(self, peer, odd=b"\n", odd_reply=b""):
        """Accepts every chunk. But one that begins with odd draws the reply, or, if that is None,
        the end of the connection."""
        # Unread bytes make the close a reset, as for a sender that waits in vain.
        if self.resets and peer.recv(1, socket.MSG_PEEK):
            self.resets -= 1
            return
        while chunk := peer.recv(1 << 16):
            self.chunks += chunk + b"|"
            reply = odd_reply if chunk.startswith(odd) else b"+OK"
            if reply is None:
                return
            peer.sendall(reply)
            if chunk.endswith(EOF):
                return

    def send(self, arguments, odd=b"\n", odd_reply=b"", before=""):
        """What quorbin-send does against such a receiver, after other commands."""
        self.chunks = b""
        with server(lambda peer: self.receive(peer, odd, odd_reply)) as port:
            return run(f"{before}{SEND} --port {port} {arguments}")

    def sent(self):
        """The chunks without the versions."""
        version = self.chunks[:self.chunks.find(b"|") + 1]
        self.assertTrue(version.startswith(VERSION) and version != VERSION + b"|", version)
        return self.chunks.replace(version, b"")


class Send(Tool):

    def test_binary_messages_in_order(self):
        (self.here / "a name").write_bytes(b"0123456789abc")
        options = "--ext .x --prefix ' p ' --suffix $'s\\x15' --buffer 29"
        self.assertEqual(self.send(f"{options} 'a name'"), b"0:")
        self.assertEqual(self.sent(), b"$EXT$:.x|$FILETYPE$:B|$KDOPRF$: p |$KDOEXT$:s\x15\x15|"
                         b"$FILE$:a name|$DATA$|" + blocks(b"0123456789", b"abc") + b"$EOF$|")

    def test_content_arrives(self):
        big, longest = bytes(300000), b"x" * 32768
        marked = b"a$BUFFLEN$0000000001$EOF$$EOF$x$EOF$"
        rows = [  # options, content, what the viewer gets
            ("", b"", b""),
            ("", big, big),
            ("--buffer 20", marked, marked),
            ("--buffer 44", marked, marked),
            ("--no-version", big + b"$EO", big + b"$EO"),
            ("--text", b"", b""),
            ("--text", b"a\r\n\n x$EOF$y \nlast\r", b"a\r\n \r\n x$EOF$y \r\nlast\r\r\n"),
            ("--text --no-version", longest + b"\r\n", longest + b"\r\n"),
        ]
        service = self.serve()
        send = f"{SEND} --ext .txt --port {service.port}"
        for options, content, viewed in rows:
            (self.here / "f").write_bytes(content)
            for command in f"cat f | {send} {options} -", f"{send} {options} f":
                with self.subTest(command=command):
                    self.assertEqual(run(command), b"0:")
                    self.assertTrue(service.viewed() == viewed)
        service.shows(b"/tmp/f$~.stdin\n")

    def test_extension_of_the_name(self):
        rows = [  # arguments, what the service gets of the extension
            ("page.html", b"$EXT$:.html|"),
            ("--name c.tar.c page.html", b"$EXT$:.c|"),
            ("--ext pdf page.html", b"$EXT$:.pdf|"),
            ("--name a.txt page.html", b""),
            ("--name '*POSIX(/x/a.html)' page.html", b"$EXT$:.html|"),
            ("--name '*POSIX(/x/a.txt)' page.html", b""),
        ]
        (self.here / "page.html").touch()
        for arguments, extension in rows:
            self.assertEqual(self.send(arguments), b"0:")
            self.assertEqual(self.sent().partition(b"$FILETYPE$:B")[0], extension, arguments)

    def test_refusals_in_words(self):
        cut = "-Fehler: Buffer-length at EOF: -7"
        rows = [  # options, content, chunk, reply to it, sentence
            ("", b"", b"$VERSION$:", None, "the host is not allowed to connect (the service closed "
             "the connection without a reply)"),
            ("", b"", b"$EXT$:", b"-EXT", "the service denies the extension .html, taken from the "
             'name, or has no viewer for it; try another with --ext (reply "-EXT")'),
            ("--ext pdf", b"", b"$DATA$", b"-KDO", "the service denies the extension .pdf or has "
             'no viewer for it; try another with --ext (reply "-KDO")'),
            ("", b"", b"$EOF$", cut.encode(), "the file is cut short at an end marker in it, or "
             f'has changed meanwhile (reply "{cut}")'),
            ("--text", b"a\nb\n", b"a", b"+OK\x1b\xe4", r'unexpected reply (reply "+OK\x1B\xE4")'),
        ]
        for options, content, odd, reply, sentence in rows:
            (self.here / "f.html").write_bytes(content)
            self.assertEqual(self.send(f"{options} f.html", odd, reply),
                             f"1:quorbin-send: f.html: {sentence}\n".encode())
            self.assertEqual(self.chunks.endswith(b"|$EOF$|"), odd == EOF)

    def test_what_cannot_be_sent_is_found_before_connecting(self):
        piece, long_line = b"x" * ((1 << 18) - 2), b"x" * 32769
        rows = [  # options, content, sentence
            ("--text", b"a\n$EOF$b\n", "line 2 begins or ends with $EOF$; send it as binary"),
            ("--text", b"a\nb$EOF$", "line 2 begins or ends with $EOF$; send it as binary"),
            ("--text", long_line, "line 1 is longer than 32768 bytes; send it as binary"),
            ("--no-version", piece + b"$EOF$b", "the content holds $EOF$; leave out --no-version"),
            ("--no-version", piece + b"$BUFFLEN$",
             "the content holds $BUFFLEN$; leave out --no-version"),
            ("--no-version", b"b$EOF", "the content holds $EOF$; leave out --no-version"),
            ("--name 'a '", b"", "the name ends in a blank; give another with --name"),
            ("--name a.", b"",
             "the name has no extension, which chooses the viewer; give one with --ext"),
        ]
        for options, content, sentence in rows:
            (self.here / "f.txt").write_bytes(content)
            self.assertEqual(self.send(f"{options} f.txt"),
                             f"1:quorbin-send: f.txt: {sentence}\n".encode())
            self.assertEqual(self.chunks, b"")
            if not options.startswith("--name"):
                self.assertEqual(self.send(f"--name f.txt {options} -", before="cat f.txt | "),
                                 f"1:quorbin-send: -: {sentence}\n".encode())
                self.assertEqual(self.chunks, b"")

    def test_goes_on_with_the_next_file(self):
        (self.here / "f.txt").write_text("one")
        (self.here / "g.txt").write_text("two")
        self.resets = 1
        self.assertEqual(self.send("f.txt x g.txt"),
                         b"66:quorbin-send: x: No such file or directory\n")
        self.assertEqual(self.sent(),
                         b"$FILETYPE$:B|$FILE$:f.txt|$DATA$|" + blocks(b"one") + b"$EOF$|"
                         b"$FILETYPE$:B|$FILE$:g.txt|$DATA$|" + blocks(b"two") + b"$EOF$|")
        self.assertRegex(self.send("--name n.txt f.txt g.txt"),
                         b"^2:quorbin-send: --name: goes with one file only\n")

    def test_waits_for_a_busy_service(self):
        (self.here / "f.txt").write_text("one")
        refused = (b"75:quorbin-send: f.txt: connection refused: the service does not run, or it "
                   b"serves another sender")
        # Nothing listens on the other address.
        self.assertEqual(self.send("--host 127.0.0.2 --wait 0 f.txt"), refused + b"\n")
        begun = time.monotonic()
        self.assertEqual(self.send("--host 127.0.0.2 --wait 1 f.txt"),
                         refused + b"; tried for 1 s\n")
        self.assertGreaterEqual(time.monotonic() - begun, 1)

        # A terminal shows it, and an interrupt leaves it with an empty line.
        with server(self.receive) as port:
            shown = run('script -qec "timeout --foreground --preserve-status -s INT 0.5 '
                        f'{SEND} --port {port} --host 127.0.0.2 f.txt" /dev/null')
        self.assertTrue(shown.startswith(b"130:f.txt\r\n\rwaiting for the service, 0 s"), shown)
        self.assertTrue(shown.endswith(b"\x1b[K\r\n"), shown)

        # A Unix socket that is not there yet.
        with server(self.receive, "in"):
            hidden = "mv in later; (sleep 0.3; mv later in) &"
            self.assertEqual(run(f"{hidden} {SEND} --socket in f.txt"), b"0:")
        self.assertTrue(self.chunks.endswith(b"one|$EOF$|"))

    def test_faults_of_the_connection_have_a_status_of_their_own(self):
        (self.here / "f.txt").write_text("ab")
        self.assertEqual(self.send("--timeout 1 f.txt", b"$FILETYPE$", b""),
                         b"75:quorbin-send: f.txt: no reply from the service within 1 s\n")
        self.assertEqual(self.send("f.txt", b"$BUFF", None), b"75:quorbin-send: f.txt: the service "
                         b"closed the connection before the end of the file\n")
        for files, status in ("f.txt x.txt", b"75:"), ("x.txt f.txt", b"66:"):
            self.assertTrue(self.send(files, b"$BUFF", None).startswith(status))


class Documented(Tool):
    """All documented senders and the real service."""

    def test_a_network_that_cuts_anywhere_forges_nothing(self):
        service = self.serve()
        documented_sender(self.here / "send.py")
        for seed in range(8):
            chance = random.Random(seed)
            content = markers(chance, 300)
            (self.here / "f.txt").write_bytes(content)
            with server(lambda peer, chance=chance:
                        self.cut_anywhere(peer, service, chance)) as port:
                for sender in (f"{SEND} --port {port} f.txt",
                               f"{SEND} --port {port} --buffer {chance.randrange(20, 220)} f.txt",
                               f"python3 send.py 127.0.0.1 {port} f.txt"):
                    with self.subTest(sender=sender, seed=seed):
                        self.assertEqual(run(sender), b"0:")
                        self.assertTrue(service.viewed() == content)

    def cut_anywhere(self, sender, service, chance):
        """Passes on what a sender sends to the service and back, as a network does that cuts
        anywhere. What is left between two cuts is a chunk, as long as the service is quick enough.
        Only the beginning of a message stays whole, without which no sender could be understood."""
        begins = True
        with service.connect() as receiver:
            while True:
                ready = select.select([receiver, sender], [], [])[0]
                source = receiver if receiver in ready else sender
                if not (rest := source.recv(1 << 16)):
                    return
                if source is receiver:
                    sender.sendall(rest)
                    begins = True
                    continue
                while rest:
                    length = chance.randrange(len(rest)) + 1
                    if chance.random() < 0.5 and (length := rest.find(b"$", 1)) < 0:
                        length = len(rest)
                    if begins:
                        length = max(length, 19) if rest.startswith(b"$BUFFLEN$") else len(rest)
                    receiver.sendall(rest[:length])
                    rest, begins = rest[length:], False
                    time.sleep(chance.randrange(4) * 1e-4)

    def test_ten_at_once(self):
        service = self.enterContext(Service(start=False))
        write_script(service.home / "compare",
                     f'cmp "$1" {service.home}/sent && echo >> $0.d')
        service.settings(f'log={service.home}/compare "%1"')
        service.start()
        documented_sender(self.here / "send.py")
        content = markers(random.Random(1), 3000)
        (service.home / "sent").write_bytes(content)
        for number in range(10):
            (self.here / f"{number}.log").write_bytes(content)
        sender = f"python3 send.py 127.0.0.1 {service.port}"
        self.assertEqual(run(f"for n in 0 1 2 3 4 5 6 7 8 9; do {sender} $n.log & done; wait"),
                         b"0:")
        same = service.home / "compare.d"
        service.eventually(lambda: same.exists() and same.stat().st_size == 10, "all arrive whole")


class LinkClient(Tool):

    def test_answers(self):
        user = pwd.getpwuid(os.geteuid()).pw_name
        base = self.here / ("d" * 120)
        home = base / "Quorbin"
        link = f"XDG_RUNTIME_DIR={base} {LINK}"
        none = f"2:quorbin-link: no service of {user} at {home}/qbstop: "
        warning = "0:quorbin-link: warning: "
        self.assertEqual(run(f"{link} request stopsrv").decode(),
                         f"{none}No such file or directory\n")
        home.mkdir(parents=True)
        os.chdir(home)  # too long a path for a socket address
        rows = [  # arguments, the line, its answer, what comes of it
            ("execute 'con  10.0.0.7'", "execute con  10.0.0.7\n", "accepted\n", "0:accepted\n"),
            ("execute con '*local'", "execute con *local\n", "accepted\n", "0:accepted\n"),
            ("execute dis desk7", "execute dis desk7\n", "accepted\n", "0:accepted\n"),
            ("execute con desk7", "execute con desk7\n", "accepted\n",
             f"{warning}'desk7' is no address and matches nobody\naccepted\n"),
            ("execute CON FE80::1", "execute CON FE80::1\n", "accepted\n", f"{warning}'FE80::1' "
             "matches nobody; the service writes it fe80::1\naccepted\n"),
            ("notify x", "notify x\n", "refused\n", "1:refused\n"),
            ("request stopsrv", "request stopsrv\n", "value a b \n", "0:a b \n"),
            ("request x", "request x\n", "", f"{none}it closed the channel without an answer\n"),
            ("execute $'a\\nb'", "", "", "1:quorbin-link: refused: the text holds a line end\n"),
            ("execute $(printf %04089d 0)", "", "",
             "1:quorbin-link: refused: the text is too long\n"),
        ]
        for arguments, line, answer, outcome in rows:
            seen = []

            def reply(peer, seen=seen, answer=answer):
                with peer.makefile("rb") as lines:
                    seen.append(lines.readline().decode())
                peer.sendall(answer.encode())

            with self.subTest(arguments=arguments), server(reply, "qbstop"):
                self.assertEqual(run(f"{link} {arguments}").decode(), outcome)
            self.assertEqual("".join(seen), line)
            os.unlink("qbstop")


class Outputs(Tool):

    def test_nothing_steers(self):
        """Whoever chooses a text, none of it reaches a terminal, a log or a name raw."""
        ranges = ((0x1, 0x1F), (0x7F, 0x9F), (0x61C, 0x61C), (0x200B, 0x200F), (0x2028, 0x202E),
                  (0x2060, 0x2069), (0xFEFF, 0xFEFF))
        steering = {chr(c) for first, last in ranges for c in range(first, last + 1)}
        marks = "".join(sorted(steering - {"\n"}))  # which ends a message, a line or an entry
        documented_sender(self.here / "send.py")
        (self.here / "a.txt").touch()
        (self.here / "ini").write_text(f"[Extensions]\nx{marks}x=y{marks}y\n", newline="")
        received = f"f$~.x{marks}x"
        (self.here / received).touch()
        service = self.serve()
        service.talk(VERSION + marks.encode(), b"$FILE$:" + marks.encode() + b"\n")
        quoted = shlex.quote(marks)
        rows = [  # what a peer answers, a command that it is the peer of
            (f"-{marks}", "{send} --ext .txt a.txt"),
            (f"-{marks}", "python3 send.py 127.0.0.1 {port} a.txt"),
            ("", f"{{send}} --ext .txt no{quoted}"),
            ("", f"python3 send.py 127.0.0.1 {{port}} no{quoted}"),
            ("", f"{LINK} execute {quoted} --name {quoted}"),
            ("", f"{BIN}/quorbin-check --settings ini"),
            ("", f"{ROOT}/tools/quorbin-keep.sh --no-open --prefix 'f$~.' --to kept "
                 f"{shlex.quote(received)}"),
            ("", f"{ROOT}/tools/quorbin-keep.sh --no-open no{quoted}"),
            ("", f"DEVICE_URI=quorbin://h/ {ROOT}/tools/quorbin-cups.py 1 u t 1 "
                 + shlex.quote(f"quorbin-ext='{marks}'")),
            ("", f"cat {shlex.quote(str(service.home / 'out'))}"),
        ]
        for reply, command in rows:
            with (self.subTest(command=command),
                  server(lambda peer, reply=reply: peer.recv(100) and peer.sendall(reply.encode()))
                  as port):
                shown = run(command.format(port=port, send=f"{SEND} --port {port}")).decode()
                self.assertRegex(shown, r"x1[bB]|xFE|xEF|__|\\ufeff")  # something was there to show
                self.assertEqual(steering & set(shown), {"\n"})


if __name__ == "__main__":
    main()
