#include "dcmutils/codec/Transcoder.h"
#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmjpls/djrparam.h"

makeOFConditionConst(EC_EncodedImageDoesNotDecode, OFM_dcmdata, 0x7f20, OF_error,
                     "the encoded image does not decode again");

namespace {

// The Image Pixel Module attributes the refusals look at.
struct PixelModule
{
    Uint16 samplesPerPixel = 0;
    Uint16 bitsAllocated = 0;
    Uint16 bitsStored = 0;
    Uint16 pixelRepresentation = 0;
    OFString photometric;
};

std::string number(unsigned value)
{
    return std::to_string(value);
}

std::string bitsDoNotFit(const PixelModule& pixel, unsigned bits, E_TransferSyntax xfer, const char* alternatives)
{
    return "its " + number(pixel.bitsStored) + "-bit samples do not fit the " + number(bits) + " bits " +
           DcmXfer(xfer).getXferName() + " holds (" + alternatives + ")";
}

// The JPEG processes of DCMTK's encoders: the most bits a sample may have, 0 for others.
unsigned jpegBits(E_TransferSyntax xfer)
{
    switch (xfer)
    {
    case EXS_JPEGProcess1:
        return 8;
    case EXS_JPEGProcess2_4:
    case EXS_JPEGProcess6_8:
    case EXS_JPEGProcess10_12:
        return 12;
    case EXS_JPEGProcess14:
    case EXS_JPEGProcess14SV1:
        return 16;
    default:
        return 0;
    }
}

// Why the image cannot go into the encapsulated syntax xfer; empty when nothing stands against it.
std::string imageRefusal(const PixelModule& pixel, bool nativeSource, E_TransferSyntax xfer)
{
    const char* const lossless16 = "the lossless JPEG, JPEG-LS and JPEG 2000 syntaxes hold 16";
    // subsampled colour: only DCMTK's lossy JPEG encoders render it anew
    const unsigned jpeg = jpegBits(xfer);
    if (nativeSource && (pixel.photometric == "YBR_FULL_422" || pixel.photometric.compare(0, 12, "YBR_PARTIAL_") == 0) &&
        (jpeg == 0 || jpeg == 16))
        return "its " + std::string(pixel.photometric.c_str()) +
               " pixel data is subsampled, which only the lossy JPEG syntaxes take";
    if (pixel.bitsAllocated == 0 || pixel.bitsAllocated % 8 != 0)
        return "its samples of " + number(pixel.bitsAllocated) +
               " bits allocated cannot be encapsulated (8, 16 or 32 bits allocated are needed)";
    if (pixel.bitsStored > pixel.bitsAllocated)
        return "its Bits Stored (" + number(pixel.bitsStored) + ") exceeds its Bits Allocated (" +
               number(pixel.bitsAllocated) + ")";
    if (jpeg != 0 || xfer == EXS_JPEGLSLossless || xfer == EXS_JPEGLSLossy)
    {
        const unsigned bits = jpeg != 0 ? jpeg : 16;
        if (pixel.bitsStored > bits)
        {
            const std::string others = bits == 8 ? std::string("JPEG Extended holds 12, ") + lossless16
                                                 : (bits == 12 ? std::string(lossless16) : std::string("RLE holds 32"));
            return bitsDoNotFit(pixel, bits, xfer, others.c_str());
        }
        if (pixel.bitsStored < 2)
            return "JPEG and JPEG-LS code samples of 2 bits at least, it has " + number(pixel.bitsStored);
    }
    if (xfer == EXS_JPEGLSLossy)
    {
        if (pixel.pixelRepresentation != 0)
            return "JPEG-LS near-lossless coding takes unsigned samples only (JPEG-LS Lossless takes signed ones)";
        if (nativeSource && pixel.photometric != "MONOCHROME1" && pixel.photometric != "MONOCHROME2" &&
            pixel.photometric != "RGB" && pixel.photometric != "YBR_FULL")
            return "JPEG-LS near-lossless coding takes MONOCHROME1, MONOCHROME2, RGB and YBR_FULL images only, not " +
                   std::string(pixel.photometric.c_str());
    }
    if (xfer == EXS_JPEG2000LosslessOnly || xfer == EXS_JPEG2000)
    {
        if (pixel.bitsAllocated > 16)
            return "its samples of " + number(pixel.bitsAllocated) +
                   " bits allocated do not fit JPEG 2000 (8 or 16 bits allocated; RLE holds 32)";
        if (pixel.samplesPerPixel != 1 && pixel.samplesPerPixel != 3)
            return "JPEG 2000 codes images of 1 or 3 samples per pixel, it has " + number(pixel.samplesPerPixel);
        if (nativeSource && pixel.samplesPerPixel == 3 && pixel.photometric != "RGB" && pixel.photometric != "YBR_FULL")
            return "JPEG 2000 codes colour images in RGB or YBR_FULL only, not " + std::string(pixel.photometric.c_str());
    }
    if (xfer == EXS_RLELossless && pixel.samplesPerPixel * (pixel.bitsAllocated / 8) > 15)
        return "RLE holds 15 bytes per pixel at most, it has " + number(pixel.samplesPerPixel * pixel.bitsAllocated / 8);
    return std::string();
}

} // namespace

