// One entry of a run on its way from the directory walk to its report: the object, the file it
// was read from, its temporary file, what the edit changed, and the lines it has to print.
#ifndef APPLYCHANGES_EDITEDOBJECT_H
#define APPLYCHANGES_EDITEDOBJECT_H

#include "applychanges/FileIdentity.h"
#include "applychanges/ObjectReport.h"
#include "applychanges/TemporaryDirectory.h"
#include "dcmutils/InputFile.h"
#include "objdiff/IgnoreTags.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dctagkey.h"

#include <list>
#include <memory>
#include <string>

/** A plain record owned by the run, passed from step to step. Its report is written only when
 *  the entry is settled, in walk order, so that the output reads exactly as if the objects had
 *  been done one after the other.
 */
struct EditedObject
{
    /// where the entry stands
    enum STATE
    {
        /// skipped by the walk (a verbose "Skipping" line at most)
        EO_SKIPPED,
        /// failed or refused; its report says why
        EO_FAILED,
        /// loaded: its file, identity and temporary directory are set
        EO_LOADED,
        /// read and found unchanged by the edit: left as it is (a verbose line at most)
        EO_UNCHANGED,
        /// edited in memory; encoded, to be written to its temporary file
        EO_EDITED,
        /// written to its temporary file, to be verified
        EO_WRITTEN,
        /// verified, waiting to be made durable and put in place
        EO_VERIFIED,
        /// handed to the commit thread with its batch
        EO_COMMITTING,
        /// put in place of the original
        EO_COMMITTED
    };

    /** An entry for the object named path; entryName: its name in the walked directory (the
     *  base name for an object named alone); entryType: its d_type (DT_UNKNOWN when named). */
    EditedObject(const std::string& path, const std::string& entryName, unsigned char entryType);
    /** Closes the temporary file if it is still open. */
    ~EditedObject();

    /** Removes the temporary file of an entry that will not be put in place. */
    void discardTemporaryFile();
    /** Closes the temporary file, which stays. */
    void closeTemporaryFile();
    /** Ends the entry as failed, after "Refusing to edit <path>: reason" on its report. */
    void refuse(const std::string& reason);

    /// the object as named (every message uses it), its entry, and where it stands
    std::string m_path;
    std::string m_entryName;
    unsigned char m_entryType;
    STATE m_state;

    /// the file read: its directory and name there (a link's target), its bytes through the
    /// descriptor it was opened with, and its status then; the ".tmp" beside it (borrowed)
    ObjectDirectory* m_directory;
    std::string m_baseName;
    std::shared_ptr<InputFile> m_original;
    FileIdentity m_identity;
    TemporaryDirectory* m_temporaryDirectory;
    /// true when the object is read whole and encoded in memory (not too large)
    bool m_inMemory;

    /// the object as edited (until it is written), the object as read (a copy made before the
    /// edit, for the comparison) with the toolkit's lines about reading it, the keys the edit
    /// set, and the comparison's ignore rules made from them
    std::unique_ptr<DcmFileFormat> m_file;
    std::unique_ptr<DcmFileFormat> m_read;
    ObjectReport m_readLog;
    std::list<DcmTagKey> m_modified;
    IgnoreTags m_ignore;

    /// the temporary file: name, path for messages, descriptor while open (-1 otherwise), the
    /// encoded bytes of an object handled in memory (read by the writer and the verifier at
    /// once), and the bytes written
    std::string m_tempName;
    std::string m_tempPath;
    int m_tempFd;
    std::shared_ptr<InputFile> m_encoded;
    unsigned long long m_writtenSize;
    /// true when the temporary file stays although the entry failed (a save that failed)
    bool m_keepTemporaryFile;

    /// the tasks of the helper threads: their tickets (0: none) and what they found, which the
    /// main thread reads once it has waited for them; the verification's lines wait apart, since
    /// a failed write comes before them and makes them void
    unsigned long m_writeTicket;
    unsigned long m_verifyTicket;
    OFCondition m_writeResult;
    std::string m_writeRefusal;
    bool m_equal;
    ObjectReport m_verification;

    /// the entry's lines
    ObjectReport m_report;

private:
    EditedObject(const EditedObject&) = delete;
    EditedObject& operator=(const EditedObject&) = delete;
};

#endif
