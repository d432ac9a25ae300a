#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dcdicent.h"

namespace {

struct KQEntry
{
    Uint16 element;
    DcmEVR vr;
    const char* name;
    int vmMin;
    int vmMax;
};

// Element numbers are offsets within the block; the block itself is chosen per item.
const KQEntry kqEntries[] = {
    {0x15, EVR_DA, "KQChangeDate", 1, 1},
    {0x16, EVR_TM, "KQChangeTime", 1, 1},
    {0x3A, EVR_LO, "KQContentDescription", 1, 1},
    {0x45, EVR_CS, "KQScope", 1, 1},
    {0x46, EVR_SQ, "KQReferencedInstanceSequence", 1, 1},
    {0x47, EVR_DA, "KQScopeDate", 1, 1},
    {0x48, EVR_TM, "KQScopeTime", 1, 1},
    {0x49, EVR_SQ, "KQReferencedSeriesSequence", 1, 1},
    {0x4A, EVR_SQ, "KQReferencedStudySequence", 1, 1},
    {0x62, EVR_SQ, "KQChangeSequence", 1, 1},
    {0x63, EVR_SQ, "KQSeriesChangeSequence", 1, 1},
    {0x64, EVR_SQ, "KQInstanceChangeSequence", 1, 1},
    {0x71, EVR_SQ, "KQOverlaySequence", 1, 1},
    {0x72, EVR_CS, "KQOverlayCompression", 1, 1},
    {0x73, EVR_OB, "KQOverlayData", 1, 1},
};

bool registered = false;

} // namespace

void KQDictionary::registerEntries()
{
    if (registered)
        return;
    DcmDataDictionary& dict = dcmDataDict.wrlock();
    for (const KQEntry& entry : kqEntries)
    {
        // DCMTK keys private entries by their offset in the block, so one entry serves every block.
        dict.addEntry(new DcmDictEntry(KQ_PRIVATE_GROUP, entry.element, DcmVR(entry.vr), entry.name, entry.vmMin,
                                       entry.vmMax, "private", OFTrue, KQ_PRIVATE_CREATOR));
    }
    dcmDataDict.wrunlock();
    registered = true;
}
