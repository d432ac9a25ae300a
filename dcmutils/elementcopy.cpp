// Per-VR element copies, passing elements and sequences between items, reference sequences.
#include "dcmutils/dcmutils.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcovlay.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/dcmdata/dcvrae.h"
#include "dcmtk/dcmdata/dcvras.h"
#include "dcmtk/dcmdata/dcvrat.h"
#include "dcmtk/dcmdata/dcvrcs.h"
#include "dcmtk/dcmdata/dcvrda.h"
#include "dcmtk/dcmdata/dcvrds.h"
#include "dcmtk/dcmdata/dcvrdt.h"
#include "dcmtk/dcmdata/dcvrfd.h"
#include "dcmtk/dcmdata/dcvrfl.h"
#include "dcmtk/dcmdata/dcvris.h"
#include "dcmtk/dcmdata/dcvrlo.h"
#include "dcmtk/dcmdata/dcvrlt.h"
#include "dcmtk/dcmdata/dcvrpn.h"
#include "dcmtk/dcmdata/dcvrpobw.h"
#include "dcmtk/dcmdata/dcvrsh.h"
#include "dcmtk/dcmdata/dcvrsl.h"
#include "dcmtk/dcmdata/dcvrss.h"
#include "dcmtk/dcmdata/dcvrst.h"
#include "dcmtk/dcmdata/dcvrtm.h"
#include "dcmtk/dcmdata/dcvrui.h"
#include "dcmtk/dcmdata/dcvrul.h"
#include "dcmtk/dcmdata/dcvrus.h"
#include "dcmtk/dcmdata/dcvrut.h"

DcmElement* copyElement(DcmElement* e)
{
    if (e == NULL)
        return NULL;
    switch (e->ident())
    {
    case EVR_AE: return new DcmApplicationEntity(*OFstatic_cast(DcmApplicationEntity*, e));
    case EVR_AS: return new DcmAgeString(*OFstatic_cast(DcmAgeString*, e));
    case EVR_AT: return new DcmAttributeTag(*OFstatic_cast(DcmAttributeTag*, e));
    case EVR_CS: return new DcmCodeString(*OFstatic_cast(DcmCodeString*, e));
    case EVR_DA: return new DcmDate(*OFstatic_cast(DcmDate*, e));
    case EVR_DS: return new DcmDecimalString(*OFstatic_cast(DcmDecimalString*, e));
    case EVR_DT: return new DcmDateTime(*OFstatic_cast(DcmDateTime*, e));
    case EVR_FL: return new DcmFloatingPointSingle(*OFstatic_cast(DcmFloatingPointSingle*, e));
    case EVR_FD: return new DcmFloatingPointDouble(*OFstatic_cast(DcmFloatingPointDouble*, e));
    case EVR_IS: return new DcmIntegerString(*OFstatic_cast(DcmIntegerString*, e));
    case EVR_LO: return new DcmLongString(*OFstatic_cast(DcmLongString*, e));
    case EVR_LT: return new DcmLongText(*OFstatic_cast(DcmLongText*, e));
    case EVR_PN: return new DcmPersonName(*OFstatic_cast(DcmPersonName*, e));
    case EVR_SH: return new DcmShortString(*OFstatic_cast(DcmShortString*, e));
    case EVR_SL: return new DcmSignedLong(*OFstatic_cast(DcmSignedLong*, e));
    case EVR_SQ: return new DcmSequenceOfItems(*OFstatic_cast(DcmSequenceOfItems*, e));
    case EVR_SS: return new DcmSignedShort(*OFstatic_cast(DcmSignedShort*, e));
    case EVR_ST: return new DcmShortText(*OFstatic_cast(DcmShortText*, e));
    case EVR_TM: return new DcmTime(*OFstatic_cast(DcmTime*, e));
    case EVR_UI: return new DcmUniqueIdentifier(*OFstatic_cast(DcmUniqueIdentifier*, e));
    case EVR_UL: return new DcmUnsignedLong(*OFstatic_cast(DcmUnsignedLong*, e));
    case EVR_US: return new DcmUnsignedShort(*OFstatic_cast(DcmUnsignedShort*, e));
    case EVR_UT: return new DcmUnlimitedText(*OFstatic_cast(DcmUnlimitedText*, e));
    case EVR_pixelSQ: return new DcmPixelSequence(*OFstatic_cast(DcmPixelSequence*, e));
    case EVR_PixelData: return new DcmPixelData(*OFstatic_cast(DcmPixelData*, e));
    case EVR_OverlayData:
        // The OB/OW value is copied by the polymorphic base; the copy keeps the overlay class.
        return new DcmOverlayData(*OFstatic_cast(DcmOverlayData*, e));
    default:
        // OB, OD, OF, OL, OV, OW, SV, UC, UR, UV, UN and internal representations: the
        // caller treats these as corrupted data.
        return NULL;
    }
}

