// The tag handlers of CImageProcess's dispatch table.
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/overlay.h"

#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcvrobow.h"

#include <cstdlib>

Uint8* CImageProcess::elementBytes(DcmElement* element)
{
    if (element == nullptr)
        return nullptr;
    Uint8* bytes = nullptr;
    const DcmEVR vr = element->getVR();
    if (vr == EVR_OW || vr == EVR_US || vr == EVR_SS || vr == EVR_lt || vr == EVR_xs)
    {
        // words in the machine's byte order
        Uint16* words = nullptr;
        if (element->getUint16Array(words).good())
            bytes = reinterpret_cast<Uint8*>(words);
    }
    else if (element->getUint8Array(bytes).bad())
        bytes = nullptr;
    return bytes;
}

CImageProcess* CImageProcess::self(IDicomTagParser2* parser)
{
    return static_cast<CImageProcess*>(parser);
}

DcmElement* CImageProcess::currentElement() const
{
    return dynamic_cast<DcmElement*>(getCurrentObject());
}

void CImageProcess::readUint16(unsigned short& field)
{
    DcmElement* element = currentElement();
    Uint16 value = 0;
    if (element != nullptr && element->getUint16(value).good())
        field = value;
}

void CImageProcess::readDouble(double& field)
{
    DcmElement* element = currentElement();
    OFString text;
    if (element != nullptr && element->getOFString(text, 0).good())
        field = strtod(text.c_str(), nullptr);
}

void CImageProcess::readString(std::string& field)
{
    DcmElement* element = currentElement();
    OFString text;
    if (element != nullptr && element->getOFString(text, 0).good())
        field = text.c_str();
}

void CImageProcess::fTagPIXEL_DATA_REFERENCE(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (!process->m_pixelDataSeen)
        process->m_imageKind = IMAGE_KIND_REFERENCE;
}

void CImageProcess::fTag2DCM_PixelData(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmElement* element = process->currentElement();
    if (element != nullptr)
    {
        const DcmEVR vr = element->getVR();
        process->m_errorCount += process->processImageElem(element, vr);
    }
    process->removeElement();
}

bool CImageProcess::checkAndSetCurrentOverLay()
{
    DcmObject* object = getCurrentObject();
    if (object == nullptr)
        return false;
    const unsigned short group = object->getGTag();
    if (group != m_overlays.m_currentGroup)
    {
        m_overlays.m_currentIndex = m_overlays.createNewOverlay();
        m_overlays.m_currentGroup = group;
        return m_overlays.m_currentIndex >= 0;
    }
    return m_overlays.m_currentIndex >= 0;
}

COverlay* CImageProcess::currentOverlay()
{
    return checkAndSetCurrentOverLay() ? m_overlays.get(m_overlays.m_currentIndex) : nullptr;
}

void CImageProcess::fTag2DCM_OverlayData(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    COverlay* overlay = process->currentOverlay();
    DcmElement* element = process->currentElement();
    if (overlay != nullptr && element != nullptr)
    {
        Uint8* bytes = elementBytes(element);
        const Uint32 length = element->getLength();
        overlay->initData(length, OVERLAY_READ_SEPARATE);
        overlay->putData(bytes, length);
    }
    process->removeElement();
}

void CImageProcess::fTag2DCM_OverlayBitPosition(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (COverlay* overlay = process->currentOverlay())
    {
        overlay->m_bitPosition = 0;
        process->readUint16(overlay->m_bitPosition);
    }
}

void CImageProcess::fTag2DCM_OverlayBitsAllocated(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (COverlay* overlay = process->currentOverlay())
    {
        overlay->m_bitsAllocated = 0;
        process->readUint16(overlay->m_bitsAllocated);
    }
}

void CImageProcess::fTag2DCM_OverlayOrigin(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    COverlay* overlay = process->currentOverlay();
    DcmElement* element = process->currentElement();
    if (overlay == nullptr || element == nullptr)
        return;
    Sint16 row = 1;
    Sint16 column = 1;
    if (element->getSint16(row, 0).bad())
        row = 1;
    if (element->getSint16(column, 1).bad())
        column = 1;
    overlay->m_originRow = row;
    overlay->m_originColumn = column;
}

void CImageProcess::fTag2DCM_OverlayType(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (COverlay* overlay = process->currentOverlay())
    {
        std::string type;
        process->readString(type);
        overlay->m_isROI = type == "R";
    }
}

void CImageProcess::fTag2DCM_OverlayColumns(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (COverlay* overlay = process->currentOverlay())
    {
        overlay->m_columns = 0;
        process->readUint16(overlay->m_columns);
    }
}

void CImageProcess::fTag2DCM_OverlayRows(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    if (COverlay* overlay = process->currentOverlay())
    {
        overlay->m_rows = 0;
        process->readUint16(overlay->m_rows);
    }
}

void CImageProcess::fTag2DCM_IconImageSequence(IDicomTagParser2* parser)
{
    self(parser)->removeElement();
}

void CImageProcess::fTag2DCM_NumberOfSlices(IDicomTagParser2* parser)
{
    unsigned short slices = 1;
    self(parser)->readUint16(slices);
    self(parser)->m_numberOfFrames = slices;
}

