// One date-time (DT) element of a dataset.
#include "datetime/TimestampElement.h"

#include "datetime/dtconv.h"

namespace kqtz {

TimestampElement::TimestampElement(DcmDateTime* dateTime)
  : m_dateTime(dateTime)
{
}

bool TimestampElement::convertOffset(const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    if (!m_dateTime)
        return true;
    return convert(*m_dateTime, fromZone, toZone, shiftSeconds);
}

void TimestampElement::print(std::ostream& out) const
{
    out << "  [" << std::endl;
    out << "     DateTime: " << static_cast<const void*>(m_dateTime) << std::endl;
    out << "  ]" << std::endl;
}

} // namespace kqtz
