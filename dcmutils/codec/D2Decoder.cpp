#include "dcmutils/codec/D2Decoder.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2CodestreamDecoder.h"
#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/D2JPEG2000Util.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/dcmdata/dcswap.h"
#include "dcmtk/dcmdata/dcuid.h"
#include "dcmtk/dcmdata/dcvrpobw.h"

#include <cstring>
#include <vector>

namespace {

const D2CodecParameter& codecParameter(const DcmCodecParameter* cp)
{
    static const D2CodecParameter defaults;
    const char* name = cp ? cp->className() : NULL;
    if (name && strcmp(name, "D2CodecParameter") == 0)
        return *static_cast<const D2CodecParameter*>(cp);
    return defaults;
}

} // namespace

D2Decoder::D2Decoder(E_TransferSyntax supported)
: DcmCodec()
, m_supported(supported)
{
}

D2Decoder::~D2Decoder()
{
}

OFBool D2Decoder::canChangeCoding(const E_TransferSyntax oldRepType, const E_TransferSyntax newRepType) const
{
    // decoding only: from this codec's syntax to uncompressed
    DcmXfer newRep(newRepType);
    return newRep.isNotEncapsulated() && oldRepType == m_supported;
}

OFString D2Decoder::colorModelAfterDecoding(const OFString& photometricInterpretation, Uint16 samplesPerPixel)
{
    if (samplesPerPixel == 3)
    {
        if (photometricInterpretation == "YBR_RCT" || photometricInterpretation == "YBR_ICT")
            return "RGB";
        if (photometricInterpretation == "YBR_FULL_422")
            return "YBR_FULL";
    }
    return photometricInterpretation;
}

Uint16 D2Decoder::determinePlanarConfiguration(const OFString& sopClassUID, const OFString& photometricInterpretation)
{
    // Hardcopy Color Image always requires colour-by-plane
    if (sopClassUID == UID_RETIRED_HardcopyColorImageStorage)
        return 1;
    // the 1996 ultrasound image IODs require colour-by-plane for YBR_FULL
    if (photometricInterpretation == "YBR_FULL" &&
        (sopClassUID == UID_UltrasoundMultiframeImageStorage || sopClassUID == UID_UltrasoundImageStorage))
        return 1;
    return 0;
}

OFCondition D2Decoder::readFrameInfo(DcmItem* dataset, const D2CodecParameter& cp, DcmPixelSequence* pixSeq,
                                     D2FrameInfo& frame, Sint32& frames)
{
    D2ImagePixel pixel;
    if (pixel.read(*dataset).bad())
        return EC_TagNotFound;
    if ((pixel.samplesPerPixel != 1 && pixel.samplesPerPixel != 3) || pixel.rows < 1 || pixel.columns < 1)
        return EC_InvalidTag;
    if (pixel.bitsStored < 1 || pixel.bitsStored > 16 || pixel.bitsAllocated > 16 ||
        pixel.bitsStored > pixel.bitsAllocated)
        return EC_J2KUnsupportedBitDepth;
    frame.columns = pixel.columns;
    frame.rows = pixel.rows;
    frame.samplesPerPixel = pixel.samplesPerPixel;
    frame.bytesPerSample = (pixel.bitsAllocated > 8 || pixel.bitsStored > 8) ? 2 : 1;
    frame.storedBits = pixel.bitsStored;
    frame.isSigned = pixel.pixelRepresentation == 1;
    frame.planarConfiguration = 0;
    if (pixel.samplesPerPixel == 3)
    {
        const Uint16 planar = pixel.planarConfiguration;
        const OFString& sopClass = pixel.sopClassUID;
        const OFString& photometric = pixel.photometricInterpretation;
        switch (cp.m_planarConfiguration)
        {
        case EJ2KPC_restore:
            frame.planarConfiguration = planar <= 1 ? planar : determinePlanarConfiguration(sopClass, photometric);
            break;
        case EJ2KPC_auto:
            frame.planarConfiguration = determinePlanarConfiguration(sopClass, photometric);
            break;
        case EJ2KPC_colorByPlane:
            frame.planarConfiguration = 1;
            break;
        case EJ2KPC_colorByPixel:
        default:
            frame.planarConfiguration = 0;
            break;
        }
    }

    // Number of Frames is optional; the fragments bound it
    frames = pixel.numberOfFrames;
    if (pixSeq->card() < 2)
        return makeOFCondition(OFM_dcmjp2k, EC_CODE_J2KDecodingFailed, OF_error,
                               "JPEG 2000 decoding failed: no compressed frame in pixel data");
    if (frames >= Sint32(pixSeq->card()))
        frames = Sint32(pixSeq->card()) - 1;
    if (frames < 1)
        frames = 1;
    return EC_Normal;
}

