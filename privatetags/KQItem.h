// Access to the archive's private block (group F215, creator "KQ group A") of one DICOM item.
#ifndef KQITEM_H
#define KQITEM_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/dcmdata/dctag.h"
#include "dcmtk/ofstd/ofcond.h"

#include <map>

// Module 1051, code 3840: the private tag layer's own error.
extern const OFConditionConst EC_KQPrivateTagProblem;

#define KQ_PRIVATE_GROUP 0xF215
#define KQ_PRIVATE_CREATOR "KQ group A"
#define KQ_LEGACY_CREATOR "Morvellanite"
#define KQ_CANONICAL_BLOCK 0x10

// A non-owning accessor over one DcmItem. Callers address elements of the block by their
// canonical element number (the low byte); the block number is found or reserved on demand,
// and legacy private elements are relocated into the block when it is settled.
class KQItem
{
public:
    explicit KQItem(DcmItem& item);
    virtual ~KQItem() {}

    // block management
    bool calcPrivateBlock(bool relocateCanonic);
    bool checkAndReservePrivateBlock();
    int checkPrivateCreatorElement(DcmObject* obj);
    bool isOldBlockOurs(int block);
    bool relocateLegacyPrivateTags(bool relocateCanonic);
    void nukePrivateTags();

    // tag functions
    static DcmTag canonicTag(unsigned short e);
    static bool isOurPrivateCreator(const DcmTag& tag);
    static bool isOurPrivateTagKey(const DcmTagKey& key);
    static bool isOurPrivateTag(const DcmTag& tag);
    static DcmElement* createNewDicomElement(const DcmTagKey& key);
    bool isObjectOurPrivateElement(DcmObject* obj, unsigned short e);
    DcmTag getTag(unsigned short e);
    OFCondition getTag(unsigned short e, DcmTag& tag);

    // typed accessors
    OFCondition findAndGetKQString(unsigned short e, const char*& value, bool searchIntoSub = false);
    OFCondition findAndGetKQElement(unsigned short e, DcmElement*& element, bool searchIntoSub = false);
    OFCondition findAndGetKQSequence(unsigned short e, DcmSequenceOfItems*& seq, bool searchIntoSub = false);
    OFCondition findAndGetKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum = 0);
    OFCondition findOrCreateKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum = 0);
    OFCondition putAndInsertKQString(unsigned short e, const char* value, bool replaceOld = true);
    OFCondition putAndInsertKQUint8Array(unsigned short e, const Uint8* data, unsigned long count,
                                         bool replaceOld = true);
    OFCondition putAndInsertKQUint16Array(unsigned short e, const Uint16* data, unsigned long count,
                                          bool replaceOld = true);
    OFCondition insertKQEmptyElement(unsigned short e, bool replaceOld = true);
    DcmElement* removeKQ(unsigned short e);

    // element insertion
    OFCondition insertKQ(DcmElement* element, bool replaceOld = true, bool checkInsertOrder = false);
    OFCondition copyPrivateElement(DcmElement& source, bool replaceOld = true);
    OFCondition adjustPrivateTag(DcmTagKey& key);

    // canonical map and legacy relocation
    static void createMap();
    static DcmTagKey getCanonicKey(const DcmTag& tag);
    OFCondition convertTag(DcmTag& tag);
    static void checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element);
    static void checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag);
    static void handlePrivateTags(DcmItem* item);
    static void handleCanonicAndOldPrivateTags(DcmItem* item);
    static bool convertFilePrivateTags(const char* inFile, const char* outFile);

    // state, for callers and tests
    unsigned short getBlockBase() const { return m_base; }
    bool isReserved() const { return m_reserved; }
    bool isCalculated() const { return m_calculated; }
    DcmItem& getItem() { return m_item; }

    static std::map<DcmTagKey, unsigned short> m_privateKeyMap;
    static bool m_isMapCreated;

private:
    DcmTag blockTag(unsigned short e) const;
    bool calcOrLog();
    bool reserveOrLog(const char* message);

    DcmItem& m_item;
    unsigned short m_base;
    bool m_reserved;
    bool m_calculated;
};

#endif
