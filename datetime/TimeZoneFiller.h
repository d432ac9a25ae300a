// Gives a dataset without Timezone Offset From UTC (0008,0201) the offset its values have in a
// named time zone, bringing every value to that one offset.
#ifndef TIMEZONEFILLER_H
#define TIMEZONEFILLER_H

#include "datetime/DateTimeConverter.h"

namespace kqtz {

class TimeZoneFiller : public DateTimeConverter
{
public:
    // tz: a POSIX zone string ("Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3", ...).
    TimeZoneFiller(DcmDataset* dataset, const char* tz);

    // Does nothing for a dataset that already carries an offset. Otherwise takes the zone's
    // offset at the first complete date/time pair, moves values that lie at another offset of
    // the zone (the other side of a daylight-saving change) to it, and writes it to (0008,0201).
    bool fillTimeZone();
    // Moves the collected values to the computed offset.
    bool adjustTimes();

    const std::string& utcOffset() const { return m_utcOffset; }

private:
    std::string m_zoneName;
    std::string m_utcOffset;
    long m_utcSeconds;
};

} // namespace kqtz

#endif
