// Frames of an RLE object whose header is damaged are refused, not read past their fragment.
#include "dcmutils/codec/CheckedRLEDecoder.h"
#include "dcmutils/codec/CodecRegistry.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <vector>

TEST(CheckedRLEDecoder, DamagedHeadersAreRefusedGoodFramesDecode)
{
    CodecRegistry registry;
    struct Case
    {
        const char* what;
        Uint32 segments; // written into the header, 0: as the file has it
        Uint32 offset;   // first segment offset, 0: as the file has it
        bool decodes;
    };
    const std::vector<Case> cases = {
        {"as stored", 0, 0, true},
        {"offset past the fragment", 0, 0x7fffff00, false},
        {"offset inside the header", 0, 8, false},
        {"sixteen segments", 16, 0, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(fixtures::corpusFile("MR_small_RLE.dcm").c_str()).good());
        DcmDataset* dataset = file.getDataset();
        DcmElement* element = nullptr;
        ASSERT_TRUE(dataset->findAndGetElement(DCM_PixelData, element).good());
        DcmPixelData* pixels = OFstatic_cast(DcmPixelData*, element);
        E_TransferSyntax xfer = EXS_Unknown;
        const DcmRepresentationParameter* parameter = nullptr;
        pixels->getCurrentRepresentationKey(xfer, parameter);
        DcmPixelSequence* sequence = nullptr;
        DcmPixelItem* fragment = nullptr;
        Uint8* bytes = nullptr;
        ASSERT_TRUE(pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).good());
        ASSERT_TRUE(sequence->getItem(fragment, 1).good() && fragment->getUint8Array(bytes).good());
        if (c.segments)
            bytes[0] = Uint8(c.segments);
        if (c.offset)
            for (int i = 0; i < 4; ++i)
                bytes[4 + i] = Uint8(c.offset >> (8 * i));
        Uint32 frameSize = 0;
        ASSERT_TRUE(pixels->getUncompressedFrameSize(dataset, frameSize).good());
        std::vector<Uint8> frame(frameSize);
        Uint32 start = 0;
        OFString colourModel;
        const OFCondition cond =
            pixels->getUncompressedFrame(dataset, 0, start, frame.data(), frameSize, colourModel, nullptr);
        EXPECT_EQ(c.decodes, cond.good()) << cond.text();
    }
}
