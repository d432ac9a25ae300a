// Brings the dates and times of a dataset from its Timezone Offset From UTC (0008,0201) to the
// process's local zone.
#ifndef DICOM2LOCALCONVERTER_H
#define DICOM2LOCALCONVERTER_H

#include "datetime/DateTimeConverter.h"

namespace kqtz {

class Dicom2LocalConverter : public DateTimeConverter
{
public:
    explicit Dicom2LocalConverter(DcmDataset* dataset);

    // Values of a dataset without an offset, or whose offset comes after its first date,
    // time or sequence, are taken as local already and left alone. Converted values are in
    // local time, so (0008,0201) is removed.
    bool convert();
};

} // namespace kqtz

#endif
