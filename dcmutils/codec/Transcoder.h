// Re-encodes the pixel data of a DICOM dataset into another transfer syntax with the codecs of
// a CodecRegistry: first checks whether the target can hold the image at all (a refusal in
// words for a one-line message), then picks the parameters and lets DCMTK change the
// representation.
#ifndef TRANSCODER_H
#define TRANSCODER_H

#include "dcmutils/codec/CodecRegistry.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcxfer.h"
#include "dcmtk/ofstd/ofcond.h"

#include <string>
#include <vector>

class Transcoder
{
public:
    /// A transfer syntax the transcoder writes, with a few words about it for the help text.
    struct Target
    {
        E_TransferSyntax xfer;
        const char* note;
    };

    /// Deviation of JPEG-LS near-lossless coding (DCMTK's default): every decoded sample lies
    /// within this distance of the original.
    static const Uint16 NEAR_LOSSLESS_DEVIATION = 2;

    /// Registers every codec for as long as the transcoder lives (one at a time).
    Transcoder();

    /// The transfer syntaxes the transcoder writes, in the order the help lists them.
    static const std::vector<Target>& targets();

    /// True when xfer is one of targets().
    static bool isTarget(E_TransferSyntax xfer);

    /// Why dataset, read in transfer syntax from, cannot be re-encoded into xfer: a reason in
    /// words ("its 12-bit samples do not fit the 8 bits JPEG Baseline holds ..."), empty when
    /// nothing stands against trying.
    static std::string refusal(DcmDataset& dataset, E_TransferSyntax from, E_TransferSyntax xfer);

    /// Re-encodes dataset into xfer in memory (DCMTK's chooseRepresentation with this
    /// transcoder's parameters). EC_Normal on success; the codec's condition otherwise, or
    /// EC_CannotChangeRepresentation when the result cannot be written in xfer, or a condition
    /// "the encoded image does not decode again" when no decoder takes what the encoder wrote.
    OFCondition transcode(DcmDataset& dataset, E_TransferSyntax xfer);

    /// The JPEG 2000 compression rate for dataset in xfer: 1.0 for lossless.
    static double jpeg2000Rate(DcmDataset& dataset, E_TransferSyntax xfer);

private:
    /// True when the dataset's current (encapsulated) pixel data decodes again, alone.
    static bool decodesAgain(DcmDataset& dataset);

    Transcoder(const Transcoder&);
    Transcoder& operator=(const Transcoder&);

    CodecRegistry m_registry;
};

#endif
