// Encodes one uncompressed frame into a JPEG 2000 codestream (J2K, as DICOM asks) through
// OpenJPEG.
#ifndef D2CODESTREAMENCODER_H
#define D2CODESTREAMENCODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

#include "dcmutils/codec/D2FrameInfo.h"

#include <vector>

class D2CodecParameter;
class D2RepresentationParameter;

class D2CodestreamEncoder
{
public:
    // lossless: reversible coding of every layer's last; otherwise the representation
    // parameter's rate (or PSNR). colorTransform: code three samples through the
    // multiple-component transform.
    D2CodestreamEncoder(const D2CodecParameter& cp, const D2RepresentationParameter& rp, bool lossless,
                        bool colorTransform);

    // Encodes the frame at data (frame.frameSize() bytes) into codestream. Only the stored
    // bits of each value (frame.storedBits, sign-extended when signed) are coded. Lossless
    // output is verified by decoding when the codec parameter asks for it.
    OFCondition encode(const Uint8* data, const D2FrameInfo& frame, std::vector<Uint8>& codestream) const;

    // The codestream precision used for a frame, or 0 when the bit depth settings refuse it.
    unsigned int precisionFor(const D2FrameInfo& frame) const;

private:
    // Decodes the codestream again and compares it with the frame's coded values.
    OFCondition verify(const Uint8* data, const D2FrameInfo& frame, const std::vector<Uint8>& codestream) const;

    const D2CodecParameter& m_cp;
    const D2RepresentationParameter& m_rp;
    bool m_lossless;
    bool m_colorTransform;
};

#endif
