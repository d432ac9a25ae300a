// Settings shared by the registered JPEG 2000 codecs: how the encoders drive OpenJPEG and what
// the decoders do with the decoded samples. Filled by the encoder and decoder registrations;
// the defaults are OpenJPEG's and DICOM's usual choices.
#ifndef D2CODECPARAMETER_H
#define D2CODECPARAMETER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dccodec.h"

#include "dcmutils/codec/D2JPEG2000Util.h"

#include <vector>

class D2CodecParameter : public DcmCodecParameter
{
public:
    D2CodecParameter();
    D2CodecParameter(const D2CodecParameter& arg);
    virtual ~D2CodecParameter();

    virtual DcmCodecParameter* clone() const;
    virtual const char* className() const;

    // ---- encoding ----

    // Rates (fractions of the uncompressed size) of quality layers below the final one; the
    // final layer has the representation parameter's rate. Empty: a single layer.
    std::vector<double> layerRates;
    // Tile size and tile grid origin; a width or height of 0 gives one tile for the image.
    unsigned int tileWidth;
    unsigned int tileHeight;
    unsigned int tileOriginX;
    unsigned int tileOriginY;
    // Upper bounds in bytes of one component and of the whole codestream; 0: none.
    unsigned int maxComponentSize;
    unsigned int maxCodestreamSize;
    // Code-block and precinct sizes as powers of two (code-blocks 2..10, precincts up to 15;
    // 15 gives the standard's default precincts).
    unsigned char codeBlockWidthExponent;
    unsigned char codeBlockHeightExponent;
    unsigned char precinctWidthExponent;
    unsigned char precinctHeightExponent;
    // Code-block coding mode switches.
    bool selectiveBypass;
    bool resetContexts;
    bool terminateEachPass;
    bool verticallyCausal;
    bool predictableTermination;
    bool segmentationSymbols;
    J2K_Progression progression;
    // Resolution levels (decomposition levels + 1), reduced for small images; guard bits 0..7.
    unsigned char resolutions;
    unsigned char guardBits;
    // Start of packet and end of packet header markers, tile-part length markers.
    bool sopMarkers;
    bool ephMarkers;
    bool tlmMarkers;
    // RGB images are coded through the multiple-component transform (YBR_RCT lossless,
    // YBR_ICT lossy).
    bool colorTransform;
    // Lossy coding uses the irreversible 9-7 wavelet; otherwise the reversible 5-3.
    bool irreversibleLossy;
    J2K_CompressionBitDepth bitDepthMode;
    unsigned int bitDepth;
    // Maximum fragment size in kbytes, 0: one fragment per frame.
    unsigned int fragmentSize;
    bool createOffsetTable;
    J2K_UIDCreation encoderUIDCreation;
    bool convertToSC;
    // Lossy output records Derivation Description and Derivation Code Sequence.
    bool updateDerivation;
    // Lossless output is decoded again and compared with the input before it is accepted.
    bool verifyLossless;

    // ---- decoding ----

    J2K_UIDCreation decoderUIDCreation;
    J2K_PlanarConfiguration planarConfiguration;
    // Quality layers to decode, 0: all.
    unsigned int qualityLayers;
    // OpenJPEG worker threads, 0: the calling thread only.
    unsigned int threads;
    // Truncated or damaged codestreams fail instead of giving a partial image.
    bool strictDecoding;
    // Codestreams wrapped in a JP2 file header (not conformant, but written by some
    // toolkits) are accepted.
    bool acceptJP2;

private:
    D2CodecParameter& operator=(const D2CodecParameter&);
};

#endif
