#include "applychanges/WrittenObjectCheck.h"

#include "objdiff/ValueChunkReader.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace {

bool wasModified(const std::list<DcmTagKey>& modified, const DcmTagKey& key)
{
    return std::find(modified.begin(), modified.end(), key) != modified.end();
}

// The value a meta header element of the written object must hold: a Media Storage UID that of
// the edited dataset (the original's, or the edit's when the edit set it), the transfer syntax
// the one the original was read in. A new meta header is made from the dataset, so one that
// named another instance than its dataset is made consistent.
OFString expectedMetaValue(DcmFileFormat& original, DcmFileFormat& written, const DcmTagKey& datasetKey,
                           const std::list<DcmTagKey>& modified)
{
    OFString expected;
    if (datasetKey == DcmTagKey())
        return DcmXfer(original.getDataset()->getOriginalXfer()).getXferID();
    DcmDataset* edited = wasModified(modified, datasetKey) ? written.getDataset() : original.getDataset();
    edited->findAndGetOFStringArray(datasetKey, expected, OFFalse);
    return expected;
}

bool checkMetaElement(DcmFileFormat& original, DcmFileFormat& written, const DcmTagKey& metaKey,
                      const DcmTagKey& datasetKey, const std::list<DcmTagKey>& modified, std::ostream& err)
{
    const OFString expected = expectedMetaValue(original, written, datasetKey, modified);
    OFString actual;
    written.getMetaInfo()->findAndGetOFStringArray(metaKey, actual);
    if (actual == expected)
        return true;
    DcmTag tag(metaKey);
    err << "! " << metaKey << " " << tag.getTagName() << " differs in the written meta header (" << expected
        << " != " << actual << ")" << std::endl;
    return false;
}

DcmPixelSequence* pixelSequence(DcmFileFormat& file)
{
    DcmElement* element = nullptr;
    if (file.getDataset()->findAndGetElement(DCM_PixelData, element, OFFalse).bad() || !element ||
        element->ident() != EVR_PixelData)
        return nullptr;
    DcmPixelData* pixels = OFstatic_cast(DcmPixelData*, element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixels->getCurrentRepresentationKey(xfer, parameter);
    if (!DcmXfer(xfer).isEncapsulated())
        return nullptr;
    DcmPixelSequence* sequence = nullptr;
    if (pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).bad())
        return nullptr;
    return sequence;
}

bool sameBytes(DcmPixelItem* first, DcmPixelItem* second)
{
    if (first->getLength() != second->getLength())
        return false;
    ValueChunkReader firstReader(first);
    ValueChunkReader secondReader(second);
    Uint8* firstPiece = ValueChunkReader::scratch(0);
    Uint8* secondPiece = ValueChunkReader::scratch(1);
    while (firstReader.remaining() > 0)
    {
        const Uint32 count = std::min(firstReader.remaining(), ValueChunkReader::CHUNK_SIZE);
        if (!firstReader.read(firstPiece, count) || !secondReader.read(secondPiece, count) ||
            memcmp(firstPiece, secondPiece, count) != 0)
            return false;
    }
    return true;
}

bool checkFragments(DcmFileFormat& original, DcmFileFormat& written, std::ostream& err)
{
    DcmPixelSequence* first = pixelSequence(original);
    if (!first)
        return true; // native pixel data is compared as a value by the comparison
    DcmPixelSequence* second = pixelSequence(written);
    if (!second || first->card() != second->card())
    {
        err << "! " << DCM_PixelData << " Number of pixel items differs in the written object ("
                  << first->card() << " != " << (second ? second->card() : 0) << ")" << std::endl;
        return false;
    }
    for (unsigned long i = 0; i < first->card(); ++i)
    {
        DcmPixelItem* firstItem = nullptr;
        DcmPixelItem* secondItem = nullptr;
        if (first->getItem(firstItem, i).bad() || second->getItem(secondItem, i).bad() ||
            !sameBytes(firstItem, secondItem))
        {
            err << "! Pixel Item (" << i << ") differs in the written object" << std::endl;
            return false;
        }
    }
    return true;
}

} // namespace

std::string metaHeaderInconsistency(DcmFileFormat& original)
{
    const DcmTagKey pairs[][2] = {{DCM_MediaStorageSOPClassUID, DCM_SOPClassUID},
                                  {DCM_MediaStorageSOPInstanceUID, DCM_SOPInstanceUID}};
    std::string found;
    for (const auto& pair : pairs)
    {
        OFString meta, dataset;
        if (original.getMetaInfo()->findAndGetOFStringArray(pair[0], meta).bad() ||
            original.getDataset()->findAndGetOFStringArray(pair[1], dataset, OFFalse).bad() || meta == dataset)
            continue;
        std::ostringstream line;
        line << (found.empty() ? "" : ", ") << pair[0] << " " << DcmTag(pair[0]).getTagName() << " " << meta
             << " -> " << dataset;
        found += line.str();
    }
    return found;
}

bool checkWrittenObject(DcmFileFormat& original, DcmFileFormat& written, const std::list<DcmTagKey>& modified,
                        std::ostream& err)
{
    return checkMetaElement(original, written, DCM_MediaStorageSOPClassUID, DCM_SOPClassUID, modified, err) &&
           checkMetaElement(original, written, DCM_MediaStorageSOPInstanceUID, DCM_SOPInstanceUID, modified, err) &&
           checkMetaElement(original, written, DCM_TransferSyntaxUID, DcmTagKey(), modified, err) &&
           checkFragments(original, written, err);
}
