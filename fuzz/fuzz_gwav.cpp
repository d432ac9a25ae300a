// The wavelet codec's decoder on any bytes, as a dump reader meets them: gwavinfo on the header,
// then gwavdecompress into a buffer of exactly the size the header promises. The input is copied
// into a buffer of its own size, so any read beyond it shows under the address sanitizer.
// Decoding the same bytes twice must give the same image.
#include "fuzz/FuzzSupport.h"

#include "gwav/gwav.h"

#include <cstring>
#include <vector>

namespace {

// Larger images are skipped: the decoder's memory grows with the header's size, not the input's.
const size_t MAX_IMAGE_BYTES = 256 * 1024;

} // namespace

// Where a sum of the decoded bytes goes, so that reading them is not optimised away.
volatile unsigned int pixelChecksum = 0;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<unsigned char> stream(data, data + size);
    int parameter = 0, bytesPerPixel = 0, columns = 0, rows = 0;
    const bool header = size >= 10 && gwavinfo(stream.data(), parameter, bytesPerPixel, columns, rows);
    if (!header)
    {
        unsigned char out[16];
        kqfuzz::require(!gwavdecompress(stream.data(), out, (unsigned long)size), "an invalid header is refused");
        return 0;
    }
    kqfuzz::require(bytesPerPixel >= 1 && bytesPerPixel <= 3 && columns >= 1 && rows >= 1, "the header is sane");
    const size_t bytes = size_t(columns) * size_t(rows) * size_t(bytesPerPixel);
    if (bytes > MAX_IMAGE_BYTES)
        return 0;
    std::vector<unsigned char> first(bytes);
    if (!gwavdecompress(stream.data(), first.data(), (unsigned long)size))
        return 0;
    std::vector<unsigned char> second(bytes);
    kqfuzz::require(gwavdecompress(stream.data(), second.data(), (unsigned long)size), "decoding again succeeds");
    kqfuzz::require(first == second, "decoding is deterministic");
    unsigned int sum = 0;
    for (unsigned char b : first)
        sum += b;
    pixelChecksum = sum;
    return 0;
}
