// makeKqR: writes a KqR file holding study-, series- and instance-level soft edit changes.

#include "privatetags/KQDictionary.h"
#include "dcmutils/ChangeSetCharset.h"
#include "dcmutils/ChangeSetCheck.h"
#include "dcmutils/KqRWriter.h"
#include "tools/options/ProgramOptions.h"

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

struct Assignment
{
    std::string seriesUID;   // empty: study level
    std::string instanceUID; // empty: series or study level
    DcmTagKey key;
    std::string value;
};

// The program's options and messages; set up first thing in main.
static ProgramOptions* options = nullptr;

static int fail(const std::string& message)
{
    options->error(message);
    return 1;
}

static const char* const helpEpilogue =
    "Assignments apply to the level selected last: study level at first, -S for a series,\n"
    "-I for an instance of that series, -T back to study level. Values are checked against\n"
    "their VR; a value that is not plain ASCII must be UTF-8 and makes the file record\n"
    "Specific Character Set \"ISO_IR 192\".\n"
    "\n"
    "exit status:\n"
    "  0  the KqR file is written\n"
    "  1  bad arguments or values (one line, no file written), or the file cannot be written\n"
    "\n"
    "example:\n"
    "  makeKqR -z +0100 -m \"(0010,0010)=Doe^Jane\" -S 1.2.3 -m \"SeriesDescription=Head\" \\\n"
    "          -I 1.2.3.4 -m \"InstanceNumber=7\" edit.kqr\n";

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
    ProgramOptions programOptions("makeKqR", "Write a KqR file of soft edit changes", OFLogger::WARN_LOG_LEVEL);
    options = &programOptions;
    OFCommandLine& cmd = programOptions.commandLine();
    cmd.addParam("kqrfile-out", "KqR file to write");
    programOptions.addGroup("change options:");
    cmd.addOption("--timezone-offset", "-z", 1, "[o]ffset: +HHMM or -HHMM",
                  "Timezone Offset From UTC the values are given in");
    cmd.addOption("--modify", "-m", 1, "\"(gggg,eeee)=value\" or \"Keyword=value\"",
                  "set an attribute at the level selected last\n(study level at first)");
    cmd.addOption("--study", "-T", "select the study level");
    cmd.addOption("--series", "-S", 1, "[u]id: Series Instance UID", "select the series level of this series");
    cmd.addOption("--instance", "-I", 1, "[u]id: SOP Instance UID",
                  "select the instance level of this instance\nin the selected series");
    programOptions.setHelpEpilogue(helpEpilogue);
    int status = 0;
    if (!programOptions.parse(argc, argv, status))
        return status;

    KQDictionary::registerEntries();

    std::vector<Assignment> assignments;
    std::string series, instance;
    std::string offsetValue;
    const char* offset = nullptr;
    // the options in the order given: each assignment belongs to the level selected before it
    for (bool more = cmd.gotoFirstOption(); more; more = cmd.gotoNextOption())
    {
        OFString option;
        cmd.getCurrentOption(option);
        const char* optarg = nullptr;
        if (option == "--timezone-offset")
        {
            cmd.getValue(optarg);
            if (!validOffset(optarg))
                return fail(std::string("invalid Timezone Offset From UTC (expected +HHMM or -HHMM): ") + optarg);
            offsetValue = optarg;
            offset = offsetValue.c_str();
        }
        else if (option == "--study")
        {
            series.clear();
            instance.clear();
        }
        else if (option == "--series")
        {
            cmd.getValue(optarg);
            if (!*optarg)
                return fail("empty Series Instance UID");
            series = optarg;
            instance.clear();
        }
        else if (option == "--instance")
        {
            cmd.getValue(optarg);
            if (series.empty())
                return fail(std::string("-I ") + optarg + " needs a series selected with -S before it");
            if (!*optarg)
                return fail("empty SOP Instance UID");
            instance = optarg;
        }
        else if (option == "--modify")
        {
            cmd.getValue(optarg);
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
        }
    }
    const char* pathArg = nullptr;
    cmd.getParam(1, pathArg);
    const std::string path = pathArg;

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
            programOptions.warning(tagName(a.key) + " is given without " + tagName(partner) +
                                   ": it is not converted to each object's offset");
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
