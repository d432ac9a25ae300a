// The date/time pairs found in a dataset, in the order their dates were met.
#include "datetime/DateTimeElementList.h"

#include "datetime/dtconv.h"

#include <cstring>
#include <ctime>

namespace kqtz {

DateTimeElementList::DateTimeElementList()
{
}

DateTimeElementList::~DateTimeElementList()
{
}

bool DateTimeElementList::addDate(DcmDate* date)
{
    if (!date)
        return false;
    unsigned short blockBase = 0;
    const DateTimeTagPair* keys = theDateTimeRegistry.findForDate(date->getTag(), blockBase);
    if (!keys)
        return false;
    m_pairs.emplace_back(new DateTimeElementPair(date, *keys, blockBase));
    return true;
}

bool DateTimeElementList::addTime(DcmTime* time)
{
    if (!time)
        return false;
    for (const auto& pair : m_pairs)
    {
        if (!pair->time() && pair->keys().time() == time->getTag())
        {
            pair->setTime(time);
            return true;
        }
    }
    return false;
}

void DateTimeElementList::clear()
{
    m_pairs.clear();
}

bool DateTimeElementList::convertOffsets(const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    for (const auto& pair : m_pairs)
    {
        if (!pair->convertOffset(fromZone, toZone, shiftSeconds))
            return false;
    }
    return true;
}

bool DateTimeElementList::calcUTCOffset(std::string& offset, long& seconds) const
{
    for (const auto& pair : m_pairs)
    {
        if (!pair->date() || !pair->time())
        {
            std::cerr << "date or time is NULL; skipping" << std::endl;
            continue;
        }
        OFDate date;
        OFCondition cond = pair->date()->getOFDate(date, 0);
        if (cond.bad())
        {
            std::cerr << "Getting OFDate failed (" << cond.text() << ")" << std::endl;
            return false;
        }
        OFTime time;
        cond = pair->time()->getOFTime(time, 0);
        if (cond.bad())
        {
            std::cerr << "Getting OFTime failed (" << cond.text() << ")" << std::endl;
            return false;
        }
        tm moment;
        memset(&moment, 0, sizeof(moment));
        moment.tm_year = int(date.getYear()) - 1900;
        moment.tm_mon = int(date.getMonth()) - 1;
        moment.tm_mday = int(date.getDay());
        moment.tm_hour = int(time.getHour());
        moment.tm_min = int(time.getMinute());
        moment.tm_sec = int(time.getIntSecond());
        moment.tm_isdst = -1;
        if (mktime(&moment) == time_t(-1))
        {
            std::cerr << "Making time failed" << std::endl;
            return false;
        }
        seconds = moment.tm_gmtoff;
        offset = secondsToDicomOffset(seconds);
        return true;
    }
    // No complete pair: the zone's offset at present.
    const time_t now = ::time(nullptr);
    tm moment;
    if (!localtime_r(&now, &moment))
    {
        std::cerr << "Making time failed" << std::endl;
        return false;
    }
    seconds = moment.tm_gmtoff;
    offset = secondsToDicomOffset(seconds);
    return true;
}

void DateTimeElementList::print(std::ostream& out) const
{
    out << "DateTimeElementList" << std::endl;
    for (const auto& pair : m_pairs)
    {
        out << " DateTimeElementPair" << std::endl;
        pair->print(out);
    }
}

} // namespace kqtz
