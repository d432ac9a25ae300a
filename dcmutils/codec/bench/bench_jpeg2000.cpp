// bench_jpeg2000: JPEG 2000 decode throughput of the codec. Writes a set of codestreams
// (synthetic CT-like and RGB images, lossless and lossy, plus codestreams taken from JPEG 2000
// objects given on the command line) into a work directory, decodes each one repeatedly and
// prints the throughput in MB of decoded samples per second. The same codestreams serve to
// time other decoders (scripts/bench-jpeg2000.sh runs opj_decompress on them).
//
// Usage: bench_jpeg2000 <workdir> <seconds per codestream> [<JPEG 2000 DICOM file>...]
// Environment: KQ_J2K_THREADS, the codec's worker threads (default: one per core).
// Output, one line per codestream: <file> <columns> <rows> <samples> <bytes/sample> <MB/s>
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2CodestreamDecoder.h"
#include "dcmutils/codec/D2CodestreamEncoder.h"
#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/D2RepresentationParameter.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Codestream
{
    std::string name;
    D2FrameInfo frame;
    std::vector<Uint8> data;
};

// A CT-like slice: a body disc with structure and noise on an air background.
std::vector<Uint8> syntheticFrame(const D2FrameInfo& frame, unsigned int seed)
{
    std::vector<Uint8> out(frame.frameSize());
    const int maxValue = (1 << frame.storedBits) - 1;
    for (Uint16 y = 0; y < frame.rows; ++y)
        for (Uint16 x = 0; x < frame.columns; ++x)
            for (Uint16 s = 0; s < frame.samplesPerPixel; ++s)
            {
                seed = seed * 1664525u + 1013904223u;
                const double dx = (x - frame.columns / 2.0) / frame.columns;
                const double dy = (y - frame.rows / 2.0) / frame.rows;
                const double r = std::sqrt(dx * dx + dy * dy);
                double v = r < 0.45 ? 0.45 + 0.1 * std::sin(x / (7.0 + s)) * std::cos(y / 11.0) + (r < 0.1 ? 0.3 : 0.0)
                                    : 0.02;
                v = v * maxValue + int((seed >> 16) % 41) - 20;
                const int value = v < 0 ? 0 : (v > maxValue ? maxValue : int(v));
                const size_t index = (size_t(y) * frame.columns + x) * frame.samplesPerPixel + s;
                if (frame.bytesPerSample == 1)
                    out[index] = Uint8(value);
                else
                {
                    out[2 * index] = Uint8(value & 0xFF);
                    out[2 * index + 1] = Uint8(value >> 8);
                }
            }
    return out;
}

bool makeSynthetic(const D2CodecParameter& cp, const std::string& name, Uint16 columns, Uint16 rows, Uint16 samples,
                   Uint16 bits, double rate, std::vector<Codestream>& out)
{
    Codestream c;
    c.name = name;
    c.frame.columns = columns;
    c.frame.rows = rows;
    c.frame.samplesPerPixel = samples;
    c.frame.bytesPerSample = bits > 8 ? 2 : 1;
    c.frame.storedBits = bits;
    const D2RepresentationParameter rp(rate, 0, rate >= 1.0, "", true);
    const D2CodestreamEncoder encoder(cp, rp, rate >= 1.0, samples == 3);
    const std::vector<Uint8> pixels = syntheticFrame(c.frame, 7u);
    if (encoder.encode(pixels.data(), c.frame, c.data).bad())
        return false;
    out.push_back(c);
    return true;
}

