"""Compares `zeldicom dump --json` output with pydicom's to_json_dict():
compare_file gives "compared", then "allowed NAME" for each difference with a known cause,
"mismatch ..." for any other, "skipped" when pydicom cannot read the file."""
import base64
import collections
import json
import math

import pydicom
from pydicom.dataelem import DataElement_from_raw, RawDataElement

# Named differences, each with the reason it is accepted.
ALLOWED = {
    "private-un": "a private element of an implicit VR file is UN for ZelDicom (no private "
                  "dictionary); pydicom may know its VR",
    "charset": "text in a character set beyond Latin-1/UTF-8 (the charset converters "
               "are being rewritten)",
    "pydicom-invalid": "pydicom cannot convert the file to JSON",
    "number-text": "an IS/DS value that is no number is kept as text by ZelDicom",
}

counts = collections.Counter()
mismatches = []


def number_equal(a, b):
    numbers = isinstance(a, (int, float)) and isinstance(b, (int, float))
    return numbers and (a == b or (math.isnan(a) and math.isnan(b)) or math.isclose(a, b, rel_tol=1e-6, abs_tol=1e-30))


def plain_text(value):
    """pydicom may leave padding in values that ZelDicom trims."""
    if isinstance(value, str):
        return value.strip(" \0")
    if isinstance(value, dict):
        return {k: plain_text(v) for k, v in value.items() if plain_text(v) != ""}
    return value


def values_equal(ours, theirs):
    return ours == theirs or number_equal(ours, theirs) or plain_text(ours) == plain_text(theirs)


def is_ascii(values):
    return all(ord(c) < 128 for c in json.dumps(values, ensure_ascii=False))


TEXT_VRS = {"AE", "AS", "CS", "DA", "DT", "LO", "LT", "SH", "ST", "TM", "UC", "UI", "UR", "UT"}


def un_matches_text(ours, theirs):
    """A UN value whose VR pydicom knows as text must hold that text."""
    if theirs.get("vr") not in TEXT_VRS or "Value" not in theirs:
        return True
    raw = base64.b64decode(ours.get("InlineBinary", "")).decode("latin-1")
    values = [raw] if theirs["vr"] in ("LT", "ST", "UT", "UR") else raw.split("\\")
    return [plain_text(v) for v in values] == [plain_text(v or "") for v in theirs["Value"]]


def compare_element(where, tag, ours, theirs, charset):
    our_vr, their_vr = ours.get("vr"), theirs.get("vr")
    if our_vr != their_vr:
        # UN against a known VR is a difference for a standard element.
        private = int(tag[:4], 16) % 2 == 1
        if our_vr == "UN" and private:
            if un_matches_text(ours, theirs):
                counts["private-un"] += 1
            else:
                mismatches.append(f"{where} {tag}: UN bytes do not match {their_vr} {theirs.get('Value')!r:.80}")
            return
        mismatches.append(f"{where} {tag}: vr {our_vr} vs {their_vr}")
        return
    if our_vr == "SQ":
        our_items, their_items = ours.get("Value", []), theirs.get("Value", [])
        if len(our_items) != len(their_items):
            mismatches.append(f"{where} {tag}: {len(our_items)} items vs {len(their_items)}")
        for index, (a, b) in enumerate(zip(our_items, their_items)):
            compare_data_set(f"{where} {tag}[{index}]", a, b, charset)
        return
    if ours.get("InlineBinary") != theirs.get("InlineBinary"):
        mismatches.append(f"{where} {tag}: InlineBinary differs")
        return
    our_values, their_values = ours.get("Value"), theirs.get("Value")
    if our_values is None and their_values is None:
        return
    if our_values is None or their_values is None:
        # pydicom reports some all-padding values as [""] or [null].
        rest = our_values if our_values is not None else their_values
        if all(v in (None, "", {}) for v in rest):
            return
        mismatches.append(f"{where} {tag}: Value {our_values!r:.80} vs {their_values!r:.80}")
        return
    if len(our_values) == len(their_values) and all(
            values_equal(a, b) or (a is None and b in ("", {})) or (b is None and a in ("", {}))
            for a, b in zip(our_values, their_values)):
        return
    if charset not in ("", "ISO_IR 100", "ISO_IR 6", "ISO_IR 192") and not (is_ascii(our_values) and is_ascii(their_values)):
        counts["charset"] += 1
        return
    if our_vr in ("IS", "DS") and any(isinstance(v, str) for v in our_values):
        counts["number-text"] += 1
        return
    mismatches.append(f"{where} {tag}: Value {our_values!r:.120} vs {their_values!r:.120}")


def compare_data_set(where, ours, theirs, charset):
    # The file's own label, as the peer reads it, decides which text may differ.
    cs = theirs.get("00080005", {}).get("Value", [charset])
    charset = cs[0] if cs and cs[0] else charset
    if len(cs) > 1:
        charset = "multi"
    for tag in sorted(set(ours) | set(theirs)):
        if tag in ours and tag in theirs:
            compare_element(where, tag, ours[tag], theirs[tag], charset)
        else:
            mismatches.append(f"{where} {tag}: missing in {'pydicom' if tag in ours else 'zeldicom'}")


def restore_known_vr(data_set):
    """PS3.5 6.2.2: explicit VR writes a value too long for its VR's 16-bit
    length field as UN, and pydicom keeps such an element as UN; read it with
    its dictionary VR, as the source holds it."""
    for element in list(data_set):
        if element.VR == "SQ":
            for item in element.value:
                restore_known_vr(item)
        elif element.VR == "UN" and not element.tag.is_private and isinstance(element.value, bytes):
            try:
                vr = pydicom.datadict.dictionary_VR(element.tag)
            except KeyError:
                continue
            if vr in ("UN", "SQ") or " or " in vr:
                continue
            raw = RawDataElement(element.tag, vr, len(element.value), element.value, 0, True, True)
            data_set[element.tag] = DataElement_from_raw(raw, encoding=data_set._character_set)


SWAP_WIDTHS = {"OW": 2, "OF": 4, "OL": 4, "OD": 8, "OV": 8}


def restore_little_endian(data_set):
    """pydicom keeps the OW, OF, OL, OD and OV values of a big endian file in
    the file's byte order; the JSON model's InlineBinary holds them little
    endian (as DCMTK's dcm2json writes them). Native pixel data swap by Bits
    Allocated."""
    if data_set.is_little_endian is not False:
        return
    for element in list(data_set):
        if element.VR == "SQ":
            for item in element.value:
                item.is_little_endian = False
                restore_little_endian(item)
        elif element.VR in SWAP_WIDTHS and isinstance(element.value, bytes):
            width = SWAP_WIDTHS[element.VR]
            if element.tag == 0x7FE00010 and data_set.get("BitsAllocated") in (32, 64):
                width = data_set.BitsAllocated // 8
            value = element.value
            whole = len(value) // width * width
            swapped = b"".join(value[i:i + width][::-1] for i in range(0, whole, width)) + value[whole:]
            data_set[element.tag].value = swapped


def compare_file(dicom_path, ours):
    counts.clear()
    mismatches.clear()
    try:
        data_set = pydicom.dcmread(dicom_path, force=True)
        restore_known_vr(data_set)
        restore_little_endian(data_set)
        theirs = data_set.to_json_dict()
    except Exception:  # noqa: BLE001 - any failure of the peer
        return ["skipped"]
    compare_data_set("", ours, theirs, "")
    return ["compared"] + ["allowed " + name for name in sorted(counts)] + ["mismatch" + line for line in mismatches]
