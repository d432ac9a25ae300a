// Real files no one here wrote: every readable file of the pydicom corpus, whatever its
// transfer syntax, equals itself.
#include "objdiff/ObjDiff.h"

#include "objdiff/tests/Capture.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

TEST(ObjectComparatorCorpus, EveryReadableFileEqualsItself)
{
    const std::vector<std::string> names = fixtures::listDir(fixtures::corpusDir());
    ASSERT_FALSE(names.empty());
    std::set<E_TransferSyntax> syntaxes;
    int compared = 0;
    for (const std::string& name : names)
    {
        const std::string path = fixtures::corpusFile(name);
        DcmFileFormat probe;
        Captured load = capture([&] { probe.loadFile(path.c_str()); });
        if (probe.getDataset() == NULL || probe.getDataset()->card() == 0 ||
            probe.getDataset()->getOriginalXfer() == EXS_Unknown)
            continue; // not DICOM, truncated or malformed: loading must only not crash
        IgnoreTags rules;
        ObjectComparator comparator(rules);
        bool equal = false;
        Captured c = capture([&] { equal = comparator.compareObjects(path.c_str(), NULL, path.c_str(), NULL, OC_MODE_BINARY); });
        if (c.err.find("Error loading") != std::string::npos)
            continue;
        EXPECT_TRUE(equal) << name << "\n" << c.out << c.err;
        EXPECT_EQ(c.out, "") << name;
        syntaxes.insert(probe.getDataset()->getOriginalXfer());
        ++compared;
    }
    EXPECT_GT(compared, 40);
    for (E_TransferSyntax xfer : {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit,
                                  EXS_DeflatedLittleEndianExplicit, EXS_JPEGProcess1, EXS_JPEGProcess2_4,
                                  EXS_JPEGProcess14SV1, EXS_JPEGLSLossless, EXS_JPEG2000LosslessOnly, EXS_JPEG2000,
                                  EXS_RLELossless})
        EXPECT_EQ(syntaxes.count(xfer), 1u) << DcmXfer(xfer).getXferName();
}
