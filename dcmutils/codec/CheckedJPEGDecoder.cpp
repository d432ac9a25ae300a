#include "dcmutils/codec/CheckedJPEGDecoder.h"

#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/dcmjpeg/djcparam.h"
#include "dcmtk/dcmjpeg/djdecbas.h"
#include "dcmtk/dcmjpeg/djdecext.h"
#include "dcmtk/dcmjpeg/djdeclol.h"
#include "dcmtk/dcmjpeg/djdecpro.h"
#include "dcmtk/dcmjpeg/djdecsps.h"
#include "dcmtk/dcmjpeg/djdecsv1.h"

#include <memory>
#include <vector>

namespace {

Sint32 numberOfFrames(DcmItem* dataset)
{
    Sint32 frames = 1;
    if (dataset)
        dataset->findAndGetSint32(DCM_NumberOfFrames, frames);
    return frames < 1 ? 1 : frames;
}

OFCondition refused(const char* what)
{
    DCMDATA_ERROR("JPEG " << what << " is damaged: a marker in its first fragment stops the decoder");
    return EC_CorruptedData;
}

// One of DCMTK's decoders, checking the frames' first fragments before it decodes.
template <class Decoder> class CheckedJPEGDecoder : public Decoder
{
public:
    OFCondition decode(const DcmRepresentationParameter* fromRepParam, DcmPixelSequence* pixSeq,
                       DcmPolymorphOBOW& uncompressedPixelData, const DcmCodecParameter* cp, const DcmStack& objStack,
                       OFBool& removeOldRep) const override
    {
        // the item holding the pixel data, as the decoder takes it from the stack
        DcmStack stack(objStack);
        stack.pop();
        DcmObject* dataset = stack.pop();
        DcmItem* item = dataset && (dataset->ident() == EVR_dataset || dataset->ident() == EVR_item)
                            ? OFstatic_cast(DcmItem*, dataset)
                            : NULL;
        if (!CheckedJPEGDecoderRegistration::framesAreScannable(pixSeq, numberOfFrames(item)))
            return refused("pixel data");
        return Decoder::decode(fromRepParam, pixSeq, uncompressedPixelData, cp, objStack, removeOldRep);
    }

    OFCondition decodeFrame(const DcmRepresentationParameter* fromParam, DcmPixelSequence* fromPixSeq,
                            const DcmCodecParameter* cp, DcmItem* dataset, Uint32 frameNo, Uint32& startFragment,
                            void* buffer, Uint32 bufSize, OFString& decompressedColorModel) const override
    {
        Uint32 fragment = startFragment;
        DcmPixelItem* item = NULL;
        Uint8* data = NULL;
        if (fromPixSeq != NULL &&
            (fragment != 0 ||
             DcmCodec::determineStartFragment(frameNo, numberOfFrames(dataset), fromPixSeq, fragment).good()) &&
            fromPixSeq->getItem(item, fragment).good() && item->getUint8Array(data).good() &&
            !CheckedJPEGDecoderRegistration::isScannable(data, item->getLength()))
            return refused("frame");
        return Decoder::decodeFrame(fromParam, fromPixSeq, cp, dataset, frameNo, startFragment, buffer, bufSize,
                                    decompressedColorModel);
    }
};

bool registered = false;
DJCodecParameter* parameter = NULL;
std::vector<std::unique_ptr<DcmCodec>> decoders;

} // namespace

bool CheckedJPEGDecoderRegistration::isScannable(const Uint8* data, Uint32 length)
{
    // the decoder's own walk over the markers before the first start of frame
    Uint32 offset = 0;
    while (data != NULL && offset + 4 < length)
    {
        const Uint16 marker = Uint16(data[offset] << 8 | data[offset + 1]);
        const Uint32 segment = Uint32(data[offset + 2] << 8 | data[offset + 3]) + 2;
        if (marker >= 0xffc0 && marker <= 0xffcf && marker != 0xffc4 && marker != 0xffc8 && marker != 0xffcc)
            return true; // a start of frame: the scan ends
        if (marker == 0xff01)
            return false; // TEM: the scan would stand still for ever
        if (marker == 0xffc4 || marker == 0xffc8 || marker == 0xffcc || (marker >= 0xffda && marker <= 0xfffe))
            offset += segment;
        else if (marker >= 0xffd0 && marker <= 0xffd9)
            offset += 2;
        else if (marker == 0xffff)
            offset += 1;
        else if (data[offset] == 0xff && data[offset + 1] > 2 && data[offset + 1] <= 0xbf)
            offset += 2;
        else
            return true; // not a marker: the scan stops there
    }
    return true;
}

bool CheckedJPEGDecoderRegistration::framesAreScannable(DcmPixelSequence* sequence, Sint32 frames)
{
    if (sequence == NULL)
        return true;
    for (Sint32 frame = 0; frame < frames; ++frame)
    {
        Uint32 fragment = 0;
        DcmPixelItem* item = NULL;
        Uint8* data = NULL;
        if (DcmCodec::determineStartFragment(Uint32(frame), frames, sequence, fragment).bad() ||
            sequence->getItem(item, fragment).bad() || item->getUint8Array(data).bad())
            return true; // the decoder finds no frame there either
        if (!isScannable(data, item->getLength()))
            return false;
    }
    return true;
}

void CheckedJPEGDecoderRegistration::registerCodecs()
{
    if (registered)
        return;
    parameter = new DJCodecParameter(ECC_lossyYCbCr, EDC_photometricInterpretation, EUC_default, EPC_default);
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderBaseline>());
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderExtended>());
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderSpectralSelection>());
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderProgressive>());
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderP14SV1>());
    decoders.emplace_back(new CheckedJPEGDecoder<DJDecoderLossless>());
    for (auto& decoder : decoders)
        DcmCodecList::registerCodec(decoder.get(), NULL, parameter);
    registered = true;
}

void CheckedJPEGDecoderRegistration::cleanup()
{
    if (!registered)
        return;
    for (auto& decoder : decoders)
        DcmCodecList::deregisterCodec(decoder.get());
    decoders.clear();
    delete parameter;
    parameter = NULL;
    registered = false;
}
