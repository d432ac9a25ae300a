#include "applychanges/BatchCommit.h"

#include <cerrno>
#include <cstring>
#include <set>

size_t BatchCommit::commit(const std::vector<EditedObject*>& batch)
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
            return 0;
        }

    size_t done = 0;
    for (; done < batch.size(); ++done)
    {
        EditedObject* object = batch[done];
        std::string why;
        const TemporaryDirectory::REPLACEMENT result =
            object->m_temporaryDirectory->replace(object->m_tempName, object->m_baseName, object->m_identity, why);
        if (result == TemporaryDirectory::RP_DONE)
            continue;
        if (result == TemporaryDirectory::RP_FAILED && why.empty())
        {
            object->m_report.err() << "Error moving modified file to it's final place for " << object->m_path
                                   << std::endl;
            object->discardTemporaryFile();
        }
        else
        {
            // nothing another process did is undone: its file stays where it put it
            if (result == TemporaryDirectory::RP_CHANGED)
                object->discardTemporaryFile();
            object->m_report.err() << "Refusing to edit " << object->m_path << ": it changed during the edit ("
                                   << why << ")" << std::endl;
        }
        break;
    }
    // the replacements on disk, then their originals removed
    for (TemporaryDirectory* directory : directories)
        directory->syncObjectDirectory();
    return done;
}
