// The decoded side of ObjectComparator: frames decoded through the image pipeline and compared
// exactly (lossless pairs) or by their peak-error measure (lossy pairs), and image dumps.
#include "objdiff/ObjDiff.h"

#include "dcmutils/codec/CodecRegistry.h"
#include "objdiff/CompareImageData.h"
#include "objdiff/DumpImage.h"
#include "objdiff/MemoryBlock.h"
#include "objdiff/ObjDiffProcess.h"

#include <cstring>
#include <memory>
#include <new>

void ObjectComparator::registerCodecs()
{
    if (m_registry == NULL)
        m_registry = new CodecRegistry();
}

bool ObjectComparator::compareFrames(DcmDataset* first, DcmDataset* second, bool lossless)
{
    registerCodecs();
    ObjDiffProcess firstProcess(first, false);
    ObjDiffProcess secondProcess(second, false);
    if (firstProcess.process() != 0)
    {
        trouble() << "Error processing first DICOM object" << std::endl;
        return false;
    }
    if (secondProcess.process() != 0)
    {
        trouble() << "Error processing second DICOM object" << std::endl;
        return false;
    }

    const LocalObjDiffMemory::FrameMap firstFrames = firstProcess.getFrames();
    const LocalObjDiffMemory::FrameMap secondFrames = secondProcess.getFrames();
    if (firstFrames.size() != secondFrames.size())
    {
        (*m_err) << "! Difference in number of frames : " << firstFrames.size() << " != " << secondFrames.size()
                 << std::endl;
        return false;
    }
    const bool wide = firstProcess.getBitsAllocated() > 8;
    const int count = static_cast<int>(firstFrames.size());
    for (int index = 1; index <= count; ++index)
    {
        LocalObjDiffMemory::FrameMap::const_iterator a = firstFrames.find(index);
        LocalObjDiffMemory::FrameMap::const_iterator b = secondFrames.find(index);
        MemoryBlock* firstBlock = a != firstFrames.end() ? a->second : NULL;
        MemoryBlock* secondBlock = b != secondFrames.end() ? b->second : NULL;
        if (firstBlock == NULL || secondBlock == NULL)
        {
            trouble() << "ERROR: Image frame information is null [" << index << "]" << std::endl;
            return false;
        }
        const bool equal = compareMemoryBlocks(firstBlock, secondBlock, lossless, wide);
        if (verbose)
            reportFrame(index, firstBlock, secondBlock, wide);
        if (!equal)
        {
            (*m_err) << "! Image frame " << index << " differs" << std::endl;
            return false;
        }
    }
    return true;
}

void ObjectComparator::reportFrame(int index, MemoryBlock* first, MemoryBlock* second, bool wide)
{
    const char* a = first->getData();
    const char* b = second->getData();
    const unsigned int length = a != NULL && b != NULL && first->getLength() == second->getLength() ? first->getLength() : 0;
    const unsigned int count = wide ? length / 2 : length;
    const double measure = peakErrorMeasure(a, b, count, wide);
    const unsigned int largest =
        wide ? largestDifference(reinterpret_cast<const unsigned short*>(a), reinterpret_cast<const unsigned short*>(b),
                                 count)
             : largestDifference(reinterpret_cast<const unsigned char*>(a), reinterpret_cast<const unsigned char*>(b),
                                 count);
    (*m_out) << "Frame " << index << ": peak-error measure " << measure << " (equal above "
             << LOSSY_EQUALITY_THRESHOLD << "), largest absolute difference " << largest << std::endl;
}

bool ObjectComparator::compareMemoryBlocks(MemoryBlock* first, MemoryBlock* second, bool lossless, bool wide)
{
    const char* firstData = first != NULL ? first->getData() : NULL;
    const char* secondData = second != NULL ? second->getData() : NULL;
    const unsigned int firstLength = first != NULL ? first->getLength() : 0;
    const unsigned int secondLength = second != NULL ? second->getLength() : 0;
    if (firstData == NULL || secondData == NULL)
        trouble() << "ERROR: frame data is null " << std::endl;
    if (firstLength != secondLength)
    {
        (*m_err) << "Frame length differs (" << firstLength << " != " << secondLength << std::endl;
        return false;
    }

    bool equal = false;
    if (lossless)
        equal = firstLength == 0 || (firstData != NULL && secondData != NULL &&
                                     memcmp(firstData, secondData, firstLength) == 0);
    else
    {
        // a missing frame has no samples: the measure of nothing is never above the threshold
        const unsigned int length = firstData != NULL && secondData != NULL ? firstLength : 0;
        equal = lossyImagesEqual(firstData, secondData, wide ? length / 2 : length, wide);
    }
    if (!equal)
        (*m_out) << "! Pixel Data differs" << std::endl;
    return equal;
}

bool ObjectComparator::dumpImages(DcmDataset* dataset, const char* prefix, bool inPlace)
{
    registerCodecs();
    // the image pipeline removes the pixel data and relocates private tags: the caller's
    // dataset stays as it is
    std::unique_ptr<DcmDataset> copy;
    if (!inPlace)
    {
        copy.reset(new (std::nothrow) DcmDataset(*dataset));
        if (copy == nullptr)
        {
            trouble() << "Error dumping DICOM object: out of memory" << std::endl;
            return false;
        }
    }
    ObjDiffProcess process(inPlace ? dataset : copy.get(), false, false, prefix);
    if (process.process() != 0)
    {
        trouble() << "Error processing DICOM object" << std::endl;
        return false;
    }
    return true;
}

bool ObjectComparator::compareDumps(const char* file1, const char* file2)
{
    DumpImage first(file1 != NULL ? file1 : "", *m_err);
    DumpImage second(file2 != NULL ? file2 : "", *m_err);
    bool readable = true;
    if (!first.isLoaded())
    {
        trouble() << "Error reading image dump " << (file1 != NULL ? file1 : "") << std::endl;
        readable = false;
    }
    if (!second.isLoaded())
    {
        trouble() << "Error reading image dump " << (file2 != NULL ? file2 : "") << std::endl;
        readable = false;
    }
    return readable && first == second;
}
