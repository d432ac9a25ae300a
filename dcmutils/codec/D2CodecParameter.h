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
    ~D2CodecParameter() override;

    DcmCodecParameter* clone() const override;
    const char* className() const override;

    // ---- encoding ----

    // Rates (fractions of the uncompressed size) of quality layers below the final one; the
    // final layer has the representation parameter's rate. Empty: a single layer.
    std::vector<double> m_layerRates;
    // Tile size and tile grid origin; a width or height of 0 gives one tile for the image.
    unsigned int m_tileWidth;
    unsigned int m_tileHeight;
    unsigned int m_tileOriginX;
    unsigned int m_tileOriginY;
    // Upper bounds in bytes of one component and of the whole codestream; 0: none.
    unsigned int m_maxComponentSize;
    unsigned int m_maxCodestreamSize;
    // Code-block and precinct sizes as powers of two (code-blocks 2..10, precincts up to 15;
    // 15 gives the standard's default precincts).
    unsigned char m_codeBlockWidthExponent;
    unsigned char m_codeBlockHeightExponent;
    unsigned char m_precinctWidthExponent;
    unsigned char m_precinctHeightExponent;
    // Code-block coding mode switches.
    bool m_selectiveBypass;
    bool m_resetContexts;
    bool m_terminateEachPass;
    bool m_verticallyCausal;
    bool m_predictableTermination;
    bool m_segmentationSymbols;
    J2K_Progression m_progression;
    // Resolution levels (decomposition levels + 1), reduced for small images; guard bits 0..7.
    unsigned char m_resolutions;
    unsigned char m_guardBits;
    // Start of packet and end of packet header markers, tile-part length markers.
    bool m_sopMarkers;
    bool m_ephMarkers;
    bool m_tlmMarkers;
    // RGB images are coded through the multiple-component transform (YBR_RCT lossless,
    // YBR_ICT lossy).
    bool m_colorTransform;
    // Lossy coding uses the irreversible 9-7 wavelet; otherwise the reversible 5-3.
    bool m_irreversibleLossy;
    J2K_CompressionBitDepth m_bitDepthMode;
    unsigned int m_bitDepth;
    // Maximum fragment size in kbytes, 0: one fragment per frame.
    unsigned int m_fragmentSize;
    bool m_createOffsetTable;
    J2K_UIDCreation m_encoderUIDCreation;
    bool m_convertToSC;
    // Lossy output records Derivation Description and Derivation Code Sequence.
    bool m_updateDerivation;
    // Lossless output is decoded again and compared with the input before it is accepted.
    bool m_verifyLossless;

    // ---- decoding ----

    J2K_UIDCreation m_decoderUIDCreation;
    J2K_PlanarConfiguration m_planarConfiguration;
    // Quality layers to decode, 0: all.
    unsigned int m_qualityLayers;
    // OpenJPEG worker threads; 0: one per core the process may use (none on one core), for
    // codestreams of 32 KiB and more and images of 65,536 samples and more.
    unsigned int m_threads;
    // Truncated or damaged codestreams fail instead of giving a partial image.
    bool m_strictDecoding;
    // Codestreams wrapped in a JP2 file header (not conformant, but written by some
    // toolkits) are accepted.
    bool m_acceptJP2;

private:
    D2CodecParameter& operator=(const D2CodecParameter&);
};

#endif
