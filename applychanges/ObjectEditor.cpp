#include "applychanges/ObjectEditor.h"

#include "applychanges/SoftEditRun.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dcdeftag.h"

ObjectEditor::ObjectEditor(DcmDataset& changes) : m_charset(changes) {}

void ObjectEditor::edit(EditedObject& object)
{
    object.m_state = EditedObject::EO_FAILED;
    DcmDataset& dataset = *object.m_file->getDataset();
    OFString objectCharset;
    dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, objectCharset, OFFalse);
    std::string reason;
    DcmDataset* changes = m_charset.changesFor(objectCharset, reason);
    if (!changes)
        return object.refuse(reason);

    const OFCondition cond = applyModifications(dataset, *changes, &object.m_modified);
    if (cond.bad())
    {
        object.m_report.err() << "Error applying soft edit changes to " << object.m_path << " [" << cond.text()
                              << "]" << std::endl;
        return;
    }
    for (const DcmTagKey& key : object.m_modified)
    {
        if (verbose)
            object.m_report.out() << "   Modified key: " << key << std::endl;
        object.m_ignore.tags.insert(key);
    }
    object.m_ignore.patterns.insert("....0000");
    object.m_state = EditedObject::EO_EDITED;
}