OFCondition D2Decoder::decode(const DcmRepresentationParameter* /* fromRepParam */, DcmPixelSequence* pixSeq,
                              DcmPolymorphOBOW& uncompressedPixelData, const DcmCodecParameter* cp,
                              const DcmStack& objStack, OFBool& removeOldRep) const
{
    // the Image Pixel Module changes (Photometric Interpretation, Planar Configuration), so
    // the compressed representation no longer matches it
    removeOldRep = OFTrue;
    if (!D2JPEG2000Library::isInitialized())
        return EC_J2KLibraryNotInitialized;
    if (pixSeq == NULL)
        return EC_IllegalCall;
    DcmItem* dataset = D2FrameInfo::datasetOf(objStack);
    if (dataset == NULL)
        return EC_InvalidTag;
    const D2CodecParameter& params = codecParameter(cp);

    D2FrameInfo frame;
    Sint32 frames = 0;
    OFCondition result = readFrameInfo(dataset, params, pixSeq, frame, frames);
    if (result.bad())
        return result;
    const bool numberOfFramesPresent = dataset->tagExistsWithValue(DCM_NumberOfFrames);

    Uint16* pixels = NULL;
    Uint32 totalSize = 0;
    result = createPixelData(uncompressedPixelData, frame, frames, pixels, totalSize);
    bool irreversible = false;
    if (result.good())
        result = decodeFrames(pixSeq, params, frame, frames, reinterpret_cast<Uint8*>(pixels), irreversible);
    // the samples are written as bytes into a word array
    if (result.good() && frame.bytesPerSample == 1)
        result = swapIfNecessary(gLocalByteOrder, EBO_LittleEndian, pixels, totalSize, sizeof(Uint16));
    if (result.good())
        result = updateImagePixelModule(dataset, frame, frames, numberOfFramesPresent);
    // SOP Common and General Image: only on the main level of the dataset
    if (result.good() && dataset->ident() == EVR_dataset)
    {
        if (params.m_decoderUIDCreation == EJ2KUC_always)
            result = DcmCodec::newInstance(dataset, NULL, NULL, NULL);
        // irreversible wavelet: lossy for certain (see DICOM PS3.3 C.7.6.1.1.5)
        if (result.good() && irreversible)
            result = dataset->putAndInsertString(DCM_LossyImageCompression, "01");
    }
    return result;
}

OFCondition D2Decoder::createPixelData(DcmPolymorphOBOW& pixelData, const D2FrameInfo& frame, Sint32 frames,
                                       Uint16*& words, Uint32& totalSize)
{
    const unsigned long long total = (unsigned long long)frame.frameSize() * (unsigned long long)frames;
    if (total >= 0xFFFFFFFEull)
    {
        D2J_WARN("cannot decompress image because uncompressed representation would exceed maximum possible size of "
                 "PixelData attribute");
        return EC_ElemLengthExceeds32BitField;
    }
    totalSize = Uint32(total);
    if (totalSize & 1)
        ++totalSize;
    const OFCondition result = pixelData.createUint16Array(totalSize / sizeof(Uint16), words);
    if (result.good() && totalSize > total)
        reinterpret_cast<Uint8*>(words)[totalSize - 1] = 0; // the pad byte of an odd length
    return result;
}

