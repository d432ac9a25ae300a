#include "applychanges/EditedObject.h"

#include <unistd.h>

EditedObject::EditedObject(const std::string& path, const std::string& entryName, unsigned char entryType)
    : m_path(path)
    , m_entryName(entryName)
    , m_entryType(entryType)
    , m_state(EO_FAILED)
    , m_directory(nullptr)
    , m_temporaryDirectory(nullptr)
    , m_inMemory(false)
    , m_tempFd(-1)
    , m_writtenSize(0)
    , m_keepTemporaryFile(false)
    , m_writeTicket(0)
    , m_verifyTicket(0)
    , m_writeResult(EC_Normal)
    , m_equal(false)
{
}

EditedObject::~EditedObject()
{
    closeTemporaryFile();
}

void EditedObject::closeTemporaryFile()
{
    if (m_tempFd >= 0)
        close(m_tempFd);
    m_tempFd = -1;
}

void EditedObject::discardTemporaryFile()
{
    closeTemporaryFile();
    if (m_temporaryDirectory && !m_tempName.empty())
        m_temporaryDirectory->removeFile(m_tempName);
}

void EditedObject::refuse(const std::string& reason)
{
    m_report.err() << "Refusing to edit " << m_path << ": " << reason << std::endl;
    m_state = EO_FAILED;
}
