// Runs the built makeKqR program.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace fixtures;

namespace {

RunResult makeKqR(const std::vector<std::string>& args)
{
    return runBuilt("makeKqR", args);
}

std::string itemValue(DcmItem* item, const DcmTagKey& key)
{
    OFString v;
    return item && item->findAndGetOFString(key, v).good() ? v.c_str() : "<missing>";
}

} // namespace

TEST(MakeKqR, WritesAllThreeLevelsAndTheOffset)
{
    TempDir dir;
    const std::string out = dir.file("edit.kqr");
    RunResult r = makeKqR({"-z", "+0100", "-m", "(0010,0010)=Doe^Jane", "-m", "StudyDate=20200101",
                           "-m", "StudyTime=003000", "-S", "1.2.3",
                           "-m", "(0008,103e)=Head", "-I", "1.2.3.4", "-m", "InstanceNumber=7", "-T", "-m",
                           "PatientID=P9", out});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ("", r.out);

    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(out.c_str()).good());
    DcmDataset* ds = file.getDataset();
    EXPECT_EQ("1.2.999.0.1.7777777.4.55.1.0.1", itemValue(ds, DCM_SOPClassUID));
    EXPECT_EQ(0u, itemValue(ds, DCM_SOPInstanceUID).find("1.2.999.0.1.7777777.4.55.1.1.1."));
    EXPECT_EQ("+0100", itemValue(ds, DCM_TimezoneOffsetFromUTC));

    KQItem top(*ds);
    DcmItem* change = nullptr;
    ASSERT_TRUE(top.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, change, 0).good());
    EXPECT_EQ("Doe^Jane", itemValue(change, DCM_PatientName));
    EXPECT_EQ("P9", itemValue(change, DCM_PatientID));
    EXPECT_EQ("20200101", itemValue(change, DCM_StudyDate));
    KQItem study(*change);
    DcmItem* series = nullptr;
    ASSERT_TRUE(study.findAndGetKQSequenceItem(KQ_SERIES_SEQUENCE, series, 0).good());
    EXPECT_EQ("1.2.3", itemValue(series, DCM_SeriesInstanceUID));
    EXPECT_EQ("Head", itemValue(series, DCM_SeriesDescription));
    KQItem seriesBlock(*series);
    DcmItem* instance = nullptr;
    ASSERT_TRUE(seriesBlock.findAndGetKQSequenceItem(KQ_INSTANCE_SEQUENCE, instance, 0).good());
    EXPECT_EQ("1.2.3.4", itemValue(instance, DCM_SOPInstanceUID));
    EXPECT_EQ("7", itemValue(instance, DCM_InstanceNumber));

    // non-ASCII values are recorded in UTF-8; with -z, a time without its date is only warned about
    r = makeKqR({"-z", "+0100", "-m", "PatientName=M\xc3\xbcller", "-m", "StudyTime=120000", out});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("makeKqR: warning: (0008,0030) StudyTime is given without (0008,0020) StudyDate: it is not "
              "converted to each object's offset\n",
              r.err);
    EXPECT_EQ("ISO_IR 192", attribute(out, DCM_SpecificCharacterSet));

    // negative offsets are values, not options; -q keeps the warning quiet
    r = makeKqR({"-q", "-z", "-0500", "-m", "StudyTime=120000", out});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out + r.err);
    EXPECT_EQ("-0500", attribute(out, DCM_TimezoneOffsetFromUTC));
}

