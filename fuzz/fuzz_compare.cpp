// ObjectComparator over two objects made from one input: a four-byte little-endian length n,
// then n bytes of the first object, then the second. Both modes: attributes with stored pixel
// data, and attributes with decoded frames (only for images small enough to decode quickly).
#include "fuzz/FuzzSupport.h"

#include "objdiff/IgnoreTags.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

namespace {

// Frames that decode to at most this many bytes are compared decoded as well.
const double MAX_DECODED_BYTES = 16.0 * 1024 * 1024;

double decodedBytes(const std::string& path)
{
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad())
        return 0;
    DcmDataset* ds = file.getDataset();
    Uint16 rows = 0, columns = 0, samples = 1, bits = 16;
    Sint32 frames = 1;
    ds->findAndGetUint16(DCM_Rows, rows);
    ds->findAndGetUint16(DCM_Columns, columns);
    ds->findAndGetUint16(DCM_SamplesPerPixel, samples);
    ds->findAndGetUint16(DCM_BitsAllocated, bits);
    if (ds->findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    return double(rows) * columns * (samples ? samples : 1) * ((bits + 7) / 8 ? (bits + 7) / 8 : 1) * frames;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 4)
        return 0;
    size_t first = size_t(data[0]) | size_t(data[1]) << 8 | size_t(data[2]) << 16 | size_t(data[3]) << 24;
    if (first > size - 4)
        first = size - 4;
    const std::string a = kqfuzz::writeScratch("first", data + 4, first);
    const std::string b = kqfuzz::writeScratch("second", data + 4 + first, size - 4 - first);

    IgnoreTags ignore;
    ignore.patterns.insert("....0000");
    ignore.tags.insert(DCM_PatientName);
    {
        ObjectComparator comparator(ignore);
        comparator.verbose = (size & 1) != 0;
        comparator.compareObjects(a.c_str(), nullptr, b.c_str(), nullptr, OC_MODE_BINARY);
    }
    if (decodedBytes(a) <= MAX_DECODED_BYTES && decodedBytes(b) <= MAX_DECODED_BYTES)
    {
        ObjectComparator comparator(ignore);
        comparator.compareObjects(a.c_str(), nullptr, b.c_str(), nullptr, OC_MODE_FRAMES);
    }
    return 0;
}
