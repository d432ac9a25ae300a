#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "dcmtk/dcmdata/dccodec.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmjpeg/djrplol.h"
#include "dcmtk/dcmjpeg/djrploss.h"

#include <gtest/gtest.h>

#include <memory>

TEST(CodecRegistry, RegistersForItsLifetimeOnly)
{
    // decoded and encoded; nothing for the multi-component JPEG 2000 syntax
    const std::pair<E_TransferSyntax, bool> cases[] = {
        {EXS_RLELossless, true},      {EXS_JPEG2000LosslessOnly, true}, {EXS_JPEG2000, true},
        {EXS_JPEGProcess1, true},     {EXS_JPEGProcess14SV1, true},     {EXS_JPEGLSLossless, true},
        {EXS_JPEGLSLossy, true},      {EXS_JPEG2000Multicomponent, false}};
    for (int round = 0; round < 2; ++round) // a second registry after the first works the same
    {
        std::unique_ptr<CodecRegistry> registry(new CodecRegistry());
        for (bool registered : {true, false})
        {
            for (const auto& c : cases)
            {
                SCOPED_TRACE(DcmXfer(c.first).getXferName());
                EXPECT_EQ(registered && c.second, DcmCodecList::canChangeCoding(c.first, EXS_LittleEndianExplicit));
                EXPECT_EQ(registered && c.second, DcmCodecList::canChangeCoding(EXS_LittleEndianExplicit, c.first));
            }
            // compressed to compressed goes through uncompressed
            EXPECT_FALSE(DcmCodecList::canChangeCoding(EXS_JPEG2000, EXS_JPEG2000LosslessOnly));
            registry.reset();
        }
    }
}

TEST(CodecRegistry, RepresentationParameterByTransferSyntax)
{
    CodecRegistry registry;
    DcmDataset dataset;
    dataset.putAndInsertString(DCM_Modality, "CT");
    // lossy JPEG 2000: the process-wide rate of the dataset's modality, lossless at 1.0
    const double rate = getJPEG2000LossyCompressionRate(dataset);
    const D2RepresentationParameter lossless(1.0, 0, true, "", true), lossy(rate, 0, rate == 1.0, "", true);
    const DJ_RPLossy quality90(90);
    const DJ_RPLossless predictor6(6, 0);
    const std::pair<E_TransferSyntax, const DcmRepresentationParameter*> cases[] = {
        {EXS_LittleEndianImplicit, nullptr}, {EXS_BigEndianExplicit, nullptr}, {EXS_RLELossless, nullptr},
        {EXS_DeflatedLittleEndianExplicit, nullptr}, {EXS_JPEGLSLossless, nullptr}, {EXS_JPEGLSLossy, nullptr},
        {EXS_JPEG2000Multicomponent, nullptr}, {EXS_MPEG2MainProfileAtMainLevel, nullptr}, {EXS_Unknown, nullptr},
        {EXS_JPEGProcess1, &quality90}, {EXS_JPEGProcess2_4, &quality90}, {EXS_JPEGProcess29, &quality90},
        {EXS_JPEGProcess14, &predictor6}, {EXS_JPEGProcess14SV1, &predictor6}, // predictor 6 for SV1 as well
        {EXS_JPEG2000LosslessOnly, &lossless}, {EXS_JPEG2000, &lossy}};
    for (const auto& c : cases)
    {
        std::unique_ptr<DcmRepresentationParameter> p(registry.getRepresentationParameter(dataset, c.first));
        EXPECT_TRUE(c.second == nullptr ? p == nullptr : p != nullptr && *p == *c.second)
            << DcmXfer(c.first).getXferName();
    }
}
