// A forward cursor over the elements of one item.
#include "dcmutils/DcmSeeker.h"

#include "dcmtk/dcmdata/dcelem.h"

DcmSeeker::DcmSeeker(DcmItem& item)
  : m_item(item)
  , m_current(NULL)
  , m_last(0, 0)
{
    reset();
}

void DcmSeeker::reset()
{
    m_current = OFstatic_cast(DcmElement*, m_item.nextInContainer(NULL));
    m_last = DcmTagKey(0, 0);
}

DcmElement* DcmSeeker::find(const DcmTagKey& key)
{
    // A key at or before the last element passed over lies behind the cursor.
    if (m_current == NULL || key.getGroup() < m_last.getGroup() ||
        (key.getGroup() == m_last.getGroup() && key.getElement() <= m_last.getElement()))
        reset();
    while (m_current != NULL)
    {
        const DcmTagKey current = m_current->getTag();
        if (current == key)
            return m_current;
        if (current > key)
            return NULL;
        m_last = current;
        m_current = OFstatic_cast(DcmElement*, m_item.nextInContainer(m_current));
    }
    return NULL;
}

DcmElement* DcmSeeker::removeCurrent()
{
    if (m_current == NULL)
        return NULL;
    DcmElement* removed = m_current;
    m_current = OFstatic_cast(DcmElement*, m_item.nextInContainer(removed));
    return m_item.remove(removed);
}
