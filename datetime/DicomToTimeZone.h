// Brings the dates and times of a dataset from its Timezone Offset From UTC (0008,0201) to a
// given time zone.
#ifndef DICOMTOTIMEZONE_H
#define DICOMTOTIMEZONE_H

#include "datetime/DateTimeConverter.h"

namespace kqtz {

class DicomToTimeZone : public DateTimeConverter
{
public:
    explicit DicomToTimeZone(DcmDataset* dataset);

    // tz: a POSIX zone string or a DICOM offset ("+HHMM"); "" for the local zone. A dataset
    // without an offset is taken as local time. Afterwards (0008,0201) holds the zone's offset
    // at the first complete date/time pair (or at present when there is none).
    bool convert(const std::string& tz);
};

} // namespace kqtz

#endif
