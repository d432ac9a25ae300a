// Error lines on standard error and string replacement.
#include "dcmutils/dcmutils.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

// printf-style formatting into a string.
std::string vformat(const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(NULL, 0, format, copy);
    va_end(copy);
    if (n <= 0)
        return std::string();
    std::vector<char> buffer(OFstatic_cast(size_t, n) + 1);
    vsnprintf(buffer.data(), buffer.size(), format, args);
    return std::string(buffer.data(), OFstatic_cast(size_t, n));
}

// Writes one line to standard error in a single call.
void writeLine(const std::string& line)
{
    std::string text = line + "\n";
    fputs(text.c_str(), stderr);
    fflush(stderr);
}

} // namespace

void errmsg(const char* who, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    writeLine(std::string(who != NULL ? who : "") + ": " + text);
}

void errmsg(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    writeLine(text);
}

std::string replaceInOFString(const std::string& text, const std::string& from, const std::string& to)
{
    if (from.empty())
        return text;
    std::string result;
    result.reserve(text.size());
    size_t start = 0;
    size_t pos;
    while ((pos = text.find(from, start)) != std::string::npos)
    {
        result.append(text, start, pos - start);
        result.append(to);
        start = pos + from.size();
    }
    result.append(text, start, std::string::npos);
    return result;
}

