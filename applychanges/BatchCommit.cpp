#include "applychanges/BatchCommit.h"

#include <cerrno>
#include <cstring>
#include <set>

EditedObject* BatchCommit::commit(const std::vector<EditedObject*>& batch)
{
    std::set<TemporaryDirectory*> directories;
    for (EditedObject* object : batch)
        directories.insert(object->m_temporaryDirectory);
    // every temporary file of the batch on disk before the first replacement
    for (TemporaryDirectory* directory : directories)
        if (!directory->syncFileSystem())
        {
            EditedObject* failed = batch.front();
            failed->m_report.err() << "Error saving to temp file " << failed->m_tempPath << " [" << strerror(errno)
                                   << "]" << std::endl;
            failed->discardTemporaryFile();
            failed->m_state = EditedObject::EO_FAILED;
            return failed;
        }

    EditedObject* failed = nullptr;
    for (EditedObject* object : batch)
    {
        std::string why;
        const TemporaryDirectory::REPLACEMENT result =
            object->m_temporaryDirectory->replace(object->m_tempName, object->m_baseName, object->m_identity, why);
        if (result == TemporaryDirectory::RP_DONE)
        {
            object->m_state = EditedObject::EO_COMMITTED;
            continue;
        }
        if (result == TemporaryDirectory::RP_FAILED && why.empty())
        {
            object->m_report.err() << "Error moving modified file to it's final place for " << object->m_path
                                   << std::endl;
            object->discardTemporaryFile();
            object->m_state = EditedObject::EO_FAILED;
        }
        else
        {
            // nothing another process did is undone: its file stays where it put it
            if (result == TemporaryDirectory::RP_CHANGED)
                object->discardTemporaryFile();
            object->refuse("it changed during the edit (" + why + ")");
        }
        failed = object;
        break;
    }
    for (TemporaryDirectory* directory : directories)
        directory->syncObjectDirectory();
    return failed;
}
