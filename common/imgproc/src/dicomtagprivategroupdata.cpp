#include "common/imgproc/src/dicomtagprivategroupdata.h"
#include "common/imgproc/src/dicomtagparser2.h"

#include "dcmtk/dcmdata/dcelem.h"

#include <cstring>

SDicomTagParserPrivateGroupData::SDicomTagParserPrivateGroupData(unsigned short group, unsigned int groupCount,
                                                                 const char* creator)
  : SDicomTagParserGroupData(group, groupCount)
  , m_creator(creator)
{
}

void* SDicomTagParserPrivateGroupData::InitTag()
{
    return new SDicomTagParserPrivateGroupDataDynData();
}

void SDicomTagParserPrivateGroupData::ReleaseTagData(void* dynData)
{
    delete static_cast<SDicomTagParserPrivateGroupDataDynData*>(dynData);
}

bool SDicomTagParserPrivateGroupData::FilteredTag(unsigned int tag)
{
    return (tag & 0x10000) == 0;
}

bool SDicomTagParserPrivateGroupData::CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData)
{
    SDicomTagParserPrivateGroupDataDynData& cursor = *static_cast<SDicomTagParserPrivateGroupDataDynData*>(dynData);
    if ((tag & 0xFFFF0000u) != cursor.m_group)
    {
        resetCursor(cursor, tag);
        cursor.m_block = 0xFFFFFFFFu;
    }
    if ((tag & 0xFF00) != 0)
    {
        // a data element: dispatched by its offset once any creator of the group matched
        if (cursor.m_block == 0xFFFFFFFFu)
            return m_end > tag;
        return SDicomTagParserGroupData::CheckTag(tag & ~0xFF00u, parser, dynData);
    }
    // group length or a creator element
    DcmElement* element = parser ? dynamic_cast<DcmElement*>(parser->getCurrentObject()) : nullptr;
    if (element != nullptr)
    {
        char* value = nullptr;
        if (element->getString(value).good() && value != nullptr &&
            strcmp(value, m_creator) == 0)
            cursor.m_block = tag & 0xFF;
    }
    return true;
}
