// Brings the dates and times of a dataset, taken to be in a given time zone, to the process's
// local zone.
#ifndef TIMEZONETOLOCAL_H
#define TIMEZONETOLOCAL_H

#include "datetime/DateTimeConverter.h"

namespace kqtz {

class TimeZoneToLocal : public DateTimeConverter
{
public:
    explicit TimeZoneToLocal(DcmDataset* dataset);

    // tz: a POSIX zone string or a DICOM offset ("+HHMM"); "" does nothing. Collects up to
    // the dataset's (0008,0201), converts pair by pair and leaves (0008,0201) as it is.
    bool convert(const std::string& tz);
};

} // namespace kqtz

#endif
