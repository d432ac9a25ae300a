// The raw image of the comparison: samples kept exactly as decoded.
#ifndef OBJDIFFRAWIMAGE_H
#define OBJDIFFRAWIMAGE_H

#include "common/imgproc/src/rawimage.h"

/** A CRawImage whose samples stay as the decoder delivered them (no display preparation:
 *  signed samples are not offset, MONOCHROME1 is not inverted), so that two objects compare
 *  on their stored values. */
class ObjDiffRawImage : public CRawImage
{
public:
    /// The raw image of frame frameNumber (1 for the first) of process (borrowed).
    ObjDiffRawImage(CImageProcess* process, int frameNumber);

    /// Nothing: the decoded samples are compared as they are.
    void optimizeBitmap() override;
};

#endif
