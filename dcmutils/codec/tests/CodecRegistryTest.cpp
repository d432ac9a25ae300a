#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmjpeg/djrplol.h"
#include "dcmtk/dcmjpeg/djrploss.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

bool decodes(E_TransferSyntax xfer)
{
    return DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit);
}

bool encodes(E_TransferSyntax xfer)
{
    return DcmCodecList::canChangeCoding(EXS_LittleEndianExplicit, xfer);
}

} // namespace

TEST(CodecRegistry, RegistersForItsLifetimeOnly)
{
    struct Case
    {
        E_TransferSyntax xfer;
        bool decodes;
        bool encodes;
    };
    // no RLE or JPEG-LS encoders, and nothing for the multi-component JPEG 2000 syntaxes
    const Case cases[] = {{EXS_RLELossless, true, false},           {EXS_JPEG2000LosslessOnly, true, true},
                          {EXS_JPEG2000, true, true},               {EXS_JPEGProcess1, true, true},
                          {EXS_JPEGProcess14SV1, true, true},       {EXS_JPEGLSLossless, true, false},
                          {EXS_JPEGLSLossy, true, false},           {EXS_JPEG2000Multicomponent, false, false}};
    for (int round = 0; round < 2; ++round) // a second registry after the first works the same
    {
        {
            CodecRegistry registry;
            for (const Case& c : cases)
            {
                EXPECT_EQ(c.decodes, decodes(c.xfer)) << DcmXfer(c.xfer).getXferName();
                EXPECT_EQ(c.encodes, encodes(c.xfer)) << DcmXfer(c.xfer).getXferName();
            }
            // compressed to compressed goes through uncompressed
            EXPECT_FALSE(DcmCodecList::canChangeCoding(EXS_JPEG2000, EXS_JPEG2000LosslessOnly));
        }
        for (const Case& c : cases)
            EXPECT_FALSE(decodes(c.xfer) || encodes(c.xfer)) << DcmXfer(c.xfer).getXferName();
    }
}

TEST(CodecRegistry, RepresentationParameterByTransferSyntax)
{
    CodecRegistry registry;
    DcmDataset dataset;
    dataset.putAndInsertString(DCM_Modality, "CT");
    const double rate = getJPEG2000LossyCompressionRate(dataset);
    const D2RepresentationParameter lossless(1.0, 0, true, "", true);
    const DJ_RPLossy quality90(90);
    const DJ_RPLossless predictor6(6, 0);
    const std::pair<E_TransferSyntax, const DcmRepresentationParameter*> cases[] = {
        {EXS_LittleEndianImplicit, nullptr}, {EXS_BigEndianExplicit, nullptr}, {EXS_RLELossless, nullptr},
        {EXS_DeflatedLittleEndianExplicit, nullptr}, {EXS_JPEGLSLossless, nullptr}, {EXS_JPEGLSLossy, nullptr},
        {EXS_JPEG2000Multicomponent, nullptr}, {EXS_MPEG2MainProfileAtMainLevel, nullptr}, {EXS_Unknown, nullptr},
        {EXS_JPEGProcess1, &quality90}, {EXS_JPEGProcess2_4, &quality90}, {EXS_JPEGProcess29, &quality90},
        {EXS_JPEGProcess14, &predictor6}, {EXS_JPEGProcess14SV1, &predictor6}, // predictor 6 for SV1 as well
        {EXS_JPEG2000LosslessOnly, &lossless}};
    for (const auto& c : cases)
    {
        std::unique_ptr<DcmRepresentationParameter> p(registry.getRepresentationParameter(dataset, c.first));
        if (c.second == nullptr)
            EXPECT_EQ(nullptr, p) << DcmXfer(c.first).getXferName();
        else
            EXPECT_TRUE(p != nullptr && *p == *c.second) << DcmXfer(c.first).getXferName();
    }
    // lossy: the process-wide rate of the dataset's modality, lossless at 1.0
    std::unique_ptr<DcmRepresentationParameter> p(registry.getRepresentationParameter(dataset, EXS_JPEG2000));
    ASSERT_NE(nullptr, p);
    EXPECT_TRUE(*p == D2RepresentationParameter(rate, 0, rate == 1.0, "", true));
}
