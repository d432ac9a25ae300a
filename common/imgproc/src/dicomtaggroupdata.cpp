#include "common/imgproc/src/dicomtaggroupdata.h"
#include "common/imgproc/src/dicomtagparserdata2.h"

namespace {

const unsigned int NO_RANGE = 0xFFFFFFFFu;

} // namespace

SDicomTagParserGroupData::SDicomTagParserGroupData(unsigned short group, unsigned int groupCount)
  : m_entries(nullptr)
{
    m_start = static_cast<unsigned int>(group) << 16;
    m_end = (static_cast<unsigned int>(group) + groupCount) << 16;
}

SDicomTagParserGroupData::~SDicomTagParserGroupData()
{
    removeAllTags();
}

void SDicomTagParserGroupData::addTag(unsigned int key, const DcmTagKey& tag, DicomTagHandler handler,
                                      const char* /* name */, unsigned int count)
{
    SDicomTagParserData2* leaf = new SDicomTagParserData2(key & 0xFFFF, count, tag, handler);
    if (m_entries == nullptr || m_entries->m_start > leaf->m_start)
    {
        leaf->m_next = m_entries;
        m_entries = leaf;
        return;
    }
    SDicomTagParserData2* at = m_entries;
    while (at->m_next != nullptr && at->m_next->m_start <= leaf->m_start)
        at = static_cast<SDicomTagParserData2*>(at->m_next);
    leaf->m_next = at->m_next;
    at->m_next = leaf;
}

void SDicomTagParserGroupData::removeAllTags()
{
    while (m_entries != nullptr)
    {
        SDicomTagParserData2* next = static_cast<SDicomTagParserData2*>(m_entries->m_next);
        delete m_entries;
        m_entries = next;
    }
}

void* SDicomTagParserGroupData::InitTag()
{
    return new SDicomTagParserGroupDataDynData();
}

void SDicomTagParserGroupData::ReleaseTagData(void* dynData)
{
    delete static_cast<SDicomTagParserGroupDataDynData*>(dynData);
}

bool SDicomTagParserGroupData::FilteredTag(unsigned int tag)
{
    return (tag & 0x10000) != 0;
}

bool SDicomTagParserGroupData::moreGroups(unsigned int tag) const
{
    return (tag & 0xFFFF0000u) < m_end - 0x10000;
}

void SDicomTagParserGroupData::resetCursor(SDicomTagParserGroupDataDynData& cursor, unsigned int tag)
{
    cursor.m_current = m_entries;
    cursor.m_active = nullptr;
    cursor.m_group = tag & 0xFFFF0000u;
    cursor.m_currentStart = m_entries ? m_entries->m_start : NO_RANGE;
    cursor.m_currentEnd = m_entries ? m_entries->m_end : NO_RANGE;
}

bool SDicomTagParserGroupData::CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData)
{
    SDicomTagParserGroupDataDynData& cursor = *static_cast<SDicomTagParserGroupDataDynData*>(dynData);
    if ((tag & 0xFFFF0000u) != cursor.m_group)
    {
        if (m_end <= tag)
            return false;
        resetCursor(cursor, tag);
    }
    else if (cursor.m_current == nullptr)
        return moreGroups(tag);
    return scanEntries(tag, parser, cursor);
}

bool SDicomTagParserGroupData::scanEntries(unsigned int tag, IDicomTagParser2* parser,
                                              SDicomTagParserGroupDataDynData& cursor)
{
    if (FilteredTag(tag))
        return true;
    const unsigned int element = tag & 0xFFFF;
    if (cursor.m_currentStart <= element)
    {
        // scan the entries up to this element; each one that covers it is called
        for (;;)
        {
            SDicomTagParserData2* entry = cursor.m_current;
            if (cursor.m_currentEnd > element)
            {
                cursor.m_active = entry;
                if (!entry->CheckTag(element, parser, nullptr))
                    cursor.m_active = nullptr;
            }
            cursor.m_current = static_cast<SDicomTagParserData2*>(entry->m_next);
            if (cursor.m_current != nullptr)
            {
                cursor.m_currentStart = cursor.m_current->m_start;
                cursor.m_currentEnd = cursor.m_current->m_end;
                if (cursor.m_currentStart > element)
                    break;
            }
            else
            {
                if (cursor.m_active == nullptr)
                    return moreGroups(tag);
                cursor.m_currentStart = NO_RANGE;
                cursor.m_currentEnd = NO_RANGE;
                break;
            }
        }
    }
    if (cursor.m_active == nullptr)
        return true;
    // an entry whose range is still open (called again for the first element of its range)
    if (cursor.m_active->CheckTag(element, parser, nullptr))
        return true;
    cursor.m_active = nullptr;
    return cursor.m_current != nullptr || moreGroups(tag);
}