// The first frame's codestream of a single-fragment JPEG 2000 object.
bool takeFromObject(const std::string& path, std::vector<Codestream>& out)
{
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad())
        return false;
    DcmDataset* ds = file.getDataset();
    Codestream c;
    Uint16 bitsAllocated = 0, bitsStored = 0;
    ds->findAndGetUint16(DCM_Columns, c.frame.columns);
    ds->findAndGetUint16(DCM_Rows, c.frame.rows);
    ds->findAndGetUint16(DCM_SamplesPerPixel, c.frame.samplesPerPixel);
    ds->findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    ds->findAndGetUint16(DCM_BitsStored, bitsStored);
    c.frame.bytesPerSample = bitsAllocated > 8 ? 2 : 1;
    c.frame.storedBits = bitsStored;
    DcmElement* element = NULL;
    if (ds->findAndGetElement(DCM_PixelData, element).bad())
        return false;
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* param = NULL;
    DcmPixelSequence* sequence = NULL;
    pixelData->getCurrentRepresentationKey(xfer, param);
    DcmPixelItem* item = NULL;
    Uint8* data = NULL;
    if (pixelData->getEncapsulatedRepresentation(xfer, param, sequence).bad() || sequence == NULL ||
        sequence->card() != 2 || sequence->getItem(item, 1).bad() || item->getUint8Array(data).bad() || !data)
        return false;
    c.data.assign(data, data + item->getLength());
    if (!D2CodestreamDecoder::isJ2KCodestream(c.data.data(), c.data.size()))
        return false;
    std::string name = path.substr(path.rfind('/') + 1);
    c.name = name.substr(0, name.rfind('.')) + ".j2k";
    out.push_back(c);
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc < 3)
    {
        fprintf(stderr, "Usage: bench_jpeg2000 <workdir> <seconds per codestream> [<JPEG 2000 DICOM file>...]\n");
        return 1;
    }
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    const std::string workdir = argv[1];
    const double seconds = atof(argv[2]);
    if (D2JPEG2000Library::initialize().bad())
        return 1;

    // the codec's worker threads: $KQ_J2K_THREADS, or one per core
    D2CodecParameter cp;
    if (const char* threads = getenv("KQ_J2K_THREADS"))
        cp.m_threads = unsigned(atoi(threads));
    std::vector<Codestream> streams;
    bool ok = makeSynthetic(cp, "ct512_12bit_lossless.j2k", 512, 512, 1, 12, 1.0, streams) &&
              makeSynthetic(cp, "ct512_12bit_rate0.1.j2k", 512, 512, 1, 12, 0.1, streams) &&
              makeSynthetic(cp, "cr2048_16bit_lossless.j2k", 2048, 2048, 1, 16, 1.0, streams) &&
              makeSynthetic(cp, "rgb640x480_lossless.j2k", 640, 480, 3, 8, 1.0, streams) &&
              makeSynthetic(cp, "rgb640x480_rate0.1.j2k", 640, 480, 3, 8, 0.1, streams);
    for (int i = 3; i < argc && ok; ++i)
    {
        if (!takeFromObject(argv[i], streams))
            fprintf(stderr, "bench_jpeg2000: skipping %s (not a single-fragment JPEG 2000 object)\n", argv[i]);
    }
    if (!ok)
    {
        fprintf(stderr, "bench_jpeg2000: cannot make the codestreams\n");
        return 1;
    }

    D2CodestreamDecoder decoder(cp);
    for (const Codestream& c : streams)
    {
        const std::string path = workdir + "/" + c.name;
        FILE* f = fopen(path.c_str(), "wb");
        if (!f || fwrite(c.data.data(), 1, c.data.size(), f) != c.data.size())
        {
            fprintf(stderr, "bench_jpeg2000: cannot write %s\n", path.c_str());
            return 1;
        }
        fclose(f);

        std::vector<Uint8> buffer(c.frame.frameSize());
        long iterations = 0;
        const auto start = std::chrono::steady_clock::now();
        double elapsed = 0.0;
        do
        {
            if (decoder.decode(c.data.data(), c.data.size(), c.frame, buffer.data(), buffer.size()).bad())
            {
                fprintf(stderr, "bench_jpeg2000: cannot decode %s\n", c.name.c_str());
                return 1;
            }
            ++iterations;
            elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        } while (elapsed < seconds);
        const double megabytes = double(c.frame.frameSize()) * iterations / 1e6;
        printf("%s %u %u %u %u %.1f\n", c.name.c_str(), c.frame.columns, c.frame.rows, c.frame.samplesPerPixel,
               c.frame.bytesPerSample, megabytes / elapsed);
        fflush(stdout);
    }
    return 0;
}
