// makeKqR: writes a KqR file holding study-, series- and instance-level soft edit changes.

#include "privatetags/KQDictionary.h"
#include "dcmutils/ChangeSetCharset.h"
#include "dcmutils/ChangeSetCheck.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dctag.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

static const char* const usageText =
    "makeKqR [-h] [-z <offset>] [-m <assignment>]... [-S <seriesUID> [-m ...] [-I <sopInstanceUID> [-m ...]]]... "
    "<kqrfile>\n"
    "\n"
    "    -h                  : prints this usage information\n"
    "    -z <offset>         : Timezone Offset From UTC the values are given in (+HHMM or -HHMM)\n"
    "    -m \"(gggg,eeee)=value\" or -m \"Keyword=value\"\n"
    "                        : sets an attribute at the level selected last (study level at first)\n"
    "    -T                  : selects the study level\n"
    "    -S <seriesUID>      : selects the series level of the series with this Series Instance UID\n"
    "    -I <sopInstanceUID> : selects the instance level of this SOP Instance UID in the selected series\n"
    "\n"
    "    Example: makeKqR -m \"(0010,0010)=Doe^Jane\" -S 1.2.3 -m \"SeriesDescription=Head\" edit.kqr\n";

struct Assignment
{
    std::string seriesUID;   // empty: study level
    std::string instanceUID; // empty: series or study level
    DcmTagKey key;
    std::string value;
};

static int fail(const std::string& message)
{
    fprintf(stderr, "makeKqR: %s\n", message.c_str());
    return 1;
}

static bool parseHex4(const std::string& text, Uint16& value)
{
    if (text.size() != 4)
        return false;
    for (char c : text)
        if (!isxdigit(static_cast<unsigned char>(c)))
            return false;
    value = Uint16(strtoul(text.c_str(), nullptr, 16));
    return true;
}

// Accepts "(gggg,eeee)", "gggg,eeee" or a dictionary keyword.
static bool parseTag(const std::string& text, DcmTagKey& key)
{
    std::string t = text;
    if (t.size() >= 2 && t.front() == '(' && t.back() == ')')
        t = t.substr(1, t.size() - 2);
    const size_t comma = t.find(',');
    Uint16 group, element;
    if (comma != std::string::npos && parseHex4(t.substr(0, comma), group) && parseHex4(t.substr(comma + 1), element))
    {
        key = DcmTagKey(group, element);
        return true;
    }
    DcmTag tag;
    if (DcmTag::findTagFromName(text.c_str(), tag).good())
    {
        key = tag;
        return true;
    }
    return false;
}

static bool validOffset(const char* offset)
{
    if (strlen(offset) != 5 || (offset[0] != '+' && offset[0] != '-'))
        return false;
    for (int i = 1; i < 5; ++i)
        if (!isdigit(static_cast<unsigned char>(offset[i])))
            return false;
    return (offset[1] - '0') * 10 + (offset[2] - '0') <= 14 && (offset[3] - '0') * 10 + (offset[4] - '0') < 60;
}

static std::string tagText(const DcmTagKey& key)
{
    return key.toString().c_str();
}

