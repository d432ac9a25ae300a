/** @file KQItem.h
 *  KQItem: access to the archive's private block (group F215, private creator "KQ group A") of
 *  one DICOM item, and the relocation of private elements written by earlier releases.
 *
 *  Callers address an element of the block by its canonical element number, the low byte
 *  (0x00 to 0xFF); KQItem finds the block the item uses, or reserves the first free creator
 *  slot (F215,0010) to (F215,00FF) when it first writes, and turns the number into the real
 *  tag (F215,bbee). Elements of the legacy creator "Morvellanite" (blocks BA and DA) and, when
 *  asked, of the fixed canonical block 10 are moved into the item's block as soon as the block
 *  is settled: the first accessor call on a KQItem can rewrite the item.
 *
 *  Where the code lives: KQItem.cpp (block management, tag functions, accessors, insertion),
 *  KQItemRelocation.cpp (the legacy map and relocation, the walkers, file conversion).
 *
 *  Failures are logged to syslog (ident "KQItem", facility LOCAL3, see KQLog) and reported as
 *  EC_KQPrivateTagProblem; conditions of the underlying DcmItem calls are passed on unchanged.
 */
#ifndef KQITEM_H
#define KQITEM_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/dcmdata/dctag.h"
#include "dcmtk/ofstd/ofcond.h"

#include <map>
#include <string>
#include <vector>

/// The private tag layer's own error: module 1051, code 3840, "KQItem Private Tag Relocation Error".
extern const OFConditionConst EC_KQPrivateTagProblem;

/// The archive's private group.
#define KQ_PRIVATE_GROUP 0xF215
/// The private creator of the archive's block.
#define KQ_PRIVATE_CREATOR "KQ group A"
/// The private creator of the legacy blocks BA and DA.
#define KQ_LEGACY_CREATOR "Morvellanite"
/// The fixed block of canonical tags: canonical number e is (F215,10ee).
#define KQ_CANONICAL_BLOCK 0x10

/** A non-owning accessor over one DcmItem (a dataset or a sequence item). The item must
 *  outlive the KQItem; nested items have their own blocks and need their own KQItem.
 */
class KQItem
{
public:
    /// Remembers the item (not owned); nothing is read yet. Builds the legacy map once per process.
    explicit KQItem(DcmItem& item);
    virtual ~KQItem() {}

    // --- block management ---

    /** Settles the block: the first creator slot from 0x10 holding "KQ group A" (reserved) or
     *  the first free one (reserved on the first write), whichever comes first; then moves the
     *  legacy elements into it (relocateLegacyPrivateTags()). Later calls do nothing.
     *  @param relocateCanonic also move the elements of the canonical block 10
     *  @return true when settled; false when a slot holds an unreadable creator, all 240 slots
     *    are taken, or relocation could not reserve the block
     */
    bool calcPrivateBlock(bool relocateCanonic);

    /** Writes the creator element "KQ group A" into the settled slot if it is not there yet.
     *  @return true when the creator element exists; false when the block is not settled or
     *    the write failed
     */
    bool checkAndReservePrivateBlock();

    /** Settles the block from a creator element met while walking the item.
     *  @return 1 when the block was settled already (nothing done); 0 when obj is null, not a
     *    creator element of group F215 (element 0x0010..0x00FF) or unreadable; 3 when it holds
     *    another creator; 2 when it holds "KQ group A": the block is settled and reserved
     */
    int checkPrivateCreatorElement(DcmObject* obj);

    /** Tells whether a legacy block (0xBA or 0xDA) belongs to the archive: false only when its
     *  creator element is readable and names another creator than "Morvellanite".
     */
    bool isOldBlockOurs(int block);

    /** Moves the elements of the legacy blocks that are ours to base | canonical number (those
     *  without a canonical number are deleted) and, when asked, those of block 10 to base | low
     *  byte; deletes the legacy creator elements. An element already present under the new
     *  tag stays and the moved one is dropped. Reserves the block when anything moves.
     *  @return false when the block could not be reserved (the moved elements are lost)
     */
    bool relocateLegacyPrivateTags(bool relocateCanonic);

