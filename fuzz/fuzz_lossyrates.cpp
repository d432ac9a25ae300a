// The jpeg2000lossy.conf reader: any text gives rates in (0, 1] for every modality, and the
// table prints.
#include "fuzz/FuzzSupport.h"

#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string path = kqfuzz::writeScratch("jpeg2000lossy.conf", data, size);
    JPEG2000LossyRates rates(path.c_str());
    rates.checkAndLoadConfigFile();
    const char* const modalities[] = {"Default", "CT", "MR", "US", "", " CT", "CT "};
    for (const char* modality : modalities)
    {
        const double rate = rates.getRateForModality(modality);
        kqfuzz::require(rate > 0.0 && rate <= 1.0, "every rate lies in (0, 1]");
    }
    rates.print();
    return 0;
}
