"""Compares pairs of DICOM files through pydicom's JSON Model.

Usage: convert_json_compare.py LIST
LIST holds one tab-separated pair per line: SOURCE<TAB>COPY[<TAB>reencoded].
A re-encoded copy (another transfer syntax) is compared by value: private
elements by presence (implicit VR loses their VR) and OB/OW alike. For each pair
one line is printed: "same<TAB>SOURCE", "differs<TAB>SOURCE<TAB>tags" (the
tags whose JSON differs) or "error<TAB>SOURCE<TAB>reason".
"""
import sys
import warnings

import pydicom


def as_json(path):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        dataset = pydicom.dcmread(path, force=True)
        # Bulk values are compared as they stand in the file.
        return dataset.to_json_dict(bulk_data_threshold=1 << 62)


def by_value(data_set):
    """The JSON of a data set as a change of encoding must keep it."""
    result = {}
    for tag, element in data_set.items():
        if int(tag[:4], 16) % 2 == 1:
            result[tag] = "private"
            continue
        element = dict(element)
        if element.get("vr") in ("OB", "OW"):
            element["vr"] = "OX"
        if element.get("vr") == "SQ":
            element["Value"] = [by_value(item) for item in element.get("Value", [])]
        result[tag] = element
    return result


def main():
    with open(sys.argv[1], encoding="utf-8") as pairs:
        for line in pairs:
            line = line.rstrip("\n")
            if not line:
                continue
            source, copy, *mode = line.split("\t")
            try:
                before, after = as_json(source), as_json(copy)
                if mode:
                    before, after = by_value(before), by_value(after)
            except Exception as error:  # a file pydicom cannot read at all
                print(f"error\t{source}\t{type(error).__name__}: {error}".replace("\n", " "))
                continue
            if before == after:
                print(f"same\t{source}")
            else:
                tags = sorted(t for t in set(before) | set(after) if before.get(t) != after.get(t))
                print(f"differs\t{source}\t{','.join(tags)}")
            sys.stdout.flush()


if __name__ == "__main__":
    main()