    /** Removes and deletes every element of group F215 at the top level of the item, all blocks
     *  and creator elements included, when the block is settled at a non-zero base; the base is
     *  0 afterwards.
     */
    void nukePrivateTags();

    // --- tag functions ---

    /// The canonical tag (F215,10ee) of number e, creator "KQ group A".
    static DcmTag canonicTag(unsigned short e);
    /// True for any creator slot (F215,0010) to (F215,00FF), whatever its value.
    static bool isOurPrivateCreator(const DcmTag& tag);
    /// True for group F215 and an element above 0x0FFF.
    static bool isOurPrivateTagKey(const DcmTagKey& key);
    /// True for a tag of any odd group 0009..FFFE whose private creator is "KQ group A".
    static bool isOurPrivateTag(const DcmTag& tag);
    /** A new element for key with the VR of its "KQ group A" dictionary entry.
     *  @return the element, owned by the caller; null when DCMTK cannot make one
     */
    static DcmElement* createNewDicomElement(const DcmTagKey& key);
    /// True when obj's tag is (F215, base | e) with the current base; does not settle the block.
    bool isObjectOurPrivateElement(DcmObject* obj, unsigned short e);
    /// The tag (F215, base | e) after settling and reserving the block (their results ignored).
    DcmTag getTag(unsigned short e);
    /** Settles and reserves the block and gives the tag (F215, base | e), creator "KQ group A".
     *  @return EC_Normal, or EC_KQPrivateTagProblem ("couldn't calc", "couldn't reserve" logged)
     */
    OFCondition getTag(unsigned short e, DcmTag& tag);

    // --- typed accessors: the DcmItem call of the same name on (F215, base | e) ---
    // Each settles the block first (EC_KQPrivateTagProblem and "couldn't calc" when it cannot);
    // the writing ones also reserve it ("couldn't reserve", "couln't reserve" for strings).
    // With searchIntoSub, a look-up that finds nothing is repeated in every item of every
    // top-level sequence, each over its own block; the first answer other than EC_TagNotFound
    // is returned. Values and elements found are owned by the item.

