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
    // without one stands for the machine's own zone (TZ unset).
    bool adjust(DcmDataset& target);
    // Adjusts to a DICOM offset ("" or an invalid one: the machine's own zone). The dataset's
    // values are collected on the first call; when its own offset differs they are converted,
    // then the new offset is recorded in (0008,0201) of the dataset, or (0008,0201) is deleted
    // from its top level for "". Returns false when collecting, converting, or that write or
    // deletion fails (an offset found only inside a sequence item cannot be deleted).
    bool adjust(const std::string& targetOffset);

private:
    bool m_timesCollected;
};

} // namespace kqtz

#endif
