// KQItem: the map of legacy private tags and their relocation into the current block.
#include "privatetags/KQItem.h"
#include "privatetags/KQLog.h"
#include "privatetags/KQPrivateTagUtil.h"

#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <unistd.h>

std::map<DcmTagKey, unsigned short> KQItem::m_privateKeyMap;
bool KQItem::m_isMapCreated = false;

using namespace kqprivate;

namespace {

struct LegacyEntry
{
    Uint16 element;
    unsigned short canonic;
};

// Legacy element numbers in group F215 and the canonical numbers they stand for.
// The numbering of the old releases is irregular; the table keeps it as it was.
const LegacyEntry legacyEntries[] = {
    // block BA
    {0xBA00, 0x10}, {0xBA01, 0x01}, {0xBA02, 0x02}, {0xBA03, 0x03}, {0xBA04, 0x04}, {0xBA05, 0x05},
    {0xBA06, 0x06}, {0xBA07, 0x07}, {0xBA11, 0x11}, {0xBA12, 0x12}, {0xBA21, 0x13}, {0xBA22, 0x14},
    {0xBA31, 0x0E}, {0xBA41, 0x1A}, {0xBA42, 0x1B}, {0xBA51, 0x15}, {0xBA52, 0x16}, {0xBA53, 0x17},
    {0xBA54, 0x18}, {0xBA61, 0x2A}, {0xBA62, 0x2B}, {0xBA71, 0x21}, {0xBA72, 0x22}, {0xBA73, 0x23},
    {0xBA74, 0x24}, {0xBA75, 0x25}, {0xBA81, 0x31}, {0xBA82, 0x32}, {0xBA83, 0x33}, {0xBA91, 0x34},
    {0xBA92, 0x35}, {0xBA93, 0x36}, {0xBA94, 0x94}, {0xBAA0, 0x37}, {0xBAA1, 0x38}, {0xBABA, 0x1D},
    // block DA
    {0xDA01, 0x41}, {0xDA02, 0x42}, {0xDA03, 0x43}, {0xDA04, 0x44}, {0xDA11, 0x51}, {0xDA12, 0x52},
    {0xDA13, 0x53}, {0xDA14, 0x54}, {0xDA15, 0x55}, {0xDA21, 0x61}, {0xDA31, 0x62}, {0xDA32, 0x63},
    {0xDA33, 0x64}, {0xDA38, 0x65}, {0xDA41, 0x6A}, {0xDA42, 0x6B}, {0xDA43, 0x6C}, {0xDA51, 0x71},
    {0xDA52, 0x72}, {0xDA53, 0x73}, {0xDA61, 0x76}, {0xDA62, 0x7A}, {0xDA63, 0x7B}, {0xDA71, 0x0A},
    {0xDA72, 0x0B}, {0xDA73, 0x0C}, {0xDA74, 0x0D}, {0xDA80, 0x3A}, {0xDADA, 0x1E},
    // canonical block 10
    {0x10A5, 0xA5}, {0x10A6, 0xA6}, {0x10A8, 0xA8},
};

} // namespace

bool kqprivate::findCanonic(const DcmTagKey& key, unsigned short& canonic)
{
    KQItem::createMap();
    std::map<DcmTagKey, unsigned short>::const_iterator it = KQItem::m_privateKeyMap.find(key);
    if (it == KQItem::m_privateKeyMap.end())
        return false;
    canonic = it->second;
    return true;
}

void kqprivate::retag(DcmObject& object, Uint16 element)
{
    // The tag is a plain member of the element; DCMTK offers no setter for the element number.
    DcmTag& tag = OFconst_cast(DcmTag&, object.getTag());
    tag.setElement(element);
    tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
}

void KQItem::reportDropped(const DcmTagKey& from, const DcmTagKey& to, unsigned short block)
{
    if (!m_dropped)
        return;
    char text[128];
    if (to == DcmTagKey())
        snprintf(text, sizeof(text), "%s of legacy block %02X: it has no canonical number", from.toString().c_str(),
                 block);
    else if (block != 0)
        snprintf(text, sizeof(text), "%s of legacy block %02X: the item already holds %s", from.toString().c_str(),
                 block, to.toString().c_str());
    else
        snprintf(text, sizeof(text), "%s: the item already holds %s", from.toString().c_str(), to.toString().c_str());
    m_dropped->push_back(text);
}

