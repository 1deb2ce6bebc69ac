"""Captures of virtual hubs, and the same packets as other programs write them."""
import struct

USBMON, USBMON_SHORT, USBPCAP = 220, 189, 249


def packets(file):
    """The packets of a capture of the virtual hub: microseconds and bytes of each."""
    with open(file, "rb") as stream:
        data = stream.read()
    found, at = [], 0
    while at < len(data):
        kind, length = struct.unpack_from("<II", data, at)
        if kind == 6:
            high, low, size = struct.unpack_from("<III", data, at + 12)
            found.append((high << 32 | low, data[at + 28:at + 28 + size]))
        at += length
    return found


def pcap(file, link_type, all_packets, order="<", ticks=10**6):
    """Writes a file of the older format."""
    magic = 0xA1B2C3D4 if ticks == 10**6 else 0xA1B23C4D
    with open(file, "wb") as out:
        out.write(struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 0x40000, link_type))
        for time, packet in all_packets:
            fraction = time % 10**6 * (ticks // 10**6)
            out.write(struct.pack(order + "IIII", time // 10**6, fraction, len(packet), len(packet)) + packet)


def pcapng(file, link_type, all_packets, order="<", resolution=9, start=1_700_000_000, old=False):
    """Writes a pcapng file with times of that many decimal places after `start`, in seconds; in packet
    blocks, or in those that came before them."""
    def block(kind, body):
        body += bytes(-len(body) % 4)
        length = struct.pack(order + "I", len(body) + 12)
        return struct.pack(order + "I", kind) + length + body + length

    with open(file, "wb") as out:
        out.write(block(0x0A0D0D0A, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1)))
        out.write(block(0x0BAD, b"of no use"))
        out.write(block(1, struct.pack(order + "HHI", 1, 0, 0)))  # of a network
        out.write(block(1, struct.pack(order + "HHIHHB3xHHqHH", link_type, 0, 0, 9, 1, resolution,
                                       14, 8, start, 0, 0)))
        out.write(block(6, struct.pack(order + "IIIII", 0, 0, 0, 4, 4) + b"ping"))
        for time, packet in all_packets:
            ticks = (time - start * 10**6) * 10 ** (resolution - 6)
            interface = struct.pack(order + "HH", 1, 0) if old else struct.pack(order + "I", 1)
            out.write(block(2 if old else 6, interface + struct.pack(
                order + "IIII", ticks >> 32, ticks & 0xFFFFFFFF, len(packet), len(packet)) + packet))


def big_endian(packet):
    """A packet of usbmon as a computer with the other order of bytes has it."""
    fields = struct.unpack_from("<QBBBBHBBqiiII", packet)
    return struct.pack(">QBBBBHBBqiiII", *fields) + packet[40:]


def qemu(packet):
    """A packet of usbmon as QEMU writes it: without a number for control transfers, and another mark."""
    return bytes(8) + packet[8:15] + b"=" + packet[16:]


def short(packet):
    """A packet of usbmon with the short header."""
    return packet[:48] + packet[64:]


def usbpcap(packet):
    """A packet as USBPcap has it: without a status before the end, and with Windows's codes."""
    return usbpcap_stages(packet, 1)[0]


def usbpcap_stages(packet, most=3):
    """The same as older releases of USBPcap have it: a packet for each stage of a control transfer."""
    number, kind, transfer, endpoint, address, bus, without_setup = struct.unpack_from("<QBBBBHB", packet)
    status = struct.unpack_from("<i", packet, 28)[0]
    ends = kind != ord("S")
    code = 0 if not ends or status == 0 else 0xC0000004 if status == -32 else 0xC0000011

    def made(stage, data):
        return struct.pack("<HQIHBHHBBIB", 28, number, code, 8, ends, bus, address, endpoint, transfer, len(data),
                           stage) + data

    setup, data = b"" if without_setup else packet[40:48], packet[64:]
    if most == 1 or transfer != 2:
        return [made(3 if ends else 0, setup + data)]
    stages = [made(1, data)] if data else []
    return [made(0, setup)] + stages if not ends else stages + [made(2, b"")]
