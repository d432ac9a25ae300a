// The second step of an object: the soft edit applied in memory.
#ifndef APPLYCHANGES_OBJECTEDITOR_H
#define APPLYCHANGES_OBJECTEDITOR_H

#include "applychanges/EditedObject.h"
#include "dcmutils/ChangeSet.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

/** Applies the KqR file's changes to a loaded object, in the object's character set, and turns
 *  the keys it set into the verification's ignore rules (plus every group length). Counts what
 *  each series and instance item applied to, for the run's closing warnings.
 */
class ObjectEditor
{
public:
    /** Borrows the KqR dataset, which outlives the editor. */
    explicit ObjectEditor(DcmDataset& changes);

    /** Edits an EO_LOADED object: EO_EDITED when some value changed, EO_UNCHANGED when none
     *  did (a -v line says so), EO_FAILED after its lines. */
    void edit(EditedObject& object);

    /** The change set's series and instance items with the objects each applied to. */
    const std::vector<ChangeSet::Item>& items() const { return m_changeSet.items(); }

    /** The number of objects edit() was given. */
    unsigned long objectsSeen() const { return m_objectsSeen; }

private:
    ChangeSet m_changeSet;
    unsigned long m_objectsSeen;
};

#endif
