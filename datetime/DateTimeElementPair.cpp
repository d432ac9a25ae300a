// One date element of a dataset with the time element that belongs to it.
#include "datetime/DateTimeElementPair.h"

#include "datetime/dtconv.h"

namespace kqtz {

DateTimeElementPair::DateTimeElementPair(DcmDate* date, const DateTimeTagPair& keys, unsigned short blockBase)
  : m_date(date)
  , m_time(nullptr)
  , m_keys(keys.date(), keys.time())
  , m_blockBase(blockBase)
{
}

bool DateTimeElementPair::convertOffset(const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    if (!m_date || !m_time)
        return true;
    return convert(*m_date, *m_time, fromZone, toZone, shiftSeconds);
}

void DateTimeElementPair::print(std::ostream& out) const
{
    out << "  {" << std::endl;
    if (m_date)
        out << "     Date: " << static_cast<const void*>(m_date) << std::endl;
    if (m_time)
        out << "     Time: " << static_cast<const void*>(m_time) << std::endl;
    out << "  }" << std::endl;
}

} // namespace kqtz
