// The raw image of the comparison: samples kept exactly as decoded.
#ifndef OBJDIFFRAWIMAGE_H
#define OBJDIFFRAWIMAGE_H

#include "common/imgproc/src/rawimage.h"

#include <cstdio>

/** A CRawImage whose samples stay as the decoder delivered them (no display preparation:
 *  signed samples are not offset, MONOCHROME1 is not inverted), so that two objects compare
 *  on their stored values. */
class ObjDiffRawImage : public CRawImage
{
public:
    /// Bytes of every image dump.
    static const unsigned long DUMP_SIZE = 4096;

    /// The raw image of frame frameNumber (1 for the first) of process (borrowed).
    ObjDiffRawImage(CImageProcess* process, int frameNumber);

    /// Nothing: the decoded samples are compared as they are.
    void optimizeBitmap() override;
    /** Writes the image dump of the samples to file (borrowed, left open): the first 4096
     *  bytes of their "GW10" wavelet stream coded with a budget of 4096 bytes (zeros after a
     *  shorter stream). False when the samples cannot be coded (1, 2 or 3 bytes per pixel and
     *  at most 65535 x 65535 pixels can) or not every byte was written. */
    bool writeWavelet(FILE* file);
};

#endif
