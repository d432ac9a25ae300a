// The date-time (DT) elements found in a dataset, in the order met.
#ifndef TIMESTAMPLIST_H
#define TIMESTAMPLIST_H

#include "datetime/TimestampElement.h"

#include <memory>
#include <vector>

namespace kqtz {

class TimestampList
{
public:
    TimestampList();
    ~TimestampList();
    TimestampList(const TimestampList&) = delete;
    TimestampList& operator=(const TimestampList&) = delete;

    void add(DcmDateTime* dateTime);
    void clear();

    size_t count() const { return m_elements.size(); }
    TimestampElement* element(size_t index) const { return m_elements[index].get(); }

    // Converts every element in list order; stops with false at the first failure.
    bool convertOffsets(const char* fromZone, const char* toZone, const long* shiftSeconds);

    void print(std::ostream& out = std::cout) const;

private:
    std::vector<std::unique_ptr<TimestampElement>> m_elements;
};

} // namespace kqtz

#endif