TEST(MakeKqR, BadArgumentsGiveOneLineAndNoFile)
{
    TempDir dir;
    const std::string out = dir.file("edit.kqr");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-m", "(0010,0010)", out}, "makeKqR: invalid attribute assignment (expected \"(gggg,eeee)=value\"): (0010,0010)\n"},
        {{"-m", "(00x0,0010)=A", out}, "makeKqR: invalid attribute assignment (expected \"(gggg,eeee)=value\"): (00x0,0010)=A\n"},
        {{"-m", "NoSuchKeyword=A", out}, "makeKqR: invalid attribute assignment (expected \"(gggg,eeee)=value\"): NoSuchKeyword=A\n"},
        {{"-m", "(0009,1001)=A", out}, "makeKqR: attribute not in the data dictionary: (0009,1001)\n"},
        {{"-m", "(0008,1115)=A", out}, "makeKqR: sequence attributes cannot be set: (0008,1115)\n"},
        {{"-z", "0100", out}, "makeKqR: invalid Timezone Offset From UTC (expected +HHMM or -HHMM): 0100\n"},
        {{"-z", "+0175", out}, "makeKqR: invalid Timezone Offset From UTC (expected +HHMM or -HHMM): +0175\n"},
        {{"-I", "1.2", out}, "makeKqR: -I 1.2 needs a series selected with -S before it\n"},
        {{"-y", out}, "makeKqR: unknown option -y (see makeKqR -h)\n"},
        {{out, "-m"}, "makeKqR: option -m needs an argument (see makeKqR -h)\n"},
        {{"-m", "PatientName=A"}, "makeKqR: missing parameter kqrfile-out (see makeKqR -h)\n"},
        {{out, "extra"}, "makeKqR: unexpected parameter extra (see makeKqR -h)\n"},
        {{dir.file("no/such/dir/x.kqr")}, ""},
        // change sets that could only damage objects, and values their VR does not allow
        {{"-m", "(0002,0010)=1.2.840.10008.1.2", out},
         "makeKqR: (0002,0010) TransferSyntaxUID: file meta information cannot be changed by a soft edit\n"},
        {{"-m", "(0009,0010)=ACME", out}, "makeKqR: (0009,0010) PrivateCreator: private creator elements cannot be "
                                          "set (the KqR file's private blocks are its own)\n"},
        {{"-m", "StudyDate=2020-01-01", out},
         "makeKqR: (0008,0020) StudyDate: \"2020-01-01\" is not a valid DA value (Value Representation violated)\n"},
        {{"-m", "StudyTime=25", out},
         "makeKqR: (0008,0030) StudyTime: \"25\" is not a valid TM value (Value Representation violated)\n"},
        {{"-m", "InstanceNumber=7a", out},
         "makeKqR: (0020,0013) InstanceNumber: \"7a\" is not a valid IS value (Value Representation violated)\n"},
        {{"-m", "StationName=ABCDEFGHIJKLMNOPQ", out}, "makeKqR: (0008,1010) StationName: \"ABCDEFGHIJKLMNOPQ\" is "
                                                        "longer than a SH value may be (16 characters)\n"},
        {{"-m", "PatientName=M\xfcller", out},
         "makeKqR: the value of (0010,0010) PatientName is neither plain ASCII nor UTF-8\n"},
        {{"-m", "BitsStored=12", out}, "makeKqR: (0028,0101) BitsStored: describes the stored pixel data, which a "
                                       "soft edit leaves as it is (they would no longer match)\n"},
        {{"-m", "SeriesInstanceUID=1.2", out},
         "makeKqR: (0020,000e) SeriesInstanceUID: can be changed at series or instance level only (it would merge "
         "every series of the study into one)\n"},
        {{"-S", "1.2", "-m", "SeriesInstanceUID=1.3", out},
         "makeKqR: (0020,000e) SeriesInstanceUID: is the key this level's item is matched by (changed, the item "
         "would match no object)\n"},
        {{"-S", "1.2", "-I", "1.2.3", "-m", "SOPInstanceUID=1.2.4", out},
         "makeKqR: (0008,0018) SOPInstanceUID: is the key this level's item is matched by (changed, the item would "
         "match no object)\n"},
        {{"-m", "PatientName=" + std::string(65, 'A'), out},
         "makeKqR: (0010,0010) PatientName: \"" + std::string(65, 'A') +
             "\" has a name component group longer than a PN value's may be (64 characters)\n"},
        {{"-m", "Modality=CT\\MR", out},
         "makeKqR: (0008,0060) Modality: \"CT\\MR\" has 2 values, more than the data dictionary allows (1)\n"},
    };
    for (const auto& c : cases)
    {
        RunResult r = makeKqR(c.first);
        EXPECT_EQ(1, r.status) << c.second;
        if (!c.second.empty())
            EXPECT_EQ(c.second, r.err);
        else
            EXPECT_EQ(0u, r.err.find("makeKqR: cannot write " + dir.file("no/such/dir/x.kqr") + ": ")) << r.err;
        EXPECT_EQ(std::string::npos, r.err.find('\n', r.err.find('\n') + 1)) << "more than one line: " << r.err;
        EXPECT_TRUE(listDir(dir.path()).empty());
    }
}
