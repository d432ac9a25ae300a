#!/usr/bin/python3
"""Peak-error measure of image pairs computed over pydicom's pixel arrays, for the comparison's
corpus test: an independent computation of the measure that decides whether a lossy pair is
equal.

Reads lines "first<TAB>second" (native DICOM files) on standard input and prints, for each, the
measure of the first frames: -10 log10(mean(|a - b|^8) / max(a)^8), over 16-bit samples (as
unsigned) when Bits Allocated exceeds 8, else over bytes; "inf" for identical samples.
"""
import sys

import numpy as np
import pydicom


def samples(path):
    ds = pydicom.dcmread(path)
    arr = ds.pixel_array
    if int(getattr(ds, "NumberOfFrames", 1) or 1) > 1:
        arr = arr[0]
    arr = np.ascontiguousarray(arr)
    wide = ds.BitsAllocated > 8
    return arr.view(np.uint16 if wide else np.uint8).ravel().astype(np.int64)


def measure(a, b):
    d = np.abs(a - b).astype(np.longdouble)
    total = np.sum(d ** 8)
    if total == 0:
        return float("inf")
    peak = np.longdouble(a.max())
    return float(-10.0 * np.log10((total / a.size) / peak ** 8))


for line in sys.stdin:
    first, second = line.rstrip("\n").split("\t")
    print(repr(measure(samples(first), samples(second))))
