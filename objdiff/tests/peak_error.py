#!/usr/bin/python3
"""Peak-error measure of the first frames of native DICOM pairs ("first<TAB>second" lines on
standard input), over pydicom's pixel arrays: -10 log10(mean(|a - b|^8) / max(a)^8), 16-bit
samples when Bits Allocated exceeds 8, else bytes; "inf" for identical samples."""
import sys

import numpy as np
import pydicom


def samples(path):
    ds = pydicom.dcmread(path)
    arr = ds.pixel_array
    if int(getattr(ds, "NumberOfFrames", 1) or 1) > 1:
        arr = arr[0]
    return np.ascontiguousarray(arr).view(np.uint16 if ds.BitsAllocated > 8 else np.uint8).ravel().astype(np.int64)


for line in sys.stdin:
    a, b = (samples(path) for path in line.rstrip("\n").split("\t"))
    total = np.sum(np.abs(a - b).astype(np.longdouble) ** 8)
    peak = np.longdouble(a.max())
    print(repr(float("inf") if total == 0 else float(-10.0 * np.log10((total / a.size) / peak ** 8))))
