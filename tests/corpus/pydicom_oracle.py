"""pydicom's reading of every file of the corpus sweep, in one process.

usage: pydicom_oracle.py MANIFEST DATA_DIR SCRATCH_DIR
MANIFEST lines (tab-separated), written by the sweep:
  probe PATH            how pydicom classifies the file (meta information or not)
  text PATH             every SH LO PN LT ST UT value as pydicom decodes it
  json PATH             the file's line of the `zeldicom dump --json` output of all files
                        (NDJSON: {"file": PATH, "dataset": ...}; its path is the line "jsonout PATH")
  pair SOURCE COPY [reencoded]   a `convert` round trip, compared through pydicom's JSON
Every answer line is "PATH<TAB>kind<TAB>...". Besides, "info" lines describe
the image record of every image of DATA_DIR (and of DCMTK's re-encodings and
two objects built here with overlays, a modality LUT and 16-bit palettes, all
written into SCRATCH_DIR) as pydicom reads them: defaults, the CT and RGB
window repairs and the mammography spacing rule applied.
"""
import glob, json, os, re, struct, subprocess, sys, warnings
import pydicom
from pydicom.multival import MultiValue
from pydicom.filereader import read_preamble, _read_file_meta_info

import json_compare
from pydicom.encaps import get_frame_offsets, generate_pixel_data_fragment, generate_pixel_data_frame
from pydicom.pixel_data_handlers.util import _expand_segmented_lut, apply_modality_lut
import numpy

warnings.simplefilter("ignore")
PHOTOMETRIC = ["MONOCHROME1", "MONOCHROME2", "PALETTE COLOR", "RGB", "YBR_FULL", "YBR_FULL_422"]
COMPRESSED = ("1.2.840.10008.1.2.4.", "1.2.840.10008.1.2.5")


def f32(x):
    return struct.unpack("<f", struct.pack("<f", float(x)))[0]


def first(value):
    return value[0] if isinstance(value, pydicom.multival.MultiValue) else value


def text(ds, keyword):
    return str(ds.get(keyword, "") or "").strip()


