// A KqR file as applyChanges meets it: loaded completely, its change item looked up through
// KQItem, and applied by applyModifications to a copy of an object whose UIDs the seeds use;
// the change set is checked and brought to the object's character set as the driver does, and the
// edited object is then written as the driver writes it.
#include "fuzz/FuzzSupport.h"

#include "privatetags/KQItem.h"
#include "dcmutils/ChangeSetCharset.h"
#include "dcmutils/ChangeSetCheck.h"
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/softedit.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <list>

// UIDs of the target object; the seed KqR files address them at series and instance level.
#define KQFUZZ_SERIES_UID "1.2.826.0.1.3680043.2.1125.1.1.1"
#define KQFUZZ_SOP_UID "1.2.826.0.1.3680043.2.1125.1.1.1.1"

namespace {

DcmDataset* makeTarget()
{
    DcmDataset* ds = new DcmDataset();
    ds->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, KQFUZZ_SOP_UID);
    ds->putAndInsertString(DCM_StudyDate, "20200101");
    ds->putAndInsertString(DCM_StudyTime, "120000");
    ds->putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0200");
    ds->putAndInsertString(DCM_Modality, "OT");
    ds->putAndInsertString(DCM_PatientName, "Fuzz^Target");
    ds->putAndInsertString(DCM_StudyInstanceUID, "1.2.826.0.1.3680043.2.1125.1.1");
    ds->putAndInsertString(DCM_SeriesInstanceUID, KQFUZZ_SERIES_UID);
    ds->putAndInsertUint16(DCM_Rows, 2);
    ds->putAndInsertUint16(DCM_Columns, 2);
    const Uint16 pixels[4] = {1, 2, 3, 4};
    ds->putAndInsertUint16Array(DCM_PixelData, pixels, 4);
    return ds;
}

DcmDataset* target = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    target = makeTarget();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string path = kqfuzz::writeScratch("kqr", data, size);
    DcmFileFormat kqr;
    // the shape scan runs first, as the programs run it: what it lets through must parse safely
    if (scanDicomFile(path.c_str()).bad())
        return 0;
    if (kqr.loadFile(path.c_str(), EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect).bad() ||
        kqr.loadAllDataIntoMemory().bad())
        return 0;
    DcmDataset& changes = *kqr.getDataset();
    DcmItem* changeItem = nullptr;
    KQItem kq(changes);
    const OFCondition found = kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, changeItem, 0);
    if (found.bad() || changeItem == nullptr || changeItem->card() == 0)
        return 0;

    std::string reason;
    if (!checkChangeSet(changes, reason))
        return 0;
    ChangeSetCharset charset(changes);
    DcmDataset* converted = charset.changesFor("ISO_IR 100", reason);
    if (!converted)
        return 0;

    DcmFileFormat object(target);
    std::list<DcmTagKey> modified;
    if (applyModifications(*object.getDataset(), *converted, &modified).good())
    {
        const std::string out = path + ".edited";
        object.saveFile(out.c_str(), EXS_LittleEndianExplicit, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                        EWM_createNewMeta);
    }
    return 0;
}
