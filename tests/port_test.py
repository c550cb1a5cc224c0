#!/usr/bin/env python3
"""The service's TCP port, and a process of another user that wants it."""

import contextlib
import itertools
import os
import socket
import subprocess
import sys
import time
import unittest

from service import BIN, TestCase, as_nobody, ask, free_port, main

SECONDS = float(os.environ.get("SECONDS", "1"))  # of attack on each way to listen
IPV6_IS_OFF = "IPV6_IS_OFF"
LISTENS = ("", "127.0.0.1", "0.0.0.0", "::1", "::")
TWO_PORTS = "TWO_PORTS"
ADDRESSES = (("0.0.0.0", None), ("127.0.0.1", None), ("127.0.0.2", None), ("::1", None),
             ("::", True), ("::", False))  # and whether for IPv6 alone
OPTIONS = ((), (socket.SO_REUSEADDR,), (socket.SO_REUSEPORT,),
           (socket.SO_REUSEADDR, socket.SO_REUSEPORT))


def bind(port, address, v6_only, options):
    """Whether the port can be bound in this way."""
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    with contextlib.suppress(OSError), socket.socket(family) as taken:
        if v6_only is not None:
            taken.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, v6_only)
        for option in options:
            taken.setsockopt(socket.SOL_SOCKET, option, 1)
        taken.bind((address, port))
        return True
    return False


def bind_every_way(port):
    """Binds again and again. 1: one was not refused. It may be harmless by itself, but leads on:
    a socket for IPv6 alone makes room for one of both families, which takes the port."""
    ways = [(*address, options) for address in ADDRESSES for options in OPTIONS]
    end = time.monotonic() + SECONDS
    while time.monotonic() < end:
        if any(bind(port, *way) for way in ways):
            return 1
    return 0


def again(setting, case, commands):
    """Runs a case of this module in a network of its own, which the commands of a shell prepare."""
    prepare = f'ip link set lo up; {commands}; exec "$@"'
    subprocess.run(["unshare", "--net", "sh", "-ec", prepare, "sh",
                    sys.executable, __file__, BIN, case],
                   env={**os.environ, setting: "1"}, check=True)


class OneAddress(TestCase):

    def test_starts_over_what_an_earlier_run_has_left(self):
        service = self.serve("[Global]\nListen=127.0.0.1", port=free_port())
        # The side that closes first remembers the connection; the other one is still open.
        self.assertEqual(service.talk(b"$EOF$"), [b""])
        with service.connect() as peer:
            self.assertEqual(ask(peer, b"$VERSION$:1"), b"+OK1.1.03")
            service.kill()
            service.start()
        service.honest()
        second = self.serve(f"[Global]\nListen=127.0.0.1\nPort={service.port}", start=False)
        second.launch()
        self.assertEqual(second.wait(), 1)
        self.assertIn(b"Address already in use", second.errors())

    @unittest.skipIf(os.geteuid() != 0, "no rights to make a network")
    def test_picks_a_port_that_is_free_on_all(self):
        if TWO_PORTS not in os.environ:
            again(TWO_PORTS, self.id().partition(".")[2],
                  "echo 40000 40001 >/proc/sys/net/ipv4/ip_local_port_range")
            return
        for taken in 40000, 40001:
            with socket.create_server(("127.0.0.2", taken)):
                service = self.serve("[Global]\nListen=127.0.0.1")
                self.assertNotEqual(service.port, taken)
                service.kill()


@unittest.skipIf(os.geteuid() != 0, "no rights to become another user")
class OtherUser(TestCase):

    def test_never_gets_the_port(self):
        listens = [listen for listen in LISTENS
                   if IPV6_IS_OFF not in os.environ or ":" not in listen]
        for listen, port in itertools.product(listens, (0, free_port())):
            with self.subTest(listen=listen, port=port):
                service = self.serve(f"[Global]\nListen={listen}", port=port)
                family = socket.AF_INET6 if ":" in listen else socket.AF_INET
                other = as_nobody(lambda port=service.port: bind_every_way(port))
                ended = (0, 0)
                # Each connection stops the listener and opens it again.
                while not ended[0]:
                    for _ in range(100):
                        with service.connect(family=family) as peer:
                            peer.sendall(b"$EOF$")
                            self.assertEqual(peer.recv(1), b"")
                    ended = os.waitpid(other, os.WNOHANG)
                self.assertEqual(ended[1], 0, "a bind was not refused")
                self.assertEqual(service.stop(), 0)

    def test_nor_where_ipv6_is_off(self):
        again(IPV6_IS_OFF, "OtherUser.test_never_gets_the_port",
              "echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6")


main()
