// The comparator on large binary values (Google Benchmark; run by hand, not a test):
//   - compareOBOW on two values in memory,
//   - the path form of compareObjects on two files whose pixel data stays in the files
//     (what applyChanges' verification does),
//   - the text of a long value read from its file (one-sided and nested binary values).
// Sizes are in MiB of pixel data. Usage: bench_objdiff [--benchmark_filter=...] [work dir]

#include "objdiff/ElementText.h"
#include "objdiff/IgnoreTags.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string workDirectory = "/tmp";

const Uint32 MIB = 1024 * 1024;

std::vector<Uint8> pattern(Uint32 bytes, Uint8 seed)
{
    std::vector<Uint8> data(bytes);
    Uint32 state = seed;
    for (Uint32 i = 0; i < bytes; ++i)
    {
        state = state * 1664525u + 1013904223u;
        data[i] = Uint8(state >> 24);
    }
    return data;
}

// A file with OW pixel data of the given size, written once per size and kept for the run.
std::string objectFile(Uint32 mebibytes)
{
    static std::map<Uint32, std::string> files;
    std::string& path = files[mebibytes];
    if (!path.empty())
        return path;
    path = workDirectory + "/bench_objdiff." + std::to_string(getpid()) + "." + std::to_string(mebibytes) + ".dcm";
    DcmFileFormat file;
    DcmDataset& ds = *file.getDataset();
    ds.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds.putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.9");
    ds.putAndInsertString(DCM_PatientName, "Bench^Object");
    const std::vector<Uint8> bytes = pattern(mebibytes * MIB, 7);
    ds.putAndInsertUint16Array(DCM_PixelData, reinterpret_cast<const Uint16*>(bytes.data()), bytes.size() / 2);
    if (file.saveFile(path.c_str(), EXS_LittleEndianExplicit).bad())
        path.clear();
    return path;
}

void removeFiles()
{
    for (Uint32 size : {1u, 16u, 256u})
    {
        const std::string path =
            workDirectory + "/bench_objdiff." + std::to_string(getpid()) + "." + std::to_string(size) + ".dcm";
        unlink(path.c_str());
    }
}

void BM_CompareOBOWInMemory(benchmark::State& state)
{
    const Uint32 bytes = Uint32(state.range(0)) * MIB;
    const std::vector<Uint8> data = pattern(bytes, 3);
    DcmOtherByteOtherWord first(DcmTag(0x0009, 0x1010, EVR_OB));
    DcmOtherByteOtherWord second(DcmTag(0x0009, 0x1010, EVR_OB));
    first.putUint8Array(data.data(), bytes);
    second.putUint8Array(data.data(), bytes);
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    for (auto _ : state)
    {
        const bool equal = comparator.compareOBOW(&first, &second);
        benchmark::DoNotOptimize(equal);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes * 2);
}

void BM_CompareObjectFiles(benchmark::State& state)
{
    const Uint32 mebibytes = Uint32(state.range(0));
    const std::string path = objectFile(mebibytes);
    if (path.empty())
    {
        state.SkipWithError("cannot write the object file");
        return;
    }
    IgnoreTags rules;
    for (auto _ : state)
    {
        ObjectComparator comparator(rules);
        const bool equal = comparator.compareObjects(path.c_str(), NULL, path.c_str(), NULL, OC_MODE_BINARY);
        if (!equal)
            state.SkipWithError("the object differs from itself");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * mebibytes * MIB * 2);
}

void BM_TextOfLongValueFromFile(benchmark::State& state)
{
    const Uint32 mebibytes = Uint32(state.range(0));
    const std::string path = objectFile(mebibytes);
    DcmFileFormat file;
    if (path.empty() || file.loadFile(path.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad())
    {
        state.SkipWithError("cannot load the object file");
        return;
    }
    DcmElement* pixels = NULL;
    file.getDataset()->findAndGetElement(DCM_PixelData, pixels);
    for (auto _ : state)
    {
        char* text = toString(pixels);
        benchmark::DoNotOptimize(text);
        free(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * mebibytes * MIB);
}

BENCHMARK(BM_CompareOBOWInMemory)->Arg(1)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CompareObjectFiles)->Arg(1)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextOfLongValueFromFile)->Arg(16)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc > 2)
    {
        fprintf(stderr, "usage: bench_objdiff [benchmark options] [work directory]\n");
        return 1;
    }
    if (argc == 2)
        workDirectory = argv[1];
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    removeFiles();
    return 0;
}
