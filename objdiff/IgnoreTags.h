/** @file IgnoreTags.h
 *  The attributes a comparison passes over: exact tag keys and eight-character patterns in
 *  which "." stands for any hexadecimal digit ("0009...." is every element of group 0009).
 */
#ifndef IGNORETAGS_H
#define IGNORETAGS_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctagkey.h"

#include <set>
#include <string>

/** A set of ignore rules, owned by its user and lent to ObjectComparator by reference. */
class IgnoreTags
{
public:
    /// No rules: nothing is ignored.
    IgnoreTags();

    /** Reads the rules of an ignoretags file. Each line holding "(" gives one rule from the
     *  four characters after its first "(" (group) and the four after the next one (element):
     *  eight lower-case hexadecimal digits give a tag key, anything else a pattern (so an
     *  upper-case digit makes a pattern that matches nothing). Other lines are comments; a
     *  line of 80 characters or more is the last one read. An unreadable file prints "[path]"
     *  on standard output and "Cannot open ignoretags file:<path>" on standard error and
     *  leaves both sets empty.
     */
    explicit IgnoreTags(const char* path);

    ~IgnoreTags();

    /// True when some pattern matches the key printed as "%04x%04x".
    bool matchesRegexp(const DcmTagKey& key) const;

    /// True when the key is in the tag set or matches a pattern.
    bool isIgnored(const DcmTagKey& key) const;

    /// Keys ignored exactly; callers (the run driver) insert into it directly.
    std::set<DcmTagKey> tags;
    /// Patterns of eight characters, lower-case hexadecimal digits or ".".
    std::set<std::string> patterns;
};

#endif
