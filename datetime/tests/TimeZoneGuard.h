// Saves the process's TZ for a test and puts it back afterwards, so that tests which set a
// zone do not leak it into each other.
#ifndef TIMEZONEGUARD_H
#define TIMEZONEGUARD_H

#include <cstdlib>
#include <ctime>
#include <string>

class TimeZoneGuard
{
public:
    TimeZoneGuard()
    {
        const char* tz = getenv("TZ");
        m_set = (tz != nullptr);
        if (m_set)
            m_value = tz;
    }
    ~TimeZoneGuard()
    {
        if (m_set)
            setenv("TZ", m_value.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    TimeZoneGuard(const TimeZoneGuard&) = delete;
    TimeZoneGuard& operator=(const TimeZoneGuard&) = delete;

private:
    bool m_set;
    std::string m_value;
};

#endif
