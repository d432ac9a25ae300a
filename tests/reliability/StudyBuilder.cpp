// The studies the reliability tests edit.
#include "tests/reliability/StudyBuilder.h"

#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <sys/stat.h>

namespace reliability {

std::vector<std::string> crashCorpusFiles()
{
    return {"CT_small.dcm", "MR_small_bigendian.dcm", "JPEG2000.dcm", "MR_small_RLE.dcm",
            "image_dfl.dcm", "test-SR.dcm",           "rtstruct.dcm",   "SC_rgb_jpeg_dcmtk.dcm"};
}

static std::string seriesOf(const std::string& path)
{
    DcmFileFormat file;
    const char* uid = nullptr;
    if (file.loadFile(path.c_str()).bad() || file.getDataset()->findAndGetString(DCM_SeriesInstanceUID, uid).bad() ||
        uid == nullptr)
        return "";
    return uid;
}

bool buildStudy(const StudyBuild& build, const std::string& directory, const std::string& kqrPath, Study& study)
{
    static const E_TransferSyntax syntaxes[] = {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit,
                                                EXS_BigEndianExplicit, EXS_DeflatedLittleEndianExplicit};
    mkdir(directory.c_str(), 0755);
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Edited^Patient");
    writer.setStudyAttribute(DCM_PatientID, "KQ-EDITED");
    writer.setStudyAttribute(DCM_StudyDescription, "Soft edited study");
    if (build.commentLength > 0)
    {
        // letters that do not compress away in a deflated object
        std::string comment(build.commentLength, ' ');
        unsigned int state = 12345u;
        for (char& c : comment)
        {
            state = state * 1103515245u + 12345u;
            c = char('a' + (state >> 16) % 26);
        }
        writer.setStudyAttribute(DCM_ImageComments, comment.c_str());
    }

    fixtures::ObjectSpec base;
    base.rows = build.rows;
    base.columns = 128;
    int n = 0;
    for (int s = 1; s <= build.series; ++s)
    {
        fixtures::ObjectSpec spec = base;
        spec.xfer = syntaxes[(s - 1) % 4];
        spec.seriesUID = base.studyUID + "." + std::to_string(s);
        writer.setSeriesAttribute(spec.seriesUID.c_str(), DCM_SeriesDescription,
                                  ("Edited series " + std::to_string(s)).c_str());
        for (int i = 1; i <= build.instancesPerSeries; ++i)
        {
            ++n;
            spec.sopInstanceUID = spec.seriesUID + "." + std::to_string(i);
            if (build.varyRows)
                spec.rows = Uint16(build.rows + 8 * n);
            const std::string name = "IM" + std::to_string(n);
            if (!fixtures::writeObject(directory + "/" + name, spec))
                return false;
            if (i % 3 == 1)
            {
                writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_InstanceNumber,
                                            std::to_string(100 + n).c_str());
                writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(),
                                            DCM_DerivationDescription, "edited instance");
            }
            if (!study.add(name, fixtures::readFile(directory + "/" + name)))
                return false;
        }
    }
    for (const std::string& file : build.corpusFiles)
    {
        const std::string name = "C_" + file;
        const std::string source = fixtures::corpusFile(file);
        if (!fixtures::writeFile(directory + "/" + name, fixtures::readFile(source)))
            return false;
        const std::string series = seriesOf(source);
        if (!series.empty())
            writer.setSeriesAttribute(series.c_str(), DCM_SeriesDescription, ("Corpus " + file).c_str());
        if (!study.add(name, fixtures::readFile(directory + "/" + name)))
            return false;
    }
    return writer.save(kqrPath.c_str()).good() && study.setKqR(kqrPath);
}

bool resetStudyDirectory(const Study& study, const std::string& directory)
{
    removeTree(directory);
    return mkdir(directory.c_str(), 0755) == 0 && study.writeTo(directory);
}

} // namespace reliability
