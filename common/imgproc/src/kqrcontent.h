// The private content of a KqR object, read through its KQ block.
#ifndef KQRCONTENT_H
#define KQRCONTENT_H

#include "common/imgproc/src/extracteddata.h"

#include <string>
#include <vector>

/** Reads the scope of a KqR object's change from its KQ private block (through KQItem): the
 *  content description (0x3A), the scope (0x45) and, for a partial scope, the scope date and
 *  time (0x47, 0x48), the referenced instances (0x46) with their modality, the referenced
 *  series (0x49) with their own scope, date and time, and the referenced studies (0x4A). Holds
 *  no buffer of the memory. */
class CKqRContent : public CExtractedData
{
public:
    /// Scopes (m_scope).
    enum SCOPE
    {
        SCOPE_NONE = 0,
        SCOPE_STUDY = 1,
        SCOPE_PARTIAL = 2
    };

    /// One referenced series item of 0x49.
    struct Series
    {
        std::string uid;
        std::string scope;
        std::string date;
        std::string time;
    };

    /// The content of process's dataset (borrowed).
    explicit CKqRContent(CImageProcess* process);
    /// True when the process has a dataset.
    bool init() override;
    /** Reads the block. 0 (success) without a scope (nothing more read) or with "STUDY"; for
     *  "PARTIAL" 0 once the references are read, 1 when a referenced instance lacks its
     *  Referenced SOP Class UID or a referenced series its Series Instance UID; 1 for any
     *  other scope. */
    int postProcess() override;

    /// 0x3A, empty when absent.
    std::string m_description;
    /// SCOPE.
    int m_scope;
    /// 0x47 and 0x48 of a partial scope.
    std::string m_date;
    std::string m_time;
    /// Modality of each referenced instance of 0x46 (dcmSOPClassUIDToModality; empty when
    /// unknown), in item order.
    std::vector<std::string> m_instanceModalities;
    /// The referenced series of 0x49.
    std::vector<Series> m_series;
    /// Number of items of 0x4A.
    unsigned long m_studyCount;
};

#endif
