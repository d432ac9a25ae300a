// Compares two DICOM objects attribute by attribute and, where asked, by their pixel data.
#ifndef OBJDIFF_H
#define OBJDIFF_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcvrobow.h"

#include "objdiff/IgnoreTags.h"

#include <ostream>

class CodecRegistry;

// 0: attributes with a binary comparison of the pixel data; any other value: attributes
// without pixel data, then a comparison of the decoded frames.
enum OC_MODE
{
    OC_MODE_BINARY = 0,
    OC_MODE_FRAMES = 1
};

class ObjectComparator
{
public:
    explicit ObjectComparator(IgnoreTags& ignore);
    ~ObjectComparator();

    bool compareObjects(const char* file1, const char* kqr1, const char* file2, const char* kqr2, OC_MODE mode);
    bool compareObjects(DcmDataset* first, DcmDataset* second, OC_MODE mode);
    bool loadObjectAndKqR(DcmFileFormat& file, const char* objectPath, const char* kqrPath);
    bool compareDataset(DcmDataset* first, DcmDataset* second, bool comparePixelBinary);
    bool compareElements(DcmElement* first, DcmElement* second);
    bool compareOBOW(DcmOtherByteOtherWord* first, DcmOtherByteOtherWord* second);
    bool isLossLess(E_TransferSyntax xfer);
    bool dumpObject(const char* objectPath, const char* kqrPath, const char* prefix);
    bool dumpObject(DcmDataset* dataset, const char* prefix);

    bool comparePixelDataElement(DcmPixelData* first, DcmPixelData* second);
    bool comparePixelSequence(DcmPixelSequence* first, DcmPixelSequence* second);

    bool verbose;

    /** Sends the comparator's lines elsewhere than standard output (trace lines, "! Pixel Data
     *  differs", one-sided attributes) and standard error (differences, errors). The streams
     *  are borrowed and must outlive the comparator. */
    void setOutput(std::ostream& out, std::ostream& err)
    {
        m_out = &out;
        m_err = &err;
    }

private:
    bool isIgnored(const DcmTagKey& key) const;
    // compareOBOW, naming the attribute when only the bytes differ.
    bool compareFrames(DcmDataset* first, DcmDataset* second, bool lossless);

    IgnoreTags& m_ignore;
    CodecRegistry* m_registry;
    std::ostream* m_out;
    std::ostream* m_err;
};

#endif
