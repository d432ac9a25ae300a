// Decoded-frame comparison of pydicom corpus objects against copies made by independent encoders
// (gdcmconv, dcmcjpls, dcmcrle, dcmcjpeg) or damaged; the measure printed is checked against numpy.
#include "objdiff/ObjDiff.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace {

enum Making { ENCODE, WRONG_BLOCK, DROP_FRAME }; // DROP_FRAME: a native copy without its last frame

// encoder and decoder command lines ("IN" and "OUT" stand for the files); err: what compareObjects reports
struct FramePair { const char* source; Making making; const char *encoder, *decoder, *err; };

const char* const DIFFERS = "! Image frame 1 differs\n";

const FramePair PAIRS[] = {
    // lossless re-encodings: equal byte for byte
    {"CT_small.dcm", ENCODE, "gdcmconv --j2k IN OUT", "gdcmconv --raw IN OUT", ""},
    {"CT_small.dcm", ENCODE, "dcmcjpls IN OUT", "dcmdjpls IN OUT", ""},
    {"MR_small.dcm", ENCODE, "dcmcrle IN OUT", "dcmdrle IN OUT", ""},
    {"SC_rgb_jpeg_dcmd.dcm", ENCODE, "dcmcrle IN OUT", "dcmdrle IN OUT", ""},
    {"CT_small.dcm", ENCODE, "dcmcjpeg IN OUT", "dcmdjpeg IN OUT", ""},
    // lossy ones (rates 0.1 and 0.25, JPEG baseline and extended): equal by the measure
    {"CT_small.dcm", ENCODE, "gdcmconv --j2k --lossy -r 10 IN OUT", "gdcmconv --raw IN OUT", ""},
    {"CT_small.dcm", ENCODE, "gdcmconv --j2k --lossy -r 4 IN OUT", "gdcmconv --raw IN OUT", ""},
    {"SC_rgb_jpeg_dcmd.dcm", ENCODE, "dcmcjpeg +eb IN OUT", "dcmdjpeg IN OUT", ""},
    {"JPGExtended.dcm", ENCODE, "dcmcjpeg +ee IN OUT", "dcmdjpeg IN OUT", ""},
    // damaged copies: 32 x 32 samples changed by 2048; the last frame dropped
    {"CT_small.dcm", WRONG_BLOCK, "", "", DIFFERS},
    {"rtdose.dcm", DROP_FRAME, "", "", "! Difference in number of frames : 15 != 14\n"},
};

bool runTool(const std::string& pattern, const std::string& in, const std::string& out)
{
    std::vector<std::string> argv;
    std::istringstream words(pattern);
    for (std::string word; words >> word;)
        argv.push_back(word == "IN" ? in : word == "OUT" ? out : argv.empty() ? "/usr/bin/" + word : word);
    fixtures::RunResult r = fixtures::run(argv);
    EXPECT_EQ(r.status, 0) << pattern << ": " << r.err;
    return r.status == 0;
}

// A native copy of source with its pixel data changed by change (samples as 16-bit words).
template <typename Change>
bool changedCopy(const std::string& source, const std::string& out, Change change)
{
    DcmFileFormat file;
    if (file.loadFile(source.c_str()).bad())
        return false;
    DcmDataset* dataset = file.getDataset();
    DcmElement* pixels = NULL;
    Uint16* words = NULL;
    if (dataset->loadAllDataIntoMemory().bad() ||
        dataset->findAndGetElement(DCM_PixelData, pixels).bad() || pixels->getUint16Array(words).bad())
        return false;
    change(dataset, pixels, words);
    return file.saveFile(out.c_str(), EXS_LittleEndianExplicit).good();
}

} // namespace

