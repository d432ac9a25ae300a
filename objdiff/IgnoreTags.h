// The attributes a comparison passes over: exact tag keys and eight-character dot patterns.
#ifndef IGNORETAGS_H
#define IGNORETAGS_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctagkey.h"

#include <set>
#include <string>

class IgnoreTags
{
public:
    IgnoreTags();
    // Reads the rules of an ignoretags file; an unreadable file leaves both sets empty.
    explicit IgnoreTags(const char* path);
    ~IgnoreTags();

    // True when some pattern matches the key ("." stands for any hexadecimal digit).
    bool matchesRegexp(const DcmTagKey& key) const;
    // True when the key is in the tag set or matches a pattern.
    bool isIgnored(const DcmTagKey& key) const;

    std::set<DcmTagKey> tags;
    std::set<std::string> patterns;
};

#endif