def words(value):
    if isinstance(value, bytes):
        return list(struct.unpack("<%dH" % (len(value) // 2), value[: len(value) // 2 * 2]))
    return [v & 0xFFFF for v in (value if isinstance(value, (list, pydicom.multival.MultiValue)) else [value])]


def checksum(values):
    return sum((i + 1) * v for i, v in enumerate(values)) % 2**32


def lut(out, name, ds, descriptor, data=None, segmented=None, signed=False):
    if descriptor not in ds:
        return
    entries, firstmapped, bits = words(ds[descriptor].value)[:3]
    if signed or ds[descriptor].VR == "SS":  # PS3.3 C.11.1.1.1: signed stored values, signed first value
        firstmapped -= 65536 if firstmapped >= 32768 else 0
    entries = entries or 65536
    out.append("%s %d %d %d" % (name, entries, firstmapped, bits))
    table = None
    if bits == 16 and data in ds and len(words(ds[data].value)) >= entries:
        table = words(ds[data].value)[:entries]
    if bits == 8 and data in ds:  # PS3.3 C.7.6.3.1.5: one entry a word, or packed two a word
        value = ds[data].value
        table = words(value)[:entries] if len(value) >= 2 * entries else list(value[:entries])
        table = table if len(table) == entries else None
        if table and all((v & 0xFF) == 0 for v in table):
            table = [v >> 8 for v in table]
    if bits in (8, 16) and segmented in ds:
        value = ds[segmented].value
        table = [int(v) for v in _expand_segmented_lut(words(value) if bits == 16 else list(value),
                                                       "H" if bits == 16 else "B")]
        table = table if len(table) == entries else None
    out.append("%s.data %s" % (name, "%d %d" % (len(table), checksum(table)) if table else "none"))


def frame_offsets(ds, raw, frames, syntax):
    if not syntax.startswith(COMPRESSED):
        size = ds.get("SamplesPerPixel", 1) * ds.get("BitsAllocated", 16) * ds.Rows * ds.Columns // 8
        return [i * size for i in range(frames)] + [0] if frames * size <= raw.length else None
    stream = pydicom.filebase.DicomBytesIO(ds.PixelData)
    stream.is_little_endian = True
    has_table, offsets = get_frame_offsets(stream)
    if has_table and len(offsets) == frames:
        return offsets + [0], "table"
    # No table, or not one entry a frame (PS3.5 A.4): the frames as pydicom
    # splits the fragments without a table, each at its first fragment.
    fragments = list(generate_pixel_data_fragment(stream))
    items = b"".join(struct.pack("<HHI", 0xFFFE, 0xE000, len(f)) + f for f in fragments)
    try:
        split = list(generate_pixel_data_frame(struct.pack("<HHI", 0xFFFE, 0xE000, 0) + items, frames))
    except Exception:
        return None, "fragments"
    offsets, position, at = [], 0, 0
    for frame in split:
        offsets.append(position)
        joined = b""
        while len(joined) < len(frame) and at < len(fragments):
            joined += fragments[at]
            position += len(fragments[at]) + 8
            at += 1
        if joined != frame:
            return None, "fragments"
    return (offsets + [0] if len(offsets) == frames else None), "fragments"


def pixels(out, ds, syntax):
    """Native samples as pydicom's pixel_array holds them, little endian:
    "pixels BYTES SUM" (the checksum of their bytes). Big endian objects swap
    their samples by Bits Allocated."""
    if syntax.startswith(COMPRESSED) or ds.get("BitsAllocated") not in (8, 16, 32, 64) or \
            text(ds, "PhotometricInterpretation") == "YBR_FULL_422" or \
            (ds.get("SamplesPerPixel", 1) > 1 and ds.get("PlanarConfiguration", 0) != 0):
        return
    try:
        array = ds.pixel_array
    except Exception:
        return
    raw = numpy.frombuffer(numpy.ascontiguousarray(array).astype(array.dtype.newbyteorder("<")).tobytes(), numpy.uint8)
    weights = numpy.arange(1, raw.size + 1, dtype=numpy.uint64)
    out.append("pixels %d %d" % (raw.size, int((weights * raw.astype(numpy.uint64)).sum(dtype=numpy.uint64)) % 2**32))


def palettes(out, ds):
    for name, colour in (("RedPaletteLut", "Red"), ("GreenPaletteLut", "Green"), ("BluePaletteLut", "Blue")):
        lut(out, name, ds, colour + "PaletteColorLookupTableDescriptor", colour + "PaletteColorLookupTableData",
            "Segmented" + colour + "PaletteColorLookupTableData")
def describe_palette(path):
    out = []
    palettes(out, pydicom.dcmread(path))
    emit(out)


# The elements whose numbers the record takes: present without a value, they
# count as absent (PS3.5 7.4).
NUMBER_TAGS = (0x00082142, 0x00082143, 0x00082144, 0x00180050, 0x00180088, 0x00181063, 0x00181066, 0x00181114,
               0x00181164, 0x00200032, 0x00200037, 0x00201002, 0x00280002, 0x00280006, 0x00280008, 0x00280010,
               0x00280011, 0x00280030, 0x00280034, 0x00280100, 0x00280101, 0x00280102, 0x00280103, 0x00280120,
               0x00281050, 0x00281051, 0x00281052, 0x00281053)


def empty(ds, tag):
    return tag in ds and (ds[tag].VM == 0 or str(first(ds[tag].value)).strip() == "")


def decimal(ds, keyword):
    """The first value of a DS element; None when absent or empty."""
    tag = pydicom.datadict.tag_for_keyword(keyword)
    return None if tag not in ds or empty(ds, tag) else float(first(ds[tag].value))


def raw_text(ds, tag):
    """An element's value text as stored, padding stripped; None when absent."""
    if tag not in ds:
        return None
    element = ds.get_item(tag)
    if isinstance(element.value, bytes):
        return element.value.decode("latin-1").strip(" \0")
    values = element.value if isinstance(element.value, MultiValue) else [element.value]
    return "\\".join(getattr(v, "original_string", str(v)) for v in values).strip(" \0")


def functional_group(ds, keyword):
    """The first item of a functional group macro: shared, else the first frame's (PS3.3 C.7.6.16)."""
    for sequence in ("SharedFunctionalGroupsSequence", "PerFrameFunctionalGroupsSequence"):
        if len(ds.get(sequence, [])) and len(ds[sequence][0].get(keyword, [])):
            return ds[sequence][0][keyword][0]
    return None


def direction_label(x, y, z):
    """PS3.3 C.7.6.1.1.1: letters from the principal component down."""
    axes = sorted(((x, "L", "R"), (y, "P", "A"), (z, "H", "F")), key=lambda a: -abs(a[0]))
    return "".join(plus if v > 0.01 else minus if v < -0.01 else "" for v, plus, minus in axes)


def describe(path):
    ds = pydicom.dcmread(path)
    syntax = str(ds.file_meta.get("TransferSyntaxUID", ""))
    raw = ds.get_item(0x7FE00010)
    out = []
    photometric = text(ds, "PhotometricInterpretation").upper()
    index = PHOTOMETRIC.index(photometric) if photometric in PHOTOMETRIC else 8
    if photometric == "YBR_RCT" and syntax == "1.2.840.10008.1.2.4.90":
        index = 6
    if photometric == "YBR_ICT" and syntax == "1.2.840.10008.1.2.4.91":
        index = 7
    try:
        frames = int(ds.get("NumberOfFrames", 1) or 1)
    except ValueError:
        frames = int(re.match(r"\s*(\d*)", str(ds["NumberOfFrames"].value)).group(1) or 1)
    fields = {
        "nRows": ds.Rows, "nColumns": ds.Columns, "nBitsAllocated": ds.get("BitsAllocated", 16),
        "nBitsStored": ds.get("BitsStored", 12), "nHighBit": ds.get("HighBit", 11),
        "wPixelRepresentation": ds.get("PixelRepresentation", 0), "wSamplesPerPixel": ds.get("SamplesPerPixel", 1),
        "nNumberOfFrames": frames, "nPhotometric": index,
    }
    # Enhanced objects: what the top level lacks from the functional groups.
    voi, measures = functional_group(ds, "FrameVOILUTSequence"), functional_group(ds, "PixelMeasuresSequence")
    position = functional_group(ds, "PlanePositionSequence")
    orientation = functional_group(ds, "PlaneOrientationSequence")
    transformation = functional_group(ds, "PixelValueTransformationSequence")
    window_source = ds if "WindowCenter" in ds or "WindowWidth" in ds or voi is None else voi
    rescale_source = ds if "RescaleIntercept" in ds or "RescaleSlope" in ds or transformation is None \
        else transformation
    flags, centre, width = 0, 2048, 4096
    if decimal(window_source, "WindowCenter") is not None:
        centre, flags = int(f32(decimal(window_source, "WindowCenter"))), flags | 1
    if decimal(window_source, "WindowWidth") is not None and f32(decimal(window_source, "WindowWidth")) >= 1:
        width, flags = int(f32(decimal(window_source, "WindowWidth"))), flags | 2  # PS3.3 C.11.2.1.2
    intercept = int(f32(decimal(rescale_source, "RescaleIntercept") or 0))
    # The exact values beside the truncated ones.
    exact = [decimal(window_source, "WindowCenter") if flags & 1 else 2048.0,
             decimal(window_source, "WindowWidth") if flags & 2 else 4096.0,
             decimal(rescale_source, "RescaleIntercept") or 0.0,
             1.0 if decimal(rescale_source, "RescaleSlope") is None else decimal(rescale_source, "RescaleSlope")]
    if text(ds, "Modality") == "CT" and flags & 3 != 3:
        centre, width, exact[0:2] = 400, 2000, [400.0, 2000.0]
    if index == 3:
        centre, width, exact[0:2] = 128, 256, [128.0, 256.0]
    if index not in (0, 1):
        intercept, exact[2:4] = 0, [0.0, 1.0]
    fields.update(nWindowCenter=centre, nWindowWidth=width, nRescaleIntercept=intercept, dWindowCenter=exact[0],
                  dWindowWidth=exact[1], dRescaleIntercept=exact[2], dRescaleSlope=exact[3])
    row = column = 0.0
    spacing = ds.get("ImagerPixelSpacing")
    magnification = 1.0
    if spacing is not None:
        magnification = f32(first(ds.EstimatedRadiographicMagnificationFactor)) if ds.get(
            "EstimatedRadiographicMagnificationFactor") not in (None, "") else 1.0
        magnification = magnification or 1.0
    elif text(ds, "Modality").upper() == "MG" or (text(ds, "Modality").upper() in ("CR", "DX", "DR", "RG")
                                                   and text(ds, "BodyPartExamined").upper() == "BREAST"):
        spacing = None
    else:
        spacing = ds.get("PixelSpacing")
    if spacing is not None and len(spacing) >= 2:
        row, column = f32(spacing[0]) / magnification, f32(spacing[1]) / magnification
    if (row == 0 or column == 0) and measures is not None and len(measures.get("PixelSpacing", [])) >= 2:
        row, column = f32(measures.PixelSpacing[0]), f32(measures.PixelSpacing[1])
    for key, tag, macro in (("sImagePositionPatient", 0x00200032, position),
                            ("sImageOrientationPatient", 0x00200037, orientation)):
        value = raw_text(ds, tag)
        value = raw_text(macro, tag) if not value and macro is not None else value
        fields[key] = value or ""
    labels = ""
    if fields["sImageOrientationPatient"]:
        cosines = [float(v or 0) for v in (fields["sImageOrientationPatient"].split("\\") + ["0"] * 6)[:6]]
        rows, columns = direction_label(*cosines[:3]), direction_label(*cosines[3:])
        labels = rows + "\\" + columns if rows and columns else ""
    fields["sPatientOrientation"] = raw_text(ds, 0x00200020) or labels
    sex = text(ds, "PatientSex")[:1].upper()
    date = text(ds, "StudyDate")
    if re.match(r"\d{4}\.\d{2}\.\d{2}$", date):  # the ACR-NEMA form yyyy.mm.dd, read by the record too
        date = date.replace(".", "")
    fields.update(dRowSpacing=row, dColumnSpacing=column, nPixelDataOffset=raw.value_tell,
                  sModality=text(ds, "Modality"), sPatientID=text(ds, "PatientID"),
                  sPatientSex=sex if sex in ("F", "M") else "O",
                  lStudyDate=int(date[:8]) if re.match(r"\d{8}$", date[:8]) and int(date[:8]) > 18000000 else -1)
    out += ["%s %s" % item for item in fields.items()]
    out.append("empty " + (" ".join("%08X" % tag for tag in NUMBER_TAGS if empty(ds, tag)) or "-"))
    offsets = frame_offsets(ds, raw, frames, syntax)
    kind = "native"
    if isinstance(offsets, tuple):
        offsets, kind = offsets
    if offsets is not None:
        out.append("pFrameOffsets.%s %s" % (kind, " ".join(map(str, offsets))))
    palettes(out, ds)
    pixels(out, ds, syntax)
    if "ModalityLUTSequence" in ds and len(ds.ModalityLUTSequence):
        lut(out, "ModalityLut", ds.ModalityLUTSequence[0], "LUTDescriptor", "LUTData",
            signed=ds.get("PixelRepresentation", 0) == 1)
        # Stored values through the LUT as pydicom maps them.
        values = [-2000, -1025, -1024, -1000, -1, 0, 99, 100, 101, 200, 355, 356, 1000]
        if ds.get("PixelRepresentation", 0) != 1:
            values = [v for v in values if v >= 0]
        mapped = apply_modality_lut(numpy.array(values), ds)
        out.append("ModalityLut.map(%s) %s" % (",".join(map(str, values)), " ".join(str(int(v)) for v in mapped)))
    voi_lut = ds if "VOILUTSequence" in ds or voi is None or "WindowCenter" in ds else voi
    if len(voi_lut.get("VOILUTSequence", [])):
        lut(out, "VoiLut", voi_lut.VOILUTSequence[0], "LUTDescriptor", "LUTData",
            signed=ds.get("PixelRepresentation", 0) == 1)
    for group in range(0x6000, 0x6020, 2):
        if all((group << 16 | e) in ds for e in (0x10, 0x11, 0x50, 0x100, 0x102)):
            origin = [v if v < 32768 else v - 65536 for v in words(ds[group << 16 | 0x50].value)] \
                if isinstance(ds[group << 16 | 0x50].value, bytes) else list(ds[group << 16 | 0x50].value)
            data = ds[group << 16 | 0x3000].value if (group << 16 | 0x3000) in ds else b""
            kind = str(ds[group << 16 | 0x40].value).strip() if (group << 16 | 0x40) in ds else "G"
            planes = ds[group << 16 | 0x12].value if (group << 16 | 0x12) in ds else 1
            out.append("overlay.%d %d %d %d %s %d %d %d %d %d %d" % (
                group - 0x6000, ds[group << 16 | 0x10].value, ds[group << 16 | 0x11].value, planes, kind,
                origin[0], origin[1], ds[group << 16 | 0x100].value, ds[group << 16 | 0x102].value, len(data),
                checksum(data)))
    emit(out)


def images(data_dir):
    for path in sorted(glob.glob(os.path.join(data_dir, "test_files", "**", "*"), recursive=True)):
        if not os.path.isfile(path):
            continue
        try:
            ds = pydicom.dcmread(path)
        except Exception:
            continue
        syntax = str(ds.file_meta.get("TransferSyntaxUID", "")) if hasattr(ds, "file_meta") else ""
        if "Rows" not in ds or "PixelData" not in ds or syntax.endswith(".99"):
            continue
        raw = ds.get_item(0x7FE00010)
        if raw.length != 0xFFFFFFFF and raw.value_tell + raw.length > os.path.getsize(path):
            continue  # pixel data cut short: not an object the record describes
        yield path, syntax


def synthetic(scratch, data_dir):
    base = pydicom.dcmread(os.path.join(data_dir, "test_files", "CT_small.dcm"))
    ds = base.copy()
    ds.add_new(0x60000010, "US", 128); ds.add_new(0x60000011, "US", 128)
    ds.add_new(0x60000040, "CS", "G"); ds.add_new(0x60000050, "SS", [1, 1])
    ds.add_new(0x60000100, "US", 1); ds.add_new(0x60000102, "US", 0)
    ds.add_new(0x60003000, "OW", bytes((i * 7) & 0xFF for i in range(128 * 128 // 8)))
    ds.add_new(0x60020010, "US", 8); ds.add_new(0x60020011, "US", 16); ds.add_new(0x60020012, "US", 1)
    ds.add_new(0x60020040, "CS", "R"); ds.add_new(0x60020050, "SS", [-3, 5])
    ds.add_new(0x60020100, "US", 1); ds.add_new(0x60020102, "US", 0)
    ds.add_new(0x60023000, "OB", bytes(range(16)))
    item = pydicom.Dataset()
    item.add_new(0x00283002, "US", [256, 100, 16])
    item.add_new(0x00283006, "US", [(i * 37) & 0xFFFF for i in range(256)])
    item.ModalityLUTType = "HU"
    ds.ModalityLUTSequence = pydicom.Sequence([item])
    overlay_path = os.path.join(scratch, "synthetic_overlays_modality_lut.dcm")
    ds.save_as(overlay_path, write_like_original=False)

    ds = base.copy()
    ds.PhotometricInterpretation = "PALETTE COLOR"
    del ds.RescaleIntercept, ds.RescaleSlope
    hot = pydicom.dcmread(os.path.join(data_dir, "palettes", "hotiron.dcm"))
    for colour in ("Red", "Green", "Blue"):
        ds.add_new(pydicom.datadict.tag_for_keyword(colour + "PaletteColorLookupTableDescriptor"), "US",
                   [256, 0, 16])
    red = struct.unpack("<256B", hot.RedPaletteColorLookupTableData)
    ds.add_new(0x00281201, "OW", struct.pack("<256H", *[v * 257 for v in red]))
    ds.add_new(0x00281222, "OW", struct.pack("<14H", 0, 2, 0, 100, 1, 100, 10100, 2, 1, 0, 0, 1, 152, 17700))
    ds.add_new(0x00281223, "OW", struct.pack("<6H", 0, 1, 65535, 1, 255, 0))  # a descending ramp
    palette_path = os.path.join(scratch, "synthetic_palette16.dcm")
    ds.save_as(palette_path, write_like_original=False)

    # A JPEG object whose window is present but empty, as some vendors write it.
    empty_window = os.path.join(scratch, "dcmodify_jpeg_empty_window.dcm")
    subprocess.run(["cp", os.path.join(data_dir, "test_files", "JPEG-lossy.dcm"), empty_window], check=True)
    subprocess.run(["dcmodify", "-nb", "-i", "(0028,1050)=", "-i", "(0028,1051)=", empty_window], check=True)
    # Window and rescale values that are no integers.
    exact = os.path.join(scratch, "dcmodify_ct_exact_values.dcm")
    subprocess.run(["cp", os.path.join(data_dir, "test_files", "CT_small.dcm"), exact], check=True)
    subprocess.run(["dcmodify", "-nb", "-i", "(0028,1050)=40.5", "-i", "(0028,1051)=350.7", "-m",
                    "(0028,1052)=-1024.25", "-m", "(0028,1053)=0.5", exact], check=True)
    # dcmmklut's modality LUT for signed CT values, first value mapped -1024.
    signed_lut = os.path.join(scratch, "dcmmklut_signed_modality_lut.dcm")
    subprocess.run(["dcmmklut", "+Tm", "-f", "-1024", "+Cg", "0.5", "+Fi",
                    os.path.join(data_dir, "test_files", "CT_small.dcm"), signed_lut], check=True)
    # dcmquant's palette images: 8-bit entries packed two a word, and 16-bit ones.
    quantized = []
    for suffix, options in (("8", []), ("16", ["+pe"])):
        quantized.append(os.path.join(scratch, "dcmquant_palette%s.dcm" % suffix))
        subprocess.run(["dcmquant"] + options + [os.path.join(data_dir, "test_files", "SC_rgb_small_odd.dcm"),
                                                 quantized[-1]], check=True)
    # dcmmklut's VOI LUT (a gamma curve), first value mapped -1024.
    voi_lut = os.path.join(scratch, "dcmmklut_voi_lut.dcm")
    subprocess.run(["dcmmklut", "+Tv", "-f", "-1024", "+Cg", "0.5", "+Fi",
                    os.path.join(data_dir, "test_files", "CT_small.dcm"), voi_lut], check=True)

    # An enhanced MR object as pydicom builds it: spacing, window and
    # orientation shared, the position per frame.
    ds = pydicom.dcmread(os.path.join(data_dir, "test_files", "MR_small.dcm"))
    for keyword in ("PixelSpacing", "SliceThickness", "WindowCenter", "WindowWidth", "ImagePositionPatient",
                    "ImageOrientationPatient"):
        if keyword in ds:
            delattr(ds, keyword)
    ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.4.1"
    ds.NumberOfFrames = 1
    measures, voi, orientation, position = (pydicom.Dataset() for _ in range(4))
    measures.PixelSpacing, measures.SliceThickness = ["0.5", "0.75"], "2.5"
    voi.WindowCenter, voi.WindowWidth = "300", "600"
    orientation.ImageOrientationPatient = ["0.5", "0.866", "0", "0", "0", "-1"]  # PL\F
    position.ImagePositionPatient = ["10", "-20", "30"]
    shared, frame = pydicom.Dataset(), pydicom.Dataset()
    shared.PixelMeasuresSequence = pydicom.Sequence([measures])
    shared.FrameVOILUTSequence = pydicom.Sequence([voi])
    shared.PlaneOrientationSequence = pydicom.Sequence([orientation])
    frame.PlanePositionSequence = pydicom.Sequence([position])
    ds.SharedFunctionalGroupsSequence = pydicom.Sequence([shared])
    ds.PerFrameFunctionalGroupsSequence = pydicom.Sequence([frame])
    enhanced = os.path.join(scratch, "pydicom_enhanced_mr.dcm")
    ds.save_as(enhanced, write_like_original=False)
    # DCMTK's JPEG of a two-frame image in 1 KiB fragments: an empty offset
    # table, and (edited here) a table with one entry more than frames.
    native = os.path.join(scratch, "dcmdrle_2frame.dcm")
    subprocess.run(["dcmdrle", os.path.join(data_dir, "test_files", "SC_rgb_rle_2frame.dcm"), native], check=True)
    fragmented = []
    for suffix, table in (("empty_table", "-ot"), ("long_table", "+ot")):
        fragmented.append(os.path.join(scratch, "dcmcjpeg_fragments_%s.dcm" % suffix))
        subprocess.run(["dcmcjpeg", "+fs", "1", table, native, fragmented[-1]], check=True)
    ds = pydicom.dcmread(fragmented[-1])
    table = struct.unpack("<I", ds.PixelData[4:8])[0]
    ds.PixelData = ds.PixelData[:4] + struct.pack("<I", table + 4) + ds.PixelData[8:8 + table] + \
        struct.pack("<I", 0) + ds.PixelData[8 + table:]
    ds.save_as(fragmented[-1])
    return [overlay_path, palette_path, empty_window, exact, signed_lut, voi_lut, enhanced] + quantized + fragmented


def emit(lines, path=None, kind="info"):
    for line in lines:
        print("%s\t%s\t%s" % (path or CURRENT[0], kind, line))


CURRENT = [""]
TEXT_VRS = ("SH", "LO", "PN", "LT", "ST", "UT")


def text_values(ds, prefix, out):
    """Tag paths as "gggg,eeee", items as "gggg,eeee/index/"."""
    for elem in ds:
        tag = "%04X,%04X" % (elem.tag.group, elem.tag.element)
        if elem.VR == "SQ":
            for index, item in enumerate(elem.value):
                text_values(item, "%s%s/%d/" % (prefix, tag, index), out)
        elif elem.VR in TEXT_VRS:
            value = elem.value
            value = "\\".join(str(v) for v in value) if isinstance(value, MultiValue) else \
                ("" if value is None else str(value))
            out.append("%s%s\t%s\t%s" % (prefix, tag, elem.VR, value.encode("utf-8").hex()))


def classify(path):
    """"meta SYNTAX END" (syntax "-" if absent), "nometa le|be implicit|explicit COUNT" or "error"."""
    try:
        with open(path, "rb") as f:
            read_preamble(f, False)
            meta = _read_file_meta_info(f)
            return "meta\t%s\t%d" % (meta.get("TransferSyntaxUID", "-"), f.tell())
    except Exception:
        pass
    try:
        d = pydicom.dcmread(path, force=True)
        return "nometa\t%s\t%s\t%d" % ("le" if d.is_little_endian else "be",
                                        "implicit" if d.is_implicit_VR else "explicit", len(d))
    except Exception:
        return "error"


def as_json(path):
    dataset = pydicom.dcmread(path, force=True)
    json_compare.restore_known_vr(dataset)
    json_compare.restore_little_endian(dataset)
    return dataset.to_json_dict(bulk_data_threshold=1 << 62)  # bulk values as they stand


def by_value(data_set):
    """The JSON of a data set as a change of encoding must keep it: private
    elements by presence (implicit VR loses their VR), OB and OW alike,
    without group lengths (their values follow the header sizes)."""
    result = {}
    for tag, element in data_set.items():
        if tag.endswith("0000"):
            continue
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


def compare_pair(source, copy, reencoded):
    try:
        before, after = as_json(source), as_json(copy)
        if reencoded:
            before, after = by_value(before), by_value(after)
    except Exception as error:  # a file pydicom cannot read at all
        return "error\t%s: %s" % (type(error).__name__, str(error).replace("\n", " "))
    if before == after:
        return "same"
    return "differs\t" + ",".join(sorted(t for t in set(before) | set(after) if before.get(t) != after.get(t)))


def main():
    manifest, data_dir, scratch = sys.argv[1:4]
    entries = [line.rstrip("\n").split("\t") for line in open(manifest, encoding="utf-8") if line.strip()]
    # `dump --json` of several files: NDJSON, one {"file", "dataset"} object a line.
    json_objects = {}
    for kind, *rest in entries:
        if kind == "jsonout":
            for line in open(rest[0], encoding="utf-8"):
                obj = json.loads(line)
                json_objects[obj["file"]] = obj["dataset"]
    for kind, *rest in entries:
        path = rest[0]
        if kind == "probe":
            emit([classify(path)], path, "probe")
        elif kind == "text":
            out = []
            text_values(pydicom.dcmread(path), "", out)
            emit(out, path, "text")
        elif kind == "json":
            ours = json_objects.get(path, {})
            emit(json_compare.compare_file(path, ours), path, "json")
        elif kind == "pair":
            emit([rest[1] + "\t" + compare_pair(path, rest[1], len(rest) > 2)], path, "pair")
    paths = []
    for path, syntax in images(data_dir):
        paths.append(path)
        if not syntax.startswith(COMPRESSED):
            target = os.path.join(scratch, "dcmtk_" + os.path.relpath(path, data_dir).replace("/", "_"))
            if subprocess.run(["dcmconv", "+ti", path, target], capture_output=True).returncode == 0:
                paths.append(target)
    paths += synthetic(scratch, data_dir)
    for path in paths:
        CURRENT[0] = path
        describe(path)
    for path in sorted(glob.glob(os.path.join(data_dir, "palettes", "*.dcm"))):
        CURRENT[0] = path
        describe_palette(path)


main()
