// Time-zone machinery of the date/time converters.
#include "datetime/dtconv.h"

#include "dcmtk/ofstd/ofdate.h"
#include "dcmtk/ofstd/oftime.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace kqtz {

namespace {

// What happened to one moment.
enum SHIFT_RESULT
{
    SHIFT_CONVERTED,
    SHIFT_UNCHANGED,
    SHIFT_FAILED
};

bool allDigits(const std::string& text)
{
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

// A parsed time of day and its fractional part (from the first "."), kept as text.
struct TimeOfDay
{
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::string fraction;
};

bool parseDate(const std::string& text, tm& moment)
{
    OFDate date;
    if (text.empty() || DcmDate::getOFDateFromString(OFString(text.c_str()), date, OFTrue).bad())
        return false;
    moment.tm_year = int(date.getYear()) - 1900;
    moment.tm_mon = int(date.getMonth()) - 1;
    moment.tm_mday = int(date.getDay());
    return true;
}

bool parseTime(const std::string& text, TimeOfDay& time)
{
    const size_t dot = text.find('.');
    const std::string whole = text.substr(0, dot);
    size_t digits = 0;
    for (char c : whole)
    {
        if (c >= '0' && c <= '9')
            ++digits;
        else if (c != ':')
            return false;
    }
    if (digits != 2 && digits != 4 && digits != 6)
        return false;
    if (dot != std::string::npos && digits != 6)
        return false;
    OFTime parsed;
    if (DcmTime::getOFTimeFromString(OFString(text.c_str()), parsed, OFTrue).bad())
        return false;
    time.hour = int(parsed.getHour());
    time.minute = int(parsed.getMinute());
    time.second = int(parsed.getIntSecond());
    time.fraction = (dot == std::string::npos) ? std::string() : text.substr(dot);
    return true;
}

// Converts a wall-clock moment from one zone to another. See convert() for the meaning of
// the arguments; fails only when the result cannot be broken down.
SHIFT_RESULT shiftMoment(tm& moment, const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    moment.tm_isdst = -1;
    if (fromZone)
        setTimeZone(fromZone);
    time_t calendar = mktime(&moment);
    const long ownOffset = moment.tm_gmtoff;
    if (toZone)
        setTimeZone(toZone);
    if (calendar == time_t(-1))
        return SHIFT_UNCHANGED;

    tm result;
    if (shiftSeconds)
    {
        if (*shiftSeconds == ownOffset)
            return SHIFT_UNCHANGED;
        if (!toZone)
        {
            // UTC plus the shift as wall time: a breakdown in the zone is an hour off across a DST change.
            const time_t shifted = calendar + *shiftSeconds;
            if (!gmtime_r(&shifted, &result))
                return SHIFT_FAILED;
            result.tm_gmtoff = *shiftSeconds;
            moment = result;
            return SHIFT_CONVERTED;
        }
    }
    if (!localtime_r(&calendar, &result))
        return SHIFT_FAILED;
    moment = result;
    return SHIFT_CONVERTED;
}

std::string formatMoment(const char* format, const tm& moment)
{
    char buffer[16];
    const size_t written = strftime(buffer, sizeof(buffer), format, &moment);
    return std::string(buffer, written);
}

// Parses a DT value with DCMTK's parser (which fills a missing month, day, hour, minute or
// second) and finds its fraction (from the first ".") and its offset suffix ("+HHMM"/"-HHMM").
bool parseDateTime(const std::string& text, tm& moment, std::string& fraction, std::string& suffix)
{
    OFDateTime parsed;
    if (text.empty() || DcmDateTime::getOFDateTimeFromString(OFString(text.c_str()), parsed).bad())
        return false;
    std::string rest = text;
    if (rest.size() > 5 && (rest[rest.size() - 5] == '+' || rest[rest.size() - 5] == '-'))
    {
        suffix = rest.substr(rest.size() - 5);
        rest.erase(rest.size() - 5);
    }
    const size_t dot = rest.find('.');
    fraction = (dot == std::string::npos) ? std::string() : rest.substr(dot);
    moment.tm_year = int(parsed.getDate().getYear()) - 1900;
    moment.tm_mon = int(parsed.getDate().getMonth()) - 1;
    moment.tm_mday = int(parsed.getDate().getDay());
    moment.tm_hour = int(parsed.getTime().getHour());
    moment.tm_min = int(parsed.getTime().getMinute());
    moment.tm_sec = int(parsed.getTime().getIntSecond());
    return true;
}

} // namespace

void setTimeZone(const char* tz)
{
    if (!tz)
        return;
    if (*tz == '\0')
        unsetenv("TZ");
    else
        setenv("TZ", tz, 1);
    tzset();
}

bool dicomOffsetToTimeZone(const std::string& offset, std::string& tz)
{
    if (offset.size() != 5 || (offset[0] != '+' && offset[0] != '-') || !allDigits(offset.substr(1)))
        return false;
    // POSIX counts offsets westwards: a DICOM offset east of UTC is a negative POSIX one.
    std::string zone = "XXX";
    zone += (offset[0] == '+') ? '-' : '+';
    zone += std::to_string((offset[1] - '0') * 10 + (offset[2] - '0'));
    if (offset.compare(3, 2, "00") != 0)
    {
        zone += ':';
        zone += offset.substr(3, 2);
    }
    tz = zone;
    return true;
}

std::string secondsToDicomOffset(long seconds)
{
    const char sign = (seconds < 0) ? '-' : '+';
    const long magnitude = (seconds < 0) ? -seconds : seconds;
    char buffer[16];
    snprintf(buffer, sizeof(buffer), "%c%02ld%02ld", sign, (magnitude / 3600) % 100, (magnitude % 3600) / 60);
    return buffer;
}

bool nowInUTCOffset(const std::string& offset, tm& out)
{
    const char* current = getenv("TZ");
    const bool wasSet = (current != nullptr);
    const std::string saved = wasSet ? current : "";

    const time_t now = time(nullptr);
    std::string zone;
    if (dicomOffsetToTimeZone(offset, zone))
        setTimeZone(zone.c_str());
    const bool ok = (localtime_r(&now, &out) != nullptr);

    if (wasSet)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    return ok;
}

bool convert(DcmDate& date, DcmTime& time, const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    const unsigned long count = date.getVM();
    if (count != time.getVM())
        return true;

    std::string dates;
    std::string times;
    bool changed = false;
    for (unsigned long pos = 0; pos < count; ++pos)
    {
        OFString dateText;
        OFString timeText;
        date.getOFString(dateText, pos, OFTrue);
        time.getOFString(timeText, pos, OFTrue);
        std::string newDate = dateText.c_str();
        std::string newTime = timeText.c_str();

        tm moment;
        memset(&moment, 0, sizeof(moment));
        TimeOfDay parsed;
        if (parseDate(newDate, moment) && parseTime(newTime, parsed))
        {
            moment.tm_hour = parsed.hour;
            moment.tm_min = parsed.minute;
            moment.tm_sec = parsed.second;
            const SHIFT_RESULT result = shiftMoment(moment, fromZone, toZone, shiftSeconds);
            if (result == SHIFT_FAILED)
            {
                std::cerr << "Shifting time failed" << std::endl;
                return false;
            }
            if (result == SHIFT_CONVERTED)
            {
                newDate = formatMoment("%4Y%m%d", moment);
                newTime = formatMoment("%H%M%S", moment) + parsed.fraction;
            }
        }
        if (newDate != dateText.c_str() || newTime != timeText.c_str())
            changed = true;
        if (pos > 0)
        {
            dates += '\\';
            times += '\\';
        }
        dates += newDate;
        times += newTime;
    }
    if (!changed)
        return true;

    bool ok = true;
    OFCondition cond = date.putOFStringArray(OFString(dates.c_str()));
    if (cond.bad())
    {
        std::cerr << "Adjusting date failed (" << cond.text() << ")" << std::endl;
        ok = false;
    }
    cond = time.putOFStringArray(OFString(times.c_str()));
    if (cond.bad())
    {
        std::cerr << "Adjusting time failed (" << cond.text() << ")" << std::endl;
        ok = false;
    }
    return ok;
}

bool convert(DcmDateTime& dateTime, const char* fromZone, const char* toZone, const long* shiftSeconds)
{
    const unsigned long count = dateTime.getVM();
    std::string values;
    bool changed = false;
    for (unsigned long pos = 0; pos < count; ++pos)
    {
        OFString text;
        dateTime.getOFString(text, pos, OFTrue);
        std::string newValue = text.c_str();

        std::string fraction;
        std::string suffix;
        tm moment;
        memset(&moment, 0, sizeof(moment));
        // The shift form leaves a value with its own offset as it is.
        if (parseDateTime(newValue, moment, fraction, suffix) && !(shiftSeconds && !suffix.empty()))
        {
            // A value with its own offset is converted from that offset.
            std::string ownZone;
            const char* from = fromZone;
            if (!suffix.empty() && dicomOffsetToTimeZone(suffix, ownZone))
                from = ownZone.c_str();
            const SHIFT_RESULT result = shiftMoment(moment, from, toZone, shiftSeconds);
            if (result == SHIFT_FAILED)
            {
                std::cerr << "Converting to local time failed (" << strerror(errno) << ")" << std::endl;
                return false;
            }
            if (result == SHIFT_CONVERTED)
                newValue = formatMoment("%4Y%m%d%H%M%S", moment) + fraction;
        }
        if (newValue != text.c_str())
            changed = true;
        if (pos > 0)
            values += '\\';
        values += newValue;
    }
    if (!changed)
        return true;

    OFCondition cond = dateTime.putOFStringArray(OFString(values.c_str()));
    if (cond.bad())
    {
        std::cerr << "Converting to local time failed (" << cond.text() << ")" << std::endl;
        return false;
    }
    return true;
}

} // namespace kqtz
