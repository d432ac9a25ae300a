// Shared by the image pipeline's tests: a memory that keeps every frame, a process that keeps
// the decoded samples and the extracted documents, and a generated image.
#ifndef IMGPROCTESTSUPPORT_H
#define IMGPROCTESTSUPPORT_H

#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/imageprocessprogress.h"
#include "common/imgproc/src/rawimage.h"
#include "tests/fixtures/Fixtures.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace imgproctest {

// Keeps every buffer under its index until destroyed, as the comparison's memory does.
class KeepingMemory : public CImageMemory
{
public:
    char* allocate(unsigned int size, int index) override
    {
        if (m_buffers.count(index))
            return nullptr;
        m_buffers[index].assign(size, '\0');
        m_lengths[index] = size;
        return &m_buffers[index][0];
    }
    void release(char*, unsigned int, int) override { ++m_releases; }
    char* chunk(char* data, unsigned int, unsigned int size, int index) override
    {
        if (m_lengths[index] > size)
            m_lengths[index] = size;
        return data;
    }
    // The content of an index (up to its chunked length), empty when absent.
    std::string content(int index) const
    {
        auto it = m_buffers.find(index);
        return it == m_buffers.end() ? std::string() : it->second.substr(0, m_lengths.at(index));
    }
    std::map<int, std::string> m_buffers;
    std::map<int, unsigned int> m_lengths;
    int m_releases = 0;
};

// A raw image whose samples stay as decoded unless optimize is set.
class TestRawImage : public CRawImage
{
public:
    TestRawImage(CImageProcess* process, int frame, bool optimize)
      : CRawImage(process, frame)
      , m_optimize(optimize)
    {
    }
    void optimizeBitmap() override
    {
        if (m_optimize)
            CRawImage::optimizeBitmap();
    }
    bool m_optimize;
};

struct ImageRecord { int frame; unsigned int bytesPerPixel; unsigned char parameter; unsigned int photometric; };

// A process over a dataset that keeps frames (memory index = frame number) and documents.
class TestProcess : public CImageProcess, public IImageProcessProgress
{
public:
    explicit TestProcess(DcmDataset* dataset, bool noTagHandlers = false, int specificFrame = 0)
      : CImageProcess(dataset, nullptr, false, noTagHandlers, false, specificFrame)
    {
        setImageMemory(&m_memory);
        setProgressCallback(this);
    }
    CRawImage* createRawImage() override { return new TestRawImage(this, getCurrentFrame(), m_optimize); }
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int length) override
    {
        return new CEncapsulatedDocument(this, type, length);
    }
    bool postProcess(CExtractedData* data) override
    {
        const bool done = CImageProcess::postProcess(data);
        if (data->getKind() == EXTRACTED_DOCUMENT && data->getBuffer())
            m_documents.push_back(std::string(reinterpret_cast<char*>(data->getBuffer()), data->getLength()));
        return done;
    }
    bool postProcessImage() override
    {
        const bool done = CImageProcess::postProcessImage();
        CRawImage* image = getRawImage();
        m_images.push_back({image->getFrameNumber(), image->getBytesPerPixel(), image->getImageParameter(),
                            image->getPhotometric()});
        return done;
    }
    bool isIncluded(const DcmTag& tag) override { return tag.getGroup() != m_refusedGroup; }
    void imageProgress(unsigned int frame, unsigned int count) override { m_progress.push_back({frame, count}); }
    // The decoded frames, first frame first.
    std::vector<std::string> frames() const
    {
        std::vector<std::string> result;
        for (const auto& entry : m_memory.m_buffers)
            result.push_back(m_memory.content(entry.first));
        return result;
    }
    using CImageProcess::setKeepAllElements;

    KeepingMemory m_memory;
    bool m_optimize = false;
    unsigned short m_refusedGroup = 0;
    std::vector<std::string> m_documents;
    std::vector<ImageRecord> m_images;
    std::vector<std::pair<unsigned int, unsigned int>> m_progress;
};

// A 16-bit monochrome image of rows x columns x frames (12 bits stored, a ramp of samples).
inline std::unique_ptr<DcmFileFormat> image(unsigned short rows, unsigned short columns, unsigned int frames)
{
    fixtures::ObjectSpec spec;
    spec.rows = rows;
    spec.columns = columns;
    spec.frames = frames;
    return std::unique_ptr<DcmFileFormat>(fixtures::makeObject(spec));
}

} // namespace imgproctest

#endif
