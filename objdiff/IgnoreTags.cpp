// The attributes a comparison passes over: exact tag keys and eight-character dot patterns.
#include "objdiff/IgnoreTags.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

namespace {

// Length of the line buffer; a line holds at most 79 characters of text.
const int LINE_BUFFER_SIZE = 80;
// "(gggg,eeee": four group digits, one separator, four element digits after the "(".
const size_t TAG_TEXT_LENGTH = 9;

bool isLowerHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

} // namespace

IgnoreTags::IgnoreTags()
{
}

IgnoreTags::IgnoreTags(const char* path)
{
    std::ifstream in(path ? path : "");
    if (!in.is_open())
    {
        printf("[%s]\n", path ? path : "");
        fflush(stdout);
        std::cerr << "Cannot open ignoretags file:" << (path ? path : "") << std::endl;
        return;
    }

    char line[LINE_BUFFER_SIZE];
    do
    {
        line[0] = '\0';
        in.getline(line, LINE_BUFFER_SIZE);
        const char* open = strchr(line, '(');
        if (open == NULL || strlen(open + 1) < TAG_TEXT_LENGTH)
            continue; // comment, blank or truncated line
        const std::string group(open + 1, 4);
        const std::string element(open + 6, 4);
        const std::string text = group + element;
        bool hex = true;
        for (char c : text)
            hex = hex && isLowerHexDigit(c);
        if (hex)
            tags.insert(DcmTagKey(OFstatic_cast(Uint16, strtoul(group.c_str(), NULL, 16)),
                                  OFstatic_cast(Uint16, strtoul(element.c_str(), NULL, 16))));
        else
            patterns.insert(text);
        // a line of 80 characters or more fails the stream without end of file: stop there
    } while (in.good());
}

IgnoreTags::~IgnoreTags()
{
}

bool IgnoreTags::matchesRegexp(const DcmTagKey& key) const
{
    char text[16];
    snprintf(text, sizeof(text), "%04x%04x", key.getGroup(), key.getElement());
    for (const std::string& pattern : patterns)
    {
        if (pattern.size() != 8)
            continue;
        bool match = true;
        for (size_t i = 0; match && i < 8; ++i)
            match = pattern[i] == '.' || pattern[i] == text[i];
        if (match)
            return true;
    }
    return false;
}

bool IgnoreTags::isIgnored(const DcmTagKey& key) const
{
    return tags.find(key) != tags.end() || matchesRegexp(key);
}
