// Brings the dates and times of a dataset to the UTC offset of a target object.
#include "datetime/OffsetAdjustedDataset.h"

#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dcdeftag.h"

namespace kqtz {

OffsetAdjustedDataset::OffsetAdjustedDataset(DcmDataset* changes)
  : DateTimeConverter(changes)
  , m_timesCollected(false)
{
}

bool OffsetAdjustedDataset::adjust(DcmDataset& target)
{
    OFString targetOffset;
    target.findAndGetOFStringArray(DCM_TimezoneOffsetFromUTC, targetOffset, OFFalse);
    return adjust(std::string(targetOffset.c_str()));
}

bool OffsetAdjustedDataset::adjust(const std::string& targetOffset)
{
    if (!m_timesCollected)
    {
        m_timesCollected = collectTimes(m_dataset, OTA_WALK_ALL);
        if (!m_timesCollected)
            return false;
    }
    if (m_offset == targetOffset)
        return true;

    // An offset that gives no zone leaves the zone string empty: the machine's own zone.
    std::string fromZone;
    std::string toZone;
    dicomOffsetToTimeZone(m_offset, fromZone);
    dicomOffsetToTimeZone(targetOffset, toZone);
    if (!m_dateTimes.convertOffsets(fromZone.c_str(), toZone.c_str(), nullptr))
        return false;
    if (!m_timestamps.convertOffsets(fromZone.c_str(), toZone.c_str(), nullptr))
        return false;

    m_offset = targetOffset;
    if (!targetOffset.empty())
        return m_dataset->putAndInsertString(DCM_TimezoneOffsetFromUTC, targetOffset.c_str(), OFTrue).good();
    return m_dataset->findAndDeleteElement(DCM_TimezoneOffsetFromUTC, OFFalse, OFFalse).good();
}

} // namespace kqtz
