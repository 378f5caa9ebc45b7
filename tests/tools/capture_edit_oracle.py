"""pydicom's view of the files that `zeldicom capture`, `zeldicom edit` and
the compressed header writer make.

  capture_edit_oracle.py capture DCM IMAGE [REF]
      the pixels of DCM equal those of the netpbm IMAGE (read here on its
      own), the object is a Secondary Capture whose meta information names
      it, and with REF the patient and study of REF are kept
  capture_edit_oracle.py fragments DCM FRAMES HEX[,HEX...]
      DCM holds FRAMES frames in exactly these pixel data fragments
  capture_edit_oracle.py same A B
      A and B name the same patient and, where A has pixel data, decode to
      the same pixels
  capture_edit_oracle.py diff A B
      the tags (meta information and data set) whose values differ, those in
      items of sequences as SEQ[n].TAG

Prints "ok" (or, for diff, the tags) on success, one line per problem otherwise.
"""
import re
import sys
import warnings

import pydicom
from pydicom import encaps

SECONDARY_CAPTURE = "1.2.840.10008.5.1.4.1.1.7"
UID = re.compile(r"^(0|[1-9][0-9]*)(\.(0|[1-9][0-9]*))*$")


def read(path):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return pydicom.dcmread(path)


def netpbm(path):
    """width, height, samples and the sample values of a PGM or PPM image."""
    data = open(path, "rb").read()
    kind = data[:2]
    tokens, pos = [], 2
    while len(tokens) < 3:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b"#":
            while data[pos:pos + 1] not in (b"\n", b"\r"):
                pos += 1
            continue
        start = pos
        while data[pos:pos + 1].isdigit():
            pos += 1
        tokens.append(int(data[start:pos]))
    width, height, maxval = tokens
    samples = 3 if kind in (b"P3", b"P6") else 1
    count = width * height * samples
    if kind in (b"P2", b"P3"):
        values = [int(t) for t in data[pos:].split()[:count]]
    else:
        raw = data[pos + 1:]
        if maxval > 255:
            values = [raw[2 * i] << 8 | raw[2 * i + 1] for i in range(count)]
        else:
            values = list(raw[:count])
    return width, height, samples, values


def check_capture(path, image, reference=None):
    problems = []
    ds = read(path)
    width, height, samples, values = netpbm(image)
    if (ds.Rows, ds.Columns, ds.SamplesPerPixel) != (height, width, samples):
        problems.append(f"size {ds.Rows}x{ds.Columns}x{ds.SamplesPerPixel}, image {height}x{width}x{samples}")
    elif [int(v) for v in ds.pixel_array.flatten()] != values:
        problems.append("pixel values differ")
    if ds.SOPClassUID != SECONDARY_CAPTURE:
        problems.append(f"SOP class {ds.SOPClassUID}")
    meta = ds.file_meta
    if meta.MediaStorageSOPClassUID != ds.SOPClassUID or meta.MediaStorageSOPInstanceUID != ds.SOPInstanceUID:
        problems.append("meta information names another instance")
    for uid in (ds.SOPInstanceUID, ds.StudyInstanceUID, ds.SeriesInstanceUID, meta.ImplementationClassUID):
        if not UID.match(str(uid)) or len(str(uid)) > 64:
            problems.append(f"invalid UID {uid!r}")
    if reference:
        ref = read(reference)
        for keyword in ("PatientName", "PatientID", "PatientBirthDate", "StudyInstanceUID", "StudyID", "StudyDate"):
            if str(ds.get(keyword, "")) != str(ref.get(keyword, "")):
                problems.append(f"{keyword} {ds.get(keyword)!r}, reference {ref.get(keyword)!r}")
        if ds.SOPInstanceUID == ref.SOPInstanceUID:
            problems.append("the reference's SOP Instance UID was reused")
    return problems


def check_fragments(path, frames, fragments):
    ds = read(path)
    problems = []
    if int(ds.get("NumberOfFrames", 1)) != frames:
        problems.append(f"NumberOfFrames {ds.get('NumberOfFrames')}")
    found = [bytes(f).hex() for f in encaps.decode_data_sequence(ds.PixelData)]
    if found != fragments.split(","):
        problems.append(f"fragments {found}")
    return problems


def check_same(first, second):
    import numpy
    a, b = read(first), read(second)
    problems = []
    if a.PatientName != b.PatientName:
        problems.append(f"PatientName {str(a.PatientName)!r} {str(b.PatientName)!r}")
    if "PixelData" in a and not numpy.array_equal(a.pixel_array, b.pixel_array):
        problems.append("pixels differ")
    return problems


def differing_in(left, right, prefix, tags):
    """The tags whose values differ; inside sequences of as many items on
    both sides, the item's tags as SEQ[n].TAG."""
    for tag in sorted(set(left.keys()) | set(right.keys())):
        if tag.element == 0:  # group lengths follow their groups
            continue
        name = f"{prefix}{tag.group:04X},{tag.element:04X}"
        if tag in left and tag in right and left[tag].VR == "SQ" and right[tag].VR == "SQ" \
                and len(left[tag].value) == len(right[tag].value):
            for index, (a, b) in enumerate(zip(left[tag].value, right[tag].value)):
                differing_in(a, b, f"{name}[{index}].", tags)
        elif tag not in left or tag not in right or left[tag].value != right[tag].value:
            tags.append(name)


def differing_tags(first, second):
    a, b = read(first), read(second)
    tags = []
    differing_in(a.file_meta, b.file_meta, "", tags)
    differing_in(a, b, "", tags)
    return tags


def main():
    mode, args = sys.argv[1], sys.argv[2:]
    if mode == "diff":
        print(" ".join(differing_tags(*args)))
        return 0
    if mode == "capture":
        problems = check_capture(*args)
    elif mode == "same":
        problems = check_same(*args)
    else:
        problems = check_fragments(args[0], int(args[1]), args[2])
    print("\n".join(problems) if problems else "ok")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
