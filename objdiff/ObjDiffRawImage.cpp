#include "objdiff/ObjDiffRawImage.h"

#include "gwav/gwav.h"

#include <cstring>
#include <memory>
#include <new>

ObjDiffRawImage::ObjDiffRawImage(CImageProcess* process, int frameNumber)
  : CRawImage(process, frameNumber)
{
}

void ObjDiffRawImage::optimizeBitmap()
{
}

bool ObjDiffRawImage::writeWavelet(FILE* file)
{
    if (file == nullptr || getPixels() == nullptr)
        return false;
    // never less than the dump, so that the bytes written are all inside the buffer
    const unsigned long imageSize =
        static_cast<unsigned long>(getColumns()) * getBytesPerPixel() * static_cast<unsigned long>(getRows());
    const unsigned long size = imageSize > DUMP_SIZE ? imageSize : DUMP_SIZE;
    std::unique_ptr<unsigned char[]> stream(new (std::nothrow) unsigned char[size]);
    if (stream == nullptr)
        return false;
    // a stream shorter than the budget is complete: zeros follow it, not stale memory
    memset(stream.get(), 0, DUMP_SIZE);
    if (gwavcompress(getPixels(), getImageParameter(), static_cast<int>(getBytesPerPixel()), getColumns(), getRows(),
                     stream.get(), DUMP_SIZE) == 0)
        return false;
    return fwrite(stream.get(), 1, DUMP_SIZE, file) == DUMP_SIZE;
}
