#include "dcmutils/codec/D2Encoder.h"

#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2CodestreamEncoder.h"
#include "dcmutils/codec/D2FrameInfo.h"
#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/D2JPEG2000Util.h"
#include "dcmutils/codec/D2RepresentationParameter.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcofsetl.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/dcmdata/dcswap.h"
#include "dcmtk/ofstd/ofstd.h"

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

const D2RepresentationParameter& representationParameter(const DcmRepresentationParameter* rp)
{
    static const D2RepresentationParameter lossless;
    const char* name = rp ? rp->className() : NULL;
    if (name && strcmp(name, "D2RepresentationParameter") == 0)
        return *static_cast<const D2RepresentationParameter*>(rp);
    return lossless;
}

// Appends a value to a multi-valued string attribute.
OFString appended(DcmItem* dataset, const DcmTagKey& key, const OFString& value)
{
    OFString result;
    const char* old = NULL;
    if (dataset->findAndGetString(key, old).good() && old && *old)
    {
        result = old;
        result += "\\";
    }
    return result + value;
}

size_t backslashes(const OFString& value)
{
    size_t count = 0;
    for (size_t i = 0; i < value.size(); ++i)
        if (value[i] == '\\')
            ++count;
    return count;
}

} // namespace

D2Encoder::D2Encoder(E_TransferSyntax supported)
: DcmCodec()
, m_supported(supported)
{
}

D2Encoder::~D2Encoder()
{
}

OFBool D2Encoder::canChangeCoding(const E_TransferSyntax oldRepType, const E_TransferSyntax newRepType) const
{
    // encoding only: from uncompressed to this codec's syntax
    DcmXfer oldRep(oldRepType);
    return oldRep.isNotEncapsulated() && newRepType == m_supported;
}

OFCondition D2Encoder::readFrameInfo(DcmItem* dataset, D2FrameInfo& frame, Uint32& frames, OFString& photometric)
{
    D2ImagePixel pixel;
    if (pixel.read(*dataset).bad() || !pixel.hasPhotometricInterpretation)
        return EC_TagNotFound;
    photometric = pixel.photometricInterpretation;
    const Uint16 highBit = pixel.hasHighBit ? pixel.highBit : Uint16(pixel.bitsStored - 1);
    if (pixel.bitsAllocated != 8 && pixel.bitsAllocated != 16)
        return EC_J2KUnsupportedBitDepth;
    if (pixel.bitsStored < 1 || highBit >= pixel.bitsAllocated || pixel.bitsStored > highBit + 1)
        return EC_J2KUnsupportedBitDepth;
    if ((pixel.samplesPerPixel != 1 && pixel.samplesPerPixel != 3) || pixel.rows < 1 || pixel.columns < 1)
        return EC_J2KUnsupportedImageType;
    // subsampled or already transformed colour models have no place in uncompressed data
    if (pixel.samplesPerPixel == 3 && photometric != "RGB" && photometric != "YBR_FULL")
        return makeOFCondition(OFM_dcmjp2k, EC_J2KUnsupportedImageType.theCode, OF_error,
                               ("Unsupported type of image for JPEG 2000 compression: Photometric Interpretation " +
                                photometric)
                                   .c_str());
    frame.columns = pixel.columns;
    frame.rows = pixel.rows;
    frame.samplesPerPixel = pixel.samplesPerPixel;
    frame.bytesPerSample = pixel.bitsAllocated / 8;
    frame.planarConfiguration = (pixel.samplesPerPixel == 3 && pixel.planarConfiguration == 1) ? 1 : 0;
    frame.storedBits = Uint16(highBit + 1);
    frame.isSigned = pixel.pixelRepresentation == 1;
    frames = (pixel.hasNumberOfFrames && pixel.numberOfFrames >= 1) ? Uint32(pixel.numberOfFrames) : 1;
    return EC_Normal;
}

