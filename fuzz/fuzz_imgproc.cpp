// CImageProcess::process over one object read from the input (a DICOM file), with every decoder
// registered: the walk and its handlers, overlays, documents, palettes and the frames decoded
// into a memory that reuses one buffer, as the comparison's single-frame memory does. Objects
// whose frames would decode to more than 16 MB are only walked (no pixel data handlers).
// The first byte of the input's length decides whether elements are printed too.
#include "fuzz/FuzzSupport.h"

#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/rawimage.h"
#include "dcmutils/codec/CodecRegistry.h"
#include "objdiff/RemoteObjDiffMemory.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <sstream>

namespace {

const double MAX_DECODED_BYTES = 16.0 * 1024 * 1024;

CodecRegistry* registry = nullptr;


class FuzzProcess : public CImageProcess
{
public:
    FuzzProcess(DcmDataset* dataset, bool print, bool noTagHandlers)
      : CImageProcess(dataset, nullptr, print, noTagHandlers, print, 0)
    {
        setImageMemory(&m_memory);
        setOutputStream(&m_out);
    }
    CRawImage* createRawImage() override { return new CRawImage(this, getCurrentFrame()); }
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int length) override
    {
        return new CEncapsulatedDocument(this, type, length);
    }
    bool isIncluded(const DcmTag& tag) override { return tag.getGroup() != 0x0029; }

    RemoteObjDiffMemory m_memory;
    std::ostringstream m_out;
};

double decodedBytes(DcmDataset& ds)
{
    Uint16 rows = 0, columns = 0, samples = 1, bits = 16, slices = 0;
    Sint32 frames = 1;
    ds.findAndGetUint16(DCM_Rows, rows);
    ds.findAndGetUint16(DCM_Columns, columns);
    ds.findAndGetUint16(DCM_SamplesPerPixel, samples);
    ds.findAndGetUint16(DCM_BitsAllocated, bits);
    if (ds.findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    if (ds.findAndGetUint16(DCM_NumberOfSlices, slices).good())
        frames = slices ? slices : 1;
    // a frame count that does not fit in 16 bits is taken as its low bits by the process
    frames = (frames & 0xFFFF) ? (frames & 0xFFFF) : 1;
    return double(rows) * columns * (samples ? samples : 1) * (bits / 8 ? bits / 8 : 1) * 3 * frames;
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
    const std::string path = kqfuzz::writeScratch("object", data, size);
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad())
        return 0;
    DcmDataset* ds = file.getDataset();
    const bool walkOnly = decodedBytes(*ds) > MAX_DECODED_BYTES;
    FuzzProcess process(ds, (size & 1) != 0, walkOnly);
    process.process();
    return 0;
}
