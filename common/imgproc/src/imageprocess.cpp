#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/kqrcontent.h"
#include "common/imgproc/src/overlay.h"
#include "common/imgproc/src/rawimage.h"

#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcitem.h"

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace {

// Flags of the table: one group, one element; 256 groups (the overlay groups), one element.
const unsigned int ONE_TAG = 0x10001;
const unsigned int OVERLAY_GROUPS = 0x1000001;

} // namespace

CImageProcess::CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool printElements, bool noTagHandlers,
                             bool printVerbose, int specificFrame)
  : m_dataset(dataset)
  , m_memory(memory)
  , m_printElements(printElements)
  , m_noTagHandlers(noTagHandlers)
  , m_printVerbose(printVerbose)
  , m_specificFrame(specificFrame)
  , m_keepAllElements(false)
  , m_rows(0)
  , m_columns(0)
  , m_bitsAllocated(0)
  , m_bitsStored(0)
  , m_highBit(0)
  , m_pixelRepresentation(0)
  , m_planarConfiguration(0)
  , m_samplesPerPixel(1)
  , m_samplesPerPixelElement(nullptr)
  , m_numberOfFrames(1)
  , m_planarConfigurationSeen(false)
  , m_photometric(PHOTOMETRIC_MONOCHROME)
  , m_photometricElement(nullptr)
  , m_invertMonochrome1(false)
  , m_windowCenter(0.0)
  , m_windowWidth(0.0)
  , m_rescaleIntercept(0.0)
  , m_rescaleSlope(1.0)
  , m_pixelDataSeen(false)
  , m_errorCount(0)
  , m_imageKind(IMAGE_KIND_NONE)
  , m_imageCount(0)
  , m_overlayMask(0)
  , m_rawImage(nullptr)
  , m_progress(nullptr)
  , m_out(&std::cout)
  , m_currentFrame(0)
  , m_frameSize(0)
  , m_decodedPhotometric(PHOTOMETRIC_MONOCHROME)
{
    m_pixelSpacing[0] = m_pixelSpacing[1] = 0.0;
    for (int c = 0; c < 3; ++c)
    {
        m_paletteEntries[c] = 0;
        m_paletteBits[c] = 0;
        m_paletteFirstMapped[c] = 0;
    }
    initFunction();
}

CImageProcess::~CImageProcess()
{
    delete m_rawImage;
}

void CImageProcess::InitPrivateData()
{
}

void CImageProcess::initFunction()
{
    if (m_noTagHandlers)
        return;
    addTag(DcmTagKey(KQ_PRIVATE_GROUP, 0x001D), fTagPIXEL_DATA_REFERENCE, KQ_PRIVATE_CREATOR, ONE_TAG);
    addTag(DCM_PixelData, fTag2DCM_PixelData, nullptr, ONE_TAG);
    addTag(DcmTagKey(0x6000, 0x3000), fTag2DCM_OverlayData, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0102), fTag2DCM_OverlayBitPosition, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0100), fTag2DCM_OverlayBitsAllocated, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0050), fTag2DCM_OverlayOrigin, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0040), fTag2DCM_OverlayType, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0011), fTag2DCM_OverlayColumns, nullptr, OVERLAY_GROUPS);
    addTag(DcmTagKey(0x6000, 0x0010), fTag2DCM_OverlayRows, nullptr, OVERLAY_GROUPS);
    addTag(DCM_IconImageSequence, fTag2DCM_IconImageSequence, nullptr, ONE_TAG);
    addTag(DCM_NumberOfSlices, fTag2DCM_NumberOfSlices, nullptr, ONE_TAG);
    addTag(DCM_EncapsulatedDocument, fTag2DCM_EncapsulatedDocument, nullptr, ONE_TAG);
    addTag(DCM_BluePaletteColorLookupTableData, fTag2DCM_BluePaletteColorLookupTableData, nullptr, ONE_TAG);
    addTag(DCM_GreenPaletteColorLookupTableData, fTag2DCM_GreenPaletteColorLookupTableData, nullptr, ONE_TAG);
    addTag(DCM_RedPaletteColorLookupTableData, fTag2DCM_RedPaletteColorLookupTableData, nullptr, ONE_TAG);
    addTag(DCM_BluePaletteColorLookupTableDescriptor, fTag2DCM_BluePaletteColorLookupTableDescriptor, nullptr, ONE_TAG);
    addTag(DCM_GreenPaletteColorLookupTableDescriptor, fTag2DCM_GreenPaletteColorLookupTableDescriptor, nullptr,
           ONE_TAG);
    addTag(DCM_RedPaletteColorLookupTableDescriptor, fTag2DCM_RedPaletteColorLookupTableDescriptor, nullptr, ONE_TAG);
    addTag(DCM_RescaleSlope, fTag2DCM_RescaleSlope, nullptr, ONE_TAG);
    addTag(DCM_RescaleIntercept, fTag2DCM_RescaleIntercept, nullptr, ONE_TAG);
    addTag(DCM_WindowWidth, fTag2DCM_WindowWidth, nullptr, ONE_TAG);
    addTag(DCM_WindowCenter, fTag2DCM_WindowCenter, nullptr, ONE_TAG);
    addTag(DCM_PixelRepresentation, fTag2DCM_PixelRepresentation, nullptr, ONE_TAG);
    addTag(DCM_HighBit, fTag2DCM_HighBit, nullptr, ONE_TAG);
    addTag(DCM_BitsStored, fTag2DCM_BitsStored, nullptr, ONE_TAG);
    addTag(DCM_BitsAllocated, fTag2DCM_BitsAllocated, nullptr, ONE_TAG);
    addTag(DCM_PixelSpacing, fTag2DCM_PixelSpacing, nullptr, ONE_TAG);
    addTag(DCM_Columns, fTag2DCM_Columns, nullptr, ONE_TAG);
    addTag(DCM_Rows, fTag2DCM_Rows, nullptr, ONE_TAG);
    addTag(DCM_NumberOfFrames, fTag2DCM_NumberOfFrames, nullptr, ONE_TAG);
    addTag(DCM_PlanarConfiguration, fTag2DCM_PlanarConfiguration, nullptr, ONE_TAG);
    addTag(DCM_PhotometricInterpretation, fTag2DCM_PhotometricInterpretation, nullptr, ONE_TAG);
    addTag(DCM_SamplesPerPixel, fTag2DCM_SamplesPerPixel, nullptr, ONE_TAG);
    addTag(DCM_SecondaryCaptureDeviceSoftwareVersions, fTag2DCM_SecondaryCaptureDeviceSoftwareVersions, nullptr,
           ONE_TAG);
    addTag(DCM_SecondaryCaptureDeviceManufacturerModelName, fTag2DCM_SecondaryCaptureDeviceManufacturerModelName,
           nullptr, ONE_TAG);
    addTag(DCM_Modality, fTag2DCM_Modality, nullptr, ONE_TAG);
}

