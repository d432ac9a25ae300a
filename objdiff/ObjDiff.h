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
class MemoryBlock;

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
    /** Compares two decoded frames: lossless, byte for byte; lossy, by the peak-error measure
     *  (over 16-bit samples when wide, else bytes), equal above 40. Blocks are borrowed. */
    bool compareMemoryBlocks(MemoryBlock* first, MemoryBlock* second, bool lossless, bool wide);
    /** Compares two image dump files (DumpImage) by size and peak-error measure; false when
     *  they differ or either cannot be read. */
    bool compareDumps(const char* file1, const char* file2);

    /** True once an operation failed for a reason other than a difference (a file that cannot
     *  be read, pixel data that cannot be decoded, a dump that cannot be written or read), so
     *  that a caller can tell "different" from "could not compare". */
    bool hadTrouble() const { return m_trouble; }

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
    // The error stream, after noting that the comparison could not be carried out.
    std::ostream& trouble();
    // Both forms of compareObjects; inPlace: the datasets are the comparator's own and may be
    // changed by the image pipeline (else it works on copies).
    bool compareLoaded(DcmDataset* first, DcmDataset* second, OC_MODE mode, bool inPlace);
    bool dumpLoaded(DcmDataset* dataset, const char* prefix, bool inPlace);
    // The image dumps of dumpObject, one per frame.
    bool dumpImages(DcmDataset* dataset, const char* prefix, bool inPlace);
    // The decoded frames of both datasets, which the image pipeline changes.
    bool compareFrames(DcmDataset* first, DcmDataset* second, bool lossless);
    // Decoders for the image pipeline, registered on first need.
    void registerCodecs();

    IgnoreTags& m_ignore;
    CodecRegistry* m_registry;
    std::ostream* m_out;
    std::ostream* m_err;
    bool m_trouble;
};

#endif
