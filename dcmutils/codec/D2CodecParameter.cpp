#include "dcmutils/codec/D2CodecParameter.h"

D2CodecParameter::D2CodecParameter()
: DcmCodecParameter()
, m_layerRates()
, m_tileWidth(0)
, m_tileHeight(0)
, m_tileOriginX(0)
, m_tileOriginY(0)
, m_maxComponentSize(0)
, m_maxCodestreamSize(0)
, m_codeBlockWidthExponent(6)
, m_codeBlockHeightExponent(6)
, m_precinctWidthExponent(15)
, m_precinctHeightExponent(15)
, m_selectiveBypass(false)
, m_resetContexts(false)
, m_terminateEachPass(false)
, m_verticallyCausal(false)
, m_predictableTermination(false)
, m_segmentationSymbols(false)
, m_progression(EJ2KP_LRCP)
, m_resolutions(6)
, m_guardBits(2)
, m_sopMarkers(false)
, m_ephMarkers(false)
, m_tlmMarkers(false)
, m_colorTransform(true)
, m_irreversibleLossy(true)
, m_bitDepthMode(EJ2KBD_limit)
, m_bitDepth(16)
, m_fragmentSize(0)
, m_createOffsetTable(true)
, m_encoderUIDCreation(EJ2KUC_default)
, m_convertToSC(false)
, m_updateDerivation(true)
, m_verifyLossless(true)
, m_decoderUIDCreation(EJ2KUC_default)
, m_planarConfiguration(EJ2KPC_restore)
, m_qualityLayers(0)
, m_threads(0)
, m_strictDecoding(true)
, m_acceptJP2(true)
{
}

D2CodecParameter::D2CodecParameter(const D2CodecParameter& arg)
: DcmCodecParameter(arg)
, m_layerRates(arg.m_layerRates)
, m_tileWidth(arg.m_tileWidth)
, m_tileHeight(arg.m_tileHeight)
, m_tileOriginX(arg.m_tileOriginX)
, m_tileOriginY(arg.m_tileOriginY)
, m_maxComponentSize(arg.m_maxComponentSize)
, m_maxCodestreamSize(arg.m_maxCodestreamSize)
, m_codeBlockWidthExponent(arg.m_codeBlockWidthExponent)
, m_codeBlockHeightExponent(arg.m_codeBlockHeightExponent)
, m_precinctWidthExponent(arg.m_precinctWidthExponent)
, m_precinctHeightExponent(arg.m_precinctHeightExponent)
, m_selectiveBypass(arg.m_selectiveBypass)
, m_resetContexts(arg.m_resetContexts)
, m_terminateEachPass(arg.m_terminateEachPass)
, m_verticallyCausal(arg.m_verticallyCausal)
, m_predictableTermination(arg.m_predictableTermination)
, m_segmentationSymbols(arg.m_segmentationSymbols)
, m_progression(arg.m_progression)
, m_resolutions(arg.m_resolutions)
, m_guardBits(arg.m_guardBits)
, m_sopMarkers(arg.m_sopMarkers)
, m_ephMarkers(arg.m_ephMarkers)
, m_tlmMarkers(arg.m_tlmMarkers)
, m_colorTransform(arg.m_colorTransform)
, m_irreversibleLossy(arg.m_irreversibleLossy)
, m_bitDepthMode(arg.m_bitDepthMode)
, m_bitDepth(arg.m_bitDepth)
, m_fragmentSize(arg.m_fragmentSize)
, m_createOffsetTable(arg.m_createOffsetTable)
, m_encoderUIDCreation(arg.m_encoderUIDCreation)
, m_convertToSC(arg.m_convertToSC)
, m_updateDerivation(arg.m_updateDerivation)
, m_verifyLossless(arg.m_verifyLossless)
, m_decoderUIDCreation(arg.m_decoderUIDCreation)
, m_planarConfiguration(arg.m_planarConfiguration)
, m_qualityLayers(arg.m_qualityLayers)
, m_threads(arg.m_threads)
, m_strictDecoding(arg.m_strictDecoding)
, m_acceptJP2(arg.m_acceptJP2)
{
}

D2CodecParameter::~D2CodecParameter()
{
}

DcmCodecParameter* D2CodecParameter::clone() const
{
    return new D2CodecParameter(*this);
}

const char* D2CodecParameter::className() const
{
    return "D2CodecParameter";
}
