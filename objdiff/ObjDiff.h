/** @file ObjDiff.h
 *  ObjectComparator: decides whether two DICOM objects are the same for verification,
 *  attribute by attribute and, where asked, by their pixel data.
 *
 *  Differences are reported as they are found: "! " lines on standard error for attributes
 *  that differ, "< " and "> " lines on standard output for attributes present in only the
 *  first or the second object; load errors on standard error; debug and trace lines on standard
 *  output when verbose is set. Every comparison goes on after a difference, so
 *  that all are reported; the result is true only when none was found. Nothing here throws.
 *
 *  Where the code lives: ObjDiff.cpp (loading, the attribute walk, element and binary
 *  comparison), ObjDiffPixel.cpp (stored pixel data, pixel sequences, frames), ElementText
 *  (the text form of values), ValueChunkReader (long values read piece by piece from their
 *  files).
 */
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

/// What compareObjects() compares.
enum OC_MODE
{
    /// the attributes, the pixel data compared as stored (binary)
    OC_MODE_BINARY = 0,
    /// the attributes without the pixel data, then the decoded frames (any value but 0)
    OC_MODE_FRAMES = 1
};

/** Compares two DICOM objects. The ignore rules are lent by the caller and must outlive the
 *  comparator; the compared datasets and elements are only read.
 */
class ObjectComparator
{
public:
    /** @param ignore the attributes to pass over; the comparator may add to its tag set (see
     *    compareObjects()), and the caller keeps owning it
     */
    explicit ObjectComparator(IgnoreTags& ignore);

    /// Deletes the codec registry if the frame comparison made one.
    ~ObjectComparator();

    /** Loads two objects, each with its optional KqR file applied (loadObjectAndKqR()), and
     *  compares them with the dataset form. The second object is not loaded when the first
     *  fails to load.
     *  @param kqr1 KqR file applied to file1 before the comparison, or null; likewise kqr2
     *  @return true when the objects are equal; false when they differ or a load failed
     */
    bool compareObjects(const char* file1, const char* kqr1, const char* file2, const char* kqr2, OC_MODE mode);

    /** Compares two datasets. With OC_MODE_FRAMES, a pair of which either was read in a lossy
     *  transfer syntax (isLossLess()) adds Lossy Image Compression (0028,2110), its Ratio
     *  (0028,2112) and Method (0028,2114) to the ignore rules' tag set; they stay there.
     *  @return true when equal; false when different, or a dataset is null
     */
    bool compareObjects(DcmDataset* first, DcmDataset* second, OC_MODE mode);

    /** Loads an object into file (values over 4096 bytes stay in the file until needed) and
     *  applies the soft edit of a KqR file to it with applyModifications(). Failures print
     *  "Error loading <path>(<condition>)", "Error reading ..." or "Error applying soft edit
     *  changes to <path> (<condition>)" on standard error.
     *  @param kqrPath the KqR file, or null for none; the file on disk is never changed
     *  @return true when loaded (and edited)
     */
    bool loadObjectAndKqR(DcmFileFormat& file, const char* objectPath, const char* kqrPath);

    /** Walks the top-level attributes of both datasets in tag order, reporting every
     *  attribute that differs or is present on one side only and is not ignored.
     *  @param comparePixelBinary compare Pixel Data (7FE0,0010) as stored; otherwise skip it
     *  @return true when no difference was found
     */
    bool compareDataset(DcmDataset* first, DcmDataset* second, bool comparePixelBinary);

    /** Compares two elements with the same tag: binary values with compareOBOW(), all others
     *  by their text form, exactly (an empty value's "Empty Value" matches an empty text).
     *  @return true when equal
     */
    bool compareElements(DcmElement* first, DcmElement* second);

    /** Compares two binary values: length, then VR (two unknown VRs count as equal), then the
     *  bytes, without a message of their own when only the bytes differ. Values still in their
     *  files are read piece by piece, never whole.
     *  @return true when equal
     */
    bool compareOBOW(DcmOtherByteOtherWord* first, DcmOtherByteOtherWord* second);

    /// True for the transfer syntaxes that keep every sample exactly (deflate counts as lossy).
    bool isLossLess(E_TransferSyntax xfer);

    /** Prints every attribute of an object (its KqR file applied) that is not ignored, except
     *  the pixel data, with DCMTK's print on standard output, then writes its image dumps: one
     *  4096-byte file per frame, prefix + ".dump.wavelet" for a single frame, else prefix +
     *  ".frame-" + number + ".dump.wavelet" (a file that cannot be created is skipped).
     *  @param prefix where the dumps go; null for none
     *  @return true when the object was loaded and every frame decoded (and dumped)
     */
    bool dumpObject(const char* objectPath, const char* kqrPath, const char* prefix);

    /// dumpObject() of a dataset in memory; the dataset is not changed.
    bool dumpObject(DcmDataset* dataset, const char* prefix);

    /** Compares stored pixel data: transfer syntaxes first; native data as binary values;
     *  encapsulated data only proves the second pixel sequence readable, since two encodings
     *  of the same frames may be fragmented differently (the decoded frames decide).
     *  @return true when equal
     */
    bool comparePixelDataElement(DcmPixelData* first, DcmPixelData* second);

    /** Compares two pixel sequences item by item, stopping at the first difference.
     *  @return true when every item is equal
     */
    bool comparePixelSequence(DcmPixelSequence* first, DcmPixelSequence* second);
    /** Compares two decoded frames: lossless, byte for byte; lossy, by the peak-error measure
     *  (over 16-bit samples when wide, else bytes), equal above 40. Blocks are borrowed. */
    bool compareMemoryBlocks(MemoryBlock* first, MemoryBlock* second, bool lossless, bool wide);
    /** With verbose: one line on the output with frame index's peak-error measure and largest
     *  absolute sample difference, whatever the verdict. */
    void reportFrame(int index, MemoryBlock* first, MemoryBlock* second, bool wide);
    /** Compares two image dump files (DumpImage) by size and peak-error measure; false when
     *  they differ or either cannot be read. */
    bool compareDumps(const char* file1, const char* file2);

    /** True once an operation failed for a reason other than a difference (a file that cannot
     *  be read, pixel data that cannot be decoded, a dump that cannot be written or read), so
     *  that a caller can tell "different" from "could not compare". */
    bool hadTrouble() const { return m_trouble; }

    /// Print the debug and trace lines (set by the caller after construction; false at first).
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
