# Compares the instances retrieved into a folder with those a peer holds, as
# pydicom reads them: every held instance retrieved, every retrieved file's
# data set equal to the held one (Data Set Trailing Padding aside: DCMTK
# drops it when it sends). One line per difference, then "N same".
# Usage: same_instances.py RETRIEVED_DIR HELD_FILE...
import os
import sys

import pydicom

held = {}
for path in sys.argv[2:]:
    data = pydicom.dcmread(path)
    held[data.SOPInstanceUID] = data
same = 0
for name in sorted(os.listdir(sys.argv[1])):
    got = pydicom.dcmread(os.path.join(sys.argv[1], name))
    want = held.pop(got.SOPInstanceUID, None)
    if want is None:
        print("not held:", name)
        continue
    if name != got.SOPInstanceUID + ".dcm":
        print("named", name, "not after its instance", got.SOPInstanceUID)
    padding = pydicom.tag.Tag(0xFFFC, 0xFFFC)
    differing = [str(e.tag) for e in want if e.tag != padding and (e.tag not in got or got[e.tag] != e)]
    differing += [str(e.tag) for e in got if e.tag not in want]
    if differing:
        print("differs:", name, " ".join(differing))
    else:
        same += 1
for uid in held:
    print("not retrieved:", uid)
print(same, "same")
