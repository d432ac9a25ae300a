#include "dcmutils/KqRWriter.h"

#include "privatetags/KQItem.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcuid.h"

KqRWriter::KqRWriter()
{
    DcmDataset& ds = *m_file.getDataset();
    ds.putAndInsertString(DCM_SOPClassUID, KQ_KQR_SOP_CLASS_UID);
    char* uid = createSOPInstanceUID();
    if (uid)
        ds.putAndInsertString(DCM_SOPInstanceUID, uid);
    delete[] uid;
}

OFCondition KqRWriter::putValue(DcmItem& item, const DcmTagKey& key, const char* value)
{
    DcmTag tag(key);
    if (tag.getEVR() == EVR_UNKNOWN || tag.getEVR() == EVR_UNKNOWN2B)
        return EC_UnknownVR;
    if (tag.getEVR() == EVR_SQ)
        return EC_IllegalCall;
    return item.putAndInsertString(tag, value, OFTrue);
}

OFCondition KqRWriter::changeItem(DcmItem*& item)
{
    KQItem kq(*m_file.getDataset());
    return kq.findOrCreateKQSequenceItem(KQ_CHANGE_SEQUENCE, item, 0);
}

// Finds the item of a KQ sequence of parent whose uidKey equals uid, or appends a new one.
OFCondition KqRWriter::findItemByUID(DcmItem& parent, unsigned short sequence, const DcmTagKey& uidKey,
                                     const char* uid, DcmItem*& item)
{
    KQItem kq(parent);
    DcmSequenceOfItems* seq = nullptr;
    if (kq.findAndGetKQSequence(sequence, seq).good() && seq)
    {
        for (DcmObject* obj = seq->nextInContainer(nullptr); obj; obj = seq->nextInContainer(obj))
        {
            const char* value = nullptr;
            DcmItem* candidate = OFstatic_cast(DcmItem*, obj);
            if (candidate->findAndGetString(uidKey, value).good() && value && strcmp(value, uid) == 0)
            {
                item = candidate;
                return EC_Normal;
            }
        }
    }
    OFCondition cond = kq.findOrCreateKQSequenceItem(sequence, item, -2);
    if (cond.bad())
        return cond;
    return item->putAndInsertString(uidKey, uid);
}

OFCondition KqRWriter::seriesItem(const char* seriesUID, DcmItem*& item)
{
    DcmItem* change = nullptr;
    OFCondition cond = changeItem(change);
    if (cond.bad())
        return cond;
    return findItemByUID(*change, KQ_SERIES_SEQUENCE, DCM_SeriesInstanceUID, seriesUID, item);
}

OFCondition KqRWriter::instanceItem(const char* seriesUID, const char* sopInstanceUID, DcmItem*& item)
{
    DcmItem* series = nullptr;
    OFCondition cond = seriesItem(seriesUID, series);
    if (cond.bad())
        return cond;
    return findItemByUID(*series, KQ_INSTANCE_SEQUENCE, DCM_SOPInstanceUID, sopInstanceUID, item);
}

OFCondition KqRWriter::setStudyAttribute(const DcmTagKey& key, const char* value)
{
    DcmItem* item = nullptr;
    OFCondition cond = changeItem(item);
    return cond.good() ? putValue(*item, key, value) : cond;
}

OFCondition KqRWriter::setSeriesAttribute(const char* seriesUID, const DcmTagKey& key, const char* value)
{
    DcmItem* item = nullptr;
    OFCondition cond = seriesItem(seriesUID, item);
    return cond.good() ? putValue(*item, key, value) : cond;
}

OFCondition KqRWriter::setInstanceAttribute(const char* seriesUID, const char* sopInstanceUID,
                                            const DcmTagKey& key, const char* value)
{
    DcmItem* item = nullptr;
    OFCondition cond = instanceItem(seriesUID, sopInstanceUID, item);
    return cond.good() ? putValue(*item, key, value) : cond;
}

OFCondition KqRWriter::setTimezoneOffset(const char* offset)
{
    return m_file.getDataset()->putAndInsertString(DCM_TimezoneOffsetFromUTC, offset);
}

OFCondition KqRWriter::save(const char* path)
{
    return m_file.saveFile(path, EXS_LittleEndianExplicit, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                           EWM_createNewMeta);
}
