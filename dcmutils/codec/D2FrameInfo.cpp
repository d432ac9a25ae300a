#include "dcmutils/codec/D2FrameInfo.h"

#include "dcmtk/dcmdata/dcdeftag.h"

OFCondition D2ImagePixel::read(DcmItem& dataset)
{
    if (dataset.findAndGetUint16(DCM_SamplesPerPixel, samplesPerPixel).bad() ||
        dataset.findAndGetUint16(DCM_Rows, rows).bad() || dataset.findAndGetUint16(DCM_Columns, columns).bad() ||
        dataset.findAndGetUint16(DCM_BitsAllocated, bitsAllocated).bad() ||
        dataset.findAndGetUint16(DCM_BitsStored, bitsStored).bad())
        return EC_TagNotFound;
    hasHighBit = dataset.findAndGetUint16(DCM_HighBit, highBit).good();
    dataset.findAndGetUint16(DCM_PixelRepresentation, pixelRepresentation);
    dataset.findAndGetUint16(DCM_PlanarConfiguration, planarConfiguration);
    hasPhotometricInterpretation =
        dataset.findAndGetOFString(DCM_PhotometricInterpretation, photometricInterpretation).good();
    dataset.findAndGetOFString(DCM_SOPClassUID, sopClassUID);
    hasNumberOfFrames = dataset.findAndGetSint32(DCM_NumberOfFrames, numberOfFrames).good();
    return EC_Normal;
}

DcmItem* D2FrameInfo::datasetOf(const DcmStack& objStack)
{
    DcmStack localStack(objStack);
    (void)localStack.pop(); // the pixel data element
    DcmObject* dobject = localStack.pop();
    if (!dobject || (dobject->ident() != EVR_dataset && dobject->ident() != EVR_item))
        return NULL;
    return static_cast<DcmItem*>(dobject);
}
