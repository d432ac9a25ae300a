// bench_imgproc: decoding speed and memory of the image pipeline on one object.
//
//   bench_imgproc decode <object> [runs]   decodes every frame through CImageProcess into a
//                                          memory that reuses one frame buffer; prints
//                                          "frames seconds frames-per-second peak-kB" of the
//                                          fastest run (peak resident memory of the process)
//   bench_imgproc extract <object> <dir>   writes each fragment of encapsulated pixel data
//                                          to <dir>/frame-<n>.j2k (one fragment per frame)
#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/rawimage.h"
#include "dcmutils/codec/CodecRegistry.h"
#include "objdiff/RemoteObjDiffMemory.h"
#include "privatetags/KQDictionary.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {


// Frames stay as decoded (as the comparison keeps them).
class DecodedRawImage : public CRawImage
{
public:
    DecodedRawImage(CImageProcess* process, int frame)
      : CRawImage(process, frame)
    {
    }
    void optimizeBitmap() override {}
};

class BenchProcess : public CImageProcess
{
public:
    explicit BenchProcess(DcmDataset* dataset)
      : CImageProcess(dataset, nullptr, false, false, false, 0)
    {
        setImageMemory(&m_memory);
    }
    CRawImage* createRawImage() override { return new DecodedRawImage(this, getCurrentFrame()); }
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE, unsigned int) override { return nullptr; }

    RemoteObjDiffMemory m_memory;
};

int decode(const char* path, int runs)
{
    CodecRegistry registry;
    double best = 1e300;
    unsigned int frames = 0;
    for (int run = 0; run < runs; ++run)
    {
        const auto start = std::chrono::steady_clock::now();
        DcmFileFormat file;
        // values over 4 kB stay in the file and are read frame by frame
        if (file.loadFile(path).bad())
        {
            fprintf(stderr, "bench_imgproc: cannot load %s\n", path);
            return 1;
        }
        BenchProcess process(file.getDataset());
        if (process.process() != 0)
        {
            fprintf(stderr, "bench_imgproc: decoding %s failed\n", path);
            return 1;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        frames = process.getImageCount();
        if (seconds < best)
            best = seconds;
    }
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    printf("%u %.4f %.1f %ld\n", frames, best, frames / best, usage.ru_maxrss);
    return 0;
}

int extract(const char* path, const std::string& dir)
{
    DcmFileFormat file;
    DcmElement* element = nullptr;
    if (file.loadFile(path).bad() || file.getDataset()->findAndGetElement(DCM_PixelData, element).bad())
        return 1;
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixelData->getCurrentRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = nullptr;
    if (pixelData->getEncapsulatedRepresentation(xfer, parameter, sequence).bad() || sequence == nullptr)
        return 1;
    for (unsigned long i = 1; i < sequence->card(); ++i)
    {
        DcmPixelItem* item = nullptr;
        Uint8* bytes = nullptr;
        if (sequence->getItem(item, i).bad() || item->getUint8Array(bytes).bad() || bytes == nullptr)
            return 1;
        const std::string name = dir + "/frame-" + std::to_string(i) + ".j2k";
        FILE* out = fopen(name.c_str(), "wb");
        if (out == nullptr || fwrite(bytes, 1, item->getLength(), out) != item->getLength())
            return 1;
        fclose(out);
        item->compact();
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    KQDictionary::registerEntries();
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "decode" && argc >= 3)
        return decode(argv[2], argc > 3 ? atoi(argv[3]) : 1);
    if (mode == "extract" && argc == 4)
        return extract(argv[2], argv[3]);
    fprintf(stderr, "usage: bench_imgproc decode <object> [runs] | extract <object> <dir>\n");
    return 2;
}
