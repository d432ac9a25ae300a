// Compares two DICOM objects attribute by attribute and, where asked, by their pixel data.
#include "objdiff/ObjDiff.h"

#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/codec/CodecRegistry.h"
#include "objdiff/ElementText.h"
#include "objdiff/ValueChunkReader.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcvr.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

namespace {

// Maximum length of values read at load time; longer ones are read on demand.
const Uint32 MAX_READ_LENGTH = 4096;

// The transfer syntaxes that keep every sample exactly, as bits over E_TransferSyntax:
// implicit and explicit little and big endian, JPEG process 14 and its SV1 selection,
// RLE, JPEG-LS lossless and both JPEG 2000 lossless-only syntaxes.
const unsigned long LOSSLESS_XFER_MASK = 0x1560080fUL;
const int LAST_LOSSLESS_XFER = 28;

// The dataset's top-level elements ordered by tag (a stable sort keeps any duplicates in
// their stored order).
std::vector<DcmElement*> sortedElements(DcmDataset* dataset)
{
    std::vector<DcmElement*> elements;
    if (dataset == NULL)
        return elements;
    elements.reserve(dataset->card());
    // the container's own iteration: fetching element i by number walks the list from its start
    for (DcmObject* obj = dataset->nextInContainer(NULL); obj != NULL; obj = dataset->nextInContainer(obj))
        elements.push_back(OFstatic_cast(DcmElement*, obj));
    std::stable_sort(elements.begin(), elements.end(), [](DcmElement* a, DcmElement* b) {
        return OFstatic_cast(const DcmTagKey&, a->getTag()) < OFstatic_cast(const DcmTagKey&, b->getTag());
    });
    return elements;
}

const DcmTagKey& keyOf(DcmElement* element)
{
    return element->getTag();
}

enum PIECE_COMPARISON
{
    PIECES_EQUAL,
    PIECES_DIFFERENT,
    PIECES_UNREADABLE
};

// Compares two values of equal length one piece at a time. After a difference the rest
// of both is still read, so that a value the whole-value accessors could not load is never
// reported as merely different. An element compared with itself is only read through.
PIECE_COMPARISON compareInPieces(DcmElement* first, DcmElement* second)
{
    ValueChunkReader firstReader(first);
    ValueChunkReader secondReader(second);
    Uint8* firstPiece = ValueChunkReader::scratch(0);
    Uint8* secondPiece = ValueChunkReader::scratch(1);
    bool equal = true;
    while (firstReader.remaining() > 0)
    {
        const Uint32 count = std::min(firstReader.remaining(), ValueChunkReader::CHUNK_SIZE);
        if (!firstReader.read(firstPiece, count))
            return PIECES_UNREADABLE;
        if (second == first)
            continue;
        if (!secondReader.read(secondPiece, count))
            return PIECES_UNREADABLE;
        if (equal && memcmp(firstPiece, secondPiece, count) != 0)
            equal = false;
    }
    return equal ? PIECES_EQUAL : PIECES_DIFFERENT;
}

} // namespace

ObjectComparator::ObjectComparator(IgnoreTags& ignore)
  : verbose(false)
  , m_ignore(ignore)
  , m_registry(NULL)
  , m_out(&std::cout)
  , m_err(&std::cerr)
  , m_trouble(false)
{
}

ObjectComparator::~ObjectComparator()
{
    delete m_registry;
}

bool ObjectComparator::isIgnored(const DcmTagKey& key) const
{
    return m_ignore.tags.find(key) != m_ignore.tags.end() || m_ignore.matchesRegexp(key);
}

std::ostream& ObjectComparator::trouble()
{
    m_trouble = true;
    return *m_err;
}