void CImageProcess::fTag2DCM_EncapsulatedDocument(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    process->m_errorCount += process->processEncapsulatedDocument(process->currentElement());
    process->removeElement();
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableData(IDicomTagParser2* parser)
{
    self(parser)->readPaletteData(self(parser)->currentElement(), 2);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableData(IDicomTagParser2* parser)
{
    self(parser)->readPaletteData(self(parser)->currentElement(), 1);
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableData(IDicomTagParser2* parser)
{
    self(parser)->readPaletteData(self(parser)->currentElement(), 0);
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableDescriptor(IDicomTagParser2* parser)
{
    self(parser)->readPaletteDesc(self(parser)->currentElement(), 2);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableDescriptor(IDicomTagParser2* parser)
{
    self(parser)->readPaletteDesc(self(parser)->currentElement(), 1);
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableDescriptor(IDicomTagParser2* parser)
{
    self(parser)->readPaletteDesc(self(parser)->currentElement(), 0);
}

void CImageProcess::fTag2DCM_RescaleSlope(IDicomTagParser2* parser)
{
    self(parser)->readDouble(self(parser)->m_rescaleSlope);
}

void CImageProcess::fTag2DCM_RescaleIntercept(IDicomTagParser2* parser)
{
    self(parser)->readDouble(self(parser)->m_rescaleIntercept);
}

void CImageProcess::fTag2DCM_WindowWidth(IDicomTagParser2* parser)
{
    self(parser)->readDouble(self(parser)->m_windowWidth);
}

void CImageProcess::fTag2DCM_WindowCenter(IDicomTagParser2* parser)
{
    self(parser)->readDouble(self(parser)->m_windowCenter);
}

void CImageProcess::fTag2DCM_PixelRepresentation(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_pixelRepresentation);
}

void CImageProcess::fTag2DCM_HighBit(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_highBit);
}

void CImageProcess::fTag2DCM_BitsStored(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_bitsStored);
}

void CImageProcess::fTag2DCM_BitsAllocated(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_bitsAllocated);
}

void CImageProcess::fTag2DCM_PixelSpacing(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmElement* element = process->currentElement();
    OFString text;
    for (unsigned long i = 0; i < 2 && element != nullptr; ++i)
        if (element->getOFString(text, i).good())
            process->m_pixelSpacing[i] = strtod(text.c_str(), nullptr);
}

void CImageProcess::fTag2DCM_Columns(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_columns);
}

void CImageProcess::fTag2DCM_Rows(IDicomTagParser2* parser)
{
    self(parser)->readUint16(self(parser)->m_rows);
}

void CImageProcess::fTag2DCM_NumberOfFrames(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmElement* element = process->currentElement();
    Sint32 frames = 1;
    if (element == nullptr || element->getSint32(frames).bad())
        frames = 1;
    // the full count (not its low 16 bits); no count below one frame
    process->m_numberOfFrames = frames > 0 ? static_cast<unsigned int>(frames) : 1;
}

void CImageProcess::fTag2DCM_PlanarConfiguration(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    process->m_planarConfigurationSeen = true;
    process->readUint16(process->m_planarConfiguration);
}

void CImageProcess::fTag2DCM_PhotometricInterpretation(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmElement* element = process->currentElement();
    OFString value;
    if (element != nullptr && element->getOFString(value, 0, OFTrue).good())
        process->setPhotometricInterpretation(value.c_str(), element);
}

void CImageProcess::fTag2DCM_SamplesPerPixel(IDicomTagParser2* parser)
{
    CImageProcess* process = self(parser);
    DcmElement* element = process->currentElement();
    Uint16 value = 0;
    if (element != nullptr && element->getUint16(value).good())
        process->setSamplesPerPixel(value, element);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceSoftwareVersions(IDicomTagParser2* parser)
{
    self(parser)->readString(self(parser)->m_scDeviceSoftwareVersions);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceManufacturerModelName(IDicomTagParser2* parser)
{
    self(parser)->readString(self(parser)->m_scDeviceManufacturerModelName);
}

void CImageProcess::fTag2DCM_Modality(IDicomTagParser2* parser)
{
    self(parser)->readString(self(parser)->m_modality);
}

void CImageProcess::readPaletteDesc(DcmElement* element, int colour)
{
    if (element == nullptr || colour < 0 || colour > 2 || element->getLength() == 0 || element->getVM() != 3)
        return;
    Uint16 values[3] = {0, 0, 0};
    if (element->getVR() == EVR_US)
    {
        for (unsigned long i = 0; i < 3; ++i)
            if (element->getUint16(values[i], i).bad())
                return;
        m_paletteFirstMapped[colour] = values[1];
    }
    else
    {
        Sint16 signedValues[3] = {0, 0, 0};
        for (unsigned long i = 0; i < 3; ++i)
            if (element->getSint16(signedValues[i], i).bad())
                return;
        for (int i = 0; i < 3; ++i)
            values[i] = static_cast<Uint16>(signedValues[i]);
        m_paletteFirstMapped[colour] = signedValues[1];
    }
    m_paletteEntries[colour] = values[0];
    m_paletteBits[colour] = values[2];
}

void CImageProcess::readPaletteData(DcmElement* element, int colour)
{
    if (element == nullptr || colour < 0 || colour > 2)
        return;
    m_paletteData[colour].clear();
    const Uint32 length = element->getLength();
    if (length == 0)
        return;
    const Uint8* bytes = elementBytes(element);
    if (bytes != nullptr)
        m_paletteData[colour].assign(bytes, bytes + length);
}
