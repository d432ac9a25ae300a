#include "applychanges/PreviewReport.h"

#include <nlohmann/json.hpp>

namespace {

const char* stateName(PreviewObject::STATE state)
{
    switch (state)
    {
    case PreviewObject::PO_CHANGES: return "changes";
    case PreviewObject::PO_UNCHANGED: return "unchanged";
    case PreviewObject::PO_REFUSED: return "refused";
    case PreviewObject::PO_FAILED: return "failed";
    }
    return "";
}

nlohmann::json orNull(const std::string& text)
{
    return text.empty() ? nlohmann::json() : nlohmann::json(text);
}

struct Counts
{
    unsigned long change = 0, unchanged = 0, refused = 0, failed = 0, unmatched = 0;
};

Counts count(const ChangePreview& preview)
{
    Counts counts;
    for (const PreviewObject& object : preview.objects())
        switch (object.state)
        {
        case PreviewObject::PO_CHANGES: ++counts.change; break;
        case PreviewObject::PO_UNCHANGED: ++counts.unchanged; break;
        case PreviewObject::PO_REFUSED: ++counts.refused; break;
        case PreviewObject::PO_FAILED: ++counts.failed; break;
        }
    for (const ChangeSet::Item& item : preview.items())
        counts.unmatched += item.matches == 0;
    return counts;
}

std::string matchedText(const PreviewObject& object)
{
    std::string text = object.study ? "study" : "";
    if (!object.series.empty())
        text += ", series " + object.series;
    if (!object.instance.empty())
        text += ", instance " + object.instance;
    return text;
}

} // namespace

PreviewReport::PreviewReport(const ChangePreview& preview, const std::string& kqrPath,
                             const std::string& changeSetRefusal)
    : m_preview(preview), m_kqrPath(kqrPath), m_changeSetRefusal(changeSetRefusal)
{
}

bool PreviewReport::runWouldSucceed() const
{
    return m_changeSetRefusal.empty() && m_preview.stopsAt() < 0;
}

void PreviewReport::writeText(std::ostream& out) const
{
    if (!m_changeSetRefusal.empty())
    {
        out << "A run would refuse the changes of KqR file " << m_kqrPath << ": " << m_changeSetRefusal
            << "\nNo object would change." << std::endl;
        return;
    }
    const std::vector<PreviewObject>& objects = m_preview.objects();
    for (size_t i = 0; i < objects.size(); ++i)
    {
        const PreviewObject& object = objects[i];
        out << object.path;
        if (!object.sopInstanceUID.empty())
            out << " (SOP Instance UID " << object.sopInstanceUID << ")";
        switch (object.state)
        {
        case PreviewObject::PO_CHANGES:
            out << ": matches " << matchedText(object) << std::endl;
            for (const PreviewChange& change : object.changes)
                out << "    " << change.tag << (change.keyword.empty() ? "" : " ") << change.keyword << ": "
                    << (change.existed ? "[" + change.before + "]" : std::string("(none)")) << " -> ["
                    << change.after << "]" << std::endl;
            break;
        case PreviewObject::PO_UNCHANGED:
            out << ": matches " << matchedText(object) << "; nothing would change" << std::endl;
            break;
        case PreviewObject::PO_REFUSED:
        case PreviewObject::PO_FAILED:
            out << ": " << stateName(object.state) << std::endl;
            out << "    " << object.reason << std::endl;
            break;
        }
        if (long(i) == m_preview.stopsAt())
            out << "    a run would stop here: this object and the ones after it would stay as they are"
                << std::endl;
    }
    if (!m_preview.items().empty())
        out << "Items:" << std::endl;
    for (const ChangeSet::Item& item : m_preview.items())
    {
        out << "  " << (item.instance ? "instance " : "series ") << item.uid;
        if (item.instance)
            out << " (series " << item.seriesUID << ")";
        if (item.matches == 0)
            out << ": matched no object" << std::endl;
        else
            out << ": " << item.matches << (item.matches == 1 ? " object" : " objects") << std::endl;
    }
    const Counts counts = count(m_preview);
    out << "Summary: " << counts.change << " would change, " << counts.unchanged << " unchanged, " << counts.refused
        << " refused, " << counts.failed << " failed; " << counts.unmatched
        << (counts.unmatched == 1 ? " item matched" : " items matched") << " nothing";
    if (m_preview.stopsAt() >= 0)
        out << "; a run would stop at " << objects[size_t(m_preview.stopsAt())].path;
    out << std::endl;
}

void PreviewReport::writeJson(std::ostream& out) const
{
    nlohmann::ordered_json document;
    document["kqrFile"] = m_kqrPath;
    document["changeSetRefusal"] = orNull(m_changeSetRefusal);
    nlohmann::ordered_json objects = nlohmann::ordered_json::array();
    const bool listed = m_changeSetRefusal.empty();
    for (const PreviewObject& object : m_preview.objects())
    {
        if (!listed)
            break;
        nlohmann::ordered_json entry;
        entry["path"] = object.path;
        entry["sopInstanceUID"] = orNull(object.sopInstanceUID);
        entry["state"] = stateName(object.state);
        entry["matched"] = {{"study", object.study}, {"series", orNull(object.series)},
                            {"instance", orNull(object.instance)}};
        nlohmann::ordered_json changes = nlohmann::ordered_json::array();
        for (const PreviewChange& change : object.changes)
            changes.push_back({{"tag", change.tag},
                               {"keyword", change.keyword},
                               {"before", change.existed ? nlohmann::ordered_json(change.before) : nullptr},
                               {"after", change.after}});
        entry["changes"] = changes;
        entry["reason"] = orNull(object.reason);
        objects.push_back(entry);
    }
    document["objects"] = objects;
    const long stop = m_preview.stopsAt();
    document["stopsAt"] = listed && stop >= 0 ? nlohmann::ordered_json(m_preview.objects()[size_t(stop)].path)
                                              : nlohmann::ordered_json();
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const ChangeSet::Item& item : m_preview.items())
        items.push_back({{"level", item.instance ? "instance" : "series"},
                         {"uid", item.uid},
                         {"seriesUID", item.seriesUID},
                         {"objects", listed ? item.matches : 0}});
    document["items"] = items;
    const Counts counts = count(m_preview);
    document["summary"] = {{"change", counts.change},   {"unchanged", counts.unchanged},
                           {"refused", counts.refused}, {"failed", counts.failed},
                           {"unmatchedItems", counts.unmatched}};
    // damaged values may hold bytes that are no UTF-8: replaced rather than thrown on
    out << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::endl;
}
