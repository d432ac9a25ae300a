// The preview of a KqR file written for a person (text) or a program (JSON).
#ifndef APPLYCHANGES_PREVIEWREPORT_H
#define APPLYCHANGES_PREVIEWREPORT_H

#include "applychanges/ChangePreview.h"

#include <ostream>
#include <string>

/** Writes what a ChangePreview found. The JSON document's fields:
 *  - "kqrFile": the KqR file; "changeSetRefusal": why a run would refuse the change set, or null;
 *  - "objects": in walk order, each with "path", "sopInstanceUID", "state" ("changes",
 *    "unchanged", "refused", "failed"), "matched" {"study": bool, "series": uid or null,
 *    "instance": uid or null}, "changes" [{"tag", "keyword", "before" (null: none), "after"}]
 *    and "reason" (the run's line, or null);
 *  - "stopsAt": the path of the object a run would stop at, or null;
 *  - "items": the series and instance items, each with "level" ("series", "instance"), "uid",
 *    "seriesUID" and "objects" (how many it matched);
 *  - "summary": {"change", "unchanged", "refused", "failed", "unmatchedItems"}.
 */
class PreviewReport
{
public:
    /** Borrows the preview, which outlives the report.
     *  @param changeSetRefusal the change set's refusal (empty: none; then objects are listed) */
    PreviewReport(const ChangePreview& preview, const std::string& kqrPath, const std::string& changeSetRefusal);

    /** The readable form: one block per object, the items, a summary line. */
    void writeText(std::ostream& out) const;

    /** One JSON document (UTF-8, invalid bytes of damaged values replaced). */
    void writeJson(std::ostream& out) const;

    /** True when a run would complete: no refusal of the change set, no object it stops at. */
    bool runWouldSucceed() const;

private:
    const ChangePreview& m_preview;
    std::string m_kqrPath;
    std::string m_changeSetRefusal;
};

#endif
