# Decodes person name bytes as pydicom does. Input file lines: an id, the
# value bytes in hex and the values of Specific Character Set joined by "|",
# tab-separated. Output lines: the id and the UTF-8 bytes of the text in hex.
import sys
import warnings
from pydicom.charset import convert_encodings, decode_bytes

warnings.simplefilter('ignore')
with open(sys.argv[1]) as lines:
    for line in lines:
        ident, hexbytes, terms = line.rstrip('\n').split('\t')
        encodings = convert_encodings(terms.split('|'))
        text = decode_bytes(bytes.fromhex(hexbytes), encodings, {0x5E, 0x3D})
        print('%s\t%s' % (ident, text.encode('utf-8').hex()))
