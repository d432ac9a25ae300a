// The date/time pairs found in a dataset, in the order their dates were met.
#ifndef DATETIMEELEMENTLIST_H
#define DATETIMEELEMENTLIST_H

#include "datetime/DateTimeElementPair.h"

#include <memory>
#include <string>
#include <vector>

namespace kqtz {

class DateTimeElementList
{
public:
    DateTimeElementList();
    ~DateTimeElementList();
    DateTimeElementList(const DateTimeElementList&) = delete;
    DateTimeElementList& operator=(const DateTimeElementList&) = delete;

    // Starts a pair for a registered date; false (and nothing kept) for any other date.
    bool addDate(DcmDate* date);
    // Gives the time to the first pair without a time whose time key is the time's tag
    // exactly. Private pairs keep only their block offsets as keys, so a private time never
    // finds its date: private dates stay without a time on purpose.
    bool addTime(DcmTime* time);
    void clear();

    size_t count() const { return m_pairs.size(); }
    DateTimeElementPair* pair(size_t index) const { return m_pairs[index].get(); }

    // Converts every pair in list order; stops with false at the first failure.
    bool convertOffsets(const char* fromZone, const char* toZone, const long* shiftSeconds);

    // The UTC offset in the current zone of the first pair with both a date and a time, as a
    // DICOM offset and in seconds east of UTC; without such a pair, that of the present moment.
    bool calcUTCOffset(std::string& offset, long& seconds) const;

    void print(std::ostream& out = std::cout) const;

private:
    std::vector<std::unique_ptr<DateTimeElementPair>> m_pairs;
};

} // namespace kqtz

#endif