CKqRContent* CImageProcess::createKqRContent()
{
    return new CKqRContent(this);
}

bool CImageProcess::postProcess(CExtractedData* data)
{
    return data != nullptr && data->postProcess() == 0;
}

bool CImageProcess::initProcess()
{
    if (m_dataset != nullptr)
        KQItem::handlePrivateTags(m_dataset);
    return true;
}

bool CImageProcess::isIncluded(const DcmTag& /* tag */)
{
    return true;
}

void CImageProcess::adjustBytes(unsigned char* /* data */, unsigned int /* count */)
{
}

void CImageProcess::adjustBytes(unsigned short* /* data */, unsigned int /* count */)
{
}

void CImageProcess::adjustBytes(unsigned int* /* data */, unsigned int /* count */)
{
}

bool CImageProcess::postProcessImage()
{
    return postProcess(m_rawImage);
}

bool CImageProcess::finishExtracted(CExtractedData* data)
{
    return postProcess(data);
}

int CImageProcess::process()
{
    if (m_dataset == nullptr)
        return 1;
    if (!initProcess())
        return 1;
    m_planarConfigurationSeen = false;
    const unsigned int errors = processDataItem(m_dataset);
    if (errors != 0)
        return static_cast<int>(errors);
    return finalizeProcess() ? 0 : 1;
}

unsigned int CImageProcess::processDataItem(DcmItem* item)
{
    if (item == nullptr)
        return 1;
    m_pixelDataSeen = false;
    m_errorCount = 0;
    const char* sopClass = nullptr;
    if (m_dataset != nullptr && m_dataset->findAndGetString(DCM_SOPClassUID, sopClass).good() && sopClass != nullptr &&
        strcmp(sopClass, IMGPROC_KQR_SOP_CLASS_UID) == 0)
        m_errorCount += processKqRContent();
    parseTags(item, nullptr, this, fTagParserPreprocess);
    return m_errorCount;
}

unsigned int CImageProcess::processKqRContent()
{
    CKqRContent* content = createKqRContent();
    if (content == nullptr)
        return 1;
    const bool done = content->init() && finishExtracted(content);
    delete content;
    return done ? 0 : 1;
}

bool CImageProcess::fTagParserPreprocess(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmObject* object = process->getCurrentObject();
    if (object == nullptr)
        return true;
    if (process->m_printElements && dynamic_cast<DcmElement*>(object) != nullptr)
        process->printElement(static_cast<DcmElement*>(object), 0);
    if (process->m_noTagHandlers || process->m_keepAllElements)
        return true;
    const Uint16 group = object->getGTag();
    if (group == KQ_PRIVATE_GROUP || (group & 1) == 0)
        return true;
    if (!process->isIncluded(object->getTag()))
        process->removeElement();
    return true;
}

