// A walk over the encoded elements of a DICOM file, without recursion and without loading any
// value, that finds the shapes the toolkit's parser cannot survive before it is given the file.
#ifndef DCMUTILS_DICOMSTREAMSCAN_H
#define DCMUTILS_DICOMSTREAMSCAN_H

#include "dcmutils/InputFile.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

/// Sequences nested deeper than DicomStreamScan::MAX_DEPTH.
extern const OFConditionConst EC_NestingTooDeep;
/// A deflated data set that inflates far beyond its file (a decompression bomb).
extern const OFConditionConst EC_DeflateBomb;

/** Scans a DICOM file (preamble and meta header, then the data set in its transfer syntax,
 *  inflated when deflated) element by element with an explicit stack: sequences, items and
 *  encapsulated fragments are followed, values are skipped. The toolkit's reader recurses once
 *  per nesting level and overflows the stack on a file of a few hundred KB nested thousands of
 *  levels deep; a deflated data set is inflated whole into memory. Both are refused here first.
 *  Anything else that looks wrong ends the scan without a verdict: the toolkit's own reading
 *  reports it in its words.
 */
class DicomStreamScan
{
public:
    /// Deepest nesting of sequences accepted: far beyond what real objects use (a handful).
    static constexpr unsigned MAX_DEPTH = 256;
    /// A deflated data set may inflate to this many times its compressed size...
    static constexpr unsigned long long MAX_INFLATE_RATIO = 100;
    /// ...or to this size, whichever is larger.
    static constexpr unsigned long long MAX_INFLATE_FLOOR = 256ull << 20;

    /** Scans file from its start.
     *  @return EC_Normal when nothing the toolkit could not survive was found (also when the
     *    scan stopped at bytes it could not follow); EC_NestingTooDeep or EC_DeflateBomb */
    OFCondition scan(const InputFile& file);

    /** The size of the data set once inflated (deflated files; 0 otherwise), as far as scanned. */
    unsigned long long inflatedSize() const { return m_inflatedSize; }

    /** The deepest nesting of sequences met. */
    unsigned depth() const { return m_depth; }

private:
    unsigned long long m_inflatedSize = 0;
    unsigned m_depth = 0;
};

/** Scans the file at path with DicomStreamScan (opened read-only, not following a final link is
 *  not asked: the caller's own open decides that).
 *  @return DicomStreamScan::scan()'s condition; EC_Normal when the file cannot be opened (the
 *    caller's load reports that) */
OFCondition scanDicomFile(const char* path);

#endif