    OFCondition findAndGetKQString(unsigned short e, const char*& value, bool searchIntoSub = false);
    OFCondition findAndGetKQElement(unsigned short e, DcmElement*& element, bool searchIntoSub = false);
    OFCondition findAndGetKQSequence(unsigned short e, DcmSequenceOfItems*& seq, bool searchIntoSub = false);
    /// Item itemNum of the sequence e at the top level of the item; does not reserve.
    OFCondition findAndGetKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum = 0);
    /// Item itemNum of the sequence e, created with the sequence when missing (-2 appends one).
    OFCondition findOrCreateKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum = 0);
    OFCondition putAndInsertKQString(unsigned short e, const char* value, bool replaceOld = true);
    OFCondition putAndInsertKQUint8Array(unsigned short e, const Uint8* data, unsigned long count,
                                         bool replaceOld = true);
    OFCondition putAndInsertKQUint16Array(unsigned short e, const Uint16* data, unsigned long count,
                                          bool replaceOld = true);
    OFCondition insertKQEmptyElement(unsigned short e, bool replaceOld = true);
    /** Removes element e from the item.
     *  @return the removed element, now owned by the caller; null when absent or when the
     *    block cannot be settled ("couldn't calc" logged)
     */
    DcmElement* removeKQ(unsigned short e);

    // --- element insertion ---

    /** Inserts an element into the item (settling and reserving the block first). A legacy
     *  element of a block that is ours goes in under base | its canonical number.
     *  @param element the element; owned by the item when inserted, returned to the caller
     *    unchanged (tag included) when the insertion fails
     *  @return the insertion's condition, or EC_KQPrivateTagProblem
     */
    OFCondition insertKQ(DcmElement* element, bool replaceOld = true, bool checkInsertOrder = false);

    /** Inserts a clone of source (the source stays with its owner). A group F215 clone whose
     *  key is in the legacy map is retagged to base | canonical number; a cloned sequence has
     *  its items cleaned with handlePrivateTags(). An element refused by the item (present and
     *  not replaced) is dropped silently.
     *  @return EC_Normal, or EC_KQPrivateTagProblem when the block cannot be settled or reserved
     */
    OFCondition copyPrivateElement(DcmElement& source, bool replaceOld = true);

    /** ORs the base into the element of a group F215 key holding a canonical number; keys of
     *  other groups are left alone.
     *  @return EC_Normal, or EC_KQPrivateTagProblem when the block cannot be settled or reserved
     */
    OFCondition adjustPrivateTag(DcmTagKey& key);

    // --- canonical map and legacy relocation ---

    /// Fills m_privateKeyMap with the 68 legacy keys the first time; later calls do nothing.
    static void createMap();
    /** The canonical key (F215,10ee) of a tag: legacy tags through the map (unchanged when not
     *  in it), other group F215 tags by their low byte, other groups unchanged.
     */
    static DcmTagKey getCanonicKey(const DcmTag& tag);
    /** Moves a legacy tag in the map to base | canonical number, creator "KQ group A", VR from
     *  the dictionary; every other tag is left alone without settling the block.
     *  @return EC_Normal, or EC_KQPrivateTagProblem when the block cannot be settled or reserved
     */
    OFCondition convertTag(DcmTag& tag);
    /// Turns a canonical element (F215,10ee) into the item's (F215,bbee); anything else stays.
    static void checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element);
    /// The same for a tag, which also gets creator "KQ group A" and its dictionary VR.
    static void checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag);
    /// Settles the block, moving legacy elements, in the item and in every nested item.
    static void handlePrivateTags(DcmItem* item);
    /** The same, and one line for each element the relocation dropped (no canonical number, or
     *  its canonical element already present), e.g. "(f215,ba33) of legacy block BA: it has no
     *  canonical number".
     *  @param dropped receives the lines; owned by the caller; may be null */
    static void handlePrivateTags(DcmItem* item, std::vector<std::string>* dropped);
    /// The same, moving the elements of the canonical block 10 as well.
    static void handleCanonicAndOldPrivateTags(DcmItem* item);
    /** Rewrites a file with its legacy private elements relocated in every item: the transfer
     *  syntax kept, group lengths recalculated, a new meta header. outFile may be inFile.
     *  @return true when written; false (message logged, outFile not created) otherwise
     */
    static bool convertFilePrivateTags(const char* inFile, const char* outFile);
    /** Makes relocateLegacyPrivateTags() add a line to dropped for every element it drops.
     *  @param dropped owned by the caller, outlives this object; null for no lines */
    void reportDroppedElementsTo(std::vector<std::string>* dropped) { m_dropped = dropped; }

    // --- state, for callers and tests ---

    /// The block number shifted left by 8 (block 0x11: 0x1100); 0 until settled.
    unsigned short getBlockBase() const { return m_base; }
    /// True once the creator element is known to be in the item.
    bool isReserved() const { return m_reserved; }
    /// True once the block is settled.
    bool isCalculated() const { return m_calculated; }
    DcmItem& getItem() { return m_item; }

    /// Legacy keys of group F215 and the canonical numbers they stand for (shared by all).
    static std::map<DcmTagKey, unsigned short> m_privateKeyMap;
    /// True once createMap() has filled m_privateKeyMap.
    static bool m_isMapCreated;

private:
    DcmTag blockTag(unsigned short e) const;
    bool calcOrLog();
    bool reserveOrLog(const char* message);
    /* Adds the line for an element the relocation drops to the list reportDroppedElementsTo()
     *  gave: from its key (of legacy block block, 0 for the canonical one) either for want of a
     *  canonical number (to: the empty key) or because to is already held. */
    void reportDropped(const DcmTagKey& from, const DcmTagKey& to, unsigned short block);

    DcmItem& m_item;
    std::vector<std::string>* m_dropped = nullptr;
    unsigned short m_base;
    bool m_reserved;
    bool m_calculated;
};

#endif