OFCondition D2Decoder::decodeFrames(DcmPixelSequence* pixSeq, const D2CodecParameter& params,
                                    const D2FrameInfo& frame, Sint32 frames, Uint8* buffer, bool& irreversible)
{
    D2CodestreamDecoder decoder(params);
    OFCondition result = EC_Normal;
    Uint32 currentItem = 1; // item 0 is the offset table
    for (Sint32 f = 0; f < frames && result.good(); ++f)
    {
        D2J_DEBUG("JPEG 2000 decoder processes frame " << (f + 1));
        result = decodeFrameAt(pixSeq, decoder, frame, frames, Uint32(f), currentItem, buffer + f * frame.frameSize(),
                               frame.frameSize());
        if (result.good() && f == 0)
        {
            if (decoder.isSigned() != frame.isSigned)
                D2J_WARN("JPEG 2000 codestream is " << (decoder.isSigned() ? "signed" : "unsigned")
                                                    << " but Pixel Representation is " << (frame.isSigned ? 1 : 0)
                                                    << ", samples kept as decoded");
            if (decoder.precision() > frame.storedBits)
                D2J_WARN("JPEG 2000 codestream has " << decoder.precision() << " bits per sample but Bits Stored is "
                                                     << frame.storedBits << ", samples kept as decoded");
        }
        irreversible = irreversible || decoder.usedIrreversibleWavelet();
    }
    return result;
}

OFCondition D2Decoder::updateImagePixelModule(DcmItem* dataset, const D2FrameInfo& frame, Sint32 frames,
                                              bool numberOfFramesPresent)
{
    OFCondition result = EC_Normal;
    // Number of Frames may have been corrected
    if (numberOfFramesPresent || frames > 1)
    {
        char numBuf[20];
        snprintf(numBuf, sizeof(numBuf), "%ld", long(frames));
        result = dataset->putAndInsertString(DCM_NumberOfFrames, numBuf);
    }
    if (result.good())
    {
        Uint16 bitsAllocated = 0;
        dataset->findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
        if (bitsAllocated != 8 * frame.bytesPerSample)
            result = dataset->putAndInsertUint16(DCM_BitsAllocated, Uint16(8 * frame.bytesPerSample));
    }
    if (result.good() && frame.samplesPerPixel == 3)
    {
        result = dataset->putAndInsertUint16(DCM_PlanarConfiguration, frame.planarConfiguration);
        OFString photometric;
        dataset->findAndGetOFString(DCM_PhotometricInterpretation, photometric);
        const OFString decoded = colorModelAfterDecoding(photometric, frame.samplesPerPixel);
        if (result.good() && decoded != photometric)
            result = dataset->putAndInsertString(DCM_PhotometricInterpretation, decoded.c_str());
    }
    return result;
}

