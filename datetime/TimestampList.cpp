// The date-time (DT) elements found in a dataset, in the order met.
#include "datetime/TimestampList.h"

namespace kqtz {

TimestampList::TimestampList()
{
}

TimestampList::~TimestampList()
{
}

void TimestampList::add(DcmDateTime* dateTime)
{
    m_elements.emplace_back(new TimestampElement(dateTime));
}

void TimestampList::clear()
{
    m_elements.clear();
}

bool TimestampList::convertOffsets(const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    for (const auto& element : m_elements)
    {
        if (!element->convertOffset(fromZone, toZone, shiftSeconds))
            return false;
    }
    return true;
}

void TimestampList::print(std::ostream& out) const
{
    out << "TimestampList" << std::endl;
    for (const auto& element : m_elements)
    {
        out << " TimestampElement" << std::endl;
        element->print(out);
    }
}

} // namespace kqtz
