#!/usr/bin/python3
"""Reference samples read by pydicom, for the image pipeline's corpus test.

Reads lines "kind<TAB>input<TAB>output" on standard input and writes, for each:
  frames    the samples of every frame (pixel_array, little endian), with the bits that are not
            stored cleared and signed samples sign-extended, stored bits moved to bit 0, palette
            colour through apply_color_lut; output + ".pi" holds the photometric interpretation
            of the samples, and for YBR_FULL samples output + ".rgb" pydicom's RGB conversion
  overlay   overlay_array of group 6000 as one byte (0 or 1) per pixel
  document  the Encapsulated Document bytes, without the pad byte of an odd-length document
A line that fails writes output + ".error" with the reason.
"""
import sys

import numpy as np
import pydicom
from pydicom.pixel_data_handlers.util import apply_color_lut, convert_color_space


def frames(ds, output):
    arr = ds.pixel_array
    arr = arr.astype(arr.dtype.newbyteorder("="))  # big endian objects give big endian arrays
    photometric = ds.PhotometricInterpretation
    bits = ds.BitsAllocated
    if photometric == "PALETTE COLOR":
        arr = apply_color_lut(arr, ds)
        photometric = "RGB"
    elif bits in (8, 16):
        stored, high = ds.BitsStored, ds.HighBit
        unsigned = arr.view(np.uint8 if bits == 8 else np.uint16).astype(np.int64)
        values = (unsigned >> (high + 1 - stored)) & ((1 << stored) - 1)
        if ds.PixelRepresentation == 1:
            values = np.where(values & (1 << (stored - 1)), values - (1 << stored), values)
        arr = values.astype(np.int8 if bits == 8 else np.int16) if ds.PixelRepresentation == 1 else \
            values.astype(np.uint8 if bits == 8 else np.uint16)
    if photometric == "YBR_FULL_422":
        photometric = "YBR_FULL"  # pydicom expands the subsampled chroma
    arr.astype(arr.dtype.newbyteorder("<")).tofile(output)
    with open(output + ".pi", "w") as f:
        f.write(photometric)
    if photometric == "YBR_FULL":
        convert_color_space(arr, "YBR_FULL", "RGB").tofile(output + ".rgb")


def overlay(ds, output):
    ds.overlay_array(0x6000).astype(np.uint8).tofile(output)


def document(ds, output):
    data = bytes(ds.EncapsulatedDocument)
    if len(data) % 2 == 0 and data.endswith(b"\0"):
        data = data[:-1]
    with open(output, "wb") as f:
        f.write(data)


for line in sys.stdin:
    kind, source, target = line.rstrip("\n").split("\t")
    try:
        ds = pydicom.dcmread(source, force=True)
        {"frames": frames, "overlay": overlay, "document": document}[kind](ds, target)
    except Exception as error:  # reported to the test, which decides
        with open(target + ".error", "w") as f:
            f.write(f"{type(error).__name__}: {error}")