bool ObjectComparator::loadObjectAndKqR(DcmFileFormat& file, const char* objectPath, const char* kqrPath)
{
    // a shape the toolkit's reader would not survive is refused before it is given the file
    OFCondition status = scanDicomFile(objectPath);
    if (status.good())
        status = file.loadFile(objectPath, EXS_Unknown, EGL_noChange, MAX_READ_LENGTH, ERM_autoDetect);
    if (status.bad())
    {
        trouble() << "Error loading " << objectPath << "(" << status.text() << ")" << std::endl;
        return false;
    }
    if (file.getDataset() == NULL)
    {
        trouble() << "Error reading " << objectPath << "(" << OFCondition(EC_IllegalCall).text() << ")" << std::endl;
        return false;
    }
    if (kqrPath == NULL)
        return true;

    DcmFileFormat kqr;
    status = scanDicomFile(kqrPath);
    if (status.good())
        status = kqr.loadFile(kqrPath, EXS_Unknown, EGL_noChange, MAX_READ_LENGTH, ERM_autoDetect);
    if (status.bad())
    {
        trouble() << "Error loading " << kqrPath << "(" << status.text() << ")" << std::endl;
        return false;
    }
    status = kqr.loadAllDataIntoMemory();
    if (status.good() && kqr.getDataset() == NULL)
        status = EC_IllegalCall;
    if (status.bad())
    {
        trouble() << "Error reading " << kqrPath << "(" << status.text() << ")" << std::endl;
        return false;
    }

    status = applyModifications(*file.getDataset(), *kqr.getDataset());
    if (status.bad())
    {
        trouble() << "Error applying soft edit changes to " << objectPath << " (" << status.text() << ")"
                  << std::endl;
        return false;
    }
    return true;
}

bool ObjectComparator::compareObjects(const char* file1, const char* kqr1, const char* file2, const char* kqr2,
                                      OC_MODE mode)
{
    DcmFileFormat first;
    DcmFileFormat second;
    if (!loadObjectAndKqR(first, file1, kqr1) || !loadObjectAndKqR(second, file2, kqr2))
        return false;
    return compareLoaded(first.getDataset(), second.getDataset(), mode, true);
}

bool ObjectComparator::compareObjects(DcmDataset* first, DcmDataset* second, OC_MODE mode)
{
    return compareLoaded(first, second, mode, false);
}

bool ObjectComparator::compareLoaded(DcmDataset* first, DcmDataset* second, OC_MODE mode, bool inPlace)
{
    if (first == NULL || second == NULL)
    {
        trouble() << "Error comparing DICOM objects: dataset missing" << std::endl;
        return false;
    }
    if (mode == OC_MODE_BINARY)
        return compareDataset(first, second, true);

    bool lossless = true;
    if (!isLossLess(first->getOriginalXfer()) || !isLossLess(second->getOriginalXfer()))
    {
        // a lossy encoding records itself in these attributes: they may differ
        m_ignore.tags.insert(DCM_LossyImageCompression);
        m_ignore.tags.insert(DCM_LossyImageCompressionRatio);
        m_ignore.tags.insert(DCM_LossyImageCompressionMethod);
        lossless = false;
    }
    if (!compareDataset(first, second, false))
        return false;
    if (inPlace)
        return compareFrames(first, second, lossless);
    // the image pipeline removes the pixel data and relocates private tags: the caller's
    // datasets stay as they are (values still in their files are not read by the copy)
    DcmDataset firstCopy(*first);
    DcmDataset secondCopy(*second);
    return compareFrames(&firstCopy, &secondCopy, lossless);
}

