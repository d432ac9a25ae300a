// Gives a dataset without Timezone Offset From UTC the offset of a named time zone.
#include "datetime/TimeZoneFiller.h"

#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dcdeftag.h"

namespace kqtz {

TimeZoneFiller::TimeZoneFiller(DcmDataset* dataset, const char* tz)
  : DateTimeConverter(dataset)
  , m_zoneName(tz ? tz : "")
  , m_utcSeconds(0)
{
}

bool TimeZoneFiller::fillTimeZone()
{
    setTimeZone(m_zoneName.c_str());
    resetCollection();
    if (!collectTimes(m_dataset, OTA_STOP_AT_OFFSET))
        return false;
    // the walk stops only at a (0008,0201) of the dataset itself
    if (m_stopped)
        return true;
    if (!m_dateTimes.calcUTCOffset(m_utcOffset, m_utcSeconds))
        return false;
    if (!adjustTimes())
        return false;
    const OFCondition cond = m_dataset->putAndInsertString(DCM_TimezoneOffsetFromUTC, m_utcOffset.c_str(), OFTrue);
    if (cond.bad())
        return false;
    m_offset = m_utcOffset;
    return true;
}

bool TimeZoneFiller::adjustTimes()
{
    if (!m_dateTimes.convertOffsets(nullptr, nullptr, &m_utcSeconds))
        return false;
    return m_timestamps.convertOffsets(nullptr, nullptr, &m_utcSeconds);
}

} // namespace kqtz
