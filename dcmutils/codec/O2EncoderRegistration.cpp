#include "dcmutils/codec/O2EncoderRegistration.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2Encoder.h"

bool O2EncoderRegistration::registered_ = false;
D2CodecParameter* O2EncoderRegistration::cp_ = NULL;
D2Encoder* O2EncoderRegistration::losslessEncoder_ = NULL;
D2Encoder* O2EncoderRegistration::lossyEncoder_ = NULL;

void O2EncoderRegistration::registerCodecs(
    const OFList<double>& layerRates, unsigned int tileWidth, unsigned int tileHeight, unsigned int tileOriginX,
    unsigned int tileOriginY, unsigned int maxComponentSize, unsigned int maxCodestreamSize,
    unsigned char codeBlockWidthExponent, unsigned char codeBlockHeightExponent, unsigned char precinctWidthExponent,
    unsigned char precinctHeightExponent, bool selectiveBypass, bool resetContexts, bool terminateEachPass,
    bool verticallyCausal, J2K_Progression progression, unsigned char resolutions, unsigned char guardBits,
    bool predictableTermination, bool segmentationSymbols, bool sopMarkers, bool ephMarkers, bool colorTransform,
    bool tlmMarkers, bool irreversibleLossy, J2K_CompressionBitDepth bitDepthMode, unsigned int bitDepth,
    unsigned long /* windowType */, unsigned long /* windowParameter */, double /* voiCenter */,
    double /* voiWidth */, unsigned long /* roiLeft */, unsigned long /* roiTop */, unsigned long /* roiWidth */,
    unsigned long /* roiHeight */, bool /* usePixelValues */, bool /* useModalityRescale */,
    unsigned int fragmentSize, bool createOffsetTable, J2K_UIDCreation uidCreation, bool convertToSC,
    bool /* acceptWrongPaletteTags */, bool /* acrNemaCompatibility */, bool /* realLossless */,
    bool updateDerivation, bool verifyLossless)
{
    if (registered_)
        return;
    cp_ = new D2CodecParameter();
    for (OFListConstIterator(double) it = layerRates.begin(); it != layerRates.end(); ++it)
        cp_->layerRates.push_back(*it);
    cp_->tileWidth = tileWidth;
    cp_->tileHeight = tileHeight;
    cp_->tileOriginX = tileOriginX;
    cp_->tileOriginY = tileOriginY;
    cp_->maxComponentSize = maxComponentSize;
    cp_->maxCodestreamSize = maxCodestreamSize;
    cp_->codeBlockWidthExponent = codeBlockWidthExponent;
    cp_->codeBlockHeightExponent = codeBlockHeightExponent;
    cp_->precinctWidthExponent = precinctWidthExponent;
    cp_->precinctHeightExponent = precinctHeightExponent;
    cp_->selectiveBypass = selectiveBypass;
    cp_->resetContexts = resetContexts;
    cp_->terminateEachPass = terminateEachPass;
    cp_->verticallyCausal = verticallyCausal;
    cp_->progression = progression;
    cp_->resolutions = resolutions;
    cp_->guardBits = guardBits;
    cp_->predictableTermination = predictableTermination;
    cp_->segmentationSymbols = segmentationSymbols;
    cp_->sopMarkers = sopMarkers;
    cp_->ephMarkers = ephMarkers;
    cp_->colorTransform = colorTransform;
    cp_->tlmMarkers = tlmMarkers;
    cp_->irreversibleLossy = irreversibleLossy;
    cp_->bitDepthMode = bitDepthMode;
    cp_->bitDepth = bitDepth;
    cp_->fragmentSize = fragmentSize;
    cp_->createOffsetTable = createOffsetTable;
    cp_->encoderUIDCreation = uidCreation;
    cp_->convertToSC = convertToSC;
    cp_->updateDerivation = updateDerivation;
    cp_->verifyLossless = verifyLossless;

    losslessEncoder_ = new D2Encoder(EXS_JPEG2000LosslessOnly);
    lossyEncoder_ = new D2Encoder(EXS_JPEG2000);
    DcmCodecList::registerCodec(losslessEncoder_, NULL, cp_);
    DcmCodecList::registerCodec(lossyEncoder_, NULL, cp_);
    registered_ = true;
}

void O2EncoderRegistration::cleanup()
{
    if (!registered_)
        return;
    DcmCodecList::deregisterCodec(losslessEncoder_);
    DcmCodecList::deregisterCodec(lossyEncoder_);
    delete losslessEncoder_;
    delete lossyEncoder_;
    delete cp_;
    losslessEncoder_ = NULL;
    lossyEncoder_ = NULL;
    cp_ = NULL;
    registered_ = false;
}
