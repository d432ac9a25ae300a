// Collection of the dates, times and date-times of a dataset, and the base of the converters
// that bring them from one UTC offset to another.
#ifndef DATETIMECONVERTER_H
#define DATETIMECONVERTER_H

#include "datetime/DateTimeElementList.h"
#include "datetime/TimestampList.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <string>

namespace kqtz {

// How the collection walk treats Timezone Offset From UTC (0008,0201).
enum OFFSET_TAG_ACTION
{
    // Stop as soon as the offset has been read.
    OTA_STOP_AT_OFFSET = 0,
    // The offset must come before everything else: stop at the first date, time, date-time
    // or sequence beyond (0008,0201) while no offset has been read.
    OTA_OFFSET_FIRST = 1,
    // Walk everything (used inside sequence items).
    OTA_WALK_ALL = 2
};

class DateTimeConverter
{
public:
    // The dataset is not owned. The process's TZ is recorded here and put back on destruction;
    // a TZ unset or empty at construction is removed again.
    explicit DateTimeConverter(DcmDataset* dataset);
    virtual ~DateTimeConverter();
    DateTimeConverter(const DateTimeConverter&) = delete;
    DateTimeConverter& operator=(const DateTimeConverter&) = delete;

    // Walks the item's elements: pairs registered dates with their times, gathers date-times,
    // descends into sequences and reads the offset (0008,0201). True unless item is null.
    bool collectTimes(DcmItem* item, OFFSET_TAG_ACTION action);

    // Prints every date, time and date-time element and (0008,0201) of the whole dataset or
    // of one item, sequences included.
    void printTimes();
    void printTimes(DcmItem* item);

    DcmDataset* dataset() const { return m_dataset; }
    DateTimeElementList& dateTimes() { return m_dateTimes; }
    TimestampList& timestamps() { return m_timestamps; }
    const std::string& offset() const { return m_offset; }
    const std::string& timeZone() const { return m_timeZone; }
    bool offsetFound() const { return m_offsetFound; }
    bool stopped() const { return m_stopped; }

protected:
    // Forgets what an earlier collection found.
    void resetCollection();
    // The zone string of a DICOM offset, or the TZ recorded at construction when the offset
    // gives none.
    std::string zoneOfOffset(const std::string& offset) const;

    DcmDataset* m_dataset;
    DateTimeElementList m_dateTimes;
    TimestampList m_timestamps;
    std::string m_offset;
    std::string m_timeZone;
    bool m_offsetFound;
    bool m_stopped;
};

} // namespace kqtz

#endif
