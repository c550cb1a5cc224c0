#!/usr/bin/env python3
"""The built service, over TCP and over the Unix socket."""

import concurrent.futures
import contextlib
import itertools
import os
import signal
import socket
import stat
import struct
import subprocess
import time

from service import (DATA, EXT, NOBODY, TestCase, as_nobody, ask, eventually, free_port, main,
                     read_all, shell, write_script)

ANNOUNCE = (b"$VERSION$:1", b"$FILE$:a.txt", b"$FILETYPE$:B", DATA)


def block(content, length=None):
    """A buffer with its header, which may name another length of the content."""
    return b"$BUFFLEN$%010d" % ((len(content) if length is None else length) + 19) + content


def mode(path):
    return stat.S_IMODE(path.stat().st_mode)


class OverTcp(TestCase):
    """What holds for peers of every kind."""

    local = False
    address = b"127.0.0.1"

    def serve(self, more="", **options):
        return super().serve(more, local=self.local, **options)

    def test_console_shows_a_transfer(self):
        service = self.serve()
        service.process.send_signal(signal.SIGUSR1)
        with service.connect() as peer:
            reply = ask(peer, b"$VERSION$:2\\\x1b[m\xc3\xa4\xe4", b"$KDOEXT$:-z -y",
                        b"$FILE$:/BS2/sample.txt", b"$FILETYPE$:B", DATA, block(b"abcdefghij"),
                        b"$EOF$")
        self.assertEqual(reply, b"+OK")
        self.assertEqual(service.viewed(), b"abcdefghij")
        received = service.home / "tmp/f$~.sample.txt"
        self.assertEqual((service.home / "view.arguments").read_text(), f"{received}\n-z\n-y\n")
        service.shows(b"started task ")
        shown = service.shown().replace(os.fsencode(service.home), b"")
        partner = b"partner: " + self.address
        self.assertEqual(
            shown[:shown.rindex(b"started task ")],
            b"aktion: listening\n" + partner + b"\naktion: Connected\nresu: OK\n"
            b"Satz: $VERSION$:2\\\\\\x1B[m\xc3\xa4\\xE4\n" +
            partner + b" (Version 2\\\\\\x1B[m\xc3\xa4\\xE4)\n"
            b"Satz: $KDOEXT$:-z -y\nkext: -z -y\nSatz: $FILE$:/BS2/sample.txt\n"
            b'fext: (automatic) .txt\nkdo: /view "%1"\nSatz: $FILETYPE$:B\nftp: binary\n'
            b"Satz: $DATA$\ndateiname: /tmp/f$~.sample.txt\naktion: open binary file\n"
            b"aktion: writing file (B)\nSatz: Received Bytes:  10\nSatz: Block  1:  29 Bytes\n"
            b"Satz: +OK: Rest = 0\naktion: executing command\n"
            b'kdo: /view "/tmp/f$~.sample.txt" -z -y\nSatz: File written with  10 Bytes\n'
            b"resu: ")
        self.assertEqual(mode(received), 0o600)

        # The second signal turns the log off again.
        service.process.send_signal(signal.SIGUSR1)
        service.honest()
        self.assertNotIn(b"Satz: $FILE$:h.txt", service.shown())

    def test_a_crowd_is_refused_at_once(self):
        """A dropped request comes again after a second; a refused one costs no time."""
        service = self.serve()
        crowd = 100

        def attempt():
            start = time.monotonic()
            try:
                peer = service.try_to_connect()
            except ConnectionError:
                return False
            finally:
                late.append(time.monotonic() - start > 0.9)
            with peer, contextlib.suppress(ConnectionError):
                return ask(peer, b"$VERSION$:1") == b"+OK1.1.03"
            return False

        late = []
        with concurrent.futures.ThreadPoolExecutor(crowd) as senders:
            for sender in [senders.submit(eventually, attempt, pause=0.1) for _ in range(crowd)]:
                sender.result()
        # The system itself may drop the one that it looks at while the listener is being stopped.
        self.assertLessEqual(sum(late), crowd / 20)

    def test_one_at_a_time_and_a_denied_peer_reaches_nothing(self):
        service = self.serve(f"[Hosts]\n{self.address.decode()}=*deny")
        with service.connect() as denied:
            service.shows(b"aktion: Connected\n")
            with self.assertRaises(ConnectionError):
                service.try_to_connect()
            self.assertEqual(ask(denied, b"$FILE$:a.txt"), b"")
        service.shows(b"resu: Hostaccess denied\n")
        self.assertTrue(service.empty())
        service.settings()
        service.honest()

    def test_keeps_no_rights_and_leaves_no_core(self):
        """It is started with all the rights that there are, of a namespace if by a user."""
        namespace = [] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user"]
        if subprocess.run([*namespace, "true"], capture_output=True, check=False).returncode:
            self.skipTest("no user namespaces")
        # By itself AddressSanitizer sets the limit to 0 before our code runs.
        sanitizer = {"ASAN_OPTIONS": "disable_coredump=0"}
        service = self.serve(environment=sanitizer, wrapper=[*namespace, *shell(
            "ulimit -c 4; grep -q '^CapEff:.*[1-9a-f]' /proc/self/status")])
        service.honest()
        status = service.proc("status").read_text()
        for capabilities in "CapPrm", "CapEff", "CapAmb":
            self.assertIn(f"{capabilities}:\t0000000000000000\n", status)
        self.assertRegex(service.proc("limits").read_text(), "Max core file size +0 ")
        # A viewer has the limit that the service was started with.
        write_script(service.home / "limit", "ulimit -c >$0.part; mv $0.part $0.ed")
        service.settings(f'log={service.home}/limit "%1"')
        service.talk(b"$EXT$:.log", b"$FILE$:a", DATA, b"$EOF$")
        limit = service.home / "limit.ed"
        service.eventually(limit.exists, "the viewer has run")
        self.assertEqual(limit.read_text(), "4\n")

    def test_what_is_at_the_output_path_stays_as_it_is(self):
        service = self.serve()
        planted, precious = service.home / "tmp", service.home / "precious"
        (planted / "f$~.folder").mkdir()
        # Generated names are the same at every start. What is planted there is a second failure.
        for name in "pipe", "temp814724.tmp":
            os.mkfifo(planted / f"f$~.{name}")
        for name in "link", "other", "temp135477.tmp":
            (planted / f"f$~.{name}").symlink_to(service.home / "view")
        for name in "name", "temp905792.tmp":
            (planted / f"f$~.{name}").hardlink_to(precious)
        for name in "temp814724.tmp", "temp135477.tmp", "temp905792.tmp":
            with service.connect() as peer:
                self.assertEqual(ask(peer, EXT, b"$FILE$:a/b", DATA), b"")
            service.shows(os.fsencode(f"dateiname: {planted}/f$~.{name}\nSatz: Error:  "))
        for name in "folder", "link", "name", "pipe", "n" * 300:
            with service.connect() as peer:
                reply = ask(peer, EXT, b"$FILE$:" + name.encode(), DATA, b"x", b"$EOF$")
            self.assertEqual(reply, b"+OK")
            self.assertEqual(service.viewed(), b"x\r\n")
            self.assertEqual(precious.read_text(), "precious")
        self.assertEqual(service.stop(), 0)  # deletes links and files alone
        self.assertCountEqual(service.files(), ["f$~.folder", "f$~.temp814724.tmp"])

    def test_no_place_for_the_file(self):
        """A limit of the file's size fails writes as a full disk does."""
        service = self.serve(wrapper=shell("ulimit -f 128"))
        with service.connect() as full:
            self.assertEqual(ask(full, *ANNOUNCE), b"+OK")
            full.sendall(block(b"x" * 100000))
            self.assertEqual(read_all(full), b"")
        service.honest()

    def test_peers_that_go_at_every_step(self):
        service = self.serve()
        held = service.descriptors()
        steps = (*ANNOUNCE, block(b"x"), block(b"y"))
        for count, reset in itertools.product(range(len(steps) + 1), (False, True)):
            def attempt(count=count, reset=reset):
                with contextlib.suppress(ConnectionError), service.connect() as peer:
                    # One that comes while another is let in is reset.
                    if not count or ask(peer, *steps[:count]).startswith(b"+OK"):
                        peer.sendall(b"$BUFFLEN$0000000030half")
                        peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                                        struct.pack("ii", reset, 0))
                        return True
                return False

            service.eventually(attempt)
        service.eventually(service.empty, "the pieces are deleted")
        service.eventually(lambda: service.descriptors() == held, "descriptors are closed")
        service.honest()

    def test_a_chunk_is_all_that_waits(self):
        service = self.serve()
        with service.connect() as peer:
            self.assertEqual(ask(peer, b"$FILE$:a.txt", b"$FILETYPE$:B", DATA), b"+OK")
            service.process.send_signal(signal.SIGSTOP)
            # More than a first look at the socket takes.
            for _ in range(10):
                peer.sendall(b"x" * 10000)
            peer.sendall(b"$EOF$")
            service.process.send_signal(signal.SIGCONT)
            self.assertEqual(read_all(peer), b"-Fehler: Buffer-length at EOF: -100005")
        self.assertEqual(service.viewed(), b"x" * 100000)

    def test_a_reply_outlives_what_was_never_read(self):
        service = self.serve()
        with service.connect() as peer:
            self.assertEqual(ask(peer, *ANNOUNCE), b"+OK")
            peer.sendall(b"$EOF$")
            with contextlib.suppress(ConnectionError):
                for _ in range(200):
                    peer.sendall(b"x" * 10000)
            self.assertEqual(read_all(peer), b"+OK")
        self.assertEqual(service.viewed(), b"")

    def test_viewers_inherit_nothing(self):
        service = self.serve(start=False)
        # Helpers that inherit its descriptors and its session print these, and then comes its
        # number. Blocked and ignored signals, up to 28, are read without it: a shell clears some.
        write_script(service.home / "look",
                     "exec > $0.part\nls -x /proc/self/fd\nreadlink /proc/self/fd/0\n"
                     "[ $(ps -o sid= -p $$) = $$ ] && echo own\numask\n"
                     "mv $0.part $0.ed\necho $$ > $0.number.part\nmv $0.number.part $0.number")
        service.settings(f"log={service.home}/look\nexe=x\nnot=/no/such/program\n"
                         'sig=sed -En "s/^Sig(Blk|Ign).*(.{7})$/\\1 \\2/p" /proc/self/status')
        service.start(shell("umask 027; exec 9</dev/zero"))

        def send(name, line):
            with service.connect() as peer:
                self.assertEqual(ask(peer, b"$FILE$:" + name, DATA, line, b"$EOF$"), b"+OK")

        send(b"a.log", b"x")
        service.eventually((service.home / "look.number").exists)
        # 3 is the listed directory.
        self.assertEqual((service.home / "look.ed").read_text(),
                         "0  1  2  3\n/dev/null\nown\n0027\n")
        viewer = (service.home / "look.number").read_text().strip()
        service.eventually(lambda: not os.path.exists(f"/proc/{viewer}"), "its end is noticed")

        send(b"a.sig", b"x")
        service.shows(b"Blk 0000000\nIgn 0000000\n")
        send(b"a.not", b"x")
        service.shows(b"resu: started task \n")
        send(b"p.exe", b"#!/bin/sh\necho ran > %s/ran #" % os.fsencode(service.home))
        service.eventually((service.home / "ran").exists, "a received program runs")

    def test_a_stopped_reader_of_the_output_holds_nothing_up(self):
        service = self.serve(start=False)
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        service.launch(stdout=writer)
        os.close(writer)
        with service.connect() as peer:
            service.process.send_signal(signal.SIGUSR1)
            for _ in range(40):
                self.assertEqual(ask(peer, b"$KDOEXT$:" + b"k" * 5000), b"+OK")
            self.assertEqual(ask(peer, b"$EOF$"), b"")
        service.honest()

    def test_no_peer_gets_a_closed_stream(self):
        service = self.serve(port=0 if self.local else free_port(), start=False)
        service.launch(shell("exec <&- >&- 2>&-"))
        service.honest()
        for stream in "012":
            self.assertEqual(os.readlink(service.proc(f"fd/{stream}")), "/dev/null")


