# Prints every text value (SH LO PN LT ST UT) of the DICOM files in a folder as
# pydicom decodes it: file, tag path (sequence items as "gggg,eeee/index/"),
# the VR, and the UTF-8 bytes of the value in hex, tab-separated.
import os, sys
import pydicom
from pydicom.multival import MultiValue

TEXT_VRS = ('SH', 'LO', 'PN', 'LT', 'ST', 'UT')

def walk(ds, prefix, name):
    for elem in ds:
        tag = '%04X,%04X' % (elem.tag.group, elem.tag.element)
        if elem.VR == 'SQ':
            for index, item in enumerate(elem.value):
                walk(item, '%s%s/%d/' % (prefix, tag, index), name)
        elif elem.VR in TEXT_VRS:
            value = elem.value
            if isinstance(value, MultiValue):
                text = '\\'.join(str(v) for v in value)
            else:
                text = '' if value is None else str(value)
            print('%s\t%s%s\t%s\t%s' % (name, prefix, tag, elem.VR, text.encode('utf-8').hex()))

folder = sys.argv[1]
for name in sorted(os.listdir(folder)):
    if name.endswith('.dcm'):
        walk(pydicom.dcmread(os.path.join(folder, name)), '', name)
