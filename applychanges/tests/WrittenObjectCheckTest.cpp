// The driver's checks of a written object against the object as it was read.
#include "applychanges/ObjectVerifier.h"
#include "applychanges/WrittenObjectCheck.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sstream>
#include <tuple>

TEST(WrittenObjectCheck, MetaHeaderAndFragments)
{
    fixtures::TempDir dir;
    const std::string source = fixtures::corpusFile("JPEG2000.dcm"), same = dir.file("same.dcm");
    ASSERT_TRUE(fixtures::writeFile(same, fixtures::readFile(source)));
    // a copy whose first fragment differs in its last byte, and one with another meta identity
    DcmFileFormat changed;
    ASSERT_TRUE(changed.loadFile(source.c_str()).good() && changed.loadAllDataIntoMemory().good());
    DcmElement* element = nullptr;
    ASSERT_TRUE(changed.getDataset()->findAndGetElement(DCM_PixelData, element).good());
    const E_TransferSyntax xfer = EXS_JPEG2000;
    DcmPixelSequence* sequence = nullptr;
    DcmPixelItem* fragment = nullptr;
    Uint8* bytes = nullptr;
    ASSERT_TRUE(OFstatic_cast(DcmPixelData*, element)->getEncapsulatedRepresentation(xfer, NULL, sequence).good());
    ASSERT_TRUE(sequence->getItem(fragment, 1).good() && fragment->getUint8Array(bytes).good());
    bytes[fragment->getLength() - 2] ^= 0x01;
    const std::string fragmentChanged = dir.file("fragment.dcm"), identityChanged = dir.file("identity.dcm");
    ASSERT_TRUE(changed.saveFile(fragmentChanged.c_str(), xfer).good());
    bytes[fragment->getLength() - 2] ^= 0x01;
    changed.getDataset()->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4.5");
    ASSERT_TRUE(changed.saveFile(identityChanged.c_str(), xfer, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                 EWM_createNewMeta).good());
    // written, modified keys, equal, error lines
    const std::tuple<std::string, std::list<DcmTagKey>, bool, std::string> cases[] = {
        {same, {}, true, ""},
        {fragmentChanged, {}, false, "! Pixel Item (1) differs in the written object\n"},
        {identityChanged, {}, false,
         "! (0002,0003) MediaStorageSOPInstanceUID differs in the written meta header "
         "(1.3.6.1.4.1.5962.1.1.8.1.3.20040826185059.5457 != 1.2.3.4.5)\n"},
        {identityChanged, {DCM_SOPInstanceUID}, true, ""},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        // loaded as the comparison does: values over 4096 bytes stay in the file
        DcmFileFormat original, written;
        ASSERT_TRUE(original.loadFile(source.c_str(), EXS_Unknown, EGL_noChange, 4096).good());
        ASSERT_TRUE(written.loadFile(std::get<0>(c).c_str(), EXS_Unknown, EGL_noChange, 4096).good());
        std::ostringstream err;
        EXPECT_EQ(std::get<2>(c), checkWrittenObject(original, written, std::get<1>(c), err));
        EXPECT_EQ(std::get<3>(c), err.str());
        EXPECT_EQ("", metaHeaderInconsistency(written)); // each file's meta header names its own dataset
    }
}

TEST(ObjectVerifier, WrittenObjectReadingBackOtherwiseIsCaught)
{
    // In implicit VR, US or SS follows Pixel Representation: after its edit 65535 reads back as -1.
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
