// The JPEG 2000 decoder as the comparator reaches it: a codestream wrapped as the encapsulated
// pixel data of a DICOM dataset and decoded through DCMTK's codec list. The input is an eight-
// byte image header followed by the codestream:
//   bytes 0-1 rows, 2-3 columns (little endian); byte 4 flags: bit 0 Bits Allocated 16 (else 8),
//   bit 1 signed, bit 2 colour by plane, bit 3 lossy transfer syntax, bits 4-6 photometric
//   interpretation; byte 5 Bits Stored (modulo Bits Allocated, plus one); byte 6 bit 0 three
//   samples (else one); byte 7, when not 0, splits the codestream into two fragments there.
// A decoded image must have all the bytes its header promises.
#include "fuzz/FuzzSupport.h"

#include "dcmutils/codec/CodecRegistry.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dctk.h"

namespace {

const double MAX_IMAGE_BYTES = 16.0 * 1024 * 1024;

CodecRegistry* registry = nullptr;

} // namespace

// Where the sum of the decoded bytes goes, so that reading them is not optimised away.
volatile unsigned int pixelChecksum = 0;

namespace {

DcmPixelItem* fragment(const uint8_t* data, size_t size)
{
    DcmPixelItem* item = new DcmPixelItem(DcmTag(DCM_Item, EVR_OB));
    item->putUint8Array(data, Uint32(size));
    return item;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    registry = new CodecRegistry();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 8)
        return 0;
    const Uint16 rows = Uint16(data[0] | data[1] << 8);
    const Uint16 columns = Uint16(data[2] | data[3] << 8);
    const uint8_t flags = data[4];
    const Uint16 bitsAllocated = (flags & 1) ? 16 : 8;
    const Uint16 bitsStored = Uint16(1 + data[5] % bitsAllocated);
    const Uint16 samples = (data[6] & 1) ? 3 : 1;
    static const char* const photometrics[] = {"MONOCHROME2", "MONOCHROME1", "RGB", "YBR_RCT",
                                               "YBR_ICT",     "YBR_FULL",    "PALETTE COLOR", "MONOCHROME2"};
    const double bytes = double(rows) * columns * samples * (bitsAllocated / 8);
    if (rows == 0 || columns == 0 || bytes > MAX_IMAGE_BYTES)
        return 0;

    DcmDataset ds;
    ds.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds.putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.9");
    ds.putAndInsertUint16(DCM_Rows, rows);
    ds.putAndInsertUint16(DCM_Columns, columns);
    ds.putAndInsertUint16(DCM_BitsAllocated, bitsAllocated);
    ds.putAndInsertUint16(DCM_BitsStored, bitsStored);
    ds.putAndInsertUint16(DCM_HighBit, Uint16(bitsStored - 1));
    ds.putAndInsertUint16(DCM_PixelRepresentation, (flags & 2) ? 1 : 0);
    ds.putAndInsertUint16(DCM_SamplesPerPixel, samples);
    if (samples == 3)
        ds.putAndInsertUint16(DCM_PlanarConfiguration, (flags & 4) ? 1 : 0);
    ds.putAndInsertString(DCM_PhotometricInterpretation, photometrics[(flags >> 4) & 7]);

    const uint8_t* codestream = data + 8;
    const size_t length = size - 8;
    DcmPixelSequence* sequence = new DcmPixelSequence(DcmTag(DCM_PixelData, EVR_OB));
    sequence->insert(new DcmPixelItem(DcmTag(DCM_Item, EVR_OB))); // empty offset table
    const size_t split = data[7] ? length * data[7] / 256 : 0;
    if (split > 0 && split < length)
    {
        sequence->insert(fragment(codestream, split));
        sequence->insert(fragment(codestream + split, length - split));
    }
    else
        sequence->insert(fragment(codestream, length));
    DcmPixelData* pixelData = new DcmPixelData(DCM_PixelData);
    const E_TransferSyntax xfer = (flags & 8) ? EXS_JPEG2000 : EXS_JPEG2000LosslessOnly;
    pixelData->putOriginalRepresentation(xfer, nullptr, sequence);
    ds.insert(pixelData, true);

    if (ds.chooseRepresentation(EXS_LittleEndianExplicit, nullptr).good() &&
        ds.canWriteXfer(EXS_LittleEndianExplicit))
    {
        DcmElement* element = nullptr;
        kqfuzz::require(ds.findAndGetElement(DCM_PixelData, element).good(), "decoded pixel data is there");
        kqfuzz::require(element->getLength() >= Uint32(bytes), "decoded pixel data has every byte");
        Uint8* pixels = nullptr;
        kqfuzz::require(element->getUint8Array(pixels).good() && pixels != nullptr, "decoded pixel data reads");
        // read every byte: a short buffer shows under the address sanitizer
        unsigned int sum = 0;
        for (Uint32 i = 0; i < Uint32(bytes); ++i)
            sum += pixels[i];
        pixelChecksum = sum;
    }
    return 0;
}
