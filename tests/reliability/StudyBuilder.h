// The studies the reliability tests edit: generated objects of several transfer syntaxes and
// real objects of the pydicom corpus, with a KqR file that edits them at all three levels.
#ifndef STUDYBUILDER_H
#define STUDYBUILDER_H

#include "tests/reliability/ReliabilitySupport.h"

#include <string>
#include <vector>

namespace reliability {

struct StudyBuild
{
    int series = 4;              // generated series, one transfer syntax each
    int instancesPerSeries = 8;  // generated objects per series
    unsigned short rows = 128;   // of the generated images (16 bits, one sample)
    bool varyRows = false;       // rows grow by 8 with every object: objects of many sizes
    std::vector<std::string> corpusFiles; // real objects added as they are
    size_t commentLength = 0;    // > 0: a study-level Image Comments of that length (objects grow)
};

// The corpus objects of the crash test: several transfer syntaxes and kinds.
std::vector<std::string> crashCorpusFiles();

// Writes the objects into directory and the KqR file to kqrPath, and fills study with both.
bool buildStudy(const StudyBuild& build, const std::string& directory, const std::string& kqrPath, Study& study);

// Makes directory afresh (removing what was there) holding the study's original objects.
bool resetStudyDirectory(const Study& study, const std::string& directory);

} // namespace reliability

#endif
