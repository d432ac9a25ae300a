// Brings the dates and times of a dataset from its UTC offset to a given time zone.
#include "datetime/DicomToTimeZone.h"

#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dcdeftag.h"

namespace kqtz {

DicomToTimeZone::DicomToTimeZone(DcmDataset* dataset)
  : DateTimeConverter(dataset)
{
}

bool DicomToTimeZone::convert(const std::string& tz)
{
    resetCollection();
    if (!collectTimes(m_dataset, OTA_WALK_ALL))
        return false;
    const std::string fromZone = zoneOfOffset(m_offset);
    std::string toZone = tz;
    if (!dicomOffsetToTimeZone(tz, toZone) && tz.empty())
        toZone = m_timeZone;
    if (!m_dateTimes.convertOffsets(fromZone.c_str(), toZone.c_str(), nullptr))
        return false;
    if (!m_timestamps.convertOffsets(fromZone.c_str(), toZone.c_str(), nullptr))
        return false;

    // The values now lie in the to-zone; record its offset.
    setTimeZone(toZone.c_str());
    std::string offset;
    long seconds = 0;
    if (!m_dateTimes.calcUTCOffset(offset, seconds))
        return false;
    if (m_dataset->putAndInsertString(DCM_TimezoneOffsetFromUTC, offset.c_str(), OFTrue).bad())
        return false;
    m_offset = offset;
    return true;
}

} // namespace kqtz
