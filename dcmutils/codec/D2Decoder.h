// DCMTK codec that decodes the JPEG 2000 transfer syntaxes (1.2.840.10008.1.2.4.90 and .91)
// into uncompressed pixel data: 1 or 3 samples, 8 to 16 bits, signed or unsigned, single- and
// multi-frame with one or several fragments per frame.
//
// Decoded values are stored as the codestream gives them, in two's complement of the sample
// size when it is signed. Objects whose header disagrees with the codestream about the sign
// (Pixel Representation) or whose codestream is more precise than Bits Stored are decoded all
// the same, with a warning, and keep their attributes: the stored bits are the codestream's
// bits, so an unsigned codestream of a signed image reads back as the signed values it was
// made from. A codestream that does not fit Rows, Columns, Samples per Pixel or Bits Allocated
// is an error.
#ifndef D2DECODER_H
#define D2DECODER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/ofstd/ofstring.h"

#include "dcmutils/codec/D2FrameInfo.h"

class D2CodecParameter;
class D2CodestreamDecoder;

class D2Decoder : public DcmCodec
{
public:
    // The decoder of one transfer syntax: EXS_JPEG2000LosslessOnly or EXS_JPEG2000.
    explicit D2Decoder(E_TransferSyntax supported);
    ~D2Decoder() override;

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

    // The Photometric Interpretation of decoded samples: the colour transforms are undone
    // (YBR_RCT and YBR_ICT become RGB), and YBR_FULL_422 comes back at full resolution.
    static OFString colorModelAfterDecoding(const OFString& photometricInterpretation, Uint16 samplesPerPixel);

private:
    D2Decoder(const D2Decoder&);
    D2Decoder& operator=(const D2Decoder&);

    // Reads the frame layout and the usable number of frames from the dataset.
    static OFCondition readFrameInfo(DcmItem* dataset, const D2CodecParameter& cp, DcmPixelSequence* pixSeq,
                                     D2FrameInfo& frame, Sint32& frames);

    // Pixel Data of the decoded size (padded to even), its words filled in by the decoding.
    static OFCondition createPixelData(DcmPolymorphOBOW& pixelData, const D2FrameInfo& frame, Sint32 frames,
                                       Uint16*& words, Uint32& totalSize);

    // Decodes every frame into buffer, one after the other; irreversible tells whether any
    // codestream used the irreversible wavelet.
    static OFCondition decodeFrames(DcmPixelSequence* pixSeq, const D2CodecParameter& params,
                                    const D2FrameInfo& frame, Sint32 frames, Uint8* buffer, bool& irreversible);

    // Number of Frames, Bits Allocated, Planar Configuration and Photometric Interpretation of
    // the decoded object.
    static OFCondition updateImagePixelModule(DcmItem* dataset, const D2FrameInfo& frame, Sint32 frames,
                                              bool numberOfFramesPresent);

    // Decodes the frame starting at fragment currentItem and moves currentItem past it.
    static OFCondition decodeFrameAt(DcmPixelSequence* pixSeq, D2CodestreamDecoder& decoder, const D2FrameInfo& frame,
                                     Sint32 frames, Uint32 frameNo, Uint32& currentItem, Uint8* buffer,
                                     size_t bufSize);

    // Fragments that make up the frame starting at startItem; 0 when that cannot be told.
    static Uint32 computeNumberOfFragments(Sint32 frames, Uint32 frameNo, Uint32 startItem, DcmPixelSequence* pixSeq);

    // The first fragment of the given frame, from the offset table or by walking the frames.
    static OFCondition findStartFragment(Uint32 frameNo, Sint32 frames, DcmPixelSequence* pixSeq, Uint32& startItem);

    static Uint16 determinePlanarConfiguration(const OFString& sopClassUID, const OFString& photometricInterpretation);

    E_TransferSyntax m_supported;
};

#endif
