// Registers the JPEG 2000 encoders (1.2.840.10008.1.2.4.90 and .91) with DCMTK's codec list.
#ifndef O2ENCODERREGISTRATION_H
#define O2ENCODERREGISTRATION_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/oflist.h"

#include "dcmutils/codec/D2JPEG2000Util.h"

class D2CodecParameter;
class D2Encoder;

class O2EncoderRegistration
{
public:
    // Registers both encoders once; later calls do nothing until cleanup(). The values map
    // onto OpenJPEG's encoder options as follows (see D2CodecParameter):
    //
    // layerRates                 rates of quality layers below the final one (empty: one layer)
    // tileWidth, tileHeight      tile size; 0 gives one tile for the image
    // tileOriginX, tileOriginY   origin of the tile grid
    // maxComponentSize           upper bound in bytes of one component, 0: none
    // maxCodestreamSize          upper bound in bytes of a codestream, 0: none
    // codeBlockWidthExponent,    code-block size, powers of two (6: 64 x 64)
    //  codeBlockHeightExponent
    // precinctWidthExponent,     precinct size, powers of two (15: the standard's default)
    //  precinctHeightExponent
    // selectiveBypass, resetContexts, terminateEachPass, verticallyCausal
    //                            code-block mode switches BYPASS, RESET, RESTART, VSC
    // progression                progression order
    // resolutions                resolution levels (decompositions + 1), fewer for small images
    // guardBits                  guard bits, 0 to 7
    // predictableTermination, segmentationSymbols
    //                            code-block mode switches ERTERM and SEGMARK
    // sopMarkers, ephMarkers     start of packet and end of packet header markers
    // colorTransform             RGB through the multiple-component transform (YBR_RCT/YBR_ICT)
    // tlmMarkers                 tile-part length markers
    // irreversibleLossy          lossy coding with the 9-7 wavelet (else the reversible 5-3)
    // bitDepthMode, bitDepth     sample precision: that of the stored values, refused above
    //                            bitDepth (limit), or always bitDepth (force)
    // windowType .. useModalityRescale
    //                            rendering of a "cooked" encoding, which this codec does not
    //                            do: it always codes the stored values; no effect
    // fragmentSize               maximum fragment size in kbytes, 0: one fragment per frame
    // createOffsetTable          fill the Basic Offset Table
    // uidCreation                new SOP Instance UID: default (lossy only), always, never
    // convertToSC                convert the object to Secondary Capture
    // acceptWrongPaletteTags, acrNemaCompatibility, realLossless
    //                            only meaningful for rendered encodings; no effect
    // updateDerivation           lossy output records Derivation Description and Code Sequence
    // verifyLossless             lossless output is decoded again and compared before use
    static void registerCodecs(
        const OFList<double>& layerRates = OFList<double>(), unsigned int tileWidth = 0, unsigned int tileHeight = 0,
        unsigned int tileOriginX = 0, unsigned int tileOriginY = 0, unsigned int maxComponentSize = 0,
        unsigned int maxCodestreamSize = 0, unsigned char codeBlockWidthExponent = 6,
        unsigned char codeBlockHeightExponent = 6, unsigned char precinctWidthExponent = 15,
        unsigned char precinctHeightExponent = 15, bool selectiveBypass = false, bool resetContexts = false,
        bool terminateEachPass = false, bool verticallyCausal = false, J2K_Progression progression = EJ2KP_LRCP,
        unsigned char resolutions = 6, unsigned char guardBits = 2, bool predictableTermination = false,
        bool segmentationSymbols = false, bool sopMarkers = false, bool ephMarkers = false, bool colorTransform = true,
        bool tlmMarkers = false, bool irreversibleLossy = true, J2K_CompressionBitDepth bitDepthMode = EJ2KBD_limit,
        unsigned int bitDepth = 16, unsigned long windowType = 0, unsigned long windowParameter = 0,
        double voiCenter = 0.0, double voiWidth = 0.0, unsigned long roiLeft = 0, unsigned long roiTop = 0,
        unsigned long roiWidth = 0, unsigned long roiHeight = 0, bool usePixelValues = true,
        bool useModalityRescale = false, unsigned int fragmentSize = 0, bool createOffsetTable = true,
        J2K_UIDCreation uidCreation = EJ2KUC_default, bool convertToSC = false, bool acceptWrongPaletteTags = false,
        bool acrNemaCompatibility = false, bool realLossless = true, bool updateDerivation = true,
        bool verifyLossless = true);

    // Deregisters and deletes the encoders.
    static void cleanup();

private:
    static bool m_registered;
    static D2CodecParameter* m_codecParameter;
    static D2Encoder* m_losslessEncoder;
    static D2Encoder* m_lossyEncoder;
};

#endif
