#include "dcmutils/codec/CheckedRLEDecoder.h"

#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"

namespace {

Uint32 littleEndian32(const Uint8* p)
{
    return Uint32(p[0]) | Uint32(p[1]) << 8 | Uint32(p[2]) << 16 | Uint32(p[3]) << 24;
}

} // namespace

bool CheckedRLEDecoder::isWellFormedFragment(const Uint8* data, Uint32 length)
{
    if (data == NULL || length < 64)
        return false;
    const Uint32 segments = littleEndian32(data);
    if (segments < 1 || segments > 15)
        return false;
    Uint32 previous = 64;
    for (Uint32 i = 1; i <= segments; ++i)
    {
        const Uint32 offset = littleEndian32(data + 4 * i);
        if (offset < previous || offset > length)
            return false;
        previous = offset;
    }
    return true;
}

OFCondition CheckedRLEDecoder::decodeFrame(const DcmRepresentationParameter* fromParam, DcmPixelSequence* fromPixSeq,
                                           const DcmCodecParameter* cp, DcmItem* dataset, Uint32 frameNo,
                                           Uint32& startFragment, void* buffer, Uint32 bufSize,
                                           OFString& decompressedColorModel) const
{
    // the fragment the frame starts in, found as the decoder finds it
    Uint32 fragment = startFragment;
    if (fragment == 0 && fromPixSeq != NULL && dataset != NULL)
    {
        Sint32 frames = 1;
        dataset->findAndGetSint32(DCM_NumberOfFrames, frames);
        if (frames < 1)
            frames = 1;
        if (DcmCodec::determineStartFragment(frameNo, frames, fromPixSeq, fragment).bad())
            return EC_CannotChangeRepresentation;
    }
    DcmPixelItem* item = NULL;
    Uint8* data = NULL;
    if (fromPixSeq == NULL || fromPixSeq->getItem(item, fragment).bad() || item->getUint8Array(data).bad() ||
        !isWellFormedFragment(data, item->getLength()))
    {
        DCMDATA_ERROR("RLE frame " << frameNo << " is damaged: its segments do not fit in its fragment");
        return EC_CorruptedData;
    }
    return DcmRLECodecDecoder::decodeFrame(fromParam, fromPixSeq, cp, dataset, frameNo, startFragment, buffer,
                                           bufSize, decompressedColorModel);
}

CheckedRLEDecoder* CheckedRLEDecoderRegistration::m_decoder = NULL;
DcmRLECodecParameter* CheckedRLEDecoderRegistration::m_parameter = NULL;

void CheckedRLEDecoderRegistration::registerCodecs()
{
    if (m_decoder)
        return;
    m_decoder = new CheckedRLEDecoder();
    m_parameter = new DcmRLECodecParameter(OFFalse, 0, OFTrue, OFFalse, OFFalse);
    DcmCodecList::registerCodec(m_decoder, NULL, m_parameter);
}

void CheckedRLEDecoderRegistration::cleanup()
{
    if (!m_decoder)
        return;
    DcmCodecList::deregisterCodec(m_decoder);
    delete m_decoder;
    delete m_parameter;
    m_decoder = NULL;
    m_parameter = NULL;
}
