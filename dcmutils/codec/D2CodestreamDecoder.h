// Decodes one JPEG 2000 codestream (raw J2K, or wrapped in a JP2 header) into an uncompressed
// frame through OpenJPEG.
#ifndef D2CODESTREAMDECODER_H
#define D2CODESTREAMDECODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

#include "dcmutils/codec/D2FrameInfo.h"

class D2CodecParameter;

class D2CodestreamDecoder
{
public:
    explicit D2CodestreamDecoder(const D2CodecParameter& cp);

    // Decodes length bytes at data into buffer (bufSize bytes) in the layout of frame. The
    // codestream must match the frame: columns, rows, one component per sample, no component
    // subsampling, and a precision that fits the sample size. Decoded values are stored as
    // they are, in two's complement when the codestream is signed.
    OFCondition decode(const Uint8* data, size_t length, const D2FrameInfo& frame, Uint8* buffer,
                       size_t bufSize);

    // What the last decoded codestream said.
    bool usedColorTransform() const { return m_colorTransform; }
    bool usedIrreversibleWavelet() const { return m_irreversible; }
    unsigned int precision() const { return m_precision; }
    bool isSigned() const { return m_signed; }

    // True when data starts like a J2K codestream (SOC, SIZ) or a JP2 file (signature box).
    static bool isJ2KCodestream(const Uint8* data, size_t length);
    static bool isJP2File(const Uint8* data, size_t length);

private:
    const D2CodecParameter& m_cp;
    bool m_colorTransform;
    bool m_irreversible;
    unsigned int m_precision;
    bool m_signed;
};

#endif
