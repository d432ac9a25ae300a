// The ignoretags file reader: any text gives exact tags and eight-character patterns, and the
// reading ends.
#include "fuzz/FuzzSupport.h"

#include "objdiff/IgnoreTags.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kqfuzz::initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string path = kqfuzz::writeScratch("ignoretags", data, size);
    IgnoreTags rules(path.c_str());
    for (const std::string& pattern : rules.patterns)
        kqfuzz::require(pattern.size() == 8, "a pattern has eight characters");
    const DcmTagKey keys[] = {DCM_PatientName, DCM_PixelData, DcmTagKey(0x0019, 0x1010), DcmTagKey(0x6000, 0x3000),
                              DcmTagKey(0xFFFF, 0xFFFF), DcmTagKey(0, 0)};
    for (const DcmTagKey& key : keys)
    {
        const bool ignored = rules.isIgnored(key);
        kqfuzz::require(ignored == (rules.tags.count(key) > 0 || rules.matchesRegexp(key)), "isIgnored is consistent");
    }
    return 0;
}
