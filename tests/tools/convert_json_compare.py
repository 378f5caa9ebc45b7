"""Compares pairs of DICOM files through pydicom's JSON Model.

Usage: convert_json_compare.py LIST
LIST holds one tab-separated pair per line: SOURCE<TAB>COPY. For each pair
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


def main():
    with open(sys.argv[1], encoding="utf-8") as pairs:
        for line in pairs:
            line = line.rstrip("\n")
            if not line:
                continue
            source, copy = line.split("\t")
            try:
                before, after = as_json(source), as_json(copy)
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
