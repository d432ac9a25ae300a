#include "dcmutils/ChangeSetIndex.h"

ChangeSetIndex::ChangeSetIndex() {}

OFCondition ChangeSetIndex::find(DcmSequenceOfItems& seq, const DcmTagKey& uidKey, const OFString& uid, Match& match)
{
    match = Match();
    std::unique_ptr<SequenceMap>& map = m_maps[&seq];
    if (!map)
    {
        // made once per sequence, walking the items with the list's own iterator
        map.reset(new SequenceMap);
        long position = 0;
        for (DcmObject* obj = seq.nextInContainer(nullptr); obj; obj = seq.nextInContainer(obj), ++position)
        {
            OFString value;
            const OFCondition cond = OFstatic_cast(DcmItem*, obj)->findAndGetOFString(uidKey, value, 0, OFFalse);
            if (cond.bad())
            {
                if (map->unreadable < 0)
                {
                    map->unreadable = position;
                    map->unreadableCondition = cond;
                }
                continue;
            }
            map->first.emplace(value.c_str(), std::make_pair(position, OFstatic_cast(DcmItem*, obj)));
        }
    }
    const auto found = map->first.find(uid.c_str());
    const long position = found == map->first.end() ? -1 : found->second.first;
    // a walk in item order meets an item without its UID before the match, or meets it anyway
    if (map->unreadable >= 0 && (position < 0 || map->unreadable < position))
        return map->unreadableCondition;
    if (position >= 0)
    {
        match.item = found->second.second;
        match.position = position;
    }
    return EC_Normal;
}
