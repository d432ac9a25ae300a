// Damaged codestreams and objects whose header does not match their codestream give a clear
// error, never a crash.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/O2DecoderRegistration.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"

#include <gtest/gtest.h>

namespace {

std::string decodeError(DcmFileFormat& file)
{
    const OFCondition cond = file.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL);
    return cond.good() ? "decoded" : cond.text();
}

} // namespace

TEST(D2Corrupt, DamagedObjectsGiveAClearErrorAndKeepTheirPixelData)
{
    CodecRegistry registry;
    const std::string failed = "JPEG 2000 decoding failed: ";
    const std::string delimited = fixtures::corpusFile("JPEG2000-embedded-sequence-delimiter.dcm");
    std::unique_ptr<DcmFileFormat> delimiter = codectest::load(delimited);
    ASSERT_NE(nullptr, delimiter);
    EXPECT_EQ(0u, decodeError(*delimiter).find(failed)) << decodeError(*delimiter);

    // truncated codestreams: copies of exactly that length, so that reading past them is caught
    std::unique_ptr<DcmFileFormat> object = codectest::load(fixtures::corpusFile("MR_small_jp2klossless.dcm"));
    DcmPixelItem* item = object ? codectest::fragment(*object) : NULL;
    Uint8* data = NULL;
    ASSERT_TRUE(item && item->getUint8Array(data).good() && item->getLength() > 1000);
    const std::vector<Uint8> codestream(data, data + item->getLength());
    for (size_t length = 0; length + 2 < codestream.size(); length += (length < 300 ? 1 : 37))
    {
        ASSERT_TRUE(item->putUint8Array(codestream.data(), Uint32(length)).good());
        EXPECT_EQ(0u, decodeError(*object).find(failed)) << length << ": " << decodeError(*object);
        EXPECT_TRUE(object->getDataset()->canWriteXfer(EXS_JPEG2000LosslessOnly));
    }

    const std::string mismatch = "Image data mismatch between DICOM header and JPEG 2000 codestream";
    const struct
    {
        DcmTagKey key;
        Uint16 value;
        std::string message;
    } cases[] = {
        {DCM_Rows, 64, failed + "no JPEG 2000 codestream at start of frame"}, // a JFIF stream
        {DCM_Rows, 65, mismatch},
        {DCM_Columns, 32, mismatch},
        {DCM_SamplesPerPixel, 3, mismatch},
        {DCM_BitsAllocated, 8, mismatch},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.key.toString().c_str());
        object = codectest::load(fixtures::corpusFile("MR_small_jp2klossless.dcm"));
        ASSERT_TRUE(object && codectest::fragment(*object));
        const Uint8 jfif[] = {0xFF, 0xD8, 0xFF, 0xE0, 0, 0x10, 'J', 'F', 'I', 'F'};
        if (c.value == 64)
            codectest::fragment(*object)->putUint8Array(jfif, sizeof(jfif));
        object->getDataset()->putAndInsertUint16(c.key, c.value);
        if (c.key == DCM_BitsAllocated)
            object->getDataset()->putAndInsertUint16(DCM_BitsStored, 8);
        EXPECT_EQ(0u, decodeError(*object).find(c.message)) << decodeError(*object);
        EXPECT_TRUE(object->getDataset()->canWriteXfer(EXS_JPEG2000LosslessOnly));
    }
}

TEST(D2Corrupt, RegisteredParametersAndTheLibraryState)
{
    CodecRegistry registry;
    // a decoder told to refuse JP2 file headers does so
    std::unique_ptr<DcmFileFormat> jp2 = codectest::load(fixtures::corpusFile("GDCMJ2K_TextGBR.dcm"));
    ASSERT_NE(nullptr, jp2);
    O2DecoderRegistration::cleanup();
    O2DecoderRegistration::registerCodecs(EJ2KUC_default, EJ2KPC_restore, 0, 0, true, false);
    EXPECT_EQ("JPEG 2000 decoding failed: codestream wrapped in a JP2 file header", decodeError(*jp2));

    // registered codecs, but the library ended: a clear error, not a crash
    D2JPEG2000Library::cleanup();
    std::unique_ptr<DcmFileFormat> object = codectest::load(fixtures::corpusFile("MR_small_jp2klossless.dcm"));
    ASSERT_NE(nullptr, object);
    EXPECT_EQ("JPEG 2000 library not initialized", decodeError(*object));
    ASSERT_TRUE(D2JPEG2000Library::initialize().good());
    EXPECT_EQ("decoded", decodeError(*object));
}
