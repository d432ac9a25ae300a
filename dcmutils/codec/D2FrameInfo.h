// Layout of one uncompressed frame as the JPEG 2000 codecs read and write it, and the Image
// Pixel Module attributes both codecs read it from.
#ifndef D2FRAMEINFO_H
#define D2FRAMEINFO_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/ofstd/ofcond.h"
#include "dcmtk/ofstd/ofstring.h"
#include "dcmtk/ofstd/oftypes.h"

#include <cstddef>

// The Image Pixel Module attributes of a dataset as the JPEG 2000 codecs use them. A missing
// numeric attribute reads as 0 (DCMTK's convention); the flags tell which optional ones exist.
struct D2ImagePixel
{
    Uint16 samplesPerPixel = 0;
    Uint16 rows = 0;
    Uint16 columns = 0;
    Uint16 bitsAllocated = 0;
    Uint16 bitsStored = 0;
    Uint16 highBit = 0;
    bool hasHighBit = false;
    Uint16 pixelRepresentation = 0;
    Uint16 planarConfiguration = 0;
    OFString photometricInterpretation;
    bool hasPhotometricInterpretation = false;
    OFString sopClassUID;
    Sint32 numberOfFrames = 0;
    bool hasNumberOfFrames = false;

    // Reads the attributes from the top level of dataset. EC_TagNotFound when Samples per
    // Pixel, Rows, Columns, Bits Allocated or Bits Stored is missing; the rest is optional.
    OFCondition read(DcmItem& dataset);
};

struct D2FrameInfo
{
    Uint16 columns = 0;
    Uint16 rows = 0;
    // 1 or 3
    Uint16 samplesPerPixel = 1;
    // 1 (Bits Allocated 8) or 2 (Bits Allocated 16)
    Uint16 bytesPerSample = 1;
    // 0: colour-by-pixel, 1: colour-by-plane
    Uint16 planarConfiguration = 0;
    // bits of a stored value (High Bit + 1); higher bits of the container are not part of it
    Uint16 storedBits = 8;
    // Pixel Representation 1
    bool isSigned = false;

    size_t pixels() const { return size_t(columns) * rows; }
    size_t frameSize() const { return pixels() * samplesPerPixel * bytesPerSample; }

    // The dataset or item that holds the pixel data element on top of a codec's object stack
    // (not owned), or null when there is none.
    static DcmItem* datasetOf(const DcmStack& objStack);
};

#endif
