// The driver's comparison of a written object with the object as it was read.
#include "applychanges/ObjectVerifier.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <dirent.h>

TEST(ObjectVerifier, WrittenObjectReadingBackOtherwiseIsCaught)
{
    // In implicit VR, Smallest Image Pixel Value is US or SS by Pixel Representation: written
    // after an edit of Pixel Representation, 65535 reads back as -1, which the check must catch.
    fixtures::ObjectSpec spec;
    spec.xfer = EXS_LittleEndianImplicit;
    std::unique_ptr<DcmFileFormat> read(fixtures::makeObject(spec));
    read->getDataset()->putAndInsertUint16(DCM_SmallestImagePixelValue, 65535);
    DcmFileFormat written(*read);
    written.getDataset()->putAndInsertUint16(DCM_PixelRepresentation, 1);
    fixtures::TempDir dir;
    ASSERT_TRUE(written.saveFile(dir.file("written").c_str(), EXS_LittleEndianImplicit).good());
    const std::string bytes = fixtures::readFile(dir.file("written"));

    EditedObject object("study/IM1", "IM1", DT_UNKNOWN);
    object.m_read = std::move(read);
    ByteBuffer buffer;
    buffer.append(bytes.data(), bytes.size());
    object.m_encoded = std::make_shared<InputFile>(std::move(buffer));
    object.m_writtenSize = bytes.size();
    object.m_tempPath = "study/.tmp/.applychanges.IM1";
    object.m_modified.push_back(DCM_PixelRepresentation);
    object.m_ignore.tags.insert(DCM_PixelRepresentation);
    object.m_ignore.patterns.insert("....0000");

    ObjectReport lines;
    bool equal = true;
    const fixtures::Captured c = fixtures::capture([&] {
        equal = ObjectVerifier::verify(object, lines);
        lines.write();
    });
    EXPECT_FALSE(equal);
    EXPECT_EQ("! (0028,0106): 65535 != -1\n"
              "Objects differ after applying soft edit changes for study/IM1[study/.tmp/.applychanges.IM1]\n",
              c.err);
}