void copyElementToItem(DcmElement* e, DcmItem* item, bool replaceOld)
{
    if (e == NULL || item == NULL)
        return;
    if (e->ident() == EVR_SQ)
    {
        passSequenceElement(OFstatic_cast(DcmSequenceOfItems*, e), item);
        return;
    }
    // The source's VR, not the dictionary's: an unknown private creator would make the value unreadable.
    DcmElement* copy = NULL;
    if (DcmItem::newDicomElementWithVR(copy, e->getTag()).bad() || copy == NULL)
        return;
    char* value = NULL;
    e->getString(value);
    copy->putString(value);
    if (item->insert(copy, replaceOld).bad())
        delete copy;
}

void copyItem(DcmItem* src, DcmSequenceOfItems* seq)
{
    if (src == NULL || seq == NULL)
        return;
    DcmItem* copy = new DcmItem();
    for (DcmObject* obj = src->nextInContainer(NULL); obj != NULL; obj = src->nextInContainer(obj))
        copyElementToItem(OFstatic_cast(DcmElement*, obj), copy, false);
    if (seq->append(copy).bad())
        delete copy;
}

void passSequenceElement(DcmSequenceOfItems* seq, DcmItem* item)
{
    if (seq == NULL || item == NULL)
        return;
    DcmSequenceOfItems* copy = new DcmSequenceOfItems(seq->getTag());
    for (DcmObject* obj = seq->nextInContainer(NULL); obj != NULL; obj = seq->nextInContainer(obj))
        copyItem(OFstatic_cast(DcmItem*, obj), copy);
    if (item->insert(copy, false).bad())
        delete copy;
}

void passOrCreateElem(DcmElement* e, DcmTagKey key, DcmItem* item)
{
    if (item == NULL)
        return;
    if (e != NULL)
        copyElementToItem(e, item, false);
    else
        item->insertEmptyElement(DcmTag(key), false);
}

DcmElement* getElement(DcmItem* item, DcmTagKey key)
{
    if (item == NULL)
        return NULL;
    DcmStack stack;
    if (item->search(key, stack, ESM_fromHere, true).bad() || stack.empty())
        return NULL;
    // A search for an item delimitation key may land on an item, which is no element.
    return dynamic_cast<DcmElement*>(stack.top());
}

void passTag(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    DcmElement* found = getElement(from, key);
    if (found != NULL)
        copyElementToItem(found, to, false);
}

void passOrCreateTag(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    passOrCreateElem(getElement(from, key), key, to);
}

void passSequence(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    DcmElement* found = getElement(from, key);
    if (found != NULL && found->ident() == EVR_SQ)
        passSequenceElement(OFstatic_cast(DcmSequenceOfItems*, found), to);
}

void getValue(DcmItem* item, DcmTagKey key, char*& value)
{
    DcmElement* found = getElement(item, key);
    if (found != NULL)
        found->getString(value);
}

void moveElement(DcmElement* e, DcmItem* from, DcmItem* to)
{
    if (e == NULL || from == NULL || to == NULL)
        return;
    if (to->insert(e, true) != EC_Normal)
        return;
    from->remove(e);
    // Removal forgets the parent; the element now lives in the target item.
    e->setParent(to);
}

DcmSequenceOfItems* createReferenceSequence(DcmTagKey seqKey, const char* sopClassUID, char* sopInstanceUID)
{
    DcmSequenceOfItems* seq = new DcmSequenceOfItems(DcmTag(seqKey));
    DcmItem* item = new DcmItem();
    item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClassUID);
    item->putAndInsertString(DCM_ReferencedSOPInstanceUID, sopInstanceUID);
    if (seq->append(item).bad())
        delete item;
    return seq;
}

