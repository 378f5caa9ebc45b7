# Prints, one per line, every text that a rendering of the structured report
# must show, as pydicom reads the file: concept name meanings, text values
# (line by line), code meanings, numeric values and the meanings of their
# units, for the whole content tree.
import re
import sys

import pydicom


def meaning(sequence):
    for item in sequence or []:
        text = str(item.get("CodeMeaning", "") or "").strip()
        if text:
            yield text


def walk(item, out):
    out.extend(meaning(item.get("ConceptNameCodeSequence")))
    value_type = str(item.get("ValueType", "")).strip()
    if value_type == "TEXT":
        out.extend(line.strip() for line in re.split(r"\r\n|\r|\n", str(item.get("TextValue", "") or "")))
    elif value_type == "CODE":
        out.extend(meaning(item.get("ConceptCodeSequence")))
    elif value_type == "NUM":
        for measured in item.get("MeasuredValueSequence") or []:
            number = measured.get("NumericValue")
            if number is not None and str(number) != "":
                out.append(str(number).strip())
            out.extend(meaning(measured.get("MeasurementUnitsCodeSequence")))
    for child in item.get("ContentSequence") or []:
        walk(child, out)


data_set = pydicom.dcmread(sys.argv[1])
texts = []
walk(data_set, texts)
for text in texts:
    if text:
        sys.stdout.buffer.write(text.encode("utf-8") + b"\n")
