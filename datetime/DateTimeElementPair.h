// One date element of a dataset with the time element that belongs to it.
#ifndef DATETIMEELEMENTPAIR_H
#define DATETIMEELEMENTPAIR_H

#include "datetime/dtregistry.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcvrda.h"
#include "dcmtk/dcmdata/dcvrtm.h"

#include <iostream>

namespace kqtz {

class DateTimeElementPair
{
public:
    // The date (not owned) with the keys of its registry pair and its private block base
    // (element & 0xFF00 of a private date, 0 for standard ones); no time yet.
    DateTimeElementPair(DcmDate* date, const DateTimeTagPair& keys, unsigned short blockBase);

    DcmDate* date() const { return m_date; }
    DcmTime* time() const { return m_time; }
    void setTime(DcmTime* time) { m_time = time; }
    const DateTimeTagPair& keys() const { return m_keys; }
    unsigned short blockBase() const { return m_blockBase; }

    // Converts the date and time values from one zone to another (see kqtz::convert); a pair
    // without its date or its time is left alone.
    bool convertOffset(const char* fromZone, const char* toZone, const long* shiftSeconds);

    void print(std::ostream& out = std::cout) const;

private:
    DcmDate* m_date;
    DcmTime* m_time;
    DateTimeTagPair m_keys;
    unsigned short m_blockBase;
};

} // namespace kqtz

#endif
