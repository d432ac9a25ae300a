#include "common/imgproc/src/kqrcontent.h"
#include "common/imgproc/src/imageprocess.h"

#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcuid.h"

namespace {

std::string kqString(KQItem& kq, unsigned short element)
{
    const char* value = nullptr;
    if (kq.findAndGetKQString(element, value).good() && value != nullptr)
        return value;
    return std::string();
}

} // namespace

CKqRContent::CKqRContent(CImageProcess* process)
  : CExtractedData(process, EXTRACTED_KQR_CONTENT)
  , m_scope(SCOPE_NONE)
  , m_studyCount(0)
{
}

bool CKqRContent::init()
{
    return m_process != nullptr && m_process->getDataset() != nullptr;
}

int CKqRContent::postProcess()
{
    if (m_process == nullptr || m_process->getDataset() == nullptr)
        return 1;
    KQItem kq(*m_process->getDataset());
    m_description = kqString(kq, 0x3A);
    const std::string scope = kqString(kq, 0x45);
    if (scope.empty())
        return 0;
    if (scope == "STUDY")
    {
        m_scope = SCOPE_STUDY;
        return 0;
    }
    if (scope != "PARTIAL")
        return 1;
    m_scope = SCOPE_PARTIAL;
    m_date = kqString(kq, 0x47);
    m_time = kqString(kq, 0x48);

    int result = 0;
    DcmSequenceOfItems* sequence = nullptr;
    if (kq.findAndGetKQSequence(0x46, sequence).good() && sequence != nullptr)
    {
        for (unsigned long i = 0; i < sequence->card(); ++i)
        {
            const char* sopClass = nullptr;
            if (sequence->getItem(i)->findAndGetString(DCM_ReferencedSOPClassUID, sopClass).bad() || sopClass == nullptr)
            {
                result = 1;
                continue;
            }
            const char* modality = dcmSOPClassUIDToModality(sopClass);
            m_instanceModalities.push_back(modality ? modality : "");
        }
    }
    sequence = nullptr;
    if (kq.findAndGetKQSequence(0x49, sequence).good() && sequence != nullptr)
    {
        for (unsigned long i = 0; i < sequence->card(); ++i)
        {
            DcmItem* item = sequence->getItem(i);
            Series series;
            const char* uid = nullptr;
            if (item->findAndGetString(DCM_SeriesInstanceUID, uid).bad() || uid == nullptr)
            {
                result = 1;
                continue;
            }
            series.uid = uid;
            KQItem itemKq(*item);
            series.scope = kqString(itemKq, 0x45);
            series.date = kqString(itemKq, 0x47);
            series.time = kqString(itemKq, 0x48);
            m_series.push_back(series);
        }
    }
    sequence = nullptr;
    if (kq.findAndGetKQSequence(0x4A, sequence).good() && sequence != nullptr)
        m_studyCount = sequence->card();
    return result;
}
