// Helpers shared by the private tag tests: building private elements and watching the log.
#ifndef KQTESTSUPPORT_H
#define KQTESTSUPPORT_H

#include "privatetags/KQItem.h"
#include "privatetags/KQLog.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace kqtest {

using fixtures::value;
typedef std::vector<Uint16> Elements;

// Collects the private tag layer's log messages while alive.
class LogCapture
{
public:
    LogCapture() : m_previous(KQLog::setObserver(&LogCapture::record)) { lines().clear(); }
    ~LogCapture() { KQLog::setObserver(m_previous); }
    static std::vector<std::string>& lines()
    {
        static std::vector<std::string> collected;
        return collected;
    }
    bool contains(const std::string& text) const { return std::count(lines().begin(), lines().end(), text) > 0; }

private:
    static void record(const char* text) { lines().push_back(text); }
    KQLog::Observer m_previous;
};

inline DcmTagKey f215(Uint16 element)
{
    return DcmTagKey(KQ_PRIVATE_GROUP, element);
}

// Puts a creator string into slot (F215,00<block>).
inline void putCreator(DcmItem& item, Uint16 block, const char* creator)
{
    item.putAndInsertString(DcmTag(f215(block), DcmVR(EVR_LO)), creator);
}

// Puts a string element of group F215 with an explicit VR, as an older writer did.
inline void putPrivate(DcmItem& item, Uint16 element, const char* text, DcmEVR vr = EVR_LO)
{
    item.putAndInsertString(DcmTag(f215(element), DcmVR(vr)), text);
}

// Element numbers of the top-level elements of group F215, in item order.
inline Elements privateElements(DcmItem& item)
{
    Elements elements;
    for (DcmObject* obj = item.nextInContainer(NULL); obj; obj = item.nextInContainer(obj))
        if (obj->getTag().getGroup() == KQ_PRIVATE_GROUP)
            elements.push_back(obj->getTag().getElement());
    return elements;
}

// Appends a fresh item to a sequence element at seqKey (created when missing).
inline DcmItem* appendItem(DcmItem& parent, const DcmTagKey& seqKey)
{
    DcmItem* item = NULL;
    parent.findOrCreateSequenceItem(DcmTag(seqKey, DcmVR(EVR_SQ)), item, -2);
    return item;
}

} // namespace kqtest

#endif
