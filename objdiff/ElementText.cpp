// The value of an element as text, in the form the DICOM toolkit prints it.
#include "objdiff/ElementText.h"
#include "objdiff/ValueChunkReader.h"

#include "dcmtk/dcmdata/dcbytstr.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/dcmdata/dcvrobow.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* const EMPTY_VALUE = "Empty Value";

// Binary values up to this many bytes are written in full; longer ones are shortened to
// their first values, their length and a checksum over all bytes, so that different
// values still give different texts.
const Uint32 FULL_BINARY_LENGTH = 256;
const unsigned long SHORTENED_VALUE_COUNT = 16;

std::string elementText(DcmElement* element);

std::string tagText(const DcmTagKey& key)
{
    char text[16];
    snprintf(text, sizeof(text), "(%04x,%04x)", key.getGroup(), key.getElement());
    return text;
}

const unsigned long long CHECKSUM_START = 14695981039346656037ULL;

// 64-bit FNV-1a over a byte range, continuing from hash.
unsigned long long checksum(const Uint8* data, Uint32 length, unsigned long long hash = CHECKSUM_START)
{
    for (Uint32 i = 0; i < length; ++i)
    {
        hash ^= data[i];
        hash *= 1099511628211ULL;
    }
    return hash;
}

// The first count values of bytes, as words (machine byte order) or as bytes.
std::string valueList(const Uint8* bytes, bool words, unsigned long count)
{
    std::string text;
    text.reserve(count * (words ? 5 : 3));
    char value[32];
    for (unsigned long i = 0; i < count; ++i)
    {
        if (words)
        {
            Uint16 word;
            memcpy(&word, bytes + 2 * i, sizeof(word));
            snprintf(value, sizeof(value), i ? "\\%04x" : "%04x", word);
        }
        else
            snprintf(value, sizeof(value), i ? "\\%02x" : "%02x", bytes[i]);
        text += value;
    }
    return text;
}

std::string shortenedTail(Uint32 length, unsigned long long hash)
{
    char value[32];
    std::string text = "\\... (";
    snprintf(value, sizeof(value), "%lu", OFstatic_cast(unsigned long, length));
    text += value;
    snprintf(value, sizeof(value), "%016llx", hash);
    text += " bytes, checksum ";
    text += value;
    text += ")";
    return text;
}

// The shortened text of a long value still in its file, read piece by piece so that it is
// never loaded whole; false when a piece cannot be read.
bool shortenedTextInPieces(DcmOtherByteOtherWord* element, bool words, std::string& text)
{
    ValueChunkReader reader(element);
    Uint8* piece = ValueChunkReader::scratch(0);
    const Uint32 length = reader.remaining();
    unsigned long long hash = CHECKSUM_START;
    bool first = true;
    while (reader.remaining() > 0)
    {
        const Uint32 count = std::min(reader.remaining(), ValueChunkReader::CHUNK_SIZE);
        if (!reader.read(piece, count))
            return false;
        if (first)
            text = valueList(piece, words, SHORTENED_VALUE_COUNT);
        first = false;
        hash = checksum(piece, count, hash);
    }
    text += shortenedTail(length, hash);
    return true;
}

// Hexadecimal values separated by backslashes, words for OW and bytes otherwise, like
// the toolkit's print of OB and OW elements.
std::string binaryText(DcmOtherByteOtherWord* element)
{
    const Uint32 length = element->getLengthField();
    if (length == 0)
        return EMPTY_VALUE;
    const DcmEVR vr = element->getVR();
    const bool words = vr == EVR_OW || vr == EVR_lt;
    const bool full = length <= FULL_BINARY_LENGTH;

    std::string text;
    if (!full && !element->valueLoaded() && ValueChunkReader::suits(element)
        && shortenedTextInPieces(element, words, text))
        return text;

    Uint8* bytes = NULL;
    Uint16* wordValues = NULL;
    OFCondition status = words ? element->getUint16Array(wordValues) : element->getUint8Array(bytes);
    if (words)
        bytes = OFreinterpret_cast(Uint8*, wordValues);
    if (status.bad() || bytes == NULL)
        return std::string("(no value available)");

    const unsigned long count = words ? length / 2 : length;
    text = valueList(bytes, words, full ? count : SHORTENED_VALUE_COUNT);
    if (!full)
        text += shortenedTail(length, checksum(bytes, length));
    return text;
}

std::string itemText(DcmItem* item)
{
    std::string text = "{";
    bool first = true;
    for (DcmObject* obj = item->nextInContainer(NULL); obj != NULL; obj = item->nextInContainer(obj))
    {
        DcmElement* element = OFstatic_cast(DcmElement*, obj);
        if (!first)
            text += "; ";
        first = false;
        text += tagText(element->getTag());
        text += " ";
        text += elementText(element);
    }
    text += "}";
    return text;
}

std::string pixelSequenceText(DcmPixelSequence* sequence)
{
    const unsigned long count = sequence->card();
    if (count == 0)
        return EMPTY_VALUE;
    std::string text = "Pixel Sequence with " + std::to_string(count) + (count == 1 ? " item:" : " items:");
    unsigned long i = 0;
    for (DcmObject* obj = sequence->nextInContainer(NULL); obj != NULL; obj = sequence->nextInContainer(obj))
    {
        text += " Item " + std::to_string(++i) + " {";
        text += binaryText(OFstatic_cast(DcmPixelItem*, obj));
        text += "}";
    }
    return text;
}

std::string sequenceText(DcmSequenceOfItems* sequence)
{
    const unsigned long count = sequence->card();
    if (count == 0)
        return EMPTY_VALUE;
    std::string text = "Sequence with " + std::to_string(count) + (count == 1 ? " item:" : " items:");
    unsigned long i = 0;
    for (DcmObject* obj = sequence->nextInContainer(NULL); obj != NULL; obj = sequence->nextInContainer(obj))
    {
        text += " Item " + std::to_string(++i) + " ";
        text += itemText(OFstatic_cast(DcmItem*, obj));
    }
    return text;
}

std::string pixelDataText(DcmPixelData* pixelData)
{
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = NULL;
    pixelData->getCurrentRepresentationKey(xfer, parameter);
    if (!DcmXfer(xfer).isEncapsulated())
        return binaryText(pixelData);
    DcmPixelSequence* sequence = NULL;
    if (pixelData->getEncapsulatedRepresentation(xfer, parameter, sequence).bad() || sequence == NULL)
        return std::string("(no value available)");
    return pixelSequenceText(sequence);
}

std::string elementText(DcmElement* element)
{
    if (element == NULL)
        return std::string();
    if (DcmPixelSequence* pixelSequence = OFdynamic_cast(DcmPixelSequence*, element))
        return pixelSequenceText(pixelSequence);
    if (DcmSequenceOfItems* sequence = OFdynamic_cast(DcmSequenceOfItems*, element))
        return sequenceText(sequence);
    if (DcmPixelData* pixelData = OFdynamic_cast(DcmPixelData*, element))
        return pixelDataText(pixelData);
    if (DcmOtherByteOtherWord* binary = OFdynamic_cast(DcmOtherByteOtherWord*, element))
        return binaryText(binary);

    // Length field rather than getLength(): the latter rewrites a string's padding.
    if (element->getLengthField() == 0)
        return EMPTY_VALUE;
    OFString value;
    const OFCondition status = element->getOFStringArray(value, OFFalse /* as stored */);
    if (status.bad())
        return std::string("(no value available)");
    return std::string(value.c_str());
}

} // namespace

char* toString(DcmElement* element)
{
    return strdup(elementText(element).c_str());
}
