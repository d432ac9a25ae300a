#!/usr/bin/python3
"""Reference samples read by pydicom for the corpus test, per stdin line "kind<TAB>input<TAB>output":
frames: every frame's samples (stored bits at bit 0, signed ones extended, palette through its LUT,
little endian), with the photometric interpretation in output.pi and pydicom's RGB of YBR_FULL
in output.rgb; overlay: group 6000 as one byte per pixel; document: the bytes without the pad
byte. A line that fails writes the reason to output.error."""
import sys

import numpy as np
import pydicom
from pydicom.pixel_data_handlers.util import apply_color_lut, convert_color_space


def frames(ds, output):
    arr = ds.pixel_array
    arr = arr.astype(arr.dtype.newbyteorder("="))  # big endian objects give big endian arrays
    photometric, bits = ds.PhotometricInterpretation, ds.BitsAllocated
    if photometric == "PALETTE COLOR":
        arr = apply_color_lut(arr, ds)
        photometric = "RGB"
    elif bits in (8, 16):
        stored, high = ds.BitsStored, ds.HighBit
        unsigned = arr.view(np.uint8 if bits == 8 else np.uint16).astype(np.int64)
        values = (unsigned >> (high + 1 - stored)) & ((1 << stored) - 1)
        if ds.PixelRepresentation == 1:
            values = np.where(values & (1 << (stored - 1)), values - (1 << stored), values)
        arr = values.astype(("int8", "int16", "uint8", "uint16")[(bits == 16) + 2 * (ds.PixelRepresentation == 0)])
    if photometric == "YBR_FULL_422":
        photometric = "YBR_FULL"  # pydicom expands the subsampled chroma
    arr.astype(arr.dtype.newbyteorder("<")).tofile(output)
    open(output + ".pi", "w").write(photometric)
    if photometric == "YBR_FULL":
        convert_color_space(arr, "YBR_FULL", "RGB").tofile(output + ".rgb")


def overlay(ds, output):
    ds.overlay_array(0x6000).astype(np.uint8).tofile(output)


def document(ds, output):
    data = bytes(ds.EncapsulatedDocument)
    open(output, "wb").write(data[:-1] if len(data) % 2 == 0 and data.endswith(b"\0") else data)


for line in sys.stdin:
    kind, source, target = line.rstrip("\n").split("\t")
    try:
        ds = pydicom.dcmread(source, force=True)
        {"frames": frames, "overlay": overlay, "document": document}[kind](ds, target)
    except Exception as error:  # reported to the test, which decides
        open(target + ".error", "w").write(f"{type(error).__name__}: {error}")
