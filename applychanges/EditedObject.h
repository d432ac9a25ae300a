// One entry of a run on its way from the directory walk to its report: the object, its
// temporary file, what the edit changed, and the lines it has to print.
#ifndef APPLYCHANGES_EDITEDOBJECT_H
#define APPLYCHANGES_EDITEDOBJECT_H

#include "applychanges/ObjectTarget.h"
#include "applychanges/TemporaryDirectory.h"
#include "dcmutils/ByteBuffer.h"
#include "objdiff/IgnoreTags.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctagkey.h"

#include <list>
#include <sstream>
#include <string>

/** A plain record owned by the run. Its report (standard output and standard error lines) is
 *  written only when the entry is settled, in walk order, so that the output reads exactly as if
 *  the objects had been done one after the other.
 */
struct EditedObject
{
    /// where the entry stands
    enum STATE
    {
        /// skipped by the walk (a verbose "Skipping" line at most)
        EO_SKIPPED,
        /// failed; its report says why
        EO_FAILED,
        /// written to its temporary file, to be verified
        EO_WRITTEN,
        /// verified, waiting to be made durable and renamed
        EO_VERIFIED,
        /// renamed over the original
        EO_COMMITTED
    };

    /** An entry for the object at path (entryName: its name in the walked directory). */
    EditedObject(const std::string& path, const std::string& entryName);
    /** Closes the temporary file if it is still open. */
    ~EditedObject();

    /** Removes the temporary file of an entry that will not be committed. */
    void discardTemporaryFile();
    /** Closes the temporary file, which stays (a failed save's partial file, for inspection). */
    void closeTemporaryFile();

    ObjectTarget m_target;
    std::string m_entryName;
    STATE m_state;
    /// the object's file as it is read: through the directory opened at the start
    std::string m_filePath;
    /// the temporary file: its directory (borrowed from the run), name, path for messages, and
    /// descriptor while open (-1 otherwise)
    TemporaryDirectory* m_temporaryDirectory;
    std::string m_tempName;
    std::string m_tempPath;
    int m_fd;
    /// true when the temporary file stays although the object failed (a save that failed)
    bool m_keepTemporaryFile;
    /// bytes of the original file
    unsigned long long m_size;
    /// the keys the edit set, and the comparison's ignore rules made from them
    std::list<DcmTagKey> m_modified;
    IgnoreTags m_ignore;
    /// for objects handled in memory: the original's and the written file's bytes
    bool m_inMemory;
    ByteBuffer m_original;
    ByteBuffer m_written;
    /// the entry's lines for standard output and standard error
    std::ostringstream m_out;
    std::ostringstream m_err;

private:
    EditedObject(const EditedObject&);
    EditedObject& operator=(const EditedObject&);
};

#endif
