#include "applychanges/ChangePreview.h"

#include "applychanges/EditedObject.h"
#include "dcmutils/ChangeSetCheck.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcspchrs.h"

#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <unistd.h>

#include <cstring>
#include <map>

namespace {

std::string part(const char* path, bool directoryPart)
{
    std::vector<char> copy(path, path + strlen(path) + 1);
    return directoryPart ? dirname(copy.data()) : basename(copy.data());
}

// The error lines of an entry's report, without the toolkit's own log lines.
std::string reasonOf(const ObjectReport& report)
{
    const std::string text = report.errorText();
    std::string reason;
    size_t start = 0;
    while (start < text.size())
    {
        const size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        const bool toolkitLine = line.size() > 2 && line[1] == ':' && line[2] == ' ' && strchr("FEWIDT", line[0]);
        if (!toolkitLine && !line.empty())
            reason += (reason.empty() ? "" : "\n") + line;
        start = end + 1;
    }
    return reason;
}

// Values in the object's character set, shown as UTF-8.
class TextConverter
{
public:
    explicit TextConverter(const OFString& charset)
        : m_convert(!charset.empty() && charset != "ISO_IR 6" && charset != "ISO_IR 192")
    {
        if (m_convert && m_converter.selectCharacterSet(charset).bad())
            m_convert = false;
    }
    std::string operator()(const std::string& text)
    {
        OFString converted;
        if (m_convert && m_converter.convertString(text.c_str(), converted).good())
            return converted.c_str();
        return text;
    }

private:
    DcmSpecificCharacterSet m_converter;
    bool m_convert;
};

} // namespace

ChangePreview::ChangePreview(DcmDataset& changes, const struct stat& kqrStatus)
    : m_changes(changes)
    , m_rules(kqrStatus)
    , m_directories(false)
    , m_loader(m_rules, m_directories, false)
    , m_changeSet(changes)
    , m_stopsAt(-1)
{
}

std::string ChangePreview::changeSetRefusal()
{
    std::string reason;
    return checkChangeSet(m_changes, reason) ? std::string() : reason;
}

void ChangePreview::previewObject(const char* path)
{
    ObjectDirectory* directory = m_directories.directory(part(path, true));
    if (!directory)
    {
        PreviewObject object;
        object.path = path;
        object.state = PreviewObject::PO_FAILED;
        object.reason = "Error loading " + std::string(path) + " [" + strerror(errno) + "]";
        m_stopsAt = 0;
        m_objects.push_back(object);
        return;
    }
    look(path, part(path, false), DT_UNKNOWN, *directory, false);
}

bool ChangePreview::previewStudyDirectory(const char* path)
{
    ObjectDirectory* directory = m_directories.directory(path);
    DIR* dir = directory ? directory->list() : nullptr;
    if (!dir)
        return false;
    while (struct dirent* entry = readdir(dir))
        if (m_rules.byEntry(entry->d_name, entry->d_type).verdict != ObjectDecision::OD_SKIP)
            look(std::string(path) + "/" + entry->d_name, entry->d_name, entry->d_type, *directory, true);
    closedir(dir);
    return true;
}

void ChangePreview::look(const std::string& path, const std::string& entryName, unsigned char entryType,
                         ObjectDirectory& directory, bool inDirectory)
{
    EditedObject entry(path, entryName, entryType);
    {
        ReportLog::Scope scope(entry.m_report);
        m_loader.load(entry, directory, inDirectory);
    }
    if (entry.m_state == EditedObject::EO_SKIPPED)
        return;
    PreviewObject object;
    object.path = path;
    if (entry.m_state != EditedObject::EO_LOADED)
    {
        object.reason = reasonOf(entry.m_report);
        object.state = object.reason.compare(0, 8, "Refusing") == 0 ? PreviewObject::PO_REFUSED
                                                                     : PreviewObject::PO_FAILED;
    }
    else
    {
        DcmDataset& dataset = *entry.m_file->getDataset();
        OFString text;
        dataset.findAndGetOFString(DCM_SOPInstanceUID, text, 0, OFFalse);
        object.sopInstanceUID = text.c_str();
        OFString charset;
        dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, charset, OFFalse);
        SoftEditOutcome outcome;
        outcome.describe = true;
        std::string refusal;
        OFCondition cond;
        {
            ReportLog::Scope scope(entry.m_report);
            cond = m_changeSet.apply(dataset, outcome, refusal);
        }
        if (!refusal.empty())
        {
            object.state = PreviewObject::PO_REFUSED;
            object.reason = "Refusing to edit " + path + ": " + refusal;
        }
        else if (cond.bad())
        {
            object.state = PreviewObject::PO_FAILED;
            object.reason = "Error applying soft edit changes to " + path + " [" + cond.text() + "]";
        }
        else
        {
            object.state = outcome.changed() ? PreviewObject::PO_CHANGES : PreviewObject::PO_UNCHANGED;
            object.study = outcome.studyLevel;
            object.series = outcome.seriesItem >= 0 ? outcome.seriesUID.c_str() : "";
            object.instance = outcome.instanceItem >= 0 ? outcome.instanceUID.c_str() : "";
            // a key written at more than one level: its first value before, its last after
            TextConverter utf8(charset);
            std::map<DcmTagKey, size_t> at;
            for (const SoftEditChange& change : outcome.changes)
            {
                auto found = at.find(change.key);
                if (found == at.end())
                {
                    if (!change.changed)
                        continue;
                    PreviewChange shown;
                    shown.tag = change.key.toString().c_str();
                    DcmTag tag(change.key);
                    const char* keyword = tag.getTagName();
                    shown.keyword = keyword && strcmp(keyword, DcmTag_ERROR_TagName) != 0 ? keyword : "";
                    shown.existed = change.existed;
                    shown.before = utf8(change.before);
                    at[change.key] = object.changes.size();
                    object.changes.push_back(shown);
                    found = at.find(change.key);
                }
                object.changes[found->second].after = utf8(change.after);
            }
        }
    }
    if (m_stopsAt < 0 && (object.state == PreviewObject::PO_REFUSED || object.state == PreviewObject::PO_FAILED))
        m_stopsAt = long(m_objects.size());
    m_objects.push_back(object);
}