bool ObjectComparator::compareDataset(DcmDataset* first, DcmDataset* second, bool comparePixelBinary)
{
    const std::vector<DcmElement*> firstElements = sortedElements(first);
    const std::vector<DcmElement*> secondElements = sortedElements(second);
    bool result = true;
    size_t i = 0;
    size_t j = 0;
    while (i < firstElements.size() || j < secondElements.size())
    {
        DcmElement* a = i < firstElements.size() ? firstElements[i] : NULL;
        DcmElement* b = j < secondElements.size() ? secondElements[j] : NULL;

        if (a != NULL && b != NULL && keyOf(a) == keyOf(b))
        {
            const DcmTagKey& key = keyOf(a);
            if (isIgnored(key))
            {
                if (verbose)
                    (*m_out) << "DEBUG: ignored tag: " << key << std::endl;
            }
            else if (key == DCM_PixelData)
            {
                if (!comparePixelBinary)
                {
                    if (verbose)
                        (*m_out) << "DEBUG: skipping binary compare for pixel data" << std::endl;
                }
                else
                {
                    if (verbose)
                        (*m_out) << "DEBUG: comparing pixel data binary" << std::endl;
                    DcmPixelData* firstPixels = OFdynamic_cast(DcmPixelData*, a);
                    DcmPixelData* secondPixels = OFdynamic_cast(DcmPixelData*, b);
                    if (firstPixels == NULL || secondPixels == NULL)
                    {
                        trouble() << "Error comparing Pixel Data" << std::endl;
                        result = false;
                    }
                    else if (!comparePixelDataElement(firstPixels, secondPixels))
                        result = false;
                }
            }
            else
            {
                if (verbose)
                    (*m_out) << "DEBUG: comparing " << key << std::endl;
                if (!compareElements(a, b))
                    result = false;
            }
            ++i;
            ++j;
        }
        else if (b == NULL || (a != NULL && keyOf(a) < keyOf(b)))
        {
            // only in the first dataset
            if (!isIgnored(keyOf(a)))
            {
                char* text = toString(a);
                (*m_out) << "< " << keyOf(a) << ": " << (text ? text : "") << std::endl;
                free(text);
                result = false;
            }
            ++i;
        }
        else
        {
            // only in the second dataset
            if (!isIgnored(keyOf(b)))
            {
                char* text = toString(b);
                (*m_out) << "> " << keyOf(b) << ": " << (text ? text : "") << std::endl;
                free(text);
                result = false;
            }
            ++j;
        }
    }
    return result;
}

bool ObjectComparator::compareElements(DcmElement* first, DcmElement* second)
{
    const DcmTagKey& key = keyOf(first);
    DcmOtherByteOtherWord* firstBinary = OFdynamic_cast(DcmOtherByteOtherWord*, first);
    DcmOtherByteOtherWord* secondBinary = OFdynamic_cast(DcmOtherByteOtherWord*, second);
    if (firstBinary != NULL && secondBinary == NULL)
    {
        (*m_err) << "! " << key << ": BINARY != not binary" << std::endl;
        return false;
    }
    if (firstBinary == NULL && secondBinary != NULL)
    {
        (*m_err) << "! " << key << ": not binary != BINARY" << std::endl;
        return false;
    }
    if (firstBinary != NULL)
        return compareOBOW(firstBinary, secondBinary);

    char* firstText = toString(first);
    char* secondText = toString(second);
    const char* a = firstText ? firstText : "";
    const char* b = secondText ? secondText : "";
    if (verbose)
        (*m_out) << "STRING " << key << "[" << a << "] vs. [" << b << "]" << std::endl;

    bool equal = true;
    if (strcmp(a, b) == 0)
        equal = true;
    else if (strcmp(a, "Empty Value") == 0 && *b == '\0')
    {
        if (verbose)
            (*m_out) << "Empty Value Matching 1" << std::endl;
    }
    else if (strcmp(b, "Empty Value") == 0 && *a == '\0')
    {
        if (verbose)
            (*m_out) << "Empty Value Matching 2" << std::endl;
    }
    else
    {
        (*m_err) << "! " << key << ": " << a << " != " << b << std::endl;
        equal = false;
    }
    free(firstText);
    free(secondText);
    return equal;
}