OFCondition D2Encoder::encode(const Uint16* pixelData, const Uint32 length, const DcmRepresentationParameter* toRepParam,
                              DcmPixelSequence*& pixSeq, const DcmCodecParameter* cp, DcmStack& objStack,
                              OFBool& removeOldRep) const
{
    // Photometric Interpretation and Planar Configuration change, so the uncompressed
    // representation no longer matches the Image Pixel Module
    removeOldRep = OFTrue;
    pixSeq = NULL;
    if (!D2JPEG2000Library::isInitialized())
        return EC_J2KLibraryNotInitialized;
    if (pixelData == NULL)
        return EC_IllegalCall;
    DcmItem* dataset = D2FrameInfo::datasetOf(objStack);
    if (dataset == NULL)
        return EC_InvalidTag;
    const D2CodecParameter& params = codecParameter(cp);
    const D2RepresentationParameter& rep = representationParameter(toRepParam);
    const bool lossless = m_supported == EXS_JPEG2000LosslessOnly || rep.useLosslessProcess();

    D2FrameInfo frame;
    Uint32 frames = 0;
    OFString photometric;
    OFCondition result = readFrameInfo(dataset, frame, frames, photometric);
    if (result.bad())
        return result;
    if ((unsigned long long)frame.frameSize() * frames > length)
        return EC_J2KUncompressedBufferTooSmall;
    const bool colorTransform =
        frame.samplesPerPixel == 3 && photometric == "RGB" && params.m_colorTransform && rep.getColorTransform();

    DcmPixelSequence* sequence = NULL;
    unsigned long long compressedSize = 0;
    D2CodestreamEncoder encoder(params, rep, lossless, colorTransform);
    result = encodeFrames(encoder, params, reinterpret_cast<const Uint8*>(pixelData), length, frame, frames, sequence,
                          compressedSize);
    if (result.good())
        result = updateImagePixelModule(dataset, frame, colorTransform, lossless);
    // SOP Common and General Image: only on the main level of the dataset
    if (result.good() && dataset->ident() == EVR_dataset)
    {
        const double uncompressedSize = double(frame.pixels()) * frame.samplesPerPixel * frame.storedBits * frames / 8.0;
        const double ratio = compressedSize > 0 ? uncompressedSize / double(compressedSize) : 0.0;
        result = updateSOPCommon(dataset, params, lossless, ratio);
    }
    if (result.good())
        pixSeq = sequence;
    else
        delete sequence;
    return result;
}

OFCondition D2Encoder::encodeFrames(const D2CodestreamEncoder& encoder, const D2CodecParameter& params,
                                    const Uint8* pixels, Uint32 length, const D2FrameInfo& frame, Uint32 frames,
                                    DcmPixelSequence*& sequence, unsigned long long& compressedSize)
{
    // 8-bit samples sit in words in the local byte order; code them as bytes
    std::vector<Uint8> swapped;
    if (frame.bytesPerSample == 1 && gLocalByteOrder == EBO_BigEndian)
    {
        swapped.assign(pixels, pixels + length);
        swapIfNecessary(EBO_LittleEndian, gLocalByteOrder, swapped.data(), length, sizeof(Uint16));
        pixels = swapped.data();
    }
    sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    DcmPixelItem* offsetTable = new DcmPixelItem(DCM_PixelItemTag);
    sequence->insert(offsetTable);
    DcmOffsetList offsetList;
    compressedSize = 0;
    std::vector<Uint8> codestream;
    OFCondition result = EC_Normal;
    for (Uint32 f = 0; f < frames && result.good(); ++f)
    {
        D2J_DEBUG("JPEG 2000 encoder processes frame " << (f + 1) << " of " << frames);
        result = encoder.encode(pixels + f * frame.frameSize(), frame, codestream);
        if (result.good())
        {
            compressedSize += codestream.size();
            result = sequence->storeCompressedFrame(offsetList, codestream.data(), Uint32(codestream.size()),
                                                    params.m_fragmentSize);
        }
    }
    if (result.good() && params.m_createOffsetTable)
        result = offsetTable->createOffsetTable(offsetList);
    return result;
}

OFCondition D2Encoder::updateImagePixelModule(DcmItem* dataset, const D2FrameInfo& frame, bool colorTransform,
                                              bool lossless)
{
    if (frame.samplesPerPixel != 3)
    {
        delete dataset->remove(DCM_PlanarConfiguration);
        return EC_Normal;
    }
    OFCondition result = dataset->putAndInsertUint16(DCM_PlanarConfiguration, 0);
    if (result.good() && colorTransform)
        result = dataset->putAndInsertString(DCM_PhotometricInterpretation, lossless ? "YBR_RCT" : "YBR_ICT");
    return result;
}

