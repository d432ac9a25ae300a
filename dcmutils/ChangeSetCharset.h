// Brings the text values of a KqR change set to the character set of the object they are applied
// to, so that a value recorded in one Specific Character Set never lands as raw bytes in an object
// of another.
#ifndef DCMUTILS_CHANGESETCHARSET_H
#define DCMUTILS_CHANGESETCHARSET_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <map>
#include <memory>
#include <string>

/** Hands out the change dataset to apply to an object of a given character set: the KqR dataset
 *  itself when nothing needs converting, or a converted copy made once per character set and
 *  kept for the lifetime of this object.
 */
class ChangeSetCharset
{
public:
    /** Borrows the KqR dataset, which must outlive this object. */
    explicit ChangeSetCharset(DcmDataset& changes);

    /** The change dataset for an object whose Specific Character Set (0008,0005) is
     *  objectCharset (empty for the default repertoire).
     *  @param objectCharset the object's (0008,0005) value, all values, as read
     *  @param reason set to one line naming the attribute and the character sets on failure
     *  @return the dataset to apply (owned by this object or the caller's KqR dataset), or null
     *    when a value cannot be represented in the object's character set
     */
    DcmDataset* changesFor(const OFString& objectCharset, std::string& reason);

    /** The KqR file's own Specific Character Set, as read. */
    const OFString& sourceCharset() const { return m_source; }

private:
    DcmDataset& m_changes;
    /// the KqR dataset's Specific Character Set
    OFString m_source;
    /// true when some text value needs a character set beyond ASCII
    bool m_hasNonASCII;
    /// converted copies by destination character set
    std::map<std::string, std::unique_ptr<DcmDataset>> m_converted;
};

/** True when text holds only 7-bit characters and no escape (the default repertoire). */
bool isPlainASCII(const std::string& text);

/** True when text is well-formed UTF-8 (the character set "ISO_IR 192"). */
bool isValidUTF8(const std::string& text);

#endif
