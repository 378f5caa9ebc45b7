"""Objects whose values are too long for their VR's 16-bit explicit VR length
field, as planning systems and archives write them, made by pydicom from its
own samples in implicit VR little endian (where any length fits):

  long_values.py DATA_DIR OUT_DIR

  longds.dcm    rtstruct.dcm with one contour of 3,000 points (Contour Data,
                DS, about 80 KB)
  longlois.dcm  CT_small.dcm with Other Patient IDs (LO) and Referenced Frame
                Number (IS) of some 70,000 bytes each

Prints the paths written, one a line.
"""
import math
import os
import sys

import pydicom
from pydicom.dataset import FileMetaDataset
from pydicom.uid import ImplicitVRLittleEndian


def save_implicit(ds, path):
    ds.file_meta = getattr(ds, "file_meta", None) or FileMetaDataset()
    ds.file_meta.TransferSyntaxUID = ImplicitVRLittleEndian
    ds.file_meta.MediaStorageSOPClassUID = ds.SOPClassUID
    ds.file_meta.MediaStorageSOPInstanceUID = ds.SOPInstanceUID
    ds.is_implicit_VR, ds.is_little_endian = True, True
    ds.save_as(path, write_like_original=False)
    print(path)


def main():
    data_dir, out_dir = sys.argv[1:3]
    ds = pydicom.dcmread(os.path.join(data_dir, "test_files", "rtstruct.dcm"), force=True)
    contour = ds.ROIContourSequence[0].ContourSequence[0]
    points = []
    for i in range(3000):
        angle = 2 * math.pi * i / 3000
        points += ["%.4f" % (100 * math.cos(angle)), "%.4f" % (100 * math.sin(angle)), "-12.5000"]
    contour.ContourData = points
    contour.NumberOfContourPoints = 3000
    save_implicit(ds, os.path.join(out_dir, "longds.dcm"))

    ds = pydicom.dcmread(os.path.join(data_dir, "test_files", "CT_small.dcm"))
    ds.OtherPatientIDs = ["ID%06d" % i for i in range(7777)] + ["ID"]  # 69,996 bytes
    ds.add_new(0x00081160, "IS", [str(100000 + i) for i in range(10000)])  # 70,000 bytes
    save_implicit(ds, os.path.join(out_dir, "longlois.dcm"))


main()
