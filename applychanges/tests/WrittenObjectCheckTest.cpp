// The driver's own checks of a written object: meta header identity and encapsulated fragments.
#include "applychanges/WrittenObjectCheck.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// Loads as the comparison does: values over 4096 bytes stay in the file.
bool load(DcmFileFormat& file, const std::string& path)
{
    return file.loadFile(path.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).good();
}

} // namespace

TEST(WrittenObjectCheck, MetaHeaderAndFragments)
{
    fixtures::TempDir dir;
    const std::string source = fixtures::corpusFile("JPEG2000.dcm");
    const std::string same = dir.file("same.dcm");
    ASSERT_TRUE(fixtures::writeFile(same, fixtures::readFile(source)));

    // a copy whose first fragment differs in its last byte, and one with another meta identity
    DcmFileFormat changed;
    ASSERT_TRUE(changed.loadFile(source.c_str()).good() && changed.loadAllDataIntoMemory().good());
    DcmElement* element = nullptr;
    ASSERT_TRUE(changed.getDataset()->findAndGetElement(DCM_PixelData, element).good());
    DcmPixelData* pixels = OFstatic_cast(DcmPixelData*, element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixels->getCurrentRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = nullptr;
    ASSERT_TRUE(pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).good());
    DcmPixelItem* fragment = nullptr;
    ASSERT_TRUE(sequence->getItem(fragment, 1).good());
    Uint8* bytes = nullptr;
    ASSERT_TRUE(fragment->getUint8Array(bytes).good());
    bytes[fragment->getLength() - 2] ^= 0x01;
    const std::string fragmentChanged = dir.file("fragment.dcm");
    ASSERT_TRUE(changed.saveFile(fragmentChanged.c_str(), xfer).good());
    bytes[fragment->getLength() - 2] ^= 0x01;
    changed.getDataset()->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4.5");
    const std::string identityChanged = dir.file("identity.dcm");
    ASSERT_TRUE(changed.saveFile(identityChanged.c_str(), xfer, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                 EWM_createNewMeta).good());

    struct Case
    {
        std::string written;
        std::list<DcmTagKey> modified;
        bool equal;
        std::string err;
    };
    const std::vector<Case> cases = {
        {same, {}, true, ""},
        {fragmentChanged, {}, false, "! Pixel Item (1) differs in the written object\n"},
        {identityChanged, {}, false,
         "! (0002,0003) MediaStorageSOPInstanceUID differs in the written meta header "
         "(1.3.6.1.4.1.5962.1.1.8.1.3.20040826185059.5457 != 1.2.3.4.5)\n"},
        {identityChanged, {DCM_SOPInstanceUID}, true, ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.written);
        DcmFileFormat original, written;
        ASSERT_TRUE(load(original, source) && load(written, c.written));
        std::ostringstream err;
        EXPECT_EQ(c.equal, checkWrittenObject(original, written, c.modified, err));
        EXPECT_EQ(c.err, err.str());
    }
}
