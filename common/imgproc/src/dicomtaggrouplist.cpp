#include "common/imgproc/src/dicomtaggrouplist.h"
#include "common/imgproc/src/dicomtagprivategroupdata.h"

#include <cstring>

SDicomTagGroupList::SDicomTagGroupList()
  : m_groups(nullptr)
{
    initFunction();
}

SDicomTagGroupList::~SDicomTagGroupList()
{
    ReleaseTags();
}

void SDicomTagGroupList::initFunction()
{
}

void SDicomTagGroupList::ReleaseTags()
{
    while (m_groups != nullptr)
    {
        SDicomTagParserGroupData* next = static_cast<SDicomTagParserGroupData*>(m_groups->m_next);
        delete m_groups;
        m_groups = next;
    }
}

void SDicomTagGroupList::addTag(const DcmTagKey& key, DicomTagHandler handler, const char* creator,
                                unsigned int flags)
{
    const unsigned short group = key.getGroup();
    const bool isPrivate = (group & 1) != 0;
    const unsigned short element = isPrivate ? (key.getElement() & 0xFF) : key.getElement();
    const unsigned int start = static_cast<unsigned int>(group) << 16;

    // the first node that does not start below the group, and the node before it
    SDicomTagParserGroupData* previous = nullptr;
    SDicomTagParserGroupData* node = m_groups;
    while (node != nullptr && node->m_start < start)
    {
        previous = node;
        node = static_cast<SDicomTagParserGroupData*>(node->m_next);
    }
    // only the first node of the group is compared with the creator
    const bool reuse = node != nullptr && node->m_start == start &&
                       (!isPrivate || (creator != nullptr &&
                                       strcmp(static_cast<SDicomTagParserPrivateGroupData*>(node)->m_creator, creator) == 0));
    if (!reuse)
    {
        SDicomTagParserGroupData* created = nullptr;
        if (isPrivate)
            created = new SDicomTagParserPrivateGroupData(group, flags >> 16, creator ? creator : "");
        else
            created = new SDicomTagParserGroupData(group, flags >> 16);
        created->m_next = node;
        if (previous != nullptr)
            previous->m_next = created;
        else
            m_groups = created;
        node = created;
    }
    node->addTag(dicomTagNumber(group, element), key, handler, nullptr, flags & 0xFFFF);
}
