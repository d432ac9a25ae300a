// Independent oracles for the decoded-frame comparison on real files: pairs made from pydicom
// corpus objects by independent encoders (gdcmconv, dcmcjpls, dcmcrle, dcmcjpeg) or by damaging
// a copy; the verdict of compareObjects, the peak-error measure against numpy over pydicom's
// pixel arrays of native copies made by independent decoders, and the lossless verdict against
// dcmicmp's maximum absolute error.
#include "objdiff/CompareImageData.h"
#include "objdiff/MemoryBlock.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ObjDiffProcess.h"

#include "dcmutils/codec/CodecRegistry.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace {

enum Making
{
    ENCODE,      // the encoder command, then its independent decoder for the native copy
    WRONG_BLOCK, // a native copy with 32 x 32 samples changed by 2048
    DROP_FRAME   // a native copy without its last frame
};

struct FramePair
{
    const char* source;
    Making making;
    // encoder and decoder command lines; "IN" and "OUT" stand for the files
    const char* encoder;
    const char* decoder;
    // what compareObjects writes on standard error ("" when equal)
    const char* err;
};

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
    // damaged copies
    {"CT_small.dcm", WRONG_BLOCK, "", "", DIFFERS},
    {"rtdose.dcm", DROP_FRAME, "", "", "! Difference in number of frames : 15 != 14\n"},
};

std::vector<std::string> commandLine(const std::string& pattern, const std::string& in, const std::string& out)
{
    std::vector<std::string> argv;
    std::istringstream words(pattern);
    std::string word;
    while (words >> word)
        argv.push_back(word == "IN" ? in : word == "OUT" ? out : word);
    argv[0] = "/usr/bin/" + argv[0];
    return argv;
}

bool runTool(const std::string& pattern, const std::string& in, const std::string& out)
{
    fixtures::RunResult r = fixtures::run(commandLine(pattern, in, out));
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
    dataset->loadAllDataIntoMemory();
    DcmElement* pixels = NULL;
    Uint16* words = NULL;
    if (dataset->findAndGetElement(DCM_PixelData, pixels).bad() || pixels->getUint16Array(words).bad())
        return false;
    change(dataset, pixels, words);
    return file.saveFile(out.c_str(), EXS_LittleEndianExplicit).good();
}

// dcmicmp's "Max Absolute Error" of two native files; -1 when it cannot be read.
double dcmicmpMaxError(const std::string& first, const std::string& second)
{
    fixtures::RunResult r = fixtures::run({"/usr/bin/dcmicmp", first, second});
    const std::string key = "Max Absolute Error";
    const size_t at = r.out.find(key);
    if (at == std::string::npos)
        return -1;
    return atof(r.out.c_str() + r.out.find('=', at) + 1);
}

struct Decoded { DcmFileFormat file; std::unique_ptr<ObjDiffProcess> process; MemoryBlock* frame1 = NULL; };

// Decodes a file's frames through the comparison's process.
bool decode(const std::string& path, Decoded& decoded)
{
    if (decoded.file.loadFile(path.c_str()).bad())
        return false;
    decoded.process.reset(new ObjDiffProcess(decoded.file.getDataset(), false));
    if (decoded.process->process() != 0 || decoded.process->getFrames().count(1) == 0)
        return false;
    decoded.frame1 = decoded.process->getFrames().at(1);
    return true;
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
        const std::string name = std::string(pair.source) + " / " + (pair.encoder[0] ? pair.encoder : "damaged");
        SCOPED_TRACE(name);
        const std::string id = std::to_string(index++);
        const std::string source = fixtures::corpusFile(pair.source);
        std::string first = source; // the native side
        const std::string second = dir.file(id + ".second");
        std::string secondNative = second;
        IgnoreTags rules;
        // what the encoders record about themselves
        for (const DcmTagKey& key : {DCM_ImageType, DCM_SOPInstanceUID, DCM_DerivationDescription,
                                     DCM_SourceImageSequence, DCM_DerivationCodeSequence,
                                     DCM_PhotometricInterpretation, DCM_SmallestImagePixelValue,
                                     DCM_LargestImagePixelValue})
            rules.tags.insert(key);

        if (pair.making == ENCODE)
        {
            if (DcmFileFormat probe; probe.loadFile(source.c_str()).good() &&
                                     DcmXfer(probe.getDataset()->getOriginalXfer()).isEncapsulated())
            {
                first = dir.file(id + ".first");
                ASSERT_TRUE(runTool(pair.decoder, source, first));
            }
            ASSERT_TRUE(runTool(pair.encoder, first, second));
            secondNative = dir.file(id + ".native");
            ASSERT_TRUE(runTool(pair.decoder, second, secondNative));
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
            rules.tags.insert(DCM_NumberOfFrames);
            ASSERT_TRUE(changedCopy(source, second, [](DcmDataset* dataset, DcmElement* pixels, Uint16* words) {
                const Uint32 frame = pixels->getLength() / 15;
                std::vector<Uint16> kept(words, words + 14 * frame / 2);
                pixels->putUint16Array(kept.data(), kept.size());
                dataset->putAndInsertString(DCM_NumberOfFrames, "14");
            }));
        }

        // the verdict
        {
            ObjectComparator comparator(rules);
            bool equal = false;
            fixtures::Captured c = fixtures::capture([&] { equal = comparator.compareObjects(first.c_str(), NULL, second.c_str(), NULL, OC_MODE_FRAMES); });
            EXPECT_EQ(equal, pair.err[0] == '\0');
            EXPECT_EQ(c.err, pair.err);
            EXPECT_EQ(c.out, pair.err == DIFFERS ? "! Pixel Data differs\n" : "");
            EXPECT_FALSE(comparator.hadTrouble());
        }
        if (pair.making == DROP_FRAME)
            continue;

        // the measure and the lossless verdict on the frames as the comparison decodes them
        CodecRegistry codecs;
        Decoded a, b;
        ASSERT_TRUE(decode(first, a));
        ASSERT_TRUE(decode(second, b));
        const bool wide = a.process->getBitsAllocated() > 8;
        ASSERT_EQ(a.frame1->getLength(), b.frame1->getLength());
        const unsigned int length = a.frame1->getLength();
        measures.push_back(wide ? compareImageData(reinterpret_cast<unsigned short*>(a.frame1->getData()),
                                                   reinterpret_cast<unsigned short*>(b.frame1->getData()), length / 2)
                                : compareImageData(reinterpret_cast<unsigned char*>(a.frame1->getData()),
                                                   reinterpret_cast<unsigned char*>(b.frame1->getData()), length));
        manifest << first << "\t" << secondNative << "\n";

        IgnoreTags none;
        ObjectComparator comparator(none);
        bool lossless = false;
        fixtures::capture([&] { lossless = comparator.compareMemoryBlocks(a.frame1, b.frame1, true, wide); });
        const double maxError = dcmicmpMaxError(first, secondNative);
        ASSERT_GE(maxError, 0);
        EXPECT_EQ(lossless, maxError == 0) << "dcmicmp max error " << maxError;
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
        else
            EXPECT_NEAR(measures[i], expected, 1e-9 * std::fabs(expected)) << i;
    }
}
