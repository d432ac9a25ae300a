// One run of applyChanges: the soft edit changes of one KqR file applied to one object or to
// every object of a study directory. Each object is changed in memory, written to a temporary
// file, verified against the original and only then renamed over it.
#ifndef APPLYCHANGES_SOFTEDITRUN_H
#define APPLYCHANGES_SOFTEDITRUN_H

#include "applychanges/ObjectTarget.h"
#include "applychanges/TemporaryDirectory.h"
#include "dcmutils/ChangeSetCharset.h"
#include "objdiff/IgnoreTags.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <sys/stat.h>

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

/// Process-wide: print progress and every modified key on standard output (-v).
extern bool verbose;

/** Applies a KqR file's changes to objects. Every failure is reported on standard error as one
 *  line where it is first understood; the run's exit status comes from applyToSingleObject or
 *  applyToStudyDirectory.
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
    /// what became of one object
    enum OBJECT_RESULT
    {
        OR_REPLACED,
        OR_SKIPPED,
        OR_FAILED
    };

    /** Loads, edits, saves to the temporary file, verifies and replaces one object. In a
     *  directory run a DICOMDIR is skipped; named alone it is refused. */
    OBJECT_RESULT applyToObject(const ObjectTarget& target, const std::string& entryName, bool inDirectory);

    /** Compares the original with the written object, ignoring what the edit changed, then
     *  checks what the comparison does not cover.
     *  @return true when the objects are equal apart from the ignored attributes */
    bool compareObjects(const char* objectPath, const char* modifiedPath, IgnoreTags& ignore,
                        const std::list<DcmTagKey>& modified);

    /** The locked ".tmp" directory for a directory of objects, opened on first use; null after
     *  its one-line error. */
    TemporaryDirectory* temporaryDirectoryFor(const std::string& directory);

    /** Syncs every directory in which an object was replaced, so that the renames are durable. */
    void syncReplacements();

    DcmDataset& m_changes;
    std::string m_kqrPath;
    struct stat m_kqrStat;
    ChangeSetCharset m_charset;
    /// open ".tmp" directories by the real path of their object directory
    std::map<std::string, std::unique_ptr<TemporaryDirectory>> m_temporaryDirectories;
    /// directories with a rename not yet synced
    std::set<std::string> m_directoriesToSync;
};

#endif