int main(int argc, char** argv)
{
    KQDictionary::registerEntries();

    std::vector<Assignment> assignments;
    std::string series, instance;
    const char* offset = nullptr;
    opterr = 0;
    int option;
    while ((option = getopt(argc, argv, "hz:m:TS:I:")) != -1)
    {
        switch (option)
        {
        case 'h':
            fputs(usageText, stdout);
            return 0;
        case 'z':
            if (!validOffset(optarg))
                return fail(std::string("invalid Timezone Offset From UTC (expected +HHMM or -HHMM): ") + optarg);
            offset = optarg;
            break;
        case 'T':
            series.clear();
            instance.clear();
            break;
        case 'S':
            if (!*optarg)
                return fail("empty Series Instance UID");
            series = optarg;
            instance.clear();
            break;
        case 'I':
            if (series.empty())
                return fail(std::string("-I ") + optarg + " needs a series selected with -S before it");
            if (!*optarg)
                return fail("empty SOP Instance UID");
            instance = optarg;
            break;
        case 'm': {
            const std::string arg(optarg);
            const size_t eq = arg.find('=');
            Assignment a;
            if (eq == std::string::npos || !parseTag(arg.substr(0, eq), a.key))
                return fail("invalid attribute assignment (expected \"(gggg,eeee)=value\"): " + arg);
            const DcmTag tag(a.key);
            if (tag.getEVR() == EVR_UNKNOWN || tag.getEVR() == EVR_UNKNOWN2B)
                return fail("attribute not in the data dictionary: " + tagText(a.key));
            if (tag.getEVR() == EVR_SQ)
                return fail("sequence attributes cannot be set: " + tagText(a.key));
            a.value = arg.substr(eq + 1);
            a.seriesUID = series;
            a.instanceUID = instance;
            const std::string refusal = assignmentRefusal(
                a.key, a.value.c_str(), instance.empty() ? (series.empty() ? CL_STUDY : CL_SERIES) : CL_INSTANCE);
            if (!refusal.empty())
                return fail(refusal);
            if (!isPlainASCII(a.value) && !isValidUTF8(a.value))
                return fail("the value of " + tagName(a.key) + " is neither plain ASCII nor UTF-8");
            assignments.push_back(a);
            break;
        }
        default:
            if (optopt && strchr("zmSI", optopt))
                return fail(std::string("option -") + char(optopt) + " needs an argument (see makeKqR -h)");
            return fail(std::string("unknown option -") + char(optopt ? optopt : '?') + " (see makeKqR -h)");
        }
    }
    if (optind == argc)
        return fail("no KqR file name given (see makeKqR -h)");
    if (optind + 1 < argc)
        return fail(std::string("unexpected argument: ") + argv[optind + 1]);
    const std::string path = argv[optind];

    // a date or time converted to each object's UTC offset needs its partner at the same level
    for (const Assignment& a : offset ? assignments : std::vector<Assignment>())
    {
        DcmTagKey partner;
        if (!dateTimePartner(a.key, partner))
            continue;
        bool paired = false;
        for (const Assignment& b : assignments)
            paired = paired || (b.key == partner && b.seriesUID == a.seriesUID && b.instanceUID == a.instanceUID);
        if (!paired)
            fprintf(stderr, "makeKqR: warning: %s is given without %s: it is not converted to each object's offset\n",
                    tagName(a.key).c_str(), tagName(partner).c_str());
    }

    KqRWriter writer;
    OFCondition cond = EC_Normal;
    for (const Assignment& a : assignments)
        if (!isPlainASCII(a.value))
        {
            // the values are recorded as given, in UTF-8
            cond = writer.fileFormat().getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 192");
            break;
        }
    if (offset)
        cond = writer.setTimezoneOffset(offset);
    for (const Assignment& a : assignments)
    {
        if (cond.bad())
            break;
        if (a.seriesUID.empty())
            cond = writer.setStudyAttribute(a.key, a.value.c_str());
        else if (a.instanceUID.empty())
            cond = writer.setSeriesAttribute(a.seriesUID.c_str(), a.key, a.value.c_str());
        else
            cond = writer.setInstanceAttribute(a.seriesUID.c_str(), a.instanceUID.c_str(), a.key, a.value.c_str());
        if (cond.bad())
            return fail("cannot set " + tagText(a.key) + " to \"" + a.value + "\": " + cond.text());
    }
    if (cond.bad())
        return fail(std::string("cannot set Timezone Offset From UTC: ") + cond.text());

    // write beside the target and rename, so that a failed write leaves no partial file
    const std::string temp = path + ".makekqr" + std::to_string(getpid());
    cond = writer.save(temp.c_str());
    if (cond.bad() || rename(temp.c_str(), path.c_str()) != 0)
    {
        const std::string reason = cond.bad() ? cond.text() : strerror(errno);
        unlink(temp.c_str());
        return fail("cannot write " + path + ": " + reason);
    }
    return 0;
}
