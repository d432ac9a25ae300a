#include "dcmutils/codec/D2CodecParameter.h"

D2CodecParameter::D2CodecParameter()
: DcmCodecParameter()
, layerRates()
, tileWidth(0)
, tileHeight(0)
, tileOriginX(0)
, tileOriginY(0)
, maxComponentSize(0)
, maxCodestreamSize(0)
, codeBlockWidthExponent(6)
, codeBlockHeightExponent(6)
, precinctWidthExponent(15)
, precinctHeightExponent(15)
, selectiveBypass(false)
, resetContexts(false)
, terminateEachPass(false)
, verticallyCausal(false)
, predictableTermination(false)
, segmentationSymbols(false)
, progression(EJ2KP_LRCP)
, resolutions(6)
, guardBits(2)
, sopMarkers(false)
, ephMarkers(false)
, tlmMarkers(false)
, colorTransform(true)
, irreversibleLossy(true)
, bitDepthMode(EJ2KBD_limit)
, bitDepth(16)
, fragmentSize(0)
, createOffsetTable(true)
, encoderUIDCreation(EJ2KUC_default)
, convertToSC(false)
, updateDerivation(true)
, verifyLossless(true)
, decoderUIDCreation(EJ2KUC_default)
, planarConfiguration(EJ2KPC_restore)
, qualityLayers(0)
, threads(0)
, strictDecoding(true)
, acceptJP2(true)
{
}

D2CodecParameter::D2CodecParameter(const D2CodecParameter& arg)
: DcmCodecParameter(arg)
, layerRates(arg.layerRates)
, tileWidth(arg.tileWidth)
, tileHeight(arg.tileHeight)
, tileOriginX(arg.tileOriginX)
, tileOriginY(arg.tileOriginY)
, maxComponentSize(arg.maxComponentSize)
, maxCodestreamSize(arg.maxCodestreamSize)
, codeBlockWidthExponent(arg.codeBlockWidthExponent)
, codeBlockHeightExponent(arg.codeBlockHeightExponent)
, precinctWidthExponent(arg.precinctWidthExponent)
, precinctHeightExponent(arg.precinctHeightExponent)
, selectiveBypass(arg.selectiveBypass)
, resetContexts(arg.resetContexts)
, terminateEachPass(arg.terminateEachPass)
, verticallyCausal(arg.verticallyCausal)
, predictableTermination(arg.predictableTermination)
, segmentationSymbols(arg.segmentationSymbols)
, progression(arg.progression)
, resolutions(arg.resolutions)
, guardBits(arg.guardBits)
, sopMarkers(arg.sopMarkers)
, ephMarkers(arg.ephMarkers)
, tlmMarkers(arg.tlmMarkers)
, colorTransform(arg.colorTransform)
, irreversibleLossy(arg.irreversibleLossy)
, bitDepthMode(arg.bitDepthMode)
, bitDepth(arg.bitDepth)
, fragmentSize(arg.fragmentSize)
, createOffsetTable(arg.createOffsetTable)
, encoderUIDCreation(arg.encoderUIDCreation)
, convertToSC(arg.convertToSC)
, updateDerivation(arg.updateDerivation)
, verifyLossless(arg.verifyLossless)
, decoderUIDCreation(arg.decoderUIDCreation)
, planarConfiguration(arg.planarConfiguration)
, qualityLayers(arg.qualityLayers)
, threads(arg.threads)
, strictDecoding(arg.strictDecoding)
, acceptJP2(arg.acceptJP2)
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
