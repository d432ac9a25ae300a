// The common base of every node of the tag handler registry (group nodes and handler leaves).
#ifndef DICOMTAGPARSERDATA_H
#define DICOMTAGPARSERDATA_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctagkey.h"

class IDicomTagParser2;

/// A tag handler: called with the walker, whose current element is the one that matched.
typedef void (*DicomTagHandler)(IDicomTagParser2* parser);

/// Key of a tag as one 32-bit number: group in the high half, element in the low half.
inline unsigned int dicomTagNumber(unsigned short group, unsigned short element)
{
    return (static_cast<unsigned int>(group) << 16) | element;
}

/** A registry node covering the half-open key range [m_start, m_end). Nodes of one list are
 *  linked through m_next; the list that holds a node owns it. */
class IDicomTagParserData
{
public:
    /// Range start, range end (exclusive); the key is (FFFF,FFFF) until set.
    IDicomTagParserData();
    /// Does not delete m_next: the owning list deletes its nodes.
    virtual ~IDicomTagParserData();

    /** Dispatches one tag. dynData is the cursor that InitTag() returned for this walk (null
     *  for leaves). Returns false when the node has nothing more to do in this walk. */
    virtual bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) = 0;
    /// A fresh per-walk cursor, owned by the caller until ReleaseTagData(); null for leaves.
    virtual void* InitTag() = 0;
    /// Deletes a cursor made by InitTag() (null allowed).
    virtual void ReleaseTagData(void* dynData) = 0;

    /// First key of the range.
    unsigned int m_start;
    /// The tag exactly as registered (leaves), (FFFF,FFFF) otherwise.
    DcmTagKey m_key;
    /// First key after the range.
    unsigned int m_end;
    /// The following node of the same list, or null.
    IDicomTagParserData* m_next;

private:
    IDicomTagParserData(const IDicomTagParserData&);
    IDicomTagParserData& operator=(const IDicomTagParserData&);
};

#endif
