// What a KqR file would do to a study, found by the steps of a run without writing anything.
#ifndef APPLYCHANGES_CHANGEPREVIEW_H
#define APPLYCHANGES_CHANGEPREVIEW_H

#include "applychanges/ObjectDirectories.h"
#include "applychanges/ObjectLoader.h"
#include "applychanges/ObjectRules.h"
#include "dcmutils/ChangeSet.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <sys/stat.h>

#include <string>
#include <vector>

/** One attribute an object would get, with its value before and after (UTF-8 text). */
struct PreviewChange
{
    /// "(gggg,eeee)" and the dictionary keyword (empty when it has none)
    std::string tag;
    std::string keyword;
    /// the value held (empty with existed false: none) and the one written
    bool existed = false;
    std::string before;
    std::string after;
};

/** One object of the walk and what a run would do to it. */
struct PreviewObject
{
    /// what a run would do
    enum STATE
    {
        /// edit it: changes lists what
        PO_CHANGES,
        /// leave it as it is: nothing would change
        PO_UNCHANGED,
        /// refuse it (reason: the run's line); a run stops here
        PO_REFUSED,
        /// fail on it (reason: the run's line, e.g. a load error); a run stops here
        PO_FAILED
    };
    std::string path;
    std::string sopInstanceUID;
    STATE state = PO_UNCHANGED;
    /// which levels of the change set matched: the study level (a change item), the series and
    /// instance items by their UIDs (empty: none)
    bool study = false;
    std::string series;
    std::string instance;
    std::vector<PreviewChange> changes;
    std::string reason;
};

/** The walk of a run (the same rules, loader and change set as applyChanges, in the same
 *  order) that writes nothing: no ".tmp", no temporary file, no lock. Objects are released as
 *  soon as they are looked at, so memory stays that of one object.
 */
class ChangePreview
{
public:
    /** Borrows the KqR dataset, which outlives the preview.
     *  @param kqrStatus the KqR file's status, to skip it among the objects as a run does */
    ChangePreview(DcmDataset& changes, const struct stat& kqrStatus);

    /** Checks the change set as a run does first.
     *  @return empty when a run would go on; otherwise its refusal (the attribute and why) */
    std::string changeSetRefusal();

    /** Looks at the object named alone (-o). */
    void previewObject(const char* path);

    /** Looks at every object of a study directory (-d) in the order a run takes them.
     *  @return false when the directory cannot be opened (nothing looked at) */
    bool previewStudyDirectory(const char* path);

    /** The objects looked at, in walk order (skipped entries are not listed). */
    const std::vector<PreviewObject>& objects() const { return m_objects; }

    /** The series and instance items with the objects each matched. */
    const std::vector<ChangeSet::Item>& items() const { return m_changeSet.items(); }

    /** The position in objects() of the first object a run would stop at, or -1. */
    long stopsAt() const { return m_stopsAt; }

private:
    /** Loads and edits one entry in memory, and records it. */
    void look(const std::string& path, const std::string& entryName, unsigned char entryType,
              ObjectDirectory& directory, bool inDirectory);

    DcmDataset& m_changes;
    ObjectRules m_rules;
    ObjectDirectories m_directories;
    ObjectLoader m_loader;
    ChangeSet m_changeSet;
    std::vector<PreviewObject> m_objects;
    long m_stopsAt;
};

#endif
