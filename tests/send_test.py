#!/usr/bin/env python3
"""quorbin-send: where it sends, what it tells its caller, and who may hear it."""

import os
import socket
import subprocess
import unittest

from service import BIN, NOBODY, TestCase, as_nobody, eventually, free_port, main

REFUSED, USAGE, UNREADABLE, TRY_LATER = 1, 2, 66, 75


def send(service, *arguments, **options):
    return subprocess.run([BIN / "quorbin-send", *arguments], env=service.environment, text=True,
                          stderr=subprocess.PIPE, check=False, **options)


class Send(TestCase):

    def test_finds_the_own_service(self):
        for local in (True, False):
            service = self.serve(local=local, port=0 if local else 9438)
            (service.home / "a.txt").write_text("found")
            sent = send(service, "--wait", "0", service.home / "a.txt")
            self.assertEqual((sent.returncode, sent.stderr), (0, ""))
            self.assertEqual(service.viewed(), b"found")
            if local:  # a socket without a service behind it is in the way of no later one
                service.kill()
                service.local, service.port = False, 9438
                service.settings()
                service.start()
                self.assertEqual(send(service, "--wait", "0", service.home / "a.txt").returncode, 0)
            service.kill()

    def test_statuses(self):
        service = self.serve(local=True)
        good, denied, missing = service.home / "a.txt", service.home / "a.exe", service.home / "no"
        for path in good, denied:
            path.write_text("x")
        nobody = ["--host", "127.0.0.1", "--port", str(free_port()), "--wait", "0"]
        rows = [
            ([good], 0),
            ([denied], REFUSED),
            (["--ext", ".txt", service.home], UNREADABLE),
            (["--ext", ".txt", missing], UNREADABLE),
            ([*nobody, good], TRY_LATER),
            # The first that failed decides.
            (["--ext", ".txt", good, missing, good], UNREADABLE),
            ([denied, "--ext", ".exe", missing], REFUSED),
            (["--ext", ".exe", missing, denied], UNREADABLE),
            ([*nobody, "--ext", ".txt", good, missing], TRY_LATER),
            (["--port", "0", good], USAGE),
            (["--port", "1", "--socket", "in", good], USAGE),
            ([], USAGE),
            (["--help"], 0),
        ]
        for arguments, status in rows:
            sent = send(service, *arguments, stdout=subprocess.DEVNULL)
            self.assertEqual(sent.returncode, status, (arguments, sent.stderr))

    def test_extension_of_a_name_in_any_notation(self):
        service = self.serve(local=True)
        rows = ["/x/a.txt", "*POSIX(/x/a.txt)", "/BS2/*POSIX(/x/a.txt)", "/BS2/a.txt",
                "*POSIX(a.txt  )", "x.d/a.txt"]
        for name in rows:
            sent = send(service, "--name", name, "-", input="content")
            self.assertEqual((sent.returncode, sent.stderr), (0, ""), name)
            self.assertEqual(service.viewed(), b"content", name)
        self.assertEqual(send(service, "--name", "x.txt/a", "-", input="").returncode, REFUSED)

    @unittest.skipIf(os.geteuid() != 0, "no rights to become another user")
    def test_sends_nothing_to_another_user(self):
        service = self.serve(start=False)
        place = service.home / "run/Quorbin"
        place.mkdir()
        for path in (service.home, service.home / "run"):
            path.chmod(0o755)
        os.chown(place, NOBODY, NOBODY)

        def listen():
            with socket.socket(socket.AF_UNIX) as listener:
                listener.bind(f"{place}/in")
                listener.listen()
                listener.settimeout(60)
                with listener.accept()[0] as peer:
                    return len(peer.recv(1000))

        thief = as_nobody(listen)
        eventually((place / "in").exists)
        (service.home / "a.txt").write_text("secret")
        sent = send(service, service.home / "a.txt")
        self.assertEqual(sent.returncode, TRY_LATER)
        self.assertIn("belongs to another user", sent.stderr)
        self.assertEqual(os.waitpid(thief, 0)[1], 0, "bytes reached it")


main()
