"""redirect_test.py QZHUB: the program as QEMU sees it, over usbredir: one address for each device, one guest for
each address, devices that come and go, and guests that send nonsense."""
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

QZHUB = sys.argv.pop(1)
HELLO, CONNECT, DISCONNECT, ACK, CONTROL = 0, 1, 2, 24, 100
GET_STATUS = bytes.fromhex("80 00 80 00 0000 0000 0200")
SCENARIO = {"devices": [{"name": "first", "port": "3.1", "image": {"pid": "0x0001"}},
                        {"name": "second", "port": "4", "image": {"pid": "0x0002"}}]}


class Guest:
    """A guest that is able to do all that the protocol has, like QEMU."""

    def __init__(self, address, hello=True):
        self.socket = socket.create_connection(address, timeout=20)
        self.name = "%s:%d" % self.socket.getsockname()
        self.stream = self.socket.makefile("rb")
        if hello:
            self.socket.sendall(struct.pack("<III64sI", HELLO, 68, 0, b"guest", 0xFF))
            assert self.stream.read(80)[:4] == bytes(4)

    def send(self, kind, body=b"", number=0):
        self.socket.sendall(struct.pack("<IIQ", kind, len(body), number) + body)

    def receive(self, kind):
        """The body of the next message of that type; None at the end of the connection."""
        while header := self.stream.read(16):
            found, length, _ = struct.unpack("<IIQ", header)
            body = self.stream.read(length)
            if found == kind:
                return body
        return None

    def product(self):
        """The product id of the device that is shown."""
        connect = self.receive(CONNECT)
        return connect and struct.unpack("<4B3H", connect)[5]

    def status(self):
        self.send(CONTROL, GET_STATUS, 7)
        return self.receive(CONTROL)

    def close(self):
        self.stream.close()
        self.socket.close()


class RedirectTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        scenario = os.path.join(self.folder.name, "hubs.json")
        with open(scenario, "w", encoding="utf-8") as file:
            json.dump(SCENARIO, file)
        self.scenario = ["--scenario", scenario]
        self.remarks = os.path.join(self.folder.name, "remarks")
        # An address of this computer that no other program listens on.
        self.host = "127.77.%d.%d" % divmod(os.getpid() % 65025, 255)
        self.addresses = [(self.host, 4000), (self.host, 4001)]
        with open(self.remarks, "w", encoding="utf-8") as remarks:
            self.server = subprocess.Popen([QZHUB, "redirect", "--listen", f"{self.host}:4000", *self.scenario],
                                           stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=remarks, text=True)
        self.addCleanup(self.end)
        for number, name in enumerate(("first", "second")):
            self.assertEqual(f"exported {name} address={self.host}:{4000 + number}\n", self.server.stdout.readline())

    def end(self):
        self.server.kill()
        self.server.communicate()

    def say(self, line):
        self.server.stdin.write(line + "\n")
        self.server.stdin.flush()

    def guest(self, device, **options):
        guest = Guest(self.addresses[device], **options)
        self.addCleanup(guest.close)
        return guest

    def served(self, device):
        """A guest that has the device, once the last one has gone."""
        while True:
            guest = self.guest(device)
            product = guest.product()
            if product is not None:
                self.assertEqual(device + 1, product)
                return guest
            guest.close()

    def expect_remark(self, guest, text):
        until = time.monotonic() + 20
        remarks = ""
        while f"qzhub: {guest.name}: {text}\n" not in remarks:
            self.assertLess(time.monotonic(), until, remarks)
            with open(self.remarks, encoding="utf-8") as file:
                remarks = file.read()

    def test_each_device_has_an_address_and_each_address_one_guest(self):
        self.guest(0, hello=False)
        first, second = self.served(0), self.served(1)
        late = self.guest(0)
        self.assertIsNone(late.product())
        self.expect_remark(late, "another guest has first")
        for guest in (first, second):
            self.assertEqual(GET_STATUS + b"\1\0", guest.status())
        first.close()
        self.assertEqual(GET_STATUS + b"\1\0", self.served(0).status())
        name = f"first address={self.host}:4000"
        self.assertEqual(f"imported {name} by={first.name}\n", self.server.stdout.readline())
        self.assertIn("imported second ", self.server.stdout.readline())
        self.assertEqual(f"released {name}\n", self.server.stdout.readline())
        self.server.send_signal(signal.SIGTERM)
        self.assertEqual(0, self.server.wait(20))
        self.assertIsNone(second.receive(CONTROL))

    def test_a_guest_sees_its_device_come_and_go(self):
        first, second = self.served(0), self.served(1)
        for _ in range(2):
            self.say("unplug first")
            self.assertEqual(b"", first.receive(DISCONNECT))
            self.say("plug first")
            first.send(ACK)
            self.assertEqual(1, first.product())
            self.assertEqual(GET_STATUS + b"\1\0", first.status())
        self.assertEqual(GET_STATUS + b"\1\0", second.status())
        first.close()
        self.say("unplug first")
        while not self.server.stdout.readline().startswith("released first "):
            pass
        late = self.guest(0)
        self.say("plug first")
        self.assertEqual(1, late.product())

    def test_nonsense_ends_the_connection_of_its_guest_alone(self):
        good = self.served(1)
        for nonsense in (b"GET / HTTP/1.1\r\n\r\n", bytes(12), b"\xff" * 200):
            bad = self.guest(0, hello=False)
            bad.socket.sendall(nonsense)
            bad.stream.read(80)
            self.assertEqual(b"", bad.stream.read())
            self.expect_remark(bad, "not a message of usbredir")
        bad = self.served(0)
        bad.send(CONTROL, b"\x7f" * 9)
        self.assertIsNone(bad.receive(CONTROL))
        self.assertEqual(GET_STATUS + b"\1\0", self.served(0).status())
        self.assertEqual(GET_STATUS + b"\1\0", good.status())

    def test_addresses_in_a_row_must_be_free(self):
        for port, text in ((3999, f"cannot listen on {self.host}:4000"), (4001, f"cannot listen on {self.host}:4001"),
                           (65535, f"there are not 2 ports from {self.host}:65535 on, one for each device")):
            ended = subprocess.run([QZHUB, "redirect", "--listen", f"{self.host}:{port}", *self.scenario],
                                   capture_output=True, text=True, timeout=20, check=False)
            self.assertEqual(1, ended.returncode)
            self.assertIn(text, ended.stderr)


unittest.main()
