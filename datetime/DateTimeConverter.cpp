// Collection of the dates, times and date-times of a dataset.
#include "datetime/DateTimeConverter.h"

#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <cstdlib>

namespace kqtz {

namespace {

bool isBeyondOffsetTag(const DcmTagKey& tag)
{
    return tag.getGroup() > 0x0008 ||
           (tag.getGroup() == 0x0008 && tag.getElement() > DCM_TimezoneOffsetFromUTC.getElement());
}

} // namespace

DateTimeConverter::DateTimeConverter(DcmDataset* dataset)
  : m_dataset(dataset)
  , m_offsetFound(false)
  , m_stopped(false)
{
    const char* tz = getenv("TZ");
    if (tz)
        m_timeZone = tz;
}

DateTimeConverter::~DateTimeConverter()
{
    // an empty record, TZ unset or empty, removes TZ
    setTimeZone(m_timeZone.c_str());
}

bool DateTimeConverter::collectTimes(DcmItem* item, OFFSET_TAG_ACTION action)
{
    if (!item)
        return false;
    const unsigned long count = item->card();
    for (unsigned long i = 0; i < count; ++i)
    {
        DcmElement* element = item->getElement(i);
        if (!element)
            continue;
        const DcmTag& tag = element->getTag();
        const DcmEVR vr = element->getVR();
        if (vr == EVR_DA || vr == EVR_TM || vr == EVR_DT || vr == EVR_SQ)
        {
            if (action == OTA_OFFSET_FIRST && !m_offsetFound && isBeyondOffsetTag(tag))
            {
                m_stopped = true;
                return true;
            }
            if (vr == EVR_DA)
            {
                DcmDate* date = dynamic_cast<DcmDate*>(element);
                if (date)
                    m_dateTimes.addDate(date);
                else
                    std::cerr << "DcmDate Cast error" << std::endl;
            }
            else if (vr == EVR_TM)
            {
                DcmTime* time = dynamic_cast<DcmTime*>(element);
                if (time)
                    m_dateTimes.addTime(time);
                else
                    std::cerr << "DcmTime Cast error" << std::endl;
            }
            else if (vr == EVR_DT)
            {
                DcmDateTime* dateTime = dynamic_cast<DcmDateTime*>(element);
                if (dateTime)
                    m_timestamps.add(dateTime);
                else
                    std::cerr << "DcmDateTime Cast error" << std::endl;
            }
            else
            {
                DcmSequenceOfItems* sequence = dynamic_cast<DcmSequenceOfItems*>(element);
                if (sequence)
                {
                    const unsigned long items = sequence->card();
                    for (unsigned long j = 0; j < items; ++j)
                    {
                        if (!collectTimes(sequence->getItem(j), OTA_WALK_ALL))
                            return false;
                    }
                }
            }
        }
        else if (tag == DCM_TimezoneOffsetFromUTC)
        {
            OFString value;
            if (element->getOFStringArray(value, OFTrue).good())
            {
                m_offset = value.c_str();
                m_offsetFound = true;
                if (action == OTA_STOP_AT_OFFSET)
                {
                    m_stopped = true;
                    return true;
                }
            }
        }
    }
    return true;
}

void DateTimeConverter::printTimes()
{
    printTimes(m_dataset);
}

void DateTimeConverter::printTimes(DcmItem* item)
{
    if (!item)
        return;
    const unsigned long count = item->card();
    for (unsigned long i = 0; i < count; ++i)
    {
        DcmElement* element = item->getElement(i);
        if (!element)
            continue;
        const DcmEVR vr = element->getVR();
        if (vr == EVR_DA || vr == EVR_TM || vr == EVR_DT || element->getTag() == DCM_TimezoneOffsetFromUTC)
            element->print(std::cout);
        else if (vr == EVR_SQ)
        {
            DcmSequenceOfItems* sequence = dynamic_cast<DcmSequenceOfItems*>(element);
            if (!sequence)
                continue;
            const unsigned long items = sequence->card();
            for (unsigned long j = 0; j < items; ++j)
                printTimes(sequence->getItem(j));
        }
    }
}

void DateTimeConverter::resetCollection()
{
    m_dateTimes.clear();
    m_timestamps.clear();
    m_offset.clear();
    m_offsetFound = false;
    m_stopped = false;
}

std::string DateTimeConverter::zoneOfOffset(const std::string& offset) const
{
    std::string zone;
    if (!dicomOffsetToTimeZone(offset, zone))
        zone = m_timeZone;
    return zone;
}

} // namespace kqtz