OFCondition D2Decoder::decodeFrame(const DcmRepresentationParameter* /* fromParam */, DcmPixelSequence* fromPixSeq,
                                   const DcmCodecParameter* cp, DcmItem* dataset, Uint32 frameNo,
                                   Uint32& startFragment, void* buffer, Uint32 bufSize,
                                   OFString& decompressedColorModel) const
{
    if (!D2JPEG2000Library::isInitialized())
        return EC_J2KLibraryNotInitialized;
    if (fromPixSeq == NULL || dataset == NULL || buffer == NULL)
        return EC_IllegalCall;
    const D2CodecParameter& params = codecParameter(cp);

    D2FrameInfo frame;
    Sint32 frames = 0;
    OFCondition result = readFrameInfo(dataset, params, fromPixSeq, frame, frames);
    if (result.bad())
        return result;
    if (frameNo >= Uint32(frames))
        return EC_IllegalCall;
    if (bufSize < frame.frameSize())
        return EC_J2KUncompressedBufferTooSmall;

    // a start fragment of 0 means: find it
    if (startFragment == 0)
        result = findStartFragment(frameNo, frames, fromPixSeq, startFragment);
    D2CodestreamDecoder decoder(params);
    if (result.good())
        result = decodeFrameAt(fromPixSeq, decoder, frame, frames, frameNo, startFragment,
                               static_cast<Uint8*>(buffer), bufSize);
    if (result.good() && frame.bytesPerSample == 1)
        result = swapIfNecessary(gLocalByteOrder, EBO_LittleEndian, buffer, bufSize & ~Uint32(1), sizeof(Uint16));
    if (result.good() && frame.samplesPerPixel == 3)
        result = dataset->putAndInsertUint16(DCM_PlanarConfiguration, frame.planarConfiguration);
    if (result.good())
        result = determineDecompressedColorModel(NULL, fromPixSeq, cp, dataset, decompressedColorModel);
    return result;
}

OFCondition D2Decoder::decodeFrameAt(DcmPixelSequence* pixSeq, D2CodestreamDecoder& decoder,
                                     const D2FrameInfo& frame, Sint32 frames, Uint32 frameNo, Uint32& currentItem,
                                     Uint8* buffer, size_t bufSize)
{
    const Uint32 fragments = computeNumberOfFragments(frames, frameNo, currentItem, pixSeq);
    if (fragments == 0)
        return EC_J2KCannotComputeNumberOfFragments;

    DcmPixelItem* pixItem = NULL;
    Uint8* fragmentData = NULL;
    OFCondition result = EC_Normal;
    if (fragments == 1)
    {
        // the common case: the codestream is the fragment, decoded where it is
        result = pixSeq->getItem(pixItem, currentItem);
        if (result.good())
            result = pixItem->getUint8Array(fragmentData);
        if (result.good() && fragmentData == NULL)
            return makeOFCondition(OFM_dcmjp2k, EC_CODE_J2KDecodingFailed, OF_error,
                                   "JPEG 2000 decoding failed: empty fragment");
        if (result.good())
            result = decoder.decode(fragmentData, pixItem->getLength(), frame, buffer, bufSize);
    }
    else
    {
        std::vector<Uint8> codestream;
        for (Uint32 i = 0; i < fragments && result.good(); ++i)
        {
            result = pixSeq->getItem(pixItem, currentItem + i);
            if (result.good())
                result = pixItem->getUint8Array(fragmentData);
            if (result.good() && fragmentData)
                codestream.insert(codestream.end(), fragmentData, fragmentData + pixItem->getLength());
        }
        if (result.good() && codestream.empty())
            return makeOFCondition(OFM_dcmjp2k, EC_CODE_J2KDecodingFailed, OF_error,
                                   "JPEG 2000 decoding failed: empty fragments");
        if (result.good())
            result = decoder.decode(codestream.data(), codestream.size(), frame, buffer, bufSize);
    }
    if (result.good())
        currentItem += fragments;
    return result;
}

