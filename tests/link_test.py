#!/usr/bin/env python3
"""The link channel of the built service, through a raw socket."""

import contextlib
import signal
import stat

from service import DATA, TestCase, ask, main, read_all

STOP = (b"execute STOPSRV now\nexecute con x\n", b"notify stopsrv\nexecute con x\n")


class Link(TestCase):

    def test_lines(self):
        service = self.serve(start=False)
        (service.home / "run/Quorbin").mkdir(0o755)  # too open; it is closed
        service.start()
        held = service.descriptors()
        for name, mode in ("run/Quorbin", 0o700), ("run/Quorbin/qbstop", 0o600):
            self.assertEqual(stat.S_IMODE((service.home / name).stat().st_mode), mode)
        rows = [
            (b"execute con 10.0.0.7\nexecute dis 10.0.0.7\n", b"accepted\naccepted\n"),
            (b"request stopsrv\nrequest other\n", b"value dis\nrefused\n"),
            (b"execute\nexecute \nnotify other\n", b"refused\nrefused\nrefused\n"),
            (b"request\n\nexecute con\n", b"refused\nrefused\nrefused\n"),
            (b"execute con " + b"x" * (4096 - 12) + b"\n", b"accepted\n"),
        ]
        for lines, answers in rows:
            self.assertEqual(service.link(lines), answers, lines)

        # Reads long after the service is done with it.
        with service.link_client() as late:
            late.sendall(b"request stopsrv\n" * 2000)
            late.shutdown(1)
            service.eventually(lambda: service.descriptors() == held, "it is closed")
            self.assertEqual(read_all(late), b"value con\n" * 2000)

        with service.link_client() as client:
            self.assertEqual(ask(client, b"execute con whole\nexec"), b"accepted\n")
            self.assertEqual(ask(client, b"ute con half\n"), b"accepted\n")
            with contextlib.suppress(ConnectionError):  # its end need not arrive
                client.sendall(b"x" * 20000)
            self.assertEqual(client.recv(100), b"refused\n")
            with contextlib.suppress(ConnectionError):
                self.assertEqual(client.recv(100), b"")

    def test_abusive_clients_delay_nobody(self):
        service = self.serve()
        held = service.descriptors()
        silent = []
        for _ in range(40):
            silent.append(self.enterContext(service.link_client()))
            silent[-1].sendall(b"execute con half a line")
        self.assertEqual(service.link(b"request stopsrv\n"), b"value OK\n")
        service.eventually(lambda: service.descriptors() <= held + 16, "the oldest are closed")
        self.assertEqual(read_all(silent[0]), b"")  # the longest silent one has given way

        # Asks on and on and never reads.
        greedy = self.enterContext(service.link_client())
        greedy.setblocking(False)

        def dropped():
            try:
                greedy.send(b"request stopsrv\n" * 200)
            except BlockingIOError:
                pass
            except ConnectionError:
                return True
            return False

        service.eventually(dropped, "it is dropped")
        with service.connect() as peer:
            self.assertEqual(ask(peer, b"$VERSION$:1"), b"+OK1.1.03")
        for client in silent:
            client.close()
        service.eventually(lambda: service.descriptors() <= held + 1, "those that went are closed")

    def test_stop_in_the_middle_of_a_transfer(self):
        for lines in STOP:
            service = self.serve()
            with service.connect() as peer, service.link_client() as other:
                self.assertEqual(ask(peer, b"$FILE$:a.txt", DATA, b"content"), b"+OK")
                self.assertEqual(service.link(lines), b"accepted\n")
                self.assertEqual(read_all(other), b"")
                self.assertEqual(service.wait(), 0)
            self.assertTrue(service.empty())
            self.assertFalse((service.home / "run/Quorbin/qbstop").exists())

    def test_sockets_of_earlier_runs(self):
        service = self.serve()
        service.stop(signal.SIGKILL)
        with self.assertRaises(ConnectionRefusedError):  # what a crash leaves
            service.link(b"request stopsrv\n")
        service.settings("[Global]\nControl=0")
        service.start()
        self.assertEqual(service.link(b"request stopsrv\nexecute stopsrv\nnotify stopsrv\n"),
                         b"value OK\nrefused\nrefused\n")
        self.assertEqual(service.stop(), 0)

        # Anything else in the socket's place is not ours to remove.
        (service.home / "run/Quorbin/qbstop").touch()
        service.start()
        self.assertIn(b"Quorbin: no link channel: Address already in use\n", service.errors())


if __name__ == "__main__":
    main()
