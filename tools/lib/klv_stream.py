"""Packets of what a camera said (MISB ST 0601) and the MPEG-TS around them, for checks: written apart from the
program's own codec, so that the two cannot be wrong in the same way."""

KEY = bytes.fromhex("060E2B34020B01010E01030101000000")
PACKET, SYNC = 188, 0x47


def split_packets(data):
    """The values of each packet in a run of them; one with a wrong checksum ends the list."""
    packets, at = [], 0
    while data[at:at + 16] == KEY:
        length, head = data[at + 16], 17
        if length >= 0x80:
            head += length & 0x7F
            length = int.from_bytes(data[at + 17:at + head], "big")
        packet = data[at:at + head + length]
        total = sum(byte << (8 if i % 2 == 0 else 0) for i, byte in enumerate(packet[:-2])) & 0xFFFF
        if total != int.from_bytes(packet[-2:], "big"):
            break
        packets.append(packet[head:])
        at += head + length
    return packets


def code_of(values, wanted, signed=False):
    """The whole number behind a tag; None where there is none."""
    at = 0
    while at < len(values):
        tag, length = values[at], values[at + 1]
        if tag == wanted:
            return int.from_bytes(values[at + 2:at + 2 + length], "big", signed=signed)
        at += 2 + length
    return None


def degrees_of(values, tag):
    """Azimuth (18), or the latitude or longitude of sensor (13, 14) or frame centre (23, 24); NaN where not there."""
    code = code_of(values, tag, signed=tag != 18)
    if code is None:
        return float("nan")
    return code / 0xFFFFFFFF * 360 if tag == 18 else code / 0x7FFFFFFF * (90 if tag in (13, 23) else 180)


def crc32(data):
    """The checksum of a table of MPEG-TS."""
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = ((crc << 1) ^ 0x04C11DB7 if crc & 0x80000000 else crc << 1) & 0xFFFFFFFF
    return crc


def payload_of(packet):
    """Where a TS packet's payload begins; None where it has none."""
    control = packet[3] >> 4 & 3
    if control & 1 == 0:
        return None
    return 4 if control == 1 else 5 + packet[4]


def table_in(packet):
    """Where a table begins that this packet begins, and where its checksum ends."""
    begin = payload_of(packet)
    begin += 1 + packet[begin]
    return begin, begin + 3 + ((packet[begin + 1] & 0x0F) << 8 | packet[begin + 2])


def pid_of(packet):
    return (packet[1] & 0x1F) << 8 | packet[2]


def streams_of(packet):
    """Of a packet with the table of streams: (stream type, pid, place of the type) of each."""
    begin, end = table_in(packet)
    at = begin + 12 + ((packet[begin + 10] & 0x0F) << 8 | packet[begin + 11])
    while at < end - 4:
        yield packet[at], (packet[at + 1] & 0x1F) << 8 | packet[at + 2], at
        at += 5 + ((packet[at + 3] & 0x0F) << 8 | packet[at + 4])


def packets_of(data):
    return [bytearray(data[at:at + PACKET]) for at in range(0, len(data) - PACKET + 1, PACKET)]


def map_pid(packets):
    """The pid of the table of streams, from the table of programmes."""
    for packet in packets:
        if pid_of(packet) == 0:
            begin, _ = table_in(packet)
            return (packet[begin + 10] & 0x1F) << 8 | packet[begin + 11]
    raise ValueError("no table of programmes")


def with_stream_type(data, old, new):
    """The same stream, one of its streams declared as of another type. @return the bytes, and that stream's pid"""
    packets = packets_of(data)
    table, found = map_pid(packets), None
    for packet in packets:
        if pid_of(packet) != table:
            continue
        for kind, pid, at in list(streams_of(packet)):
            if kind == old:
                packet[at], found = new, pid
        begin, end = table_in(packet)
        packet[end - 4:end] = crc32(packet[begin:end - 4]).to_bytes(4, "big")
    if found is None:
        raise ValueError(f"no stream of type {old:#x}")
    return b"".join(bytes(packet) for packet in packets), found


def stream_types(data):
    """The types of the streams, as the first table names them."""
    packets = packets_of(data)
    table = map_pid(packets)
    return [kind for kind, _, _ in streams_of(next(packet for packet in packets if pid_of(packet) == table))]


# What a table says of a stream of synchronous KLV: its registration, the metadata descriptor (any application, format
# KLVA, service 0) and the one on its buffers.
SYNCHRONOUS_WORDS = bytes.fromhex("05044B4C5641" "26090100FF4B4C5641000F" "2709C00000C00000C00000")


def with_words(packet, place, words):
    """A packet with the table of streams, the descriptors of the stream whose type lies at `place` replaced."""
    begin, end = table_in(packet)
    old = (packet[place + 3] & 0x0F) << 8 | packet[place + 4]
    table = packet[begin:place + 3] + bytes([0xF0 | len(words) >> 8, len(words) & 0xFF]) + words + \
        packet[place + 5 + old:end - 4]
    length = len(table) + 4 - 3
    table[1:3] = bytes([table[1] & 0xF0 | length >> 8, length & 0xFF])
    table += crc32(table).to_bytes(4, "big")
    return (packet[:begin] + table).ljust(PACKET, b"\xFF")


def to_synchronous(data):
    """A stream with asynchronous KLV (type 0x06) as one with synchronous (0x15): the table, the stream's id, and a
    header of five bytes before each packet (service, running number, flags, length). Each must fit one TS packet."""
    data, pid = with_stream_type(data, 0x06, 0x15)
    out, number = [], 0
    table = map_pid(packets_of(data))
    for packet in packets_of(data):
        if pid_of(packet) == table:
            place = next(at for kind, _, at in streams_of(packet) if kind == 0x15)
            out.append(bytes(with_words(packet, place, SYNCHRONOUS_WORDS)))
            continue
        if pid_of(packet) != pid or payload_of(packet) is None:
            out.append(bytes(packet))
            continue
        begin = payload_of(packet)
        unit = bytes(packet[begin:])
        if unit[:3] != b"\0\0\1" or not packet[1] & 0x40:
            raise ValueError("a packet that is longer than one of the transport stream")
        header, body = unit[9:9 + unit[8]], unit[9 + unit[8]:]
        cell = bytes([0, number & 0xFF, 0xDF]) + len(body).to_bytes(2, "big") + body
        number += 1
        whole = b"\0\0\1\xFC" + (3 + len(header) + len(cell)).to_bytes(2, "big") + unit[6:9] + header + cell
        room = PACKET - 4 - len(whole)
        if room < 2:
            raise ValueError("no room for the header")
        filler = bytes([room - 1, 0]) + b"\xFF" * (room - 2)
        out.append(bytes([SYNC, packet[1], packet[2], 0x30 | packet[3] & 0x0F]) + filler + whole)
    return b"".join(out)
