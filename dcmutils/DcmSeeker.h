// A forward cursor over the elements of one item, for look-ups in ascending tag order.
#ifndef DCMSEEKER_H
#define DCMSEEKER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcitem.h"

class DcmSeeker
{
public:
    explicit DcmSeeker(DcmItem& item);

    // Puts the cursor back on the item's first element.
    void reset();
    // The element with tag key, or null. Keys in ascending order cost one pass over the item;
    // a key not beyond the last one passed restarts from the first element.
    DcmElement* find(const DcmTagKey& key);
    // Removes the element under the cursor from the item (the caller owns it) and moves on.
    DcmElement* removeCurrent();

private:
    DcmItem& m_item;
    DcmElement* m_current;
    DcmTagKey m_last;
};

#endif