bool KQItem::relocateLegacyPrivateTags(bool relocateCanonic)
{
    const bool blockBA = isOldBlockOurs(LEGACY_BLOCK_BA);
    const bool blockDA = isOldBlockOurs(LEGACY_BLOCK_DA);
    DcmItem moved;
    // where each moved element came from: its key and legacy block (0: the canonical block)
    std::map<DcmTagKey, std::pair<DcmTagKey, unsigned short>> origin;

    DcmObject* obj = m_item.nextInContainer(NULL);
    while (obj != NULL)
    {
        DcmObject* next = m_item.nextInContainer(obj);
        const DcmTagKey key = obj->getTag();
        if (key.getGroup() == KQ_PRIVATE_GROUP)
        {
            const unsigned short block = blockOf(key);
            if ((block == LEGACY_BLOCK_BA && blockBA) || (block == LEGACY_BLOCK_DA && blockDA))
            {
                DcmElement* element = m_item.remove(obj);
                unsigned short canonic = 0;
                if (element != NULL && findCanonic(key, canonic))
                {
                    retag(*element, OFstatic_cast(Uint16, m_base | canonic));
                    origin[element->getTag()] = std::make_pair(key, block);
                    if (moved.insert(element, OFFalse, OFFalse).bad())
                    {
                        reportDropped(key, element->getTag(), block);
                        delete element;
                    }
                }
                else
                {
                    // no canonical number: the element has no place in the current block
                    reportDropped(key, DcmTagKey(), block);
                    delete element;
                }
            }
            else if (block == KQ_CANONICAL_BLOCK && relocateCanonic)
            {
                DcmElement* element = m_item.remove(obj);
                if (element != NULL)
                {
                    retag(*element, OFstatic_cast(Uint16, (key.getElement() & 0xFF) | m_base));
                    origin[element->getTag()] = std::make_pair(key, 0);
                    if (moved.insert(element, OFFalse, OFFalse).bad())
                        delete element;
                }
            }
        }
        obj = next;
    }

    if (blockBA)
        delete m_item.remove(DcmTagKey(KQ_PRIVATE_GROUP, LEGACY_BLOCK_BA));
    if (blockDA)
        delete m_item.remove(DcmTagKey(KQ_PRIVATE_GROUP, LEGACY_BLOCK_DA));

    if (moved.card() > 0)
    {
        if (!checkAndReservePrivateBlock())
            return false;
        while (moved.card() > 0)
        {
            DcmElement* element = moved.remove(0UL);
            // an element already present under the new tag wins; the moved one is dropped
            if (m_item.insert(element, OFFalse, OFFalse).bad())
            {
                const auto& from = origin[element->getTag()];
                reportDropped(from.first, element->getTag(), from.second);
                delete element;
            }
        }
    }
    return true;
}

void KQItem::createMap()
{
    if (m_isMapCreated)
        return;
    for (const LegacyEntry& entry : legacyEntries)
        m_privateKeyMap[DcmTagKey(KQ_PRIVATE_GROUP, entry.element)] = entry.canonic;
    m_isMapCreated = true;
}

DcmTagKey KQItem::getCanonicKey(const DcmTag& tag)
{
    DcmTagKey key = tag.getXTag();
    if (key.getGroup() != KQ_PRIVATE_GROUP)
        return key;
    if (!isLegacyBlock(blockOf(key)))
        return DcmTagKey(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, (key.getElement() & 0xFF) | 0x1000));
    unsigned short canonic = 0;
    if (findCanonic(key, canonic))
        return DcmTagKey(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, canonic | 0x1000));
    return key;
}

OFCondition KQItem::convertTag(DcmTag& tag)
{
    if (tag.getGroup() != KQ_PRIVATE_GROUP || !isLegacyBlock(blockOf(tag)))
        return EC_Normal;
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couln't reserve"))
        return EC_KQPrivateTagProblem;
    unsigned short canonic = 0;
    if (findCanonic(tag, canonic))
    {
        tag.setElement(OFstatic_cast(Uint16, m_base | canonic));
        tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
        tag.lookupVRinDictionary();
    }
    return EC_Normal;
}

void KQItem::checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element)
{
    if (item == NULL || group != KQ_PRIVATE_GROUP || (element & 0xFF00) != 0x1000)
        return;
    KQItem kq(*item);
    DcmTag tag;
    if (kq.getTag(element & 0xFF, tag).good())
        element = tag.getElement();
}

void KQItem::checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag)
{
    if (item == NULL || tag.getGroup() != KQ_PRIVATE_GROUP || (tag.getElement() & 0xFF00) != 0x1000)
        return;
    KQItem kq(*item);
    DcmTag blockTag;
    if (kq.getTag(tag.getElement() & 0xFF, blockTag).good())
    {
        tag.setElement(blockTag.getElement());
        tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
        tag.lookupVRinDictionary();
    }
}

namespace {

// Settles the block of an item and of every item nested in it, each on its own.
void relocateTree(DcmItem* item, bool relocateCanonic, std::vector<std::string>* dropped)
{
    if (item == NULL)
        return;
    KQItem kq(*item);
    kq.reportDroppedElementsTo(dropped);
    if (!kq.calcPrivateBlock(relocateCanonic))
        KQLog::message("Error: couldn't calculate private block");
    for (DcmObject* obj = item->nextInContainer(NULL); obj != NULL; obj = item->nextInContainer(obj))
    {
        if (obj->ident() != EVR_SQ)
            continue;
        DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, obj);
        for (DcmObject* i = seq->nextInContainer(NULL); i != NULL; i = seq->nextInContainer(i))
            relocateTree(OFstatic_cast(DcmItem*, i), relocateCanonic, dropped);
    }
}

} // namespace

void KQItem::handlePrivateTags(DcmItem* item)
{
    relocateTree(item, false, nullptr);
}

void KQItem::handlePrivateTags(DcmItem* item, std::vector<std::string>* dropped)
{
    relocateTree(item, false, dropped);
}

void KQItem::handleCanonicAndOldPrivateTags(DcmItem* item)
{
    relocateTree(item, true, nullptr);
}

bool KQItem::convertFilePrivateTags(const char* inFile, const char* outFile)
{
    if (inFile == NULL || access(inFile, R_OK) != 0)
    {
        KQLog::message("Error: couldn't access file:%s", inFile ? inFile : "");
        return false;
    }
    DcmFileFormat file;
    // long values stay in the file until loadAllDataIntoMemory() below
    if (file.loadFile(inFile, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad())
    {
        KQLog::message("Error: file not loaded!");
        return false;
    }
    // A value that cannot be read now fails the save below, which reports it.
    file.loadAllDataIntoMemory();
    handlePrivateTags(file.getDataset());
    if (outFile == NULL || file.saveFile(outFile, EXS_Unknown, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                         EWM_createNewMeta)
                               .bad())
    {
        KQLog::message("Error: couldn't create file:%s", outFile ? outFile : "");
        return false;
    }
    return true;
}
