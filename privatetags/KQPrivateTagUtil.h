// Helpers of KQItem's two halves, block management (KQItem.cpp) and legacy relocation
// (KQItemRelocation.cpp). Not for use outside the privatetags library.
#ifndef KQPRIVATETAGUTIL_H
#define KQPRIVATETAGUTIL_H

#include "privatetags/KQItem.h"

#include <cstring>

namespace kqprivate {

const unsigned short LEGACY_BLOCK_BA = 0xBA;
const unsigned short LEGACY_BLOCK_DA = 0xDA;

// The block byte of a key of group F215 (its element's high byte).
inline unsigned short blockOf(const DcmTagKey& key)
{
    return key.getElement() >> 8;
}

inline bool isLegacyBlock(unsigned short block)
{
    return block == LEGACY_BLOCK_BA || block == LEGACY_BLOCK_DA;
}

// True when a creator element's value is exactly the given creator.
inline bool readsAsCreator(const char* value, const char* creator)
{
    return value != NULL && strcmp(value, creator) == 0;
}

// Canonical number of a legacy key; false when the key is not in KQItem's map.
bool findCanonic(const DcmTagKey& key, unsigned short& canonic);

// Gives an element a new element number in our block. The element must not be inside an
// item at that moment, since items keep their elements sorted by tag.
void retag(DcmObject& object, Uint16 element);

} // namespace kqprivate

#endif
