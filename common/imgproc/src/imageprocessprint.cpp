// Printing of the elements that CImageProcess walks.
#include "common/imgproc/src/imageprocess.h"

#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <cstdio>

namespace {

// Binary values up to this length are printed (as their values); longer ones by their length.
const Uint32 MAX_PRINTED_BINARY = 64;

bool isBinary(DcmEVR vr)
{
    switch (vr)
    {
    case EVR_OB:
    case EVR_OW:
    case EVR_OF:
    case EVR_OD:
    case EVR_OL:
    case EVR_OV:
    case EVR_UN:
    case EVR_ox:
    case EVR_px:
    case EVR_pixelSQ:
        return true;
    default:
        return false;
    }
}

} // namespace

std::string CImageProcess::escapeNewLines(const char* text)
{
    std::string result;
    for (const char* c = text; c != nullptr && *c != '\0'; ++c)
    {
        if (*c == '\n')
            result += "\\n";
        else if (*c == '\r')
            result += "\\r";
        else
            result += *c;
    }
    return result;
}

void CImageProcess::printElement(DcmElement* element, int depth)
{
    if (element == nullptr || m_out == nullptr)
        return;
    char tag[12];
    snprintf(tag, sizeof(tag), "(%04x,%04x)", element->getGTag(), element->getETag());
    std::string line(depth > 0 ? static_cast<size_t>(depth) : 0, ' ');
    line += tag;
    line += ' ';
    line += DcmVR(element->getVR()).getVRName();
    line += ' ';

    DcmSequenceOfItems* sequence = dynamic_cast<DcmSequenceOfItems*>(element);
    if (sequence != nullptr)
    {
        char count[48];
        snprintf(count, sizeof(count), "(%lu items)", sequence->card());
        *m_out << line << count << "\n";
        printSequence(sequence, depth + 1);
        return;
    }
    DcmPixelData* pixelData = dynamic_cast<DcmPixelData*>(element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    if (pixelData != nullptr)
        pixelData->getCurrentRepresentationKey(xfer, parameter);
    const Uint32 length = element->getLength();
    if ((pixelData != nullptr && DcmXfer(xfer).isEncapsulated()) ||
        (isBinary(element->getVR()) && length > MAX_PRINTED_BINARY))
    {
        // large binary values stay in the file: their length is printed
        char text[48];
        snprintf(text, sizeof(text), "(%lu bytes)", static_cast<unsigned long>(length));
        *m_out << line << text << "\n";
        return;
    }
    element->loadAllDataIntoMemory();
    OFString value;
    if (element->getOFStringArray(value).bad())
        value.clear();
    *m_out << line << (m_printVerbose ? escapeNewLines(value.c_str()) : std::string(value.c_str())) << "\n";
}

void CImageProcess::printItem(DcmItem* item, int depth)
{
    if (item == nullptr || m_out == nullptr)
        return;
    const std::string indent(depth > 0 ? static_cast<size_t>(depth) : 0, ' ');
    *m_out << indent << " **start**\n";
    for (DcmObject* object = item->nextInContainer(nullptr); object != nullptr; object = item->nextInContainer(object))
        printElement(dynamic_cast<DcmElement*>(object), depth + 1);
    *m_out << indent << " **end**\n";
}

void CImageProcess::printSequence(DcmSequenceOfItems* sequence, int depth)
{
    if (sequence == nullptr || m_out == nullptr)
        return;
    const std::string indent(depth > 0 ? static_cast<size_t>(depth) : 0, ' ');
    *m_out << indent << " **start**\n";
    for (unsigned long i = 0; i < sequence->card(); ++i)
        printItem(sequence->getItem(i), depth + 1);
    *m_out << indent << " **end**\n";
}
