// Builds a KqR file: study-, series- and instance-level changes in the "KQ group A" change
// sequences, written through KQItem.
#ifndef KQRWRITER_H
#define KQRWRITER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

// SOP class of the archive's KqR objects.
#define KQ_KQR_SOP_CLASS_UID "1.2.999.0.1.7777777.4.55.1.0.1"

class KqRWriter
{
public:
    KqRWriter();

    // Sets an attribute at a level; the VR comes from the data dictionary.
    OFCondition setStudyAttribute(const DcmTagKey& key, const char* value);
    OFCondition setSeriesAttribute(const char* seriesUID, const DcmTagKey& key, const char* value);
    OFCondition setInstanceAttribute(const char* seriesUID, const char* sopInstanceUID, const DcmTagKey& key,
                                     const char* value);
    // Records the Timezone Offset From UTC the change values are expressed in.
    OFCondition setTimezoneOffset(const char* offset);

    // The change item (created on first use), the series item for a UID, the instance item.
    OFCondition changeItem(DcmItem*& item);
    OFCondition seriesItem(const char* seriesUID, DcmItem*& item);
    OFCondition instanceItem(const char* seriesUID, const char* sopInstanceUID, DcmItem*& item);

    // Writes the file in explicit VR little endian with a new meta header.
    OFCondition save(const char* path);

    DcmFileFormat& fileFormat() { return m_file; }

private:
    static OFCondition putValue(DcmItem& item, const DcmTagKey& key, const char* value);
    static OFCondition findItemByUID(DcmItem& parent, unsigned short sequence, const DcmTagKey& uidKey,
                                     const char* uid, DcmItem*& item);

    DcmFileFormat m_file;
};

#endif