class OverLocal(OverTcp):
    """The same over the Unix socket."""

    local = True
    address = b"*local"


class Local(TestCase):
    """The Unix socket."""

    def test_only_the_user_and_no_port(self):
        port = free_port()
        service = self.serve(local=True, port=port, start=False)
        door = service.home / "run/Quorbin/in"
        door.parent.mkdir(0o700)
        door.touch()  # anything else there is not removed
        self.assertEqual(service.no_start(), "Can't listen on *local: Address already in use")
        door.unlink()
        service.start()
        service.stop(signal.SIGKILL)  # leaves its socket
        service.start()
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.1", port))
        self.assertEqual(mode(door), 0o600)
        service.honest()
        self.assertEqual(service.stop(), 0)
        self.assertEqual(os.listdir(door.parent), ["instance.lock"])

    def test_a_link_in_the_place_of_the_run_time_directory_is_not_followed(self):
        service = self.serve(start=False)
        (service.home / "elsewhere").mkdir(0o700)
        (service.home / "run/Quorbin").symlink_to(service.home / "elsewhere")
        service.start()
        self.assertIn(b"no link channel", service.errors())
        self.assertEqual(os.listdir(service.home / "elsewhere"), [])


class OtherUsers(TestCase):
    """What a process of another user of this machine gets."""

    def setUp(self):
        if os.geteuid() != 0:
            self.skipTest("no rights to become another user")

    def status(self, work):
        """What the work of another user returns."""
        return os.waitstatus_to_exitcode(os.waitpid(as_nobody(work), 0)[1])

    def open_to_all(self, service):
        """As far as the sockets: what is run from there stays out of their reach."""
        for place in service.home, service.home / "run", *(service.home / "run").rglob("*"):
            place.chmod(0o711 if place.is_dir() else 0o666)

    def test_no_answer_on_a_unix_socket(self):
        """Even where the permissions admit everybody, the peer's user decides."""
        service = self.serve(local=True)
        self.open_to_all(service)

        def connects():
            with service.connect() as peer, contextlib.suppress(ConnectionError):
                return 3 if ask(peer, b"$VERSION$:1") else 0
            return 0

        def asks():
            with contextlib.suppress(ConnectionError):
                return 3 if service.link(b"request stopsrv\n") else 0
            return 0

        for way in connects, asks:
            self.assertEqual(self.status(way), 0, way.__name__)
        self.assertNotIn(b"partner", service.shown())
        self.assertEqual(service.link(b"request stopsrv\n"), b"value OK\n")
        service.honest()

    def test_a_run_time_directory_of_another_user_is_not_used(self):
        service = self.serve(start=False)
        (service.home / "run/Quorbin").mkdir(0o700)
        os.chown(service.home / "run/Quorbin", NOBODY, NOBODY)
        service.start()
        self.assertIn(b"no link channel", service.errors())
        self.assertEqual(os.listdir(service.home / "run/Quorbin"), [])
        service.honest()

    def test_a_file_of_another_user_is_not_written(self):
        service = self.serve()
        theirs = service.home / "tmp/f$~.temp814724.tmp"  # the first generated name
        theirs.write_text("theirs")
        theirs.chmod(0o666)
        os.chown(theirs, NOBODY, NOBODY)
        with service.connect() as peer:
            self.assertEqual(ask(peer, EXT, b"$FILE$:a/b", DATA), b"")
        service.shows(b"Satz: Error:  ")
        self.assertEqual(theirs.read_text(), "theirs")


