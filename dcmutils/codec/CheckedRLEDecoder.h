// DCMTK's RLE decoder behind a check of what it trusts: decoding one frame, it takes the segment
// offsets of the RLE header from the frame's fragment without comparing them with the fragment's
// length, and reads past it when they are damaged.
#ifndef DCMUTILS_CODEC_CHECKEDRLEDECODER_H
#define DCMUTILS_CODEC_CHECKEDRLEDECODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcrleccd.h"
#include "dcmtk/dcmdata/dcrlecp.h"

/** DcmRLECodecDecoder whose frame decoding first checks the frame's fragment: at least the 64
 *  bytes of the RLE header, 1 to 15 segments, every segment offset inside the fragment and not
 *  before the previous one. A fragment that fails is refused with EC_CorruptedData (and an error
 *  through the dcmdata logger) instead of being read past its end; whole-object decoding, which
 *  checks the offsets itself, is left as it is.
 */
class CheckedRLEDecoder : public DcmRLECodecDecoder
{
public:
    OFCondition decodeFrame(const DcmRepresentationParameter* fromParam, DcmPixelSequence* fromPixSeq,
                            const DcmCodecParameter* cp, DcmItem* dataset, Uint32 frameNo, Uint32& startFragment,
                            void* buffer, Uint32 bufSize, OFString& decompressedColorModel) const override;

    /** True when the fragment's RLE header and segment offsets fit inside it. */
    static bool isWellFormedFragment(const Uint8* data, Uint32 length);
};

/** Registers CheckedRLEDecoder in DCMTK's codec list in place of DcmRLEDecoderRegistration's
 *  decoder (no new SOP Instance UID, segments in the standard byte order). Later calls do nothing
 *  until cleanup(). */
class CheckedRLEDecoderRegistration
{
public:
    /** Registers the decoder once. */
    static void registerCodecs();
    /** Deregisters and deletes it. */
    static void cleanup();

private:
    static CheckedRLEDecoder* m_decoder;
    static DcmRLECodecParameter* m_parameter;
};

#endif
