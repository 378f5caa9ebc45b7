#!/usr/bin/python3
"""Writes samples/ct_small.dcm: a small CT image object made from scratch.

Explicit VR little endian with file meta information, a realistic CT header,
one sequence of defined length and one of undefined length (with an item
delimiter), a private block and 16 x 16 pixels of 16-bit data. Only the
standard library is used, so the output is the same on every machine.

Usage: scripts/make-sample.py [OUTPUT]   (default: samples/ct_small.dcm)
"""
import os
import struct
import sys

LONG_FORM = {"OB", "OW", "OF", "SQ", "UN", "UT", "UC", "UR", "OD", "OL"}
PADDING = {"UI": b"\0", "OB": b"\0", "OW": b"\0"}

# UIDs below 2.25 (ISO/IEC 9834-8 UUID form), fixed so the file never changes.
ROOT = "2.25.1234567890123456789012345678901234"
SOP_CLASS = "1.2.840.10008.5.1.4.1.1.2"  # CT Image Storage
STUDY_UID = ROOT + ".1"
SERIES_UID = ROOT + ".1.2"
INSTANCE_UID = ROOT + ".1.2.3"
FRAME_UID = ROOT + ".9"
EXPLICIT_LE = "1.2.840.10008.1.2.1"


def element(group, elem, vr, value):
    """One explicit VR little endian element; text is padded to even length."""
    if isinstance(value, str):
        value = value.encode("latin-1")
    if len(value) % 2:
        value += PADDING.get(vr, b" ")
    if vr in LONG_FORM:
        return struct.pack("<HH2sHI", group, elem, vr.encode(), 0, len(value)) + value
    return struct.pack("<HH2sH", group, elem, vr.encode(), len(value)) + value


def us(*values):
    return struct.pack("<%dH" % len(values), *values)


def item(content, defined=True):
    if defined:
        return struct.pack("<HHI", 0xFFFE, 0xE000, len(content)) + content
    return (struct.pack("<HHI", 0xFFFE, 0xE000, 0xFFFFFFFF) + content
            + struct.pack("<HHI", 0xFFFE, 0xE00D, 0))


def sequence(group, elem, items, defined=True):
    body = b"".join(items)
    if defined:
        return struct.pack("<HH2sHI", group, elem, b"SQ", 0, len(body)) + body
    return (struct.pack("<HH2sHI", group, elem, b"SQ", 0, 0xFFFFFFFF) + body
            + struct.pack("<HHI", 0xFFFE, 0xE0DD, 0))


def code_item(value, scheme, meaning):
    return (element(0x0008, 0x0100, "SH", value) + element(0x0008, 0x0102, "SH", scheme)
            + element(0x0008, 0x0104, "LO", meaning))


def meta_information():
    body = (element(0x0002, 0x0001, "OB", b"\0\1")
            + element(0x0002, 0x0002, "UI", SOP_CLASS)
            + element(0x0002, 0x0003, "UI", INSTANCE_UID)
            + element(0x0002, 0x0010, "UI", EXPLICIT_LE)
            + element(0x0002, 0x0012, "UI", ROOT + ".100")
            + element(0x0002, 0x0013, "SH", "ZELDICOM_SAMPLE"))
    return element(0x0002, 0x0000, "UL", struct.pack("<I", len(body))) + body


def pixels(rows, columns):
    """A soft disc of soft tissue in air, in CT numbers + 1024."""
    data = []
    for y in range(rows):
        for x in range(columns):
            dy, dx = y - rows / 2 + 0.5, x - columns / 2 + 0.5
            inside = dx * dx + dy * dy < (rows * 0.4) ** 2
            data.append(1064 + (x * 7 + y * 3) % 20 if inside else 24)
    return us(*data)


