// Brings the dates and times of a dataset from a given time zone to the local zone.
#include "datetime/TimeZoneToLocal.h"

#include "datetime/dtconv.h"

namespace kqtz {

TimeZoneToLocal::TimeZoneToLocal(DcmDataset* dataset)
  : DateTimeConverter(dataset)
{
}

bool TimeZoneToLocal::convert(const std::string& tz)
{
    if (tz.empty())
        return true;
    resetCollection();
    if (!collectTimes(m_dataset, OTA_STOP_AT_OFFSET))
        return false;
    std::string fromZone = tz;
    dicomOffsetToTimeZone(tz, fromZone);
    for (size_t i = 0; i < m_dateTimes.count(); ++i)
    {
        DateTimeElementPair* pair = m_dateTimes.pair(i);
        if (pair->date() && pair->time() &&
            !kqtz::convert(*pair->date(), *pair->time(), fromZone.c_str(), m_timeZone.c_str()))
            return false;
    }
    return m_timestamps.convertOffsets(fromZone.c_str(), m_timeZone.c_str(), nullptr);
}

} // namespace kqtz