TEST(FrameCorpus, IndependentEncodersDecodersAndMeasure)
{
    fixtures::TempDir dir;
    std::ofstream manifest(dir.file("manifest"));
    std::vector<double> measures;
    int index = 0;
    for (const FramePair& pair : PAIRS)
    {
        SCOPED_TRACE(std::string(pair.source) + " / " + (pair.encoder[0] ? pair.encoder : "damaged"));
        const std::string id = std::to_string(index++), source = fixtures::corpusFile(pair.source);
        const std::string second = dir.file(id + ".second");
        std::string first = source, secondNative = second; // the native sides
        IgnoreTags rules; // what the encoders record about themselves
        for (const DcmTagKey& key : {DCM_ImageType, DCM_SOPInstanceUID, DCM_DerivationDescription,
                                     DCM_SourceImageSequence, DCM_DerivationCodeSequence, DCM_PhotometricInterpretation,
                                     DCM_SmallestImagePixelValue, DCM_LargestImagePixelValue, DCM_NumberOfFrames})
            rules.tags.insert(key);
        if (pair.making == ENCODE)
        {
            if (DcmFileFormat probe; probe.loadFile(source.c_str()).good() &&
                                     DcmXfer(probe.getDataset()->getOriginalXfer()).isEncapsulated())
            {
                first = dir.file(id + ".first");
                ASSERT_TRUE(runTool(pair.decoder, source, first));
            }
            secondNative = dir.file(id + ".native");
            ASSERT_TRUE(runTool(pair.encoder, first, second) && runTool(pair.decoder, second, secondNative));
        }
        else if (pair.making == WRONG_BLOCK)
        {
            ASSERT_TRUE(changedCopy(source, second, [](DcmDataset* dataset, DcmElement*, Uint16* words) {
                Uint16 columns = 0;
                dataset->findAndGetUint16(DCM_Columns, columns);
                for (int y = 40; y < 72; ++y)
                    for (int x = 50; x < 82; ++x)
                        words[y * columns + x] ^= 0x0800;
            }));
        }
        else
        {
            ASSERT_TRUE(changedCopy(source, second, [](DcmDataset* dataset, DcmElement* pixels, Uint16* words) {
                std::vector<Uint16> kept(words, words + 14 * (pixels->getLength() / 15) / 2);
                pixels->putUint16Array(kept.data(), kept.size());
                dataset->putAndInsertString(DCM_NumberOfFrames, "14");
            }));
        }
        ObjectComparator comparator(rules);
        comparator.verbose = true; // prints the measure of each frame
        bool equal = false;
        fixtures::Captured c = fixtures::capture(
            [&] { equal = comparator.compareObjects(first.c_str(), NULL, second.c_str(), NULL, OC_MODE_FRAMES); });
        EXPECT_EQ(equal, pair.err[0] == '\0');
        EXPECT_EQ(c.err, pair.err);
        EXPECT_EQ(c.out.find("! Pixel Data differs\n") != std::string::npos, pair.err == DIFFERS);
        EXPECT_FALSE(comparator.hadTrouble());
        const size_t at = c.out.find("Frame 1: peak-error measure ");
        EXPECT_EQ(at == std::string::npos, pair.making == DROP_FRAME);
        if (at == std::string::npos)
            continue;
        measures.push_back(strtod(c.out.c_str() + at + 28, NULL));
        manifest << first << "\t" << secondNative << "\n";
    }
    manifest.close();
    const std::string command = "/usr/bin/python3 " KQ_OBJDIFF_TEST_DIR "/peak_error.py <" + dir.file("manifest") +
                                " >" + dir.file("measures");
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream lines(dir.file("measures"));
    for (size_t i = 0; i < measures.size(); ++i)
    {
        std::string text;
        ASSERT_TRUE(std::getline(lines, text)) << i;
        const double expected = strtod(text.c_str(), NULL);
        if (std::isinf(expected))
            EXPECT_TRUE(std::isinf(measures[i]) && measures[i] > 0) << i;
        else // printed with six digits
            EXPECT_NEAR(measures[i], expected, 1e-5 * std::fabs(expected)) << i;
    }
}
