// One date-time (DT) element of a dataset.
#ifndef TIMESTAMPELEMENT_H
#define TIMESTAMPELEMENT_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcvrdt.h"

#include <iostream>

namespace kqtz {

class TimestampElement
{
public:
    explicit TimestampElement(DcmDateTime* dateTime);

    DcmDateTime* dateTime() const { return m_dateTime; }

    // Converts the values from one zone to another (see kqtz::convert); a value with its
    // own offset suffix is converted from that offset.
    bool convertOffset(const char* fromZone, const char* toZone, const long* shiftSeconds);

    void print(std::ostream& out = std::cout) const;

private:
    DcmDateTime* m_dateTime;
};

} // namespace kqtz

#endif