bool ObjectComparator::compareOBOW(DcmOtherByteOtherWord* first, DcmOtherByteOtherWord* second)
{
    const DcmTagKey& key = keyOf(first);
    const Uint32 firstLength = first->getLength();
    const Uint32 secondLength = second->getLength();
    const char* firstVR = DcmVR(first->getVR()).getVRName();
    const char* secondVR = DcmVR(second->getVR()).getVRName();
    if (verbose)
        (*m_out) << "BINARY " << key << " :: " << "[" << firstVR << "] vs. " << "[" << secondVR << "]" << std::endl;

    if (firstLength != secondLength)
    {
        (*m_err) << "! " << key << " Length of binary data differs (" << firstLength << " != " << secondLength
                  << ")" << std::endl;
        return false;
    }
    if (first->getVR() != second->getVR())
    {
        if (first->getTag().isUnknownVR() && second->getTag().isUnknownVR())
        {
            if (verbose)
                (*m_out) << "Comparing Unknown VRs: " << firstVR << " vs. " << secondVR << std::endl;
        }
        else
        {
            (*m_err) << "! " << key << " VR of binary data differs (" << firstVR << " != " << secondVR << ")"
                      << std::endl;
            return false;
        }
    }

    // Values still in their files are compared piece by piece, so that neither is loaded
    // whole; a piece that cannot be read sends both through the whole-value accessors below,
    // which report the problem.
    if (firstLength > 0 && first->getVR() == second->getVR() && (!first->valueLoaded() || !second->valueLoaded())
        && ValueChunkReader::suits(first) && ValueChunkReader::suits(second))
    {
        const PIECE_COMPARISON outcome = compareInPieces(first, second);
        if (outcome != PIECES_UNREADABLE)
            return outcome == PIECES_EQUAL;
    }

    const void* firstValue = NULL;
    const void* secondValue = NULL;
    if (first->getVR() == EVR_OW)
    {
        Uint16* words = NULL;
        if (first->getUint16Array(words).bad())
            trouble() << "Error getting binary(OW) data (1) [" << key << "]" << std::endl;
        firstValue = words;
        words = NULL;
        if (second->getUint16Array(words).bad())
            trouble() << "Error getting binary(OW) data (2) [" << key << "]" << std::endl;
        secondValue = words;
    }
    else
    {
        Uint8* bytes = NULL;
        if (first->getUint8Array(bytes).bad())
            trouble() << "Error getting binary(OB) data (1) [" << key << "]" << std::endl;
        firstValue = bytes;
        bytes = NULL;
        if (second->getUint8Array(bytes).bad())
            trouble() << "Error getting binary(OB) data (2) [" << key << "]" << std::endl;
        secondValue = bytes;
    }

    if (firstValue == NULL && secondValue == NULL)
        return true;
    if (secondValue == NULL)
    {
        (*m_err) << " ( not null != NULL )" << std::endl;
        return false;
    }
    if (firstValue == NULL)
    {
        (*m_err) << " ( NULL != not null )" << std::endl;
        return false;
    }
    return memcmp(firstValue, secondValue, firstLength) == 0;
}

bool ObjectComparator::isLossLess(E_TransferSyntax xfer)
{
    const int value = OFstatic_cast(int, xfer);
    if (value < 0 || value > LAST_LOSSLESS_XFER)
        return false;
    return (LOSSLESS_XFER_MASK >> value) & 1UL;
}

bool ObjectComparator::dumpObject(const char* objectPath, const char* kqrPath, const char* prefix)
{
    DcmFileFormat file;
    if (!loadObjectAndKqR(file, objectPath, kqrPath))
        return false;
    return dumpLoaded(file.getDataset(), prefix, true);
}

bool ObjectComparator::dumpObject(DcmDataset* dataset, const char* prefix)
{
    return dumpLoaded(dataset, prefix, false);
}

bool ObjectComparator::dumpLoaded(DcmDataset* dataset, const char* prefix, bool inPlace)
{
    if (dataset == NULL)
    {
        trouble() << "Error dumping DICOM object: dataset missing" << std::endl;
        return false;
    }
    const std::vector<DcmElement*> elements = sortedElements(dataset);
    for (DcmElement* element : elements)
    {
        const DcmTagKey& key = keyOf(element);
        if (key == DCM_PixelData || isIgnored(key))
            continue;
        element->print(*m_out);
    }
    m_out->flush();
    return dumpImages(dataset, prefix, inPlace);
}