bool CImageProcess::finalizeProcess()
{
    if (m_imageCount > 0)
        addReferenceValues();
    for (int slot = 0; slot < COverlayArray::SLOTS; ++slot)
        if (m_overlays.get(slot) != nullptr)
            m_overlays.get(slot)->finalizeData();
    if (m_overlays.empty())
        return true;
    if (m_dataset == nullptr)
        return false;
    KQItem kq(*m_dataset);
    long written = 0;
    for (int slot = 0; slot < COverlayArray::SLOTS; ++slot)
    {
        COverlay* overlay = m_overlays.get(slot);
        if (overlay == nullptr)
            continue;
        DcmItem* item = nullptr;
        if (kq.findOrCreateKQSequenceItem(0x71, item, written).bad() || item == nullptr)
            return false;
        KQItem itemKq(*item);
        if (itemKq.putAndInsertKQString(0x72, "NONE").bad())
            return false;
        static const Uint8 none = 0;
        const Uint8* bits = overlay->m_data ? overlay->m_data : &none;
        if (itemKq.putAndInsertKQUint8Array(0x73, bits, overlay->m_data ? overlay->m_size : 0).bad())
            return false;
        ++written;
    }
    return true;
}

bool CImageProcess::checkSCDevice(const std::string& model, const std::string& version)
{
    return model == "Zentravox" && version == "1.0";
}

unsigned int CImageProcess::photometricCode(const char* value, unsigned int previous)
{
    if (value == nullptr)
        return previous;
    if (strncmp(value, "MONOCHROME", 10) == 0)
        return PHOTOMETRIC_MONOCHROME;
    static const struct
    {
        const char* name;
        unsigned int code;
    } codes[] = {{"PALETTE COLOR", PHOTOMETRIC_PALETTE},       {"RGB", PHOTOMETRIC_RGB},
                 {"YBR_FULL", PHOTOMETRIC_YBR_FULL},          {"YBR_FULL_422", PHOTOMETRIC_YBR_FULL_422},
                 {"YBR_PARTIAL_422", PHOTOMETRIC_YBR_PARTIAL_422}, {"YBR_RCT", PHOTOMETRIC_YBR_RCT},
                 {"YBR_ICT", PHOTOMETRIC_YBR_ICT}};
    for (const auto& entry : codes)
        if (strcmp(value, entry.name) == 0)
            return entry.code;
    return previous;
}

void CImageProcess::setPhotometricInterpretation(const char* value, DcmElement* element)
{
    m_invertMonochrome1 = false;
    if (value != nullptr && strncmp(value, "MONOCHROME", 10) == 0)
    {
        m_photometric = PHOTOMETRIC_MONOCHROME;
        if (strcmp(value, "MONOCHROME1") == 0 &&
            !checkSCDevice(m_scDeviceManufacturerModelName, m_scDeviceSoftwareVersions))
            m_invertMonochrome1 = true;
    }
    else
        m_photometric = photometricCode(value, m_photometric);
    if (element != nullptr)
    {
        m_photometricElement = element;
        return;
    }
    if (m_photometric == PHOTOMETRIC_MONOCHROME || m_photometric == PHOTOMETRIC_PALETTE)
        m_samplesPerPixel = 1;
    else if (m_photometric == PHOTOMETRIC_RGB ||
             (m_photometric >= PHOTOMETRIC_YBR_FULL && m_photometric <= PHOTOMETRIC_YBR_ICT))
        m_samplesPerPixel = 3;
}

void CImageProcess::setSamplesPerPixel(unsigned short value, DcmElement* element)
{
    if (element != nullptr)
        m_samplesPerPixelElement = element;
    m_samplesPerPixel = value;
}

const unsigned char* CImageProcess::getPaletteData(int colour) const
{
    if (colour < 0 || colour > 2 || m_paletteData[colour].empty())
        return nullptr;
    return m_paletteData[colour].data();
}

bool CImageProcess::needsWindowEstimate() const
{
    return m_windowWidth == 0.0 && m_photometric == PHOTOMETRIC_MONOCHROME;
}

void CImageProcess::addReferenceValues()
{
    double center = 0.0;
    double width = 0.0;
    if (m_windowWidth == 0.0 && m_histogram.estimateWindow(center, width))
    {
        // the histogram counts stored values; windows are in rescaled units
        m_windowCenter = center * m_rescaleSlope + m_rescaleIntercept;
        m_windowWidth = width * (m_rescaleSlope < 0 ? -m_rescaleSlope : m_rescaleSlope);
    }
}
