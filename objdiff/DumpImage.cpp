#include "objdiff/DumpImage.h"

#include "objdiff/CompareImageData.h"

#include "gwav/gwav.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

const char ICON_MAGIC[4] = {'I', 'C', 'O', 'N'};
const char WAVELET_MAGIC[4] = {'G', 'W', '1', '0'};
// The header of a wavelet stream.
const unsigned long long WAVELET_HEADER = 10;
// Larger images than this are not read back: a damaged header must not make the reader
// allocate gigabytes (a dump of a 8192 x 8192 RGB frame needs 192 MiB).
const unsigned long long MAX_DUMP_IMAGE = 1ull << 30;
// Larger wavelet files are not read whole (a dump is 4096 bytes).
const unsigned long long MAX_WAVELET_FILE = 256ull << 20;

// Closes the file when the reading ends, whichever way.
struct FileCloser
{
    FILE* file;
    ~FileCloser()
    {
        if (file != nullptr)
            fclose(file);
    }
};

} // namespace

DumpImage::DumpImage(std::string fileName, std::ostream& err)
  : m_pixels(nullptr)
  , m_bytesPerPixel(0)
  , m_columns(0)
  , m_rows(0)
  , m_loaded(false)
  , m_err(&err)
{
    loadImage(fileName);
}

DumpImage::~DumpImage()
{
    delete[] m_pixels;
}

void DumpImage::clear()
{
    delete[] m_pixels;
    m_pixels = nullptr;
    m_bytesPerPixel = 0;
    m_columns = 0;
    m_rows = 0;
    m_loaded = false;
}

bool DumpImage::loadImage(std::string fileName)
{
    clear();
    // opened without blocking: a FIFO opened "rb" would wait for a writer for ever
    const int fd = open(fileName.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    FileCloser closer = {fd >= 0 ? fdopen(fd, "rb") : nullptr};
    FILE* file = closer.file;
    if (file == nullptr)
    {
        if (fd >= 0)
            close(fd);
        return false;
    }
    struct stat status;
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode))
    {
        // a directory, FIFO or device holds no image: unreadable like any other such dump
        (*m_err) << "Unknown image format." << std::endl;
        return false;
    }
    const unsigned long long size = static_cast<unsigned long long>(status.st_size);

    char magic[4] = {0, 0, 0, 0};
    const size_t got = fread(magic, 1, sizeof magic, file);
    if (got == sizeof magic && memcmp(magic, WAVELET_MAGIC, sizeof magic) == 0)
        m_loaded = readWavelet(file, size);
    else if (got == sizeof magic && memcmp(magic, ICON_MAGIC, sizeof magic) == 0)
        m_loaded = readIcon(file, size - sizeof magic);
    else
    {
        (*m_err) << "Unknown image format." << std::endl;
        return false;
    }
    if (!m_loaded)
        clear();
    return m_loaded;
}

bool DumpImage::readIcon(FILE* file, unsigned long long remaining)
{
    unsigned int header[3];
    if (remaining < sizeof header || fread(header, sizeof header[0], 3, file) != 3)
        return false;
    const unsigned long long bytes = static_cast<unsigned long long>(header[0]) * header[1] * header[2];
    // the samples must be in the file: a damaged header never makes a large allocation
    if (bytes > remaining - sizeof header || bytes > 0xFFFFFFFFull)
        return false;
    m_pixels = new (std::nothrow) unsigned char[bytes > 0 ? bytes : 1];
    if (m_pixels == nullptr || fread(m_pixels, 1, bytes, file) != bytes)
        return false;
    m_columns = header[0];
    m_rows = header[1];
    m_bytesPerPixel = header[2];
    return true;
}

bool DumpImage::readWavelet(FILE* file, unsigned long long size)
{
    // a stream shorter than its header, or whose header cannot be an image, is invalid
    if (size < WAVELET_HEADER)
    {
        (*m_err) << "Invalid compressed bitstream" << std::endl;
        return false;
    }
    if (size > MAX_WAVELET_FILE)
        return false;
    std::unique_ptr<unsigned char[]> stream(new (std::nothrow) unsigned char[size]);
    if (stream == nullptr || fseek(file, 0, SEEK_SET) != 0 || fread(stream.get(), 1, size, file) != size)
        return false;
    int parameter = 0;
    int bytesPerPixel = 0;
    int columns = 0;
    int rows = 0;
    if (!gwavinfo(stream.get(), parameter, bytesPerPixel, columns, rows) || bytesPerPixel <= 0 || columns <= 0 ||
        rows <= 0)
    {
        (*m_err) << "Invalid compressed bitstream" << std::endl;
        return false;
    }
    const unsigned long long bytes = static_cast<unsigned long long>(columns) * rows * bytesPerPixel;
    if (bytes > MAX_DUMP_IMAGE)
        return false;
    m_pixels = new (std::nothrow) unsigned char[bytes];
    if (m_pixels == nullptr || !gwavdecompress(stream.get(), m_pixels, size))
        return false;
    m_bytesPerPixel = static_cast<unsigned int>(bytesPerPixel);
    m_columns = static_cast<unsigned int>(columns);
    m_rows = static_cast<unsigned int>(rows);
    return true;
}

bool DumpImage::operator==(const DumpImage& other) const
{
    if (m_bytesPerPixel != other.m_bytesPerPixel || m_columns != other.m_columns || m_rows != other.m_rows)
        return false;
    const unsigned long long samples = static_cast<unsigned long long>(m_rows) * m_columns;
    const unsigned int count = samples <= 0xFFFFFFFFull ? static_cast<unsigned int>(samples) : 0;
    if (m_bytesPerPixel < 1 || m_bytesPerPixel > 3)
        return true;
    return lossyImagesEqual(m_pixels, other.m_pixels, count, m_bytesPerPixel == 2);
}