def data_set():
    rows = columns = 16
    return b"".join([
        element(0x0008, 0x0005, "CS", "ISO_IR 100"),
        element(0x0008, 0x0008, "CS", "ORIGINAL\\PRIMARY\\AXIAL"),
        element(0x0008, 0x0016, "UI", SOP_CLASS),
        element(0x0008, 0x0018, "UI", INSTANCE_UID),
        element(0x0008, 0x0020, "DA", "20240315"),
        element(0x0008, 0x0030, "TM", "101530"),
        element(0x0008, 0x0050, "SH", "ACC0001"),
        element(0x0008, 0x0060, "CS", "CT"),
        element(0x0008, 0x0070, "LO", "ZelDicom"),
        element(0x0008, 0x0080, "LO", "Sample Hospital"),
        element(0x0008, 0x0090, "PN", "Curie^Marie"),
        element(0x0008, 0x1030, "LO", "CT HEAD W/O CONTRAST"),
        sequence(0x0008, 0x1032, [
            item(code_item("CTHEAD", "99ZEL", "CT of the head"), defined=False),
        ], defined=False),
        element(0x0008, 0x103E, "LO", "AXIAL 5mm"),
        sequence(0x0008, 0x1140, [
            item(element(0x0008, 0x1150, "UI", SOP_CLASS) + element(0x0008, 0x1155, "UI", ROOT + ".1.2.2")),
        ]),
        element(0x0009, 0x0010, "LO", "ZELDICOM SAMPLE"),
        element(0x0009, 0x1001, "LO", "private value"),
        element(0x0010, 0x0010, "PN", "Doe^Jane^^Ms"),
        element(0x0010, 0x0020, "LO", "PID-0042"),
        element(0x0010, 0x0030, "DA", "19700101"),
        element(0x0010, 0x0040, "CS", "F"),
        element(0x0010, 0x1010, "AS", "054Y"),
        element(0x0018, 0x0015, "CS", "HEAD"),
        element(0x0018, 0x0050, "DS", "5.0"),
        element(0x0018, 0x0060, "DS", "120"),
        element(0x0018, 0x1150, "IS", "1000"),
        element(0x0018, 0x1151, "IS", "250"),
        element(0x0018, 0x5100, "CS", "HFS"),
        element(0x0020, 0x000D, "UI", STUDY_UID),
        element(0x0020, 0x000E, "UI", SERIES_UID),
        element(0x0020, 0x0010, "SH", "1"),
        element(0x0020, 0x0011, "IS", "2"),
        element(0x0020, 0x0013, "IS", "1"),
        element(0x0020, 0x0032, "DS", "-120.0\\-120.0\\35.5"),
        element(0x0020, 0x0037, "DS", "1\\0\\0\\0\\1\\0"),
        element(0x0020, 0x0052, "UI", FRAME_UID),
        element(0x0020, 0x1041, "DS", "35.5"),
        element(0x0028, 0x0002, "US", us(1)),
        element(0x0028, 0x0004, "CS", "MONOCHROME2"),
        element(0x0028, 0x0010, "US", us(rows)),
        element(0x0028, 0x0011, "US", us(columns)),
        element(0x0028, 0x0030, "DS", "15.0\\15.0"),
        element(0x0028, 0x0100, "US", us(16)),
        element(0x0028, 0x0101, "US", us(12)),
        element(0x0028, 0x0102, "US", us(11)),
        element(0x0028, 0x0103, "US", us(0)),
        element(0x0028, 0x1050, "DS", "40"),
        element(0x0028, 0x1051, "DS", "400"),
        element(0x0028, 0x1052, "DS", "-1024"),
        element(0x0028, 0x1053, "DS", "1"),
        element(0x7FE0, 0x0010, "OW", pixels(rows, columns)),
    ])


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    output = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "samples", "ct_small.dcm")
    content = b"\0" * 128 + b"DICM" + meta_information() + data_set()
    with open(output, "wb") as f:
        f.write(content)
    print(f"wrote {output} ({len(content)} bytes)")


if __name__ == "__main__":
    main()
