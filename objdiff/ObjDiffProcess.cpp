#include "objdiff/ObjDiffProcess.h"
#include "objdiff/ObjDiffRawImage.h"

#include <new>

ObjDiffProcess::ObjDiffProcess(DcmDataset* dataset, bool printElements)
  : CImageProcess(dataset, nullptr, printElements, false, false, 0)
  , m_dump(false)
{
    setImageMemory(&m_memory);
}

ObjDiffProcess::ObjDiffProcess(DcmDataset* dataset, bool printElements, bool noTagHandlers, const char* prefix)
  : CImageProcess(dataset, nullptr, printElements, noTagHandlers, false, 0)
  , m_prefix(prefix != nullptr ? prefix : "")
  , m_dump(prefix != nullptr)
{
    setImageMemory(&m_memory);
}

ObjDiffProcess::~ObjDiffProcess()
{
    // a raw image still held gives its buffer back to the memory, which goes before the base
    delete m_rawImage;
    m_rawImage = nullptr;
}

CRawImage* ObjDiffProcess::createRawImage()
{
    return new (std::nothrow) ObjDiffRawImage(this, getCurrentFrame());
}

CEncapsulatedDocument* ObjDiffProcess::createEncapsulatedDocument(DOCUMENT_TYPE /* type */, unsigned int /* length */)
{
    return nullptr;
}

bool ObjDiffProcess::initProcess()
{
    return CImageProcess::initProcess();
}

bool ObjDiffProcess::finalizeProcess()
{
    return CImageProcess::finalizeProcess();
}

bool ObjDiffProcess::postProcessImage()
{
    return CImageProcess::postProcess(getRawImage());
}
