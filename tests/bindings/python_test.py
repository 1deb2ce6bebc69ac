"""The package qzhidapi for Python on the virtual library. Environment: QZ_LIBRARY, QZHID and QZHUB."""
import errno
import hashlib
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from unittest import mock

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "bindings/python"))
import qzhidapi  # noqa: E402
from qzhidapi import (Hub, HubClosed, HubInUse, HubLost, InLoader, LibraryError, NoSuchHub,  # noqa: E402
                      PermissionDenied, QzHidError, Refused, RequestFailed, UpdateFailed, WrongUse)

LIBRARY, QZHID, QZHUB = (os.environ[name] for name in ("QZ_LIBRARY", "QZHID", "QZHUB"))
LOCATION = "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)"
FOREVER = {"count": 0, "action": "fail", "code": errno.EACCES}
NOT_OPENABLE = {"on": "call", "service": "OpenHidDevice", "device": "hub", **FOREVER}
ROM = {"running": "rom", "rom": {"pid": "0x0810"}}
QUICK = {"latency_us": 0, "erase_ms": 5, "leave_ms": 1, "return_ms": 260, "ready_ms": 1}


def hub(name="hub", port="3.1", **members):
    return {"name": name, "port": port, **members}


def loss(request, nth=1, **members):
    return {"on": "request", "request": request, "nth": nth, "action": "power_loss", "return_ms": 0, **members}


class PackageTest(unittest.TestCase):
    """A test with images, and with a machine for as long as it runs."""

    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        os.environ["XDG_CONFIG_HOME"] = str(cls.work / "config")
        for name, *options in (["new"], ["vendor", "--vid", "2E7D"], ["product", "--pid", "0820"],
                               ["older", "--version", "0101"], ["same", "--version", "0102"]):
            cls.image(name, *options)

    @classmethod
    def image(cls, name, *options):
        file = cls.work / f"{name}.bin"
        subprocess.run([QZHUB, "image", "--out", file, "--size", "32680",
                        *(options if "--version" in options else ["--version", "0210", *options])], check=True)
        return file

    def machine(self, *devices, faults=(), **members):
        scenario = {"devices": list(devices) or [hub()], "faults": list(faults), **members}
        return self.enterContext(qzhidapi.virtual(scenario, library=LIBRARY))

    def opened(self, selector=None):
        return self.enterContext(Hub(selector))

    def failure(self, kind, *arguments, **options):
        """What the call raises, which is exactly of that kind."""
        with self.assertRaises(kind) as caught:
            arguments[0](*arguments[1:], **options)
        self.assertIs(kind, type(caught.exception), caught.exception)
        return caught.exception

    def update(self, image="new", **options):
        with Hub() as opened:
            return opened.update(self.work / f"{image}.bin", wait=0, **options)


