#!/usr/bin/python3
"""pydicom's FileSet as the oracle for directory hierarchies.

  fileset_tree.py DICOMDIR           prints the hierarchy pydicom follows, as
                                     `zeldicom dicomdir list --json` prints it
  fileset_tree.py DICOMDIR OURS.json compares; prints "same" or the first
                                     difference, exit status 1 when they differ
  fileset_tree.py --check DICOMDIR   reads every instance the FileSet finds and
                                     checks that it stands once, under records
                                     whose keys are its own; prints "ok N"
  fileset_tree.py --same A B         whether two directories describe the same
                                     hierarchy, whatever the order of siblings

Each record: "type", its identifying key, "file" (Referenced File ID joined
with "/") and "children" in link order.
"""
import json
import sys
import warnings

import pydicom
from pydicom.fileset import FileSet

KEYS = ("PatientID", "StudyInstanceUID", "SeriesInstanceUID", "ReferencedSOPInstanceUIDInFile")


def node_json(node):
    record = node._record
    out = {"type": str(record.DirectoryRecordType).strip()}
    for key in KEYS:
        if key in record:
            out[key] = str(record[key].value).strip()
    if "ReferencedFileID" in record:
        value = record.ReferencedFileID
        parts = [value] if isinstance(value, str) else list(value)
        out["file"] = "/".join(str(p).strip() for p in parts)
    out["children"] = [node_json(child) for child in node.children]
    return out


def tree(path):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        fs = FileSet(pydicom.dcmread(path))
    return [node_json(node) for node in fs._tree.children]


def first_difference(theirs, ours, where="root"):
    if isinstance(theirs, list):
        if not isinstance(ours, list) or len(theirs) != len(ours):
            return "%s: %d records (pydicom), %s (ours)" % (where, len(theirs), len(ours) if isinstance(ours, list) else ours)
        for i, (a, b) in enumerate(zip(theirs, ours)):
            diff = first_difference(a, b, "%s/%d" % (where, i))
            if diff:
                return diff
        return None
    for key in set(theirs) | set(ours):
        if key == "children":
            continue
        if theirs.get(key) != ours.get(key):
            return "%s %s: %r (pydicom) vs %r (ours)" % (where, key, theirs.get(key), ours.get(key))
    return first_difference(theirs["children"], ours.get("children", []), where + "." + theirs["type"])


def check(path):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        fs = FileSet(pydicom.dcmread(path))
        seen = set()
        for instance in fs:
            ds = instance.load()
            uid = str(ds.SOPInstanceUID)
            if uid in seen:
                return "instance %s found twice" % uid
            seen.add(uid)
            node = instance.node
            wanted = {"SERIES": ("SeriesInstanceUID", ds.SeriesInstanceUID),
                      "STUDY": ("StudyInstanceUID", ds.StudyInstanceUID),
                      "PATIENT": ("PatientID", ds.get("PatientID", ""))}
            if str(node._record.ReferencedSOPInstanceUIDInFile) != uid:
                return "%s: record names %s" % (uid, node._record.ReferencedSOPInstanceUIDInFile)
            for ancestor in node.ancestors:
                kind = str(ancestor._record.DirectoryRecordType)
                keyword, value = wanted[kind]
                # An instance without a Patient ID gets one made up (Type 1 in the record).
                if keyword == "PatientID" and not str(value).strip() and str(ancestor._record[keyword].value).strip():
                    continue
                if str(ancestor._record[keyword].value) != str(value):
                    return "%s: under the %s record of %s %s" % (uid, kind, keyword, ancestor._record[keyword].value)
            if len(node.ancestors) != 3:
                return "%s: %d records above it" % (uid, len(node.ancestors))
    return "ok %d" % len(seen)


def canonical(records):
    return sorted(json.dumps({**r, "children": canonical(r["children"])}, sort_keys=True) for r in records)


if __name__ == "__main__":
    if sys.argv[1] == "--check":
        result = check(sys.argv[2])
        print(result)
        sys.exit(0 if result.startswith("ok ") else 1)
    if sys.argv[1] == "--same":
        first, second = canonical(tree(sys.argv[2])), canonical(tree(sys.argv[3]))
        print("same" if first == second else "differs")
        sys.exit(0 if first == second else 1)
    expected = tree(sys.argv[1])
    if len(sys.argv) < 3:
        json.dump(expected, sys.stdout, indent=1)
        sys.exit(0)
    with open(sys.argv[2]) as f:
        ours = json.load(f)
    diff = first_difference(expected, ours)
    print(diff or "same")
    sys.exit(1 if diff else 0)
