#include "applychanges/EditedObject.h"

#include <fcntl.h>
#include <unistd.h>

EditedObject::EditedObject(const std::string& path, const std::string& entryName)
    : m_target(path), m_entryName(entryName), m_state(EO_FAILED), m_temporaryDirectory(nullptr), m_fd(-1), m_keepTemporaryFile(false), m_size(0), m_inMemory(false)
{
}

EditedObject::~EditedObject()
{
    if (m_fd >= 0)
        close(m_fd);
}

void EditedObject::closeTemporaryFile()
{
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
}

void EditedObject::discardTemporaryFile()
{
    closeTemporaryFile();
    if (m_temporaryDirectory && !m_tempName.empty())
        unlinkat(m_temporaryDirectory->fd(), m_tempName.c_str(), 0);
}