Uint32 D2Decoder::computeNumberOfFragments(Sint32 frames, Uint32 frameNo, Uint32 startItem, DcmPixelSequence* pixSeq)
{
    const Uint32 numItems = Uint32(pixSeq->card());
    if (startItem < 1 || startItem >= numItems)
        return 0;
    // single frame, or the last one: all remaining fragments
    if (frames <= 1 || frameNo + 1 == Uint32(frames))
        return numItems - startItem;
    // one fragment per frame
    if (Uint32(frames) + 1 == numItems)
        return 1;

    // several fragments per frame: the offset table tells where the next frame starts
    DcmPixelItem* pixItem = NULL;
    Uint8* offsetData = NULL;
    if (pixSeq->getItem(pixItem, 0).good() && pixItem->getLength() == Uint32(frames) * 4 &&
        pixItem->getUint8Array(offsetData).good() && offsetData)
    {
        Uint32 offset = 0;
        memcpy(&offset, offsetData + 4 * (frameNo + 1), sizeof(offset));
        swapIfNecessary(gLocalByteOrder, EBO_LittleEndian, &offset, sizeof(Uint32), sizeof(Uint32));
        Uint32 byteCount = 0;
        Uint32 fragmentIndex = 1;
        while (byteCount < offset && fragmentIndex < numItems)
        {
            if (pixSeq->getItem(pixItem, fragmentIndex++).bad())
                break;
            byteCount += pixItem->getLength() + 8; // item tag and length
            if (byteCount == offset && fragmentIndex > startItem)
                return fragmentIndex - startItem;
        }
    }

    // no usable offset table: the next frame starts with the next codestream header
    for (Uint32 nextItem = startItem + 1; nextItem < numItems; ++nextItem)
    {
        Uint8* fragmentData = NULL;
        if (pixSeq->getItem(pixItem, nextItem).bad() || pixItem->getUint8Array(fragmentData).bad())
            break;
        const Uint32 length = pixItem->getLength();
        if (fragmentData && (D2CodestreamDecoder::isJ2KCodestream(fragmentData, length) ||
                             D2CodestreamDecoder::isJP2File(fragmentData, length)))
            return nextItem - startItem;
    }
    return 0;
}

OFCondition D2Decoder::findStartFragment(Uint32 frameNo, Sint32 frames, DcmPixelSequence* pixSeq, Uint32& startItem)
{
    if (DcmCodec::determineStartFragment(frameNo, frames, pixSeq, startItem).good())
        return EC_Normal;
    // no offset table: walk the frames before this one
    startItem = 1;
    for (Uint32 f = 0; f < frameNo; ++f)
    {
        const Uint32 fragments = computeNumberOfFragments(frames, f, startItem, pixSeq);
        if (fragments == 0)
            return EC_J2KCannotComputeNumberOfFragments;
        startItem += fragments;
    }
    return EC_Normal;
}

OFCondition D2Decoder::encode(const Uint16* /* pixelData */, const Uint32 /* length */,
                              const DcmRepresentationParameter* /* toRepParam */, DcmPixelSequence*& /* pixSeq */,
                              const DcmCodecParameter* /* cp */, DcmStack& /* objStack */,
                              OFBool& /* removeOldRep */) const
{
    // a decoder only
    return EC_IllegalCall;
}

OFCondition D2Decoder::encode(const E_TransferSyntax /* fromRepType */,
                              const DcmRepresentationParameter* /* fromRepParam */,
                              DcmPixelSequence* /* fromPixSeq */, const DcmRepresentationParameter* /* toRepParam */,
                              DcmPixelSequence*& /* toPixSeq */, const DcmCodecParameter* /* cp */,
                              DcmStack& /* objStack */, OFBool& /* removeOldRep */) const
{
    return EC_IllegalCall;
}

OFCondition D2Decoder::determineDecompressedColorModel(const DcmRepresentationParameter* /* fromParam */,
                                                       DcmPixelSequence* /* fromPixSeq */,
                                                       const DcmCodecParameter* /* cp */, DcmItem* dataset,
                                                       OFString& decompressedColorModel) const
{
    if (dataset == NULL)
        return EC_IllegalParameter;
    OFString photometric;
    OFCondition result = dataset->findAndGetOFString(DCM_PhotometricInterpretation, photometric);
    if (result == EC_TagNotFound)
        return EC_MissingAttribute;
    if (result.bad())
        return result;
    if (photometric.empty())
        return EC_MissingValue;
    Uint16 samplesPerPixel = 0;
    dataset->findAndGetUint16(DCM_SamplesPerPixel, samplesPerPixel);
    decompressedColorModel = colorModelAfterDecoding(photometric, samplesPerPixel);
    return EC_Normal;
}