OFCondition D2Encoder::updateSOPCommon(DcmItem* dataset, const D2CodecParameter& params, bool lossless, double ratio)
{
    OFCondition result = EC_Normal;
    const bool newUID = params.m_convertToSC || params.m_encoderUIDCreation == EJ2KUC_always ||
                        (!lossless && params.m_encoderUIDCreation == EJ2KUC_default);
    if (newUID)
        result = DcmCodec::newInstance(dataset, "DCM", "121320", "Uncompressed predecessor");
    if (result.good() && !lossless)
    {
        result = updateLossyCompressionRatio(dataset, ratio);
        if (result.good() && params.m_updateDerivation)
            result = updateDerivationDescription(dataset, ratio);
    }
    if (result.good() && params.m_convertToSC)
        result = DcmCodec::convertToSecondaryCapture(dataset);
    return result;
}

OFCondition D2Encoder::updateLossyCompressionRatio(DcmItem* dataset, double ratio)
{
    OFCondition result = dataset->putAndInsertString(DCM_LossyImageCompression, "01");
    if (result.bad())
        return result;

    char buf[64];
    OFStandard::ftoa(buf, sizeof(buf), ratio, OFStandard::ftoa_uppercase, 0, 5);
    const OFString ratios = appended(dataset, DCM_LossyImageCompressionRatio, buf);
    result = dataset->putAndInsertString(DCM_LossyImageCompressionRatio, ratios.c_str());
    if (result.bad())
        return result;

    // the method has as many values as the ratio, the last one being ours
    const OFString methods = appended(dataset, DCM_LossyImageCompressionMethod, "");
    OFString method = methods;
    for (size_t n = backslashes(methods); n < backslashes(ratios); ++n)
        method += "\\";
    method += "ISO_15444_1";
    return dataset->putAndInsertString(DCM_LossyImageCompressionMethod, method.c_str());
}

OFCondition D2Encoder::updateDerivationDescription(DcmItem* dataset, double ratio)
{
    char buf[64];
    OFStandard::ftoa(buf, sizeof(buf), ratio, OFStandard::ftoa_uppercase, 0, 5);
    OFString description = "Lossy compression with JPEG 2000, compression ratio ";
    description += buf;
    const char* oldDerivation = NULL;
    if (dataset->findAndGetString(DCM_DerivationDescription, oldDerivation).good() && oldDerivation && *oldDerivation)
    {
        description += " [";
        description += oldDerivation;
        description += "]";
        if (description.length() > 1024)
        {
            // ST holds at most 1024 characters
            description.erase(1020);
            description += "...]";
        }
    }
    OFCondition result = dataset->putAndInsertString(DCM_DerivationDescription, description.c_str());
    if (result.good())
        result = DcmCodec::insertCodeSequence(dataset, DCM_DerivationCodeSequence, "DCM", "113040", "Lossy Compression");
    return result;
}

OFCondition D2Encoder::decode(const DcmRepresentationParameter* /* fromRepParam */, DcmPixelSequence* /* pixSeq */,
                              DcmPolymorphOBOW& /* uncompressedPixelData */, const DcmCodecParameter* /* cp */,
                              const DcmStack& /* objStack */, OFBool& /* removeOldRep */) const
{
    // an encoder only
    return EC_IllegalCall;
}

OFCondition D2Encoder::decodeFrame(const DcmRepresentationParameter* /* fromParam */,
                                   DcmPixelSequence* /* fromPixSeq */, const DcmCodecParameter* /* cp */,
                                   DcmItem* /* dataset */, Uint32 /* frameNo */, Uint32& /* startFragment */,
                                   void* /* buffer */, Uint32 /* bufSize */,
                                   OFString& /* decompressedColorModel */) const
{
    return EC_IllegalCall;
}

OFCondition D2Encoder::encode(const E_TransferSyntax /* fromRepType */,
                              const DcmRepresentationParameter* /* fromRepParam */,
                              DcmPixelSequence* /* fromPixSeq */, const DcmRepresentationParameter* /* toRepParam */,
                              DcmPixelSequence*& /* toPixSeq */, const DcmCodecParameter* /* cp */,
                              DcmStack& /* objStack */, OFBool& /* removeOldRep */) const
{
    // compressed to compressed goes through uncompressed, which DCMTK does by itself
    return EC_IllegalCall;
}

OFCondition D2Encoder::determineDecompressedColorModel(const DcmRepresentationParameter* /* fromParam */,
                                                       DcmPixelSequence* /* fromPixSeq */,
                                                       const DcmCodecParameter* /* cp */, DcmItem* /* dataset */,
                                                       OFString& /* decompressedColorModel */) const
{
    return EC_IllegalCall;
}
