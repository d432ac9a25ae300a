// Brings the dates and times of a dataset from its UTC offset to the local zone.
#include "datetime/Dicom2LocalConverter.h"

#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dcdeftag.h"

namespace kqtz {

Dicom2LocalConverter::Dicom2LocalConverter(DcmDataset* dataset)
  : DateTimeConverter(dataset)
{
}

bool Dicom2LocalConverter::convert()
{
    resetCollection();
    if (!collectTimes(m_dataset, OTA_OFFSET_FIRST))
        return false;
    std::string fromZone;
    if (!m_offsetFound || !dicomOffsetToTimeZone(m_offset, fromZone))
        return true;
    if (!m_dateTimes.convertOffsets(fromZone.c_str(), m_timeZone.c_str(), nullptr))
        return false;
    if (!m_timestamps.convertOffsets(fromZone.c_str(), m_timeZone.c_str(), nullptr))
        return false;
    m_offset.clear();
    return m_dataset->findAndDeleteElement(DCM_TimezoneOffsetFromUTC, OFFalse, OFFalse).good();
}

} // namespace kqtz
