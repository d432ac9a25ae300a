// One run of applyChanges: the soft edit changes of one KqR file applied to one object or to
// every object of a study directory. Each object is changed in memory, written to a temporary
// file, verified against the original and only then renamed over it.
#ifndef APPLYCHANGES_SOFTEDITRUN_H
#define APPLYCHANGES_SOFTEDITRUN_H

#include "applychanges/BackgroundWorker.h"
#include "applychanges/EditedObject.h"
#include "applychanges/TemporaryDirectory.h"
#include "dcmutils/ChangeSetCharset.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <sys/stat.h>

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>

/// Process-wide: print progress and every modified key on standard output (-v).
extern bool verbose;

/** Applies a KqR file's changes to objects, as a pipeline that keeps every guarantee of doing
 *  them one after the other:
 *  - the main thread loads, edits and writes object i + 1 while the second core verifies object
 *    i (the time-zone conversion, which changes the process's TZ, stays on the main thread);
 *  - verified temporary files are made durable in batches (64 objects or 256 MiB), then renamed
 *    in walk order, then their directories are synced once per batch; no rename comes before its
 *    temporary file is on disk, so each object is at every instant its original or completely
 *    edited;
 *  - when object k fails, every earlier object is made durable and renamed, k and every later
 *    object stay byte-identical (later temporary files are removed), and the lines printed are
 *    those of a run that did one object after the other and stopped at k.
 *  With one core, verification runs on the main thread.
 */
class SoftEditRun
{
public:
    /** Borrows the KqR dataset (loaded whole; it outlives the run).
     *  @param changes the KqR file's dataset
     *  @param kqrPath its path, for messages and to recognise the file among the objects
     */
    SoftEditRun(DcmDataset& changes, const char* kqrPath);

    /** Refuses a change set that can only damage objects, before any object is touched.
     *  @return true when the changes may be applied; false after one line on standard error
     */
    bool checkChanges();

    /** The single-object flow (-o).
     *  @return the exit status: 0 when the object was edited, 1 otherwise
     */
    int applyToSingleObject(const char* objectName);

    /** The study-directory flow (-d): every object file of the directory in directory order; the
     *  first object that fails ends the run.
     *  @return the exit status: 0 when every object was edited, 1 otherwise
     */
    int applyToStudyDirectory(const char* studyDir);

private:
    SoftEditRun(const SoftEditRun&);
    SoftEditRun& operator=(const SoftEditRun&);

    /** Stage one, on the main thread: loads the object, applies the changes, writes the
     *  temporary file and starts its write-out. A DICOMDIR is skipped in a directory run and
     *  refused when named alone. */
    void applyToObject(EditedObject& object, bool inDirectory);

    /** Stage two: writes an object edited in memory to its temporary file and compares it.
     *  @return true when it was written and is equal to the original apart from its edits */
    bool writeAndCompare(EditedObject& object);

    /** Compares the original with the written object, ignoring what the edit changed,
     *  then checks what the comparison does not cover.
     *  @return true when the objects are equal apart from the ignored attributes */
    bool compareObjects(EditedObject& object);

    /** Takes an entry that went through stage one into the pipeline.
     *  @return false when the run has ended with a failure */
    bool submit(std::unique_ptr<EditedObject> object);

    /** Waits for the object in verification and settles it; false when it failed. */
    bool settleVerification();

    /** Makes the verified objects before stopAt (all of them for null) durable, renames them in
     *  walk order and syncs their directories; false when one of them failed. */
    bool commit(const EditedObject* stopAt);

    /** Ends the run at a failed entry: what came before it is committed, the reports up to it are
     *  written and every later entry is discarded. Returns false. */
    bool failAt(EditedObject* failed);

    /** Writes the reports of the settled entries at the front of the queue, in walk order. */
    void writeReports();

    /** Waits for the pipeline to empty, commits the rest and makes the replacements durable;
     *  false when something failed. */
    bool finish();

    /** Syncs every directory in which an object was put in place since the last time. */
    void syncReplacements();

    /** True when the file behind target is already on its way through the pipeline. */
    bool isPending(const ObjectTarget& target) const;

    /** The locked ".tmp" directory for a directory of objects, opened on first use; null after
     *  its one-line error on err. */
    TemporaryDirectory* temporaryDirectoryFor(const std::string& directory, std::ostream& err);

    DcmDataset& m_changes;
    std::string m_kqrPath;
    struct stat m_kqrStat;
    ChangeSetCharset m_charset;
    /// open ".tmp" directories by the real path of their object directory, and by the names
    /// they were asked for with
    std::map<std::string, std::unique_ptr<TemporaryDirectory>> m_temporaryDirectories;
    std::map<std::string, TemporaryDirectory*> m_temporaryDirectoryNames;
    /// entries not yet reported, in walk order
    std::deque<std::unique_ptr<EditedObject>> m_queue;
    /// the entry in verification, if any, and the second core that verifies it
    EditedObject* m_verifying;
    BackgroundWorker m_worker;
    /// verified objects waiting for the next commit, and their bytes
    unsigned long m_pendingObjects;
    unsigned long long m_pendingBytes;
    /// directories with replacements not yet synced
    std::set<TemporaryDirectory*> m_replacedIn;
    /// the object whose failure ended the run
    std::string m_failedPath;
};

#endif
