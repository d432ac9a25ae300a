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
    EXPECT_FALSE(decodes(EXS_JPEG2000));
    EXPECT_FALSE(decodes(EXS_RLELossless));
    {
        CodecRegistry registry;
        EXPECT_TRUE(decodes(EXS_RLELossless));
        EXPECT_TRUE(decodes(EXS_JPEG2000LosslessOnly));
        EXPECT_TRUE(decodes(EXS_JPEG2000));
        EXPECT_TRUE(encodes(EXS_JPEG2000LosslessOnly));
        EXPECT_TRUE(encodes(EXS_JPEG2000));
        EXPECT_TRUE(decodes(EXS_JPEGProcess1));
        EXPECT_TRUE(encodes(EXS_JPEGProcess1));
        EXPECT_TRUE(decodes(EXS_JPEGProcess14SV1));
        EXPECT_TRUE(encodes(EXS_JPEGProcess14SV1));
        EXPECT_TRUE(decodes(EXS_JPEGLSLossless));
        EXPECT_TRUE(decodes(EXS_JPEGLSLossy));
        // no RLE or JPEG-LS encoders, and nothing for the multi-component JPEG 2000 syntaxes
        EXPECT_FALSE(encodes(EXS_RLELossless));
        EXPECT_FALSE(encodes(EXS_JPEGLSLossless));
        EXPECT_FALSE(decodes(EXS_JPEG2000Multicomponent));
        // compressed to compressed goes through uncompressed
        EXPECT_FALSE(DcmCodecList::canChangeCoding(EXS_JPEG2000, EXS_JPEG2000LosslessOnly));
    }
    EXPECT_FALSE(decodes(EXS_JPEG2000));
    EXPECT_FALSE(encodes(EXS_JPEG2000));
    EXPECT_FALSE(decodes(EXS_JPEGProcess1));
    EXPECT_FALSE(decodes(EXS_JPEGLSLossless));
    EXPECT_FALSE(decodes(EXS_RLELossless));

    // and again: a second registry after the first works the same
    CodecRegistry again;
    EXPECT_TRUE(decodes(EXS_JPEG2000));
    EXPECT_TRUE(encodes(EXS_JPEG2000));
}

TEST(CodecRegistry, RepresentationParameterByTransferSyntax)
{
    CodecRegistry registry;
    DcmDataset dataset;
    dataset.putAndInsertString(DCM_Modality, "CT");

    const E_TransferSyntax none[] = {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit,
                                     EXS_RLELossless, EXS_DeflatedLittleEndianExplicit, EXS_JPEGLSLossless,
                                     EXS_JPEGLSLossy, EXS_JPEG2000MulticomponentLosslessOnly,
                                     EXS_JPEG2000Multicomponent, EXS_MPEG2MainProfileAtMainLevel, EXS_Unknown};
    for (E_TransferSyntax xfer : none)
        EXPECT_EQ(nullptr, std::unique_ptr<DcmRepresentationParameter>(registry.getRepresentationParameter(dataset, xfer)))
            << DcmXfer(xfer).getXferName();

    const E_TransferSyntax lossy[] = {EXS_JPEGProcess1, EXS_JPEGProcess2_4, EXS_JPEGProcess10_12, EXS_JPEGProcess15,
                                      EXS_JPEGProcess29};
    for (E_TransferSyntax xfer : lossy)
    {
        std::unique_ptr<DcmRepresentationParameter> p(registry.getRepresentationParameter(dataset, xfer));
        ASSERT_NE(nullptr, p) << DcmXfer(xfer).getXferName();
        ASSERT_STREQ("DJ_RPLossy", p->className());
        EXPECT_EQ(90, static_cast<DJ_RPLossy*>(p.get())->getQuality());
    }

    for (E_TransferSyntax xfer : {EXS_JPEGProcess14, EXS_JPEGProcess14SV1})
    {
        std::unique_ptr<DcmRepresentationParameter> p(registry.getRepresentationParameter(dataset, xfer));
        ASSERT_NE(nullptr, p);
        ASSERT_STREQ("DJ_RPLossless", p->className());
        EXPECT_EQ(6, static_cast<DJ_RPLossless*>(p.get())->getPrediction());
        EXPECT_EQ(0, static_cast<DJ_RPLossless*>(p.get())->getPointTransformation());
    }

    std::unique_ptr<DcmRepresentationParameter> p(
        registry.getRepresentationParameter(dataset, EXS_JPEG2000LosslessOnly));
    ASSERT_NE(nullptr, p);
    ASSERT_STREQ("D2RepresentationParameter", p->className());
    EXPECT_TRUE(*p == D2RepresentationParameter(1.0, 0, true, "", true));

    // lossy: the process-wide rate of the dataset's modality
    const double rate = getJPEG2000LossyCompressionRate(dataset);
    p.reset(registry.getRepresentationParameter(dataset, EXS_JPEG2000));
    ASSERT_NE(nullptr, p);
    if (rate == 1.0)
        EXPECT_TRUE(*p == D2RepresentationParameter(1.0, 0, true, "", true));
    else
        EXPECT_TRUE(*p == D2RepresentationParameter(rate, 0, false, "", true));
}

TEST(CodecRegistry, RepresentationParametersCompareByValue)
{
    const D2RepresentationParameter a(0.1, 0, false, "", true);
    std::unique_ptr<DcmRepresentationParameter> copy(a.clone());
    EXPECT_TRUE(a == *copy);
    EXPECT_FALSE(a == D2RepresentationParameter(0.2, 0, false, "", true));
    EXPECT_FALSE(a == D2RepresentationParameter(0.1, 0, true, "", true));
    EXPECT_FALSE(a == D2RepresentationParameter(0.1, 0, false, "x", true));
    EXPECT_FALSE(a == DJ_RPLossy(90));
    EXPECT_FALSE(a.useLosslessProcess());
    EXPECT_TRUE(D2RepresentationParameter(1.0, 0, false, "", true).useLosslessProcess());
}
