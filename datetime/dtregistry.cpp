// Registries of the date/time attribute pairs of DICOM datasets.
#include "datetime/dtregistry.h"

namespace kqtz {

DateTimeTagPair::DateTimeTagPair()
{
}

DateTimeTagPair::DateTimeTagPair(const DcmTagKey& date, const DcmTagKey& time)
  : m_date(date)
  , m_time(time)
{
}

DateTimeTagPair::~DateTimeTagPair()
{
}

PrivateDateTimeTagPair::PrivateDateTimeTagPair(const DcmTagKey& date, const DcmTagKey& time, const char* creator)
  : DateTimeTagPair(date, time)
  , m_creator(creator ? creator : "")
{
}

const DateTimeTagPair dtregistry[DT_REGISTRY_SIZE] = {
    DateTimeTagPair(DcmTagKey(0x0008, 0x0012), DcmTagKey(0x0008, 0x0013)), // Instance Creation
    DateTimeTagPair(DcmTagKey(0x0008, 0x0020), DcmTagKey(0x0008, 0x0030)), // Study
    DateTimeTagPair(DcmTagKey(0x0008, 0x0021), DcmTagKey(0x0008, 0x0031)), // Series
    DateTimeTagPair(DcmTagKey(0x0008, 0x0022), DcmTagKey(0x0008, 0x0032)), // Acquisition
    DateTimeTagPair(DcmTagKey(0x0008, 0x0023), DcmTagKey(0x0008, 0x0033)), // Content
    // Intervention Drug Stop and Start Time: two times, paired on purpose.
    DateTimeTagPair(DcmTagKey(0x0018, 0x0027), DcmTagKey(0x0018, 0x0035)),
    DateTimeTagPair(DcmTagKey(0x0018, 0x1012), DcmTagKey(0x0018, 0x1014)), // Secondary Capture
    DateTimeTagPair(DcmTagKey(0x0018, 0x1042), DcmTagKey(0x0018, 0x1043)), // Contrast/Bolus Start
    DateTimeTagPair(DcmTagKey(0x0018, 0x1072), DcmTagKey(0x0018, 0x1073)), // Radiopharmaceutical Start
    DateTimeTagPair(DcmTagKey(0x0018, 0x700C), DcmTagKey(0x0018, 0x700E)), // Detector Calibration
    DateTimeTagPair(DcmTagKey(0x0038, 0x0020), DcmTagKey(0x0038, 0x0021)), // Admitting
    DateTimeTagPair(DcmTagKey(0x0040, 0x0002), DcmTagKey(0x0040, 0x0003)), // Scheduled Procedure Step Start
    DateTimeTagPair(DcmTagKey(0x0040, 0x0004), DcmTagKey(0x0040, 0x0005)), // Scheduled Procedure Step End
    DateTimeTagPair(DcmTagKey(0x0040, 0x0244), DcmTagKey(0x0040, 0x0245)), // Performed Procedure Step Start
    DateTimeTagPair(DcmTagKey(0x0040, 0x0250), DcmTagKey(0x0040, 0x0251)), // Performed Procedure Step End
    DateTimeTagPair(DcmTagKey(0x0040, 0x2004), DcmTagKey(0x0040, 0x2005)), // Issue Date/Time of Imaging Service Request
    DateTimeTagPair(DcmTagKey(0x0040, 0xA121), DcmTagKey(0x0040, 0xA122)), // Date, Time
    DateTimeTagPair(DcmTagKey(0x0070, 0x0082), DcmTagKey(0x0070, 0x0083)), // Presentation Creation
    DateTimeTagPair(DcmTagKey(0x2100, 0x0040), DcmTagKey(0x2100, 0x0050)), // Creation (print job)
    DateTimeTagPair(DcmTagKey(0x3006, 0x0008), DcmTagKey(0x3006, 0x0009)), // Structure Set
    DateTimeTagPair(DcmTagKey(0x3008, 0x0024), DcmTagKey(0x3008, 0x0025)), // Treatment Control Point
    DateTimeTagPair(DcmTagKey(0x3008, 0x0162), DcmTagKey(0x3008, 0x0164)), // Safe Position Exit
    DateTimeTagPair(DcmTagKey(0x3008, 0x0166), DcmTagKey(0x3008, 0x0168)), // Safe Position Return
    DateTimeTagPair(DcmTagKey(0x3008, 0x0250), DcmTagKey(0x3008, 0x0251)), // Treatment
    DateTimeTagPair(DcmTagKey(0x300A, 0x0006), DcmTagKey(0x300A, 0x0007)), // RT Plan
    DateTimeTagPair(DcmTagKey(0x300A, 0x022C), DcmTagKey(0x300A, 0x022E)), // Air Kerma Rate Reference
    DateTimeTagPair(DcmTagKey(0x300E, 0x0004), DcmTagKey(0x300E, 0x0005)), // Review
    DateTimeTagPair(DcmTagKey(0x0008, 0x0024), DcmTagKey(0x0008, 0x0034)), // Overlay
    DateTimeTagPair(DcmTagKey(0x0008, 0x0025), DcmTagKey(0x0008, 0x0035)), // Curve
    DateTimeTagPair(DcmTagKey(0x0032, 0x0032), DcmTagKey(0x0032, 0x0033)), // Study Verified
    DateTimeTagPair(DcmTagKey(0x0032, 0x0034), DcmTagKey(0x0032, 0x0035)), // Study Read
    DateTimeTagPair(DcmTagKey(0x0032, 0x1000), DcmTagKey(0x0032, 0x1001)), // Scheduled Study Start
    DateTimeTagPair(DcmTagKey(0x0032, 0x1010), DcmTagKey(0x0032, 0x1011)), // Scheduled Study Stop
    DateTimeTagPair(DcmTagKey(0x0032, 0x1040), DcmTagKey(0x0032, 0x1041)), // Study Arrival
    DateTimeTagPair(DcmTagKey(0x0032, 0x1050), DcmTagKey(0x0032, 0x1051)), // Study Completion
    DateTimeTagPair(DcmTagKey(0x0038, 0x001A), DcmTagKey(0x0038, 0x001B)), // Scheduled Admission
    DateTimeTagPair(DcmTagKey(0x0038, 0x001C), DcmTagKey(0x0038, 0x001D)), // Scheduled Discharge
    DateTimeTagPair(DcmTagKey(0x0038, 0x0030), DcmTagKey(0x0038, 0x0032)), // Discharge
    DateTimeTagPair(DcmTagKey(0x4008, 0x0100), DcmTagKey(0x4008, 0x0101)), // Interpretation Recorded
    DateTimeTagPair(DcmTagKey(0x4008, 0x0108), DcmTagKey(0x4008, 0x0109)), // Interpretation Transcription
    DateTimeTagPair(DcmTagKey(0x4008, 0x0112), DcmTagKey(0x4008, 0x0113)), // Interpretation Approval
};

// The Siemens creators carry two spaces before their last word.
const PrivateDateTimeTagPair privdtregistry[PRIVATE_DT_REGISTRY_SIZE] = {
    PrivateDateTimeTagPair(DcmTagKey(0xF215, 0x0015), DcmTagKey(0xF215, 0x0016), "KQ group A"),
    PrivateDateTimeTagPair(DcmTagKey(0x0047, 0x0093), DcmTagKey(0x0047, 0x0094), "GEMS_ADWSoft_3D1"),
    PrivateDateTimeTagPair(DcmTagKey(0x0039, 0x0085), DcmTagKey(0x0039, 0x0090), "GEMS_ADWSoft_DPO"),
    PrivateDateTimeTagPair(DcmTagKey(0x0009, 0x0042), DcmTagKey(0x0009, 0x0043), "GEMS_GENIE_1"),
    PrivateDateTimeTagPair(DcmTagKey(0x0041, 0x0030), DcmTagKey(0x0041, 0x0032), "PAPYRUS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0041, 0x0034), DcmTagKey(0x0041, 0x0036), "PAPYRUS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0009, 0x0026), DcmTagKey(0x0009, 0x0027), "SIEMENS CM VA0  CMS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0011, 0x0010), DcmTagKey(0x0011, 0x0011), "SIEMENS CM VA0  CMS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0013, 0x0010), DcmTagKey(0x0013, 0x0012), "SIEMENS CM VA0  CMS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0019, 0x00C2), DcmTagKey(0x0019, 0x00C3), "SIEMENS CT VA0  COAD"),
    PrivateDateTimeTagPair(DcmTagKey(0x0003, 0x0013), DcmTagKey(0x0003, 0x0014), "SIEMENS ISI"),
    PrivateDateTimeTagPair(DcmTagKey(0x0003, 0x0030), DcmTagKey(0x0003, 0x0031), "SIEMENS ISI"),
    PrivateDateTimeTagPair(DcmTagKey(0x0011, 0x0020), DcmTagKey(0x0011, 0x0021), "SIEMENS RIS"),
    PrivateDateTimeTagPair(DcmTagKey(0x0011, 0x00A1), DcmTagKey(0x0011, 0x00A2), "SIEMENS ISI"),
    PrivateDateTimeTagPair(DcmTagKey(0x0009, 0x0076), DcmTagKey(0x0009, 0x0077),
                           "astm.org/diconde/iod/NdeCtCalibrationData"),
    PrivateDateTimeTagPair(DcmTagKey(0x0009, 0x0076), DcmTagKey(0x0009, 0x0077),
                           "astm.org/diconde/iod/NdeDxCalibrationData"),
};

const DateTimeRegistry theDateTimeRegistry;

const DateTimeTagPair* DateTimeRegistry::findForDate(const DcmTag& tag, unsigned short& blockBase) const
{
    if (tag.getGroup() & 1)
    {
        const char* creator = tag.getPrivateCreator();
        if (!creator)
            return nullptr;
        const Uint16 offset = tag.getElement() & 0x00FF;
        for (const PrivateDateTimeTagPair& pair : privdtregistry)
        {
            if (pair.date().getGroup() == tag.getGroup() && pair.creator() == creator &&
                pair.date().getElement() == offset)
            {
                blockBase = tag.getElement() & 0xFF00;
                return &pair;
            }
        }
        return nullptr;
    }
    for (const DateTimeTagPair& pair : dtregistry)
    {
        if (pair.date() == tag)
            return &pair;
    }
    return nullptr;
}

} // namespace kqtz
