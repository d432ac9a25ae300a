#include "dcmutils/codec/O2EncoderRegistration.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2Encoder.h"

bool O2EncoderRegistration::m_registered = false;
D2CodecParameter* O2EncoderRegistration::m_codecParameter = NULL;
D2Encoder* O2EncoderRegistration::m_losslessEncoder = NULL;
D2Encoder* O2EncoderRegistration::m_lossyEncoder = NULL;

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
    if (m_registered)
        return;
    m_codecParameter = new D2CodecParameter();
    for (OFListConstIterator(double) it = layerRates.begin(); it != layerRates.end(); ++it)
        m_codecParameter->m_layerRates.push_back(*it);
    m_codecParameter->m_tileWidth = tileWidth;
    m_codecParameter->m_tileHeight = tileHeight;
    m_codecParameter->m_tileOriginX = tileOriginX;
    m_codecParameter->m_tileOriginY = tileOriginY;
    m_codecParameter->m_maxComponentSize = maxComponentSize;
    m_codecParameter->m_maxCodestreamSize = maxCodestreamSize;
    m_codecParameter->m_codeBlockWidthExponent = codeBlockWidthExponent;
    m_codecParameter->m_codeBlockHeightExponent = codeBlockHeightExponent;
    m_codecParameter->m_precinctWidthExponent = precinctWidthExponent;
    m_codecParameter->m_precinctHeightExponent = precinctHeightExponent;
    m_codecParameter->m_selectiveBypass = selectiveBypass;
    m_codecParameter->m_resetContexts = resetContexts;
    m_codecParameter->m_terminateEachPass = terminateEachPass;
    m_codecParameter->m_verticallyCausal = verticallyCausal;
    m_codecParameter->m_progression = progression;
    m_codecParameter->m_resolutions = resolutions;
    m_codecParameter->m_guardBits = guardBits;
    m_codecParameter->m_predictableTermination = predictableTermination;
    m_codecParameter->m_segmentationSymbols = segmentationSymbols;
    m_codecParameter->m_sopMarkers = sopMarkers;
    m_codecParameter->m_ephMarkers = ephMarkers;
    m_codecParameter->m_colorTransform = colorTransform;
    m_codecParameter->m_tlmMarkers = tlmMarkers;
    m_codecParameter->m_irreversibleLossy = irreversibleLossy;
    m_codecParameter->m_bitDepthMode = bitDepthMode;
    m_codecParameter->m_bitDepth = bitDepth;
    m_codecParameter->m_fragmentSize = fragmentSize;
    m_codecParameter->m_createOffsetTable = createOffsetTable;
    m_codecParameter->m_encoderUIDCreation = uidCreation;
    m_codecParameter->m_convertToSC = convertToSC;
    m_codecParameter->m_updateDerivation = updateDerivation;
    m_codecParameter->m_verifyLossless = verifyLossless;

    m_losslessEncoder = new D2Encoder(EXS_JPEG2000LosslessOnly);
    m_lossyEncoder = new D2Encoder(EXS_JPEG2000);
    DcmCodecList::registerCodec(m_losslessEncoder, NULL, m_codecParameter);
    DcmCodecList::registerCodec(m_lossyEncoder, NULL, m_codecParameter);
    m_registered = true;
}

void O2EncoderRegistration::cleanup()
{
    if (!m_registered)
        return;
    DcmCodecList::deregisterCodec(m_losslessEncoder);
    DcmCodecList::deregisterCodec(m_lossyEncoder);
    delete m_losslessEncoder;
    delete m_lossyEncoder;
    delete m_codecParameter;
    m_losslessEncoder = NULL;
    m_lossyEncoder = NULL;
    m_codecParameter = NULL;
    m_registered = false;
}
