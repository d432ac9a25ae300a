// Brings the dates and times of a dataset (a KqR change dataset) to the UTC offset of a target
// object, so that values recorded in one offset are written in the target's own.
#ifndef OFFSETADJUSTEDDATASET_H
#define OFFSETADJUSTEDDATASET_H

#include "datetime/DateTimeConverter.h"

namespace kqtz {

class OffsetAdjustedDataset : public DateTimeConverter
{
public:
    explicit OffsetAdjustedDataset(DcmDataset* changes);

    // Adjusts to the target's Timezone Offset From UTC (0008,0201), top level only; a target
    // without one stands for local time.
    bool adjust(DcmDataset& target);
    // Adjusts to a DICOM offset ("" for local time): converts the values when the dataset's
    // own offset differs, then records the new offset in (0008,0201) of the dataset, or
    // removes it for local time. The dataset's values are collected on the first call.
    bool adjust(const std::string& targetOffset);

private:
    bool m_timesCollected;
};

} // namespace kqtz

#endif
