// DCMTK's JPEG decoders behind a check of what they trust: before decoding, each frame's first
// fragment is scanned for its bit depth, and that scan never ends on a TEM marker (0xFF01).
#ifndef DCMUTILS_CODEC_CHECKEDJPEGDECODER_H
#define DCMUTILS_CODEC_CHECKEDJPEGDECODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcpixseq.h"

/** Registers DCMTK's six JPEG decoders (baseline, extended, spectral selection, progressive,
 *  lossless and its first-order prediction) with the parameters DJDecoderRegistration would use,
 *  each behind a check of every frame's first fragment: one on which DCMTK's scan for the bit
 *  depth would never end is refused with EC_CorruptedData (and an error through the dcmdata
 *  logger). Later calls do nothing until cleanup().
 */
class CheckedJPEGDecoderRegistration
{
public:
    /** Registers the decoders once (colour conversion as the photometric interpretation says,
     *  default UID and planar configuration handling, no workarounds). */
    static void registerCodecs();
    /** Deregisters and deletes them. */
    static void cleanup();

    /** True when DCMTK's scan for the bit depth of a JPEG stream ends on these bytes. */
    static bool isScannable(const Uint8* data, Uint32 length);

    /** True when the first fragment of every frame of the sequence is scannable; the frames are
     *  found as the decoders find them.
     *  @param frames the object's number of frames (at least 1) */
    static bool framesAreScannable(DcmPixelSequence* sequence, Sint32 frames);
};

#endif
