// DCMTK codec that encodes uncompressed pixel data into the JPEG 2000 transfer syntaxes:
// 1.2.840.10008.1.2.4.90 (always lossless) and .91 (lossy at the representation parameter's
// rate, or lossless when that rate is 1.0).
#ifndef D2ENCODER_H
#define D2ENCODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dccodec.h"

class D2CodecParameter;
class D2CodestreamEncoder;
class D2RepresentationParameter;
struct D2FrameInfo;

class D2Encoder : public DcmCodec
{
public:
    // The encoder of one transfer syntax: EXS_JPEG2000LosslessOnly or EXS_JPEG2000.
    explicit D2Encoder(E_TransferSyntax supported);
    ~D2Encoder() override;

    OFCondition decode(const DcmRepresentationParameter* fromRepParam, DcmPixelSequence* pixSeq,
                       DcmPolymorphOBOW& uncompressedPixelData, const DcmCodecParameter* cp,
                       const DcmStack& objStack, OFBool& removeOldRep) const override;

    OFCondition decodeFrame(const DcmRepresentationParameter* fromParam, DcmPixelSequence* fromPixSeq,
                            const DcmCodecParameter* cp, DcmItem* dataset, Uint32 frameNo,
                            Uint32& startFragment, void* buffer, Uint32 bufSize,
                            OFString& decompressedColorModel) const override;

    OFCondition encode(const Uint16* pixelData, const Uint32 length,
                       const DcmRepresentationParameter* toRepParam, DcmPixelSequence*& pixSeq,
                       const DcmCodecParameter* cp, DcmStack& objStack, OFBool& removeOldRep) const override;

    OFCondition encode(const E_TransferSyntax fromRepType, const DcmRepresentationParameter* fromRepParam,
                       DcmPixelSequence* fromPixSeq, const DcmRepresentationParameter* toRepParam,
                       DcmPixelSequence*& toPixSeq, const DcmCodecParameter* cp, DcmStack& objStack,
                       OFBool& removeOldRep) const override;

    OFBool canChangeCoding(const E_TransferSyntax oldRepType, const E_TransferSyntax newRepType) const override;

    OFCondition determineDecompressedColorModel(const DcmRepresentationParameter* fromParam,
                                                DcmPixelSequence* fromPixSeq, const DcmCodecParameter* cp,
                                                DcmItem* dataset, OFString& decompressedColorModel) const override;

private:
    D2Encoder(const D2Encoder&);
    D2Encoder& operator=(const D2Encoder&);

    // Reads the frame layout, the number of frames and the colour model from the dataset.
    static OFCondition readFrameInfo(DcmItem* dataset, D2FrameInfo& frame, Uint32& frames, OFString& photometric);

    // Encodes every frame into a new pixel sequence (owned by the caller, also on failure)
    // with its offset table; compressedSize receives the codestreams' total size.
    static OFCondition encodeFrames(const D2CodestreamEncoder& encoder, const D2CodecParameter& params,
                                    const Uint8* pixels, Uint32 length, const D2FrameInfo& frame, Uint32 frames,
                                    DcmPixelSequence*& sequence, unsigned long long& compressedSize);

    // Planar Configuration and Photometric Interpretation of the encoded object.
    static OFCondition updateImagePixelModule(DcmItem* dataset, const D2FrameInfo& frame, bool colorTransform,
                                              bool lossless);

    // A new SOP Instance UID where asked, the lossy compression attributes, Secondary Capture.
    static OFCondition updateSOPCommon(DcmItem* dataset, const D2CodecParameter& params, bool lossless, double ratio);

    // Lossy Image Compression, its ratio and method, as DICOM PS3.3 C.7.6.1.1.5 asks.
    static OFCondition updateLossyCompressionRatio(DcmItem* dataset, double ratio);
    static OFCondition updateDerivationDescription(DcmItem* dataset, double ratio);

    E_TransferSyntax m_supported;
};

#endif