class ListTest(PackageTest):
    def test_a_list_says_where_each_hub_is_and_what_it_runs(self):
        self.machine(hub("a", "3.1"), hub("b", "4", **ROM), {"name": "mouse", "kind": "other", "port": "5",
                                                               "vid": "0x045E", "pid": 64})
        hubs = qzhidapi.list_hubs()
        self.assertEqual(["1-3.1", "1-4"], [found.port_id for found in hubs])
        self.assertEqual(["firmware", "loader"], [found.state for found in hubs])
        self.assertEqual([0x0102, None], [found.version for found in hubs])
        self.assertEqual([(0x2E7C, 0x0818), (0x2E7C, 0x0810)], [(found.vid, found.pid) for found in hubs])
        self.assertEqual(LOCATION, hubs[0].location)
        self.assertEqual((2, 1), (hubs[0].level, hubs[0].port))
        self.assertEqual("HID\\VID_2E7C&PID_0818&REV_0100", hubs[0].hardware_ids[0])
        self.assertEqual("1.02", str(hubs[0].version))
        self.assertEqual(["1-5"], [found.port_id for found in qzhidapi.list_devices(0x045E, 0x40)])
        self.assertEqual([], qzhidapi.list_devices(0x045E, 0x41))

    def test_devices_are_listed_by_their_whole_ids(self):
        self.machine(hub(), {"name": "mouse", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x1400"})
        for vid, pid in [(0x045E, 0x0400), (0x045E, 0x0140), (0x005E, 0x1400), (0x045E, 0x1401)]:
            self.assertEqual([], qzhidapi.list_devices(vid, pid))
        self.assertEqual(["1-5"], [found.port_id for found in qzhidapi.list_devices(0x045E, 0x1400)])

    def test_a_version_that_cannot_be_read_once_is_read_again(self):
        self.machine(faults=[{"on": "request", "request": "C0/09", "nth": 2, "action": "stall"}])
        self.assertEqual([0x0102], [found.version for found in qzhidapi.list_hubs()])

    def test_without_a_hub_the_list_is_empty(self):
        self.machine({"name": "mouse", "kind": "other", "port": "5"})
        self.assertEqual([], qzhidapi.list_hubs())
        self.assertEqual("plug one in", self.failure(NoSuchHub, Hub().open).remedy)

    def test_hubs_that_cannot_be_opened_or_do_not_answer_are_listed_as_such(self):
        self.machine(hub("hub", "1"), hub("silent", "2"), hub("good", "3"), faults=[
            NOT_OPENABLE, {"on": "exchange", "device": "silent", "count": 0, "action": "stall"}])
        self.assertEqual([("1-2", "silent"), ("1-3", "firmware"), ("1-1", "no permission")],
                         [(found.port_id, found.state) for found in qzhidapi.list_hubs()])

    def test_of_a_hub_with_several_collections_one_is_listed(self):
        self.machine(hub(part="Col01", siblings=["Col02"]))
        self.assertEqual(["1-3.1"], [found.port_id for found in qzhidapi.list_hubs()])

    def test_port_ids_begin_with_the_controller_when_there_are_several(self):
        self.machine(hub("a", "3.1"), hub("b", "2-3.1"))
        self.assertEqual(["1400/1-3.1", "1500/1-3.1"], [found.port_id for found in qzhidapi.list_hubs()])

    def test_a_list_does_not_disturb_an_open_hub(self):
        self.machine(hub(gpio_high=[3]))
        opened = self.opened()
        for _ in range(2):
            self.assertEqual(1, opened.gpio_get(3))
            self.assertEqual(1, len(qzhidapi.list_hubs()))
            self.assertEqual(1, opened.gpio_get(3))
            self.assertEqual(1, len(qzhidapi.list_devices(0x2E7C, 0x0818)))


class SelectorTest(PackageTest):
    def setUp(self):
        self.machine(hub("a", "3.1"), hub("b", "2", image={"pid": "0x0820"}), hub("c", "4.3.1"))
        folder = self.work / "config/qzhid"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "ports.conf").write_text("# ports\nbay 3 = 1-3.1\n\nother=1-7 # empty\n")
        self.names = folder / "ports.conf"
        self.addCleanup(self.names.unlink)

    def test_a_hub_is_named_by_port_id_name_location_or_ids(self):
        for selector, port in [
                ("1-3.1", "1-3.1"), ("1400/1-3.1", "1-3.1"), ("1-4.3.1", "1-4.3.1"), ("bay 3", "1-3.1"),
                (LOCATION, "1-3.1"), (LOCATION.lower(), "1-3.1"), ("usbroot(0)#usb(2)", "1-2"),
                ("2E7C:0820", "1-2"), ("2e7c:820", "1-2"), ("pid=0820", "1-2")]:
            with self.subTest(selector), Hub(selector) as found:
                self.assertEqual(port, found.info.port_id)

    def test_what_names_no_hub_is_rejected(self):
        for selector in ["", "3.1", "1-3", "SB(2)", "Bay 3", "other", "2E7C:0821", "2E7C", "pid=", "vid=12E7C"]:
            with self.subTest(selector):
                error = self.failure(NoSuchHub, Hub(selector).open)
                self.assertEqual("attached are: 1-3.1 (bay 3), 1-2, 1-4.3.1", error.remedy)

    def test_what_names_several_hubs_is_rejected(self):
        for selector in [None, "vid=2E7C", "2E7C:0818", "USB(3)#USB(1)"]:
            with self.subTest(selector):
                self.assertIn("1-3.1 (bay 3), ", self.failure(WrongUse, Hub(selector).open).remedy)

    def test_messages_name_the_hub_with_its_name(self):
        with Hub("bay 3") as opened:
            self.assertIn("hub 1-3.1 (bay 3): the image is for vendor 2E7D",
                          str(self.failure(Refused, opened.update, self.work / "vendor.bin")))

    def test_port_names_that_are_not_usable_are_reported(self):
        for text, what in [("bay 3", "line 1 is not NAME = PORT"), ("a=1-1\nb=\n", "line 2 is not NAME = PORT"),
                           ("a=1-1\na=1-2", "line 2 names 'a' again"), ("a=1-1\nb=1-1", "line 2 gives port 1-1 another name"),
                           ("a=1-", "line 1 has '1-', which is not a port id"),
                           ("a\x1b=1-1", "line 1 has a name with a control character"),
                           *[(f"{name}=1-1", f"line 1 has the name '{name}', which already means something else")
                             for name in ("1-2", "1400/1-2.1:0", "2e7c:818", "Usb(2)", "instance:7")]]:
            self.names.write_text(text)
            self.assertIn(what, self.failure(QzHidError, qzhidapi.list_hubs).what)


class RequestTest(PackageTest):
    def test_gpio_lines_are_read_and_driven(self):
        self.machine(hub(gpio_high=[5]))
        opened = self.opened()
        self.assertEqual([0, 1, 0], [opened.gpio_get(line) for line in (0, 5, 23)])
        opened.gpio_drive(23, 1)
        opened.gpio_drive(5, 0)
        self.assertEqual([0, 1], [opened.gpio_get(line) for line in (5, 23)])
        opened.gpio_set(3, 1)
        self.assertEqual(1, opened.gpio_get(3))

    def test_an_eeprom_is_written_page_by_page_and_read(self):
        self.machine(hub(i2c=[{"kind": "eeprom", "address": "0xA0", "page_size": 8}]))
        target = self.opened().i2c(0xA0)
        data = bytes(range(1, 251))
        target.write(5, data)
        self.assertEqual(b"\xff" * 5 + data + b"\xff", target.read(0, 256))
        self.assertEqual(data[:192], target.read_at(b"\x05\x00", 192))
        self.assertEqual(b"", target.read(0, 0))
        target.write(0, b"")

    def test_the_size_of_a_memory_address_is_passed_on(self):
        self.machine(hub(i2c=[{"kind": "eeprom", "address": "0xA0", "size": 256, "page_size": 8, "address_bytes": 1}]))
        opened = self.opened()
        opened.i2c(0xA0, memory_bytes=1).write(3, b"x")
        self.assertEqual(b"x", opened.i2c(0xA0, 1).read(3, 1))
        self.failure(RequestFailed, opened.i2c(0xA0).read, 3, 1)

    def test_a_write_waits_while_the_eeprom_stores_a_page(self):
        fault = {"on": "request", "request": "40/C6", "nth": 2, "count": 3, "action": "stall"}
        self.machine(hub(i2c=[{"kind": "eeprom", "address": "0xA0"}]), faults=[fault])
        target = self.opened().i2c(0xA0)
        target.write(0, bytes(16))
        self.assertEqual(bytes(16), target.read(0, 16))

    def test_the_first_page_is_written_once_only(self):
        fault = {"on": "request", "request": "40/C6", "action": "stall"}
        self.machine(hub(i2c=[{"kind": "eeprom", "address": "0xA0"}]), faults=[fault])
        self.failure(RequestFailed, self.opened().i2c(0xA0).write, 0, b"x")

    def test_a_refused_request_says_status_and_remedy_and_the_next_one_works(self):
        self.machine(hub(gpio_high=[1]))
        opened = self.opened()
        error = self.failure(RequestFailed, opened.i2c(0x42).read, 0, 4)
        self.assertEqual(errno.EPIPE, error.status)
        self.assertEqual("hub 1-3.1: the I2C read failed with status 32 (the hub or the target refused it); "
                         "check the address and that the hub runs its firmware", str(error))
        self.assertEqual(1, opened.gpio_get(1))

    def test_a_hub_that_left_is_lost_and_usable_when_it_is_back(self):
        machine = self.machine(hub(gpio_high=[1]))
        opened = self.opened()
        machine.unplug("hub")
        self.assertEqual("hub 1-3.1: reading the line failed, and the hub is gone; plug it in again and try again",
                         str(self.failure(HubLost, opened.gpio_get, 1)))
        self.assertEqual("the hub is gone", self.failure(HubLost, opened.gpio_get, 1).what)
        machine.plug("hub")
        self.assertEqual(1, opened.gpio_get(1))

    def test_the_flash_behind_the_hub_is_written_when_it_is_ready(self):
        self.machine(hub(bridge_flash={"size": 4096, "busy_polls": 3}))
        opened = self.opened()
        opened.flash_write(0, bytes(300))
        self.assertEqual(0, opened.flash_status())
        opened.flash_stage(512, bytes(2))
        opened.flash_erase()
        self.assertEqual(0, opened.flash_status())
        self.failure(RequestFailed, opened.flash_write, 4096, b"x")

    def test_requests_have_the_bytes_that_were_asked_for(self):
        wire = self.work / "wire.pcapng"
        for work, sent in [
                (lambda opened: opened.block_command((1, 2, 3), 0x10, 0x20, b"pool"), "40f20102000330000000706f6f6c"),
                (lambda opened: opened.block_command((1, 2, 3), 0x01020304), "40f20102000304030201"),
                (lambda opened: opened.i2c(0xA0, 2, 1).write(0x0102, b"ab"), "40c602010000 0200 a00281|6162"),
                (lambda opened: opened.i2c(0xA0, 2, 2).read(0x0102, 9), "40d602010000 0900 a00282"),
                (lambda opened: opened.i2c(0xA0, 5).read_at(b"\1\2\3\4\5", 9), "40d601020304 0905 a00580"),
                (lambda opened: opened.flash_write(0x01020304, b"ab"), "40f1040302010200|6162"),
                (lambda opened: opened.flash_write(0x100, bytes(129)), "40f1000100008000|40f1800100000100"),
                (lambda opened: opened.flash_stage(0x01020304, b"ab"), "00cf040302010200|6162"),
                (lambda opened: opened.gpio_set(0x0102, 1), "40040101020100"),
                (lambda opened: opened.gpio_drive(5, 1), "400c0005000100")]:
            with self.subTest(sent), qzhidapi.virtual({"devices": [hub()], "capture": str(wire)}, LIBRARY):
                with Hub() as opened:
                    try:
                        work(opened)
                    except RequestFailed:
                        pass  # the hub has nothing behind it
                for part in sent.split("|"):
                    self.assertTrue(bytes.fromhex(part) in wire.read_bytes(), part)
            wire.unlink()

    def test_numbers_out_of_their_range_are_rejected_before_anything_is_sent(self):
        self.machine()
        opened = self.opened()
        for call, *arguments in [
                (opened.gpio_get, 24), (opened.gpio_get, -1), (opened.gpio_drive, 0, 2), (opened.gpio_set, 65536, 1),
                (opened.i2c, 0), (opened.i2c, 256), (opened.i2c, 1, 6), (opened.i2c, 1, 2, 3),
                (opened.i2c(1).read, 1 << 32, 1), (opened.i2c(1).write, 0, b"x", 129), (opened.i2c(1).read_at, b"", 193),
                (opened.i2c(1).read_at, bytes(6), 1), (opened.flash_write, (1 << 32) - 1, b"xx"),
                (opened.block_command, (0, 0, 256), 0), (opened.block_command, (0, 0, 0), 0, 0, bytes(55))]:
            with self.subTest(arguments=arguments), self.assertRaises(ValueError):
                call(*arguments)


class UpdateTest(PackageTest):
    def test_an_update_reports_progress_and_what_the_hub_runs(self):
        self.machine()
        steps = []
        result = self.update(progress=steps.append)
        self.assertEqual(("updated", "1.02", "2.10", 0), result)
        self.assertEqual(sorted(steps), steps)
        self.assertEqual([0, 10, 20], steps[:3])
        self.assertEqual([70, 90, 100], steps[-3:])
        self.assertEqual(["2.10"], [str(found.version) for found in qzhidapi.list_hubs()])

    def test_requests_work_after_an_update_on_the_same_object(self):
        self.machine(hub(gpio_high=[2]))
        opened = self.opened()
        opened.update(self.work / "new.bin")
        self.assertEqual(1, opened.gpio_get(2))
        self.assertEqual((0x2E7C, 0x0818, 0x0210), opened.state())
        self.assertEqual(0x0210, opened.version())

    def test_a_hub_that_runs_the_image_is_not_written(self):
        self.machine()
        self.assertEqual(("current", "1.02", "1.02", 0), self.update("same"))
        self.assertEqual(("updated", "1.02", "1.02", 0), self.update("same", force=True))

    def test_an_image_that_is_not_for_the_hub_is_refused(self):
        self.machine()
        for image, what, remedy in [
                ("vendor", "the image is for vendor 2E7D, the hub is of vendor 2E7C", "use an image for this hub"),
                ("product", "the image is for product 0820, the hub is product 0818",
                 "use an image for this hub, or force=True to write it anyway"),
                ("older", "the hub runs 1.02, which is newer than the image's 1.01",
                 "use a newer image, or allow_older=True to write it anyway")]:
            with self.subTest(image), Hub() as opened:
                error = self.failure(Refused, opened.update, self.work / f"{image}.bin")
                self.assertEqual((what, remedy, "1-3.1", "1.02", "refused", 5),
                                 (error.what, error.remedy, error.hub, error.runs, error.outcome, error.exit_status))
                self.failure(Refused, opened.update, self.work / "vendor.bin", force=True, allow_older=True)
                self.assertEqual(0x0102, opened.version())

    def test_an_older_image_and_another_product_are_written_when_that_is_allowed(self):
        self.machine()
        with Hub() as opened:
            self.assertEqual("1.01", opened.update(self.work / "older.bin", allow_older=True).runs)
            self.assertEqual("2.10", opened.update(self.work / "product.bin", force=True).runs)

    def test_a_file_that_is_not_the_wanted_image_is_refused_before_anything_is_sent(self):
        self.machine(faults=[{"on": "exchange", "nth": 20, "count": 0, "action": "stall"}])
        good = (self.work / "new.bin").read_bytes()
        files = {"short": good[:-1], "long": bytes(0x1000001), "empty": b"", "damaged": good[:-1] + b"x",
                 "length": good[:0x7F88] + b"\xff" + good[0x7F89:]}
        for name, data in files.items():
            (self.work / f"{name}.bin").write_bytes(data)
        os.mkfifo(self.work / "pipe.bin")
        opened = self.opened()
        for name, what, options in [
                ("short", "is too short: 32679 bytes of at least 32680", {}), ("empty", "is too short", {}),
                ("long", "is too long", {}), ("damaged", "is damaged", {}), ("length", "is damaged", {}),
                ("pipe", "is not a regular file", {}), ("none", "does not exist", {}),
                ("new", "is longer than the flash: 32680 bytes of at most 32679", {"flash_size": 32679}),
                ("new", f"has the SHA-256 {hashlib.sha256(good).hexdigest()}", {"sha256": "0" * 64})]:
            with self.subTest(name, **options):
                self.assertIn(what, self.failure(Refused, opened.update, self.work / f"{name}.bin", **options).what)
        with self.assertRaises(ValueError):
            opened.update(self.work / "new.bin", sha256="12")

    def test_the_wanted_image_is_written(self):
        self.machine()
        digest = hashlib.sha256((self.work / "new.bin").read_bytes()).hexdigest().upper()
        self.assertEqual("updated", self.update(sha256=digest, flash_size=32680).outcome)

    def test_a_file_that_changes_after_the_check_has_no_effect(self):
        self.machine()
        file = self.image("changing")
        with Hub() as opened:
            self.assertEqual("2.10", opened.update(file, lambda percent: file.write_bytes(b"")).runs)

    def test_a_try_that_fails_is_repeated_also_from_the_loader(self):
        # After a loss of power in the check of the flash, the hub runs the image.
        for request, retries in [("40/00", 1), ("40/E8", 1), ("40/C8", 1), ("C0/D8", 0)]:
            with self.subTest(request), qzhidapi.virtual({"devices": [hub()], "faults": [loss(request)]}, LIBRARY):
                self.assertEqual(("updated", "1.02", "2.10", retries), Hub().open().update(self.work / "new.bin"))

    def test_a_try_with_an_older_image_is_repeated_too(self):
        self.machine(faults=[loss("40/00")])
        self.assertEqual(("updated", "1.02", "1.01", 1), self.update("older", allow_older=True))

    def test_a_hub_that_starts_its_other_bank_is_not_updated(self):
        lost = {"on": "request", "request": "40/C8", "count": 0, "action": "lose_write"}
        self.machine(hub(dual_bank=True), faults=[lost])
        error = self.failure(UpdateFailed, self.update, retries=0)
        self.assertEqual("the image is written, but not started, and the hub runs 1.02", error.what)

    def test_bytes_after_the_image_are_no_damage(self):
        file = self.image("longer")
        file.write_bytes(file.read_bytes() + b"more")
        self.machine()
        self.assertEqual("2.10", self.update("longer").runs)

    def test_the_hub_is_awaited_when_it_is_away(self):
        self.machine(hub(timing=QUICK), faults=[loss("40/C8", 5, return_ms=700)], time="real")
        result = self.opened().update(self.work / "new.bin", retries=1, wait=20)
        self.assertEqual(("updated", "1.02", "2.10", 1), result)

    def test_a_hub_that_leaves_while_it_is_asked_is_asked_again(self):
        self.machine(faults=[{"on": "request", "request": "C0/09", "action": "unplug", "return_ms": 0}])
        self.assertEqual(("updated", "1.02", "2.10", 0), self.update())

    def test_a_hub_that_stays_in_its_loader_is_reported_and_recovered(self):
        self.machine(faults=[loss("40/C8", 5), loss("40/C8", 10)])
        opened = self.opened()
        image = self.work / "new.bin"
        error = self.failure(InLoader, opened.update, image, retries=1, wait=0)
        self.assertEqual(("the update failed, and the hub is in its loader", "loader", "loader", 7),
                         (error.what, error.runs, error.outcome, error.exit_status))
        self.assertIsNone(opened.version())
        error = self.failure(InLoader, opened.update, image)
        self.assertEqual(("the hub is in its loader", "call recover() with an image for it"), (error.what, error.remedy))
        self.failure(Refused, opened.recover, self.work / "vendor.bin")
        self.assertEqual(("updated", "loader", "2.10", 0), opened.recover(image))
        self.assertEqual("current", opened.recover(image).outcome)
        self.assertIn("the hub runs its firmware 2.10", self.failure(Refused, opened.recover, self.work / "same.bin").what)

    def test_a_hub_that_was_interrupted_by_another_program_is_recovered(self):
        self.machine(hub(image={"cut_after": 4096}, rom={"pid": "0x0810"}))
        self.assertEqual(("updated", "loader", "2.10", 0), self.opened().recover(self.work / "new.bin"))

    def test_an_update_that_fails_before_the_erase_leaves_the_firmware(self):
        self.machine(faults=[{"on": "request", "request": "40/00", "count": 0, "action": "stall"}])
        error = self.failure(UpdateFailed, self.opened().update, self.work / "new.bin", wait=0)
        self.assertEqual(("the update failed, and the hub runs 1.02", "1.02", "failed"),
                         (error.what, error.runs, error.outcome))

    def test_a_hub_that_does_not_come_back_is_lost(self):
        self.machine(faults=[{"on": "reset", "action": "never_return"}])
        error = self.failure(HubLost, self.opened().update, self.work / "new.bin", wait=0)
        self.assertEqual(("the update failed, and the hub has left the bus", None, "lost", 6),
                         (error.what, error.runs, error.outcome, error.exit_status))

    def test_a_hub_that_cannot_be_opened_any_more_is_reported_as_such(self):
        for nth, kind, what in [(6, PermissionDenied, "the hub cannot be opened"),
                                (20, HubLost, "the update failed, and the hub cannot be opened")]:
            fault = {**NOT_OPENABLE, "nth": nth}
            with qzhidapi.virtual({"devices": [hub()], "faults": [fault]}, LIBRARY), Hub() as opened:
                error = self.failure(kind, opened.update, self.work / "new.bin", wait=0)
                self.assertEqual(what, error.what)
                self.assertIn("udev rule", error.remedy)

    def test_another_hub_at_the_port_is_not_written(self):
        machine = self.machine(hub(), hub("other", plugged=False, image={"pid": "0x0820"}))

        def swap(percent):
            if percent == 40:
                machine.unplug("hub")
                machine.plug("other")
        error = self.failure(HubLost, self.opened().update, self.work / "new.bin", swap, wait=0)
        self.assertEqual("the update failed, and another hub has taken its place", error.what)

    def test_a_hub_can_stay_in_its_loader(self):
        self.machine()
        self.assertEqual("loader", self.update(stay_in_loader=True).runs)
        self.assertEqual(["loader"], [found.state for found in qzhidapi.list_hubs()])

    def test_a_hub_that_another_process_writes_is_refused(self):
        machine = self.machine()
        name = hashlib.sha256(f"{machine.scenario}\n{LOCATION}".encode()).hexdigest()
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as lock:
            lock.bind(f"\0qzhid-{name}")
            self.assertIn("another process is writing the hub",
                          self.failure(Refused, self.update).what)
        self.assertEqual("updated", self.update().outcome)

    def test_the_lock_of_a_real_hub_is_that_of_its_location(self):
        machine = self.machine()
        library = self.work / "lib.so"  # which is not in a folder "virtual"
        library.symlink_to(LIBRARY)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as lock:
            lock.bind(f"\0qzhid-{hashlib.sha256(LOCATION.encode()).hexdigest()}")
            qzhidapi.use_library(library)
            self.assertIn("another process is writing the hub", self.failure(Refused, self.update).what)
        self.assertTrue(machine.scenario.exists())

    def test_qzhid_does_not_write_a_hub_meanwhile(self):
        self.machine()
        ran = []

        def interfere(percent):
            if percent == 10:
                ran.append(subprocess.run([QZHID, "--library", LIBRARY, "update", "-i", self.work / "new.bin", "-y"],
                                          capture_output=True, text=True, env={**os.environ, "LD_PRELOAD": ""}))
        self.update(progress=interfere)
        self.assertEqual([5], [run.returncode for run in ran])
        self.assertIn("another process is writing the hub", ran[0].stderr)

    def test_signals_that_end_the_program_wait_for_the_end_of_the_update(self):
        self.machine()
        steps = []

        def interrupt(percent):
            steps.append(percent)
            if percent == 40:
                signal.raise_signal(signal.SIGINT)
        opened = self.opened()
        with self.assertRaises(KeyboardInterrupt):
            opened.update(self.work / "new.bin", interrupt)
        self.assertEqual(100, steps[-1])
        self.assertEqual(0x0210, opened.version())
        self.assertIs(signal.default_int_handler, signal.getsignal(signal.SIGINT))


class WrongUseTest(PackageTest):
    def test_a_hub_that_is_not_open_is_rejected(self):
        self.machine(hub(i2c=[{"kind": "eeprom", "address": "0xA0"}]))
        never, closed = Hub(), Hub()
        with closed:
            target = closed.i2c(0xA0)
        for opened in (never, closed):
            for call, *arguments in [(opened.state,), (opened.version,), (opened.update, self.work / "new.bin"),
                                     (opened.recover, self.work / "new.bin"), (opened.gpio_get, 1),
                                     (opened.flash_erase,), (opened.flash_status,)]:
                with self.subTest(call.__name__):
                    self.failure(HubClosed, call, *arguments)
        self.failure(HubClosed, target.read, 0, 1)
        self.failure(HubClosed, lambda: never.info)
        self.assertEqual("1-3.1", closed.info.port_id)
        closed.close()
        with closed:
            self.assertEqual(0x0102, closed.version())

    def test_a_second_hub_is_rejected_while_one_is_open(self):
        self.machine(hub("a", "1", gpio_high=[1]), hub("b", "2"))
        with Hub("1-1") as first:
            self.assertIn("hub 1-1 is open", self.failure(HubInUse, Hub("1-2").open).what)
            self.assertEqual(1, first.gpio_get(1))
            self.assertIs(first, first.open())
        with Hub("1-2") as second:
            self.assertEqual("1-2", second.info.port_id)

    def test_a_hub_that_could_not_be_opened_does_not_block_others(self):
        self.machine(hub("hub", "1"), hub("b", "2"), faults=[NOT_OPENABLE])
        self.failure(PermissionDenied, Hub("1-1").open)
        with Hub("1-2") as second:
            self.assertEqual("1-2", second.info.port_id)

    def test_a_missing_permission_is_an_exception_of_its_own(self):
        self.machine(faults=[NOT_OPENABLE])
        error = self.failure(PermissionDenied, Hub().open)
        self.assertEqual(("the hub cannot be opened", "1-3.1", "refused", 4),
                         (error.what, error.hub, error.outcome, error.exit_status))
        self.assertIn("udev rule", error.remedy)

    def test_two_threads_at_a_time_are_rejected(self):
        self.machine()
        opened = self.opened()
        failures = []

        def interfere(percent):
            if percent == 10:
                for call in (lambda: opened.gpio_get(1), qzhidapi.list_hubs, opened.close, Hub().open,
                             lambda: opened.update(self.work / "new.bin"), lambda: qzhidapi.use_library(None)):
                    thread = threading.Thread(target=lambda: failures.append(self.failure(HubInUse, call)))
                    thread.start()
                    thread.join()
        result = opened.update(self.work / "new.bin", interfere)
        self.assertEqual(6, len(failures))
        self.assertEqual("2.10", result.runs)

    def test_a_hub_can_be_used_by_one_thread_after_the_other(self):
        self.machine(hub(gpio_high=[1]))
        opened = self.opened()
        levels = []
        thread = threading.Thread(target=lambda: levels.append(opened.gpio_get(1)))
        thread.start()
        thread.join()
        levels.append(opened.gpio_get(1))
        self.assertEqual([1, 1], levels)

    def test_what_a_callback_raises_is_raised_when_the_update_is_complete(self):
        self.machine()
        opened = self.opened()
        for error in (ZeroDivisionError(), SystemExit(3)):
            steps = []

            def fail(percent):
                steps.append(percent)
                raise error
            with self.assertRaises(type(error)) as caught:
                opened.update(self.work / "new.bin", fail, force=True)
            self.assertIs(error, caught.exception)
            self.assertEqual([0], steps)
            self.assertEqual(0x0210, opened.version())

    def test_a_callback_that_uses_the_library_is_rejected(self):
        self.machine()
        opened = self.opened()
        with self.assertRaises(HubInUse):
            opened.update(self.work / "new.bin", lambda percent: opened.gpio_get(1))
        self.assertEqual(0x0210, opened.version())

    def test_a_failed_update_counts_more_than_what_the_callback_raises(self):
        self.machine(faults=[{"on": "reset", "action": "never_return"}])
        error = self.failure(HubLost, self.opened().update, self.work / "new.bin", lambda percent: 1 / 0, wait=0)
        self.assertIsInstance(error.__cause__, ZeroDivisionError)

    def test_a_file_that_is_no_such_library_is_rejected(self):
        self.addCleanup(qzhidapi.use_library, None)
        for file, what in [("/nowhere/lib.so", "cannot be loaded"), ("libc.so.6", "has no function QZ_ListAllHidDev")]:
            qzhidapi.use_library(file)
            self.assertIn(what, self.failure(LibraryError, qzhidapi.list_hubs).what)

    def test_after_a_test_with_virtual_hubs_the_library_is_the_one_from_before(self):
        self.addCleanup(qzhidapi.use_library, None)
        qzhidapi.use_library("/nowhere/lib.so")
        with qzhidapi.virtual(library=LIBRARY):
            self.assertEqual(1, len(qzhidapi.list_hubs()))
        self.assertIn("/nowhere/lib.so", self.failure(LibraryError, qzhidapi.list_hubs).what)

    def test_virtual_hubs_cannot_be_changed_while_one_is_open(self):
        self.machine()
        self.opened()
        with self.assertRaises(HubInUse), qzhidapi.virtual(library=LIBRARY):
            pass

    def test_a_machine_without_a_control_file_cannot_be_plugged(self):
        scenario = self.work / "scenario.json"
        scenario.write_text('{"devices": []}')
        machine = self.enterContext(qzhidapi.virtual(scenario, LIBRARY))
        with self.assertRaises(ValueError):
            machine.plug("hub")


class SeveralHubsTest(PackageTest):
    def test_hubs_are_written_by_processes_of_their_own(self):
        state = self.enterContext(tempfile.TemporaryDirectory())
        self.machine(hub("a", "1"), hub("b", "2", image={"cut_after": 4096}), hub("c", "3", image={"vid": "0x2E7D"}),
                     hub("hub", "4"), hub("d", "5", image={"version": "0x0210"}), hub("e", "6", image={"version": "0x0300"}),
                     faults=[NOT_OPENABLE, loss("40/C8", 9, device="a")], state_folder=state)
        steps = {}
        outcomes = qzhidapi.update_hubs(qzhidapi.list_hubs() * 2, self.work / "new.bin", wait=0,
                                        progress=lambda found, percent: steps.setdefault(found.port_id, []).append(percent))
        self.assertEqual([("1-1", "updated", "1.02", "2.10", 1), ("1-2", "updated", "loader", "2.10", 0),
                          ("1-3", "refused", None, "1.02", 0), ("1-5", "current", "2.10", "2.10", 0),
                          ("1-6", "refused", None, "3.00", 0), ("1-4", "refused", None, None, 0)],
                         [(one.hub.port_id, one.outcome, one.before, one.runs, one.retries) for one in outcomes])
        self.assertEqual([type(None), type(None), Refused, type(None), Refused, PermissionDenied],
                         [type(one.error) for one in outcomes])
        self.assertEqual({"1-1", "1-2"}, set(steps))
        self.assertEqual([100, 100], [one[-1] for one in steps.values()])

    def test_no_more_hubs_than_wanted_are_written_at_a_time(self):
        state = self.enterContext(tempfile.TemporaryDirectory())
        self.machine(hub("a", "1"), hub("b", "2"), state_folder=state)
        steps = []
        qzhidapi.update_hubs(qzhidapi.list_hubs(), self.work / "new.bin", jobs=1,
                             progress=lambda found, percent: steps.append((found.port_id, percent)))
        self.assertEqual(sorted(steps), steps)
        self.assertEqual(("1-2", 100), steps[-1])

    def test_a_process_that_dies_leaves_a_hub_in_an_unknown_state(self):
        self.machine()
        hubs = qzhidapi.list_hubs()
        with mock.patch.object(sys, "executable", "/bin/false"):
            outcomes = qzhidapi.update_hubs(hubs, self.work / "new.bin")
        self.assertEqual([("lost", HubLost)], [(one.outcome, type(one.error)) for one in outcomes])
        self.assertIn("the hub's state is unknown", outcomes[0].error.what)

    def test_what_the_callback_raises_is_raised_when_all_hubs_are_done(self):
        state = self.enterContext(tempfile.TemporaryDirectory())
        devices = [hub("a", "1"), hub("b", "2")]
        with qzhidapi.virtual({"devices": devices, "state_folder": state}, LIBRARY), self.assertRaises(KeyError):
            qzhidapi.update_hubs(qzhidapi.list_hubs(), self.work / "new.bin", lambda found, percent: {}[percent])
        self.machine(*devices, state_folder=state)
        self.assertEqual([0x0210, 0x0210], [found.version for found in qzhidapi.list_hubs()])

    def test_a_file_that_is_no_image_is_refused_before_a_process_starts(self):
        self.machine()
        self.failure(Refused, qzhidapi.update_hubs, qzhidapi.list_hubs(), "/nowhere")


class CommandTest(PackageTest):
    def run_package(self, *arguments):
        return subprocess.run([sys.executable, "-m", "qzhidapi", "--library", LIBRARY, *map(str, arguments)],
                              capture_output=True, text=True,
                              env={**os.environ, "PYTHONPATH": str(SOURCE / "bindings/python")})

    def test_hubs_are_listed_updated_recovered_and_read(self):
        state = self.enterContext(tempfile.TemporaryDirectory())
        self.machine(hub(image={"cut_after": 4096}, i2c=[{"kind": "eeprom", "address": "0xA0"}]), state_folder=state)
        new = self.work / "new.bin"
        for arguments, status, output in [
                (["list"], 0, "PORT   NAME  VID:PID    VERSION  STATE\n1-3.1  -     2E7C:0810  -        loader\n"),
                (["update", "-i", new], 7, ""), (["recover", "-i", new], 0, "hub 1-3.1 runs 2.10 now\n"),
                (["update", "--hub", "1-3.1", "--image", new], 0, "hub 1-3.1 already runs 2.10\n"),
                (["update", "-i", self.work / "same.bin"], 5, ""), (["update", "--hub", "1-1", "-i", new], 3, ""),
                (["i2c-read", "--target", "0xA0", "--length", "4"], 0, "ff ff ff ff\n"),
                (["i2c-read", "--target", "0", "--length", "4"], 2, ""), (["list", "--nonsense"], 2, "")]:
            with self.subTest(arguments):
                run = self.run_package(*arguments)
                self.assertEqual(output, run.stdout)
                self.assertEqual(status, run.returncode, run.stderr)
        self.assertIn("hub 1-3.1: the hub runs 2.10, which is newer than the image's 1.02; use a newer image",
                      self.run_package("update", "-i", self.work / "same.bin").stderr)

    def test_without_a_permission_the_exit_status_is_4(self):
        self.machine(faults=[NOT_OPENABLE])
        self.assertEqual(4, self.run_package("update", "-i", self.work / "new.bin").returncode)

    def test_a_log_is_written(self):
        log = self.work / "log.txt"
        text = ("import qzhidapi, sys\nqzhidapi.use_library(sys.argv[1])\nqzhidapi.log_to(sys.argv[2], 1)\n"
                "qzhidapi.list_hubs()\nqzhidapi.stop_log()\n"
                "try: qzhidapi.log_to('/nowhere/log.txt')\nexcept qzhidapi.QzHidError as error: print(error.what)")
        run = subprocess.run([sys.executable, "-c", text, LIBRARY, log], capture_output=True, text=True, check=True,
                             env={**os.environ, "PYTHONPATH": str(SOURCE / "bindings/python")})
        self.assertEqual("the log /nowhere/log.txt cannot be written\n", run.stdout)
        self.assertIn("QZ_ListAllHidDev, List Device Success", log.read_text())

    def test_a_crash_leaves_a_record(self):
        text = "import os, qzhidapi, sys\nqzhidapi.use_library(sys.argv[1])\nqzhidapi.record_crashes()\nos.abort()"
        run = subprocess.run([sys.executable, "-c", text, LIBRARY], cwd=self.work,
                             env={**os.environ, "PYTHONPATH": str(SOURCE / "bindings/python")})
        self.assertEqual(-signal.SIGABRT, run.returncode)
        self.assertIn("SIGABRT", (self.work / "ConsoleApplication1.dmp").read_text())


if __name__ == "__main__":
    unittest.main()
