#include "common/imgproc/src/dicomparser.h"
#include "common/imgproc/src/dicomtaggroupdata.h"
#include "common/imgproc/src/dicomtaggrouplist.h"

#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcitem.h"

CDicomTagParser2::CDicomTagParser2()
  : m_removeRequested(false)
  , m_current(nullptr)
  , m_userData(nullptr)
  , m_item(nullptr)
  , m_index(-1)
  , m_preprocess(NoPreprocessFunction)
  , m_groups(nullptr)
{
}

CDicomTagParser2::~CDicomTagParser2()
{
}

void CDicomTagParser2::removeElement()
{
    m_removeRequested = true;
}

bool CDicomTagParser2::NoPreprocessFunction(IDicomTagParser2* /* parser */)
{
    return true;
}

bool CDicomTagParser2::step()
{
    if (m_removeRequested && m_current != nullptr)
    {
        DcmObject* next = m_item->nextInContainer(m_current);
        delete m_item->remove(m_current);
        m_current = next;
        m_removeRequested = false;
    }
    else
    {
        m_removeRequested = false;
        m_current = m_item->nextInContainer(m_current);
        if (m_current != nullptr)
            ++m_index;
    }
    return m_current != nullptr;
}

void CDicomTagParser2::parseTags(DcmItem* item, void* userData, SDicomTagGroupList* list,
                                 bool (*preprocess)(IDicomTagParser2*))
{
    m_preprocess = preprocess ? preprocess : NoPreprocessFunction;
    m_item = item;
    m_userData = userData;
    m_groups = list ? list->m_groups : nullptr;
    m_index = -1;
    m_current = nullptr;
    InitPrivateData();
    m_removeRequested = false;
    if (m_item == nullptr)
        return;

    IDicomTagParserData* candidate = m_groups;
    unsigned int candidateStart = candidate ? candidate->m_start : 0xFFFFFFFFu;
    IDicomTagParserData* active = nullptr;
    void* cursor = nullptr;

    while (step())
    {
        if (!m_preprocess(this))
            continue;
        const DcmTagKey tag = m_current->getTag();
        const unsigned int key = dicomTagNumber(tag.getGroup(), tag.getElement());
        if (candidateStart <= key && key != 0xFFFFFFFFu)
        {
            // nodes left behind here are never visited again: keys only ascend
            while (candidate != nullptr && candidate->m_start <= key)
            {
                if (candidate->m_end > key)
                {
                    if (active != nullptr)
                        active->ReleaseTagData(cursor);
                    active = candidate;
                    cursor = active->InitTag();
                }
                candidate = candidate->m_next;
            }
            candidateStart = candidate ? candidate->m_start : 0xFFFFFFFFu;
        }
        if (active != nullptr && !active->CheckTag(key, this, cursor))
        {
            active->ReleaseTagData(cursor);
            active = nullptr;
            cursor = nullptr;
        }
    }
    if (active != nullptr)
        active->ReleaseTagData(cursor);
}
