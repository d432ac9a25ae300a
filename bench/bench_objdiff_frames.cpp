// bench_objdiff_frames: the decoded-frame comparison of two objects under the peak-error rule,
// whatever their transfer syntaxes (objdiff -m 1 chooses the rule by transfer syntax, so two
// native objects are always compared byte for byte there).
//
//   bench_objdiff_frames <first> <second>
//
// Runs what ObjectComparator::compareObjects does for a lossy pair: both objects loaded, their
// attributes compared without pixel data, every frame of both decoded through ObjDiffProcess,
// then each pair of frames measured. Prints "<frames> equal|different"; exit status 0 when
// equal, 1 when different, 2 when a step failed.

#include "dcmutils/codec/CodecRegistry.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ObjDiffProcess.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <cstdio>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        fprintf(stderr, "bench_objdiff_frames <first> <second>\n");
        return 2;
    }
    IgnoreTags ignore;
    ObjectComparator comparator(ignore);
    DcmFileFormat first, second;
    if (!comparator.loadObjectAndKqR(first, argv[1], NULL) || !comparator.loadObjectAndKqR(second, argv[2], NULL))
        return 2;
    bool equal = comparator.compareDataset(first.getDataset(), second.getDataset(), false);

    CodecRegistry codecs;
    ObjDiffProcess firstProcess(first.getDataset(), false);
    ObjDiffProcess secondProcess(second.getDataset(), false);
    if (firstProcess.process() != 0 || secondProcess.process() != 0)
        return 2;
    const LocalObjDiffMemory::FrameMap& a = firstProcess.getFrames();
    const LocalObjDiffMemory::FrameMap& b = secondProcess.getFrames();
    if (a.size() != b.size())
        return 2;
    const bool wide = firstProcess.getBitsAllocated() > 8;
    for (int index = 1; equal && index <= static_cast<int>(a.size()); ++index)
        equal = comparator.compareMemoryBlocks(a.at(index), b.at(index), false, wide);
    printf("%lu %s\n", static_cast<unsigned long>(a.size()), equal ? "equal" : "different");
    return equal ? 0 : 1;
}
