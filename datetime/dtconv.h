// Time-zone machinery of the date/time converters: switching the process zone, turning DICOM
// UTC offsets into POSIX zone strings, and converting DA/TM pairs and DT values between zones.
//
// The conversions change the process-wide TZ variable and the C library's zone; they are not
// safe to run on several threads at once.
#ifndef DTCONV_H
#define DTCONV_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcvrda.h"
#include "dcmtk/dcmdata/dcvrdt.h"
#include "dcmtk/dcmdata/dcvrtm.h"

#include <ctime>
#include <string>

namespace kqtz {

// Makes tz the process zone: null does nothing, "" removes TZ, anything else sets it; then
// calls tzset().
void setTimeZone(const char* tz);

// Turns a DICOM offset ("+HHMM" or "-HHMM") into a POSIX zone string: "+0530" gives
// "XXX-5:30", "-0800" gives "XXX+8". Any other value leaves tz untouched and returns false.
bool dicomOffsetToTimeZone(const std::string& offset, std::string& tz);

// Formats an offset east of UTC in seconds as a DICOM offset ("+HHMM" or "-HHMM").
std::string secondsToDicomOffset(long seconds);

// The current time broken down at the given DICOM offset, or in the local zone when the
// offset gives no zone. TZ is left as it was. False when the time cannot be broken down.
bool nowInUTCOffset(const std::string& offset, tm& out);

// Converts every value position of a date and its time from one zone to another (null: stay
// in the current zone). With shiftSeconds, values whose zone offset already equals the shift
// are kept, and without a to-zone the others are moved to that fixed offset. Positions that
// do not parse are kept unchanged, and so is a pair whose value multiplicities differ.
// Converted values are written in full, "YYYYMMDD" and "HHMMSS" followed by the fraction of
// the original time. The process zone is left at the to-zone (or from-zone) afterwards.
// Returns false when a moment cannot be broken down or a value not written (with a message
// on standard error); true otherwise, also when nothing was converted.
bool convert(DcmDate& date, DcmTime& time, const char* fromZone, const char* toZone,
             const long* shiftSeconds = nullptr);

// The same for a DT element. Values are read by DCMTK's DT parser, which takes missing parts
// as the start of the period ("20200101" is midnight), and written in full,
// "YYYYMMDDHHMMSS" and the original fraction. A value with its own offset suffix is converted
// from that offset and written without one.
bool convert(DcmDateTime& dateTime, const char* fromZone, const char* toZone, const long* shiftSeconds = nullptr);

} // namespace kqtz

#endif
