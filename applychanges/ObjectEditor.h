// The second step of an object: the soft edit applied in memory.
#ifndef APPLYCHANGES_OBJECTEDITOR_H
#define APPLYCHANGES_OBJECTEDITOR_H

#include "applychanges/EditedObject.h"
#include "dcmutils/ChangeSetCharset.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

/** Applies the KqR file's changes to a loaded object, in the object's character set, and turns
 *  the keys it set into the verification's ignore rules (plus every group length).
 */
class ObjectEditor
{
public:
    /** Borrows the KqR dataset, which outlives the editor. */
    explicit ObjectEditor(DcmDataset& changes);

    /** Edits an EO_LOADED object: EO_EDITED on success, EO_FAILED after its lines. */
    void edit(EditedObject& object);

private:
    ChangeSetCharset m_charset;
};

#endif
