#include "applychanges/ObjectEditor.h"

#include "applychanges/SoftEditRun.h"

ObjectEditor::ObjectEditor(DcmDataset& changes) : m_changeSet(changes), m_objectsSeen(0) {}

void ObjectEditor::edit(EditedObject& object)
{
    object.m_state = EditedObject::EO_FAILED;
    ++m_objectsSeen;
    SoftEditOutcome outcome;
    std::string refusal;
    const OFCondition cond = m_changeSet.apply(*object.m_file->getDataset(), outcome, refusal);
    if (!refusal.empty())
        return object.refuse(refusal);
    if (cond.bad())
    {
        object.m_report.err() << "Error applying soft edit changes to " << object.m_path << " [" << cond.text()
                              << "]" << std::endl;
        return;
    }
    if (!outcome.changed())
    {
        // rewriting it would change nothing but its encoding: it stays byte for byte as it is
        if (verbose)
            object.m_report.out() << "No attribute of " << object.m_path << " changes: it is left as it is"
                                  << std::endl;
        object.m_state = EditedObject::EO_UNCHANGED;
        object.m_file.reset();
        object.m_read.reset();
        object.m_original.reset();
        return;
    }
    object.m_modified = std::move(outcome.modified);
    for (const DcmTagKey& key : object.m_modified)
    {
        if (verbose)
            object.m_report.out() << "   Modified key: " << key << std::endl;
        object.m_ignore.tags.insert(key);
    }
    object.m_ignore.patterns.insert("....0000");
    object.m_state = EditedObject::EO_EDITED;
}