Transcoder::Transcoder()
{
}

const std::vector<Transcoder::Target>& Transcoder::targets()
{
    static const std::vector<Target> list = {
        {EXS_LittleEndianImplicit, "uncompressed"},
        {EXS_LittleEndianExplicit, "uncompressed"},
        {EXS_BigEndianExplicit, "uncompressed (retired)"},
        {EXS_DeflatedLittleEndianExplicit, "uncompressed, deflated"},
        {EXS_RLELossless, "lossless"},
        {EXS_JPEGProcess1, "lossy, up to 8 bits, quality 90"},
        {EXS_JPEGProcess2_4, "lossy, up to 12 bits, quality 90"},
        {EXS_JPEGProcess6_8, "lossy, up to 12 bits (retired)"},
        {EXS_JPEGProcess10_12, "lossy, up to 12 bits (retired)"},
        {EXS_JPEGProcess14, "lossless, up to 16 bits, predictor 6"},
        {EXS_JPEGProcess14SV1, "lossless, up to 16 bits, predictor 1"},
        {EXS_JPEGLSLossless, "lossless, up to 16 bits"},
        {EXS_JPEGLSLossy, "near-lossless, up to 16 bits, deviation 2"},
        {EXS_JPEG2000LosslessOnly, "lossless, up to 16 bits"},
        {EXS_JPEG2000, "lossy at the rate of the modality (CONF)"},
    };
    return list;
}

bool Transcoder::isTarget(E_TransferSyntax xfer)
{
    for (const Target& target : targets())
        if (target.xfer == xfer)
            return true;
    return false;
}

std::string Transcoder::refusal(DcmDataset& dataset, E_TransferSyntax from, E_TransferSyntax xfer)
{
    if (!dataset.tagExists(DCM_PixelData) || from == xfer)
        return std::string(); // no pixel data to encode, or nothing to change
    const DcmXfer source(from);
    if (source.isEncapsulated() && !DcmCodecList::canChangeCoding(from, EXS_LittleEndianExplicit))
        return std::string("its pixel data in ") + source.getXferName() + " cannot be decoded (no decoder for it)";
    if (DcmXfer(xfer).isNotEncapsulated())
        return std::string();
    PixelModule pixel;
    if (dataset.findAndGetUint16(DCM_SamplesPerPixel, pixel.samplesPerPixel).bad() ||
        dataset.findAndGetUint16(DCM_BitsAllocated, pixel.bitsAllocated).bad() ||
        dataset.findAndGetUint16(DCM_BitsStored, pixel.bitsStored).bad())
        return "its Image Pixel Module lacks Samples per Pixel, Bits Allocated or Bits Stored";
    dataset.findAndGetUint16(DCM_PixelRepresentation, pixel.pixelRepresentation);
    dataset.findAndGetOFString(DCM_PhotometricInterpretation, pixel.photometric);
    // a compressed source is decoded first, possibly into another colour model
    return imageRefusal(pixel, source.isNotEncapsulated(), xfer);
}

OFCondition Transcoder::transcode(DcmDataset& dataset, E_TransferSyntax xfer)
{
    // JPEG-LS near-lossless needs its own parameter: DCMTK's default codes losslessly
    DcmRepresentationParameter* parameter =
        xfer == EXS_JPEGLSLossy ? new DJLSRepresentationParameter(NEAR_LOSSLESS_DEVIATION, OFFalse)
                                : m_registry.getRepresentationParameter(dataset, xfer);
    OFCondition cond = dataset.chooseRepresentation(xfer, parameter);
    delete parameter;
    if (cond.good() && !dataset.canWriteXfer(xfer))
        cond = EC_CannotChangeRepresentation;
    if (cond.good() && DcmXfer(xfer).isEncapsulated() && !decodesAgain(dataset))
        cond = EC_EncodedImageDoesNotDecode;
    return cond;
}

bool Transcoder::decodesAgain(DcmDataset& dataset)
{
    // An encoder can write a stream that no decoder takes (CharLS near-lossless on a tiny odd
    // colour image): a copy holding only the new encoding must decode.
    DcmDataset copy(dataset);
    DcmElement* element = nullptr;
    if (copy.findAndGetElement(DCM_PixelData, element).bad() || element == nullptr)
        return true;
    OFstatic_cast(DcmPixelData*, element)->removeAllButCurrentRepresentations();
    return copy.chooseRepresentation(EXS_LittleEndianExplicit, nullptr).good() &&
           copy.canWriteXfer(EXS_LittleEndianExplicit);
}

double Transcoder::jpeg2000Rate(DcmDataset& dataset, E_TransferSyntax xfer)
{
    return xfer == EXS_JPEG2000 ? getJPEG2000LossyCompressionRate(dataset) : 1.0;
}