class Port(TestCase):
    """The port, and how the program starts and ends."""

    def test_exit_status_and_messages(self):
        service = self.serve(port=free_port(), start=False)
        for number in signal.SIGTERM, signal.SIGINT, signal.SIGHUP:
            service.start()
            self.assertEqual(service.stop(number), 0)
        service.start()
        # During a connection the service does not listen, but the port is still its own.
        with service.connect() as peer:
            self.assertEqual(ask(peer, b"$VERSION$:1"), b"+OK1.1.03")
            for directory, message in (
                    ("run", "Quorbin already running"),
                    ("config", f"Can't listen on port {service.port}: Address already in use")):
                second = self.serve(port=service.port, start=False, environment={
                    "XDG_RUNTIME_DIR": f"{service.home}/{directory}"})
                self.assertEqual(second.no_start(), message)
            self.assertEqual(ask(peer, b"$EOF$"), b"")
        service.honest()

    def test_starts_over_what_an_earlier_run_has_left(self):
        service = self.serve(port=free_port())
        # The side that closes first remembers the connection; the other one is still open.
        for _ in range(3):
            self.assertEqual(service.talk(b"$EOF$"), [b""])
        with service.connect() as peer:
            self.assertEqual(ask(peer, *ANNOUNCE, b"$BUFFLEN$0000000020x"), b"+OK")
            service.stop(signal.SIGKILL)
            self.assertEqual(len(service.files()), 1)
            service.start()
            self.assertTrue(service.empty())
            service.honest()
            service.honest()

    def test_one_address_alone(self):
        rows = [  # Listen, reached over IPv4, over IPv6
            ("127.0.0.1", True, False), ("0.0.0.0", True, False), ("::1", False, True),
            ("::", False, True), ("", True, True),
        ]
        for listen, *reached in rows:
            service = self.serve(f"[Global]\nListen={listen}")
            for family, expected in zip((socket.AF_INET, socket.AF_INET6), reached):
                with self.subTest(listen=listen, family=family):
                    if expected:
                        # A connection before is not over at once.
                        service.connect(family=family).close()
                    else:
                        with self.assertRaises(ConnectionRefusedError):
                            service.try_to_connect(family=family)

    def test_wrong_settings_end_the_start(self):
        service = self.serve(port=free_port(), start=False)
        for named in ("Listen=localhost", "Listen=10.1", "Listen=*LOCAL", "Listen=::1 ::2",
                      "Parameters=deny", "Port=65536 (0 to 65535)", "Port=-1 (0 to 65535)"):
            service.settings(f"[Global]\n{named.partition(' (')[0]}")
            self.assertEqual(service.no_start(), "Wrong value in the section Global of "
                             f"{service.home}/quorbin.ini: {named}")
        (service.home / "config/quorbin/classes.reg").write_text(
            'REGEDIT4\n[HKEY_CLASSES_ROOT\\Quorbin]\n"Port"="70000"\n')
        service.settings("[Global]\nPort=0")
        self.assertEqual(service.no_start(), "Wrong value Port of the key Quorbin in the registry: "
                         "70000 (0 to 65535)")
        service.settings("[Global]\nListen=192.0.2.1")  # of no machine
        self.assertEqual(service.no_start(), f"Can't listen on port {service.port} of 192.0.2.1: "
                         "Cannot assign requested address")

    def test_port_of_the_systems_choice_is_kept(self):
        service = self.serve()
        service.honest()
        service.honest()
        self.assertEqual(service.errors(), b"Quorbin: listening on port %d\n" % service.port)


if __name__ == "__main__":
    main()
