#include "objdiff/ObjDiffProcess.h"

#include "dcmutils/fileio.h"
#include "objdiff/ObjDiffRawImage.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctypes.h"

#include <unistd.h>

#include <cstdio>
#include <new>

ObjDiffProcess::ObjDiffProcess(DcmDataset* dataset, bool printElements)
  : CImageProcess(dataset, nullptr, printElements, false, false, 0)
  , m_dump(false)
  , m_dumpFailed(false)
{
    setImageMemory(&m_memory);
}

ObjDiffProcess::ObjDiffProcess(DcmDataset* dataset, bool printElements, bool noTagHandlers, const char* prefix)
  : CImageProcess(dataset, nullptr, printElements, noTagHandlers, false, 0)
  , m_prefix(prefix != nullptr ? prefix : "")
  , m_dump(prefix != nullptr)
  , m_dumpFailed(false)
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
    if (!CImageProcess::postProcess(getRawImage()))
        return false;
    if (!m_dump)
        return true;
    if (m_dumpFailed)
        return false; // the reason was logged with the first frame

    std::string name = m_prefix;
    if (getNumberOfFrames() != 1)
        name += ".frame-" + std::to_string(getCurrentFrame());
    name += ".dump.wavelet";
    // made new beside its name and renamed into place: never written through a link planted at
    // the name, and no half-written dump is left to be read back as an image
    ObjDiffRawImage* image = dynamic_cast<ObjDiffRawImage*>(getRawImage());
    REPLACE_STEP failed = RS_DONE;
    const OFCondition written = replaceFileThroughStream(
        name, temporaryNameBeside(name, "objdiff"),
        [&](FILE* file) { return image != nullptr && image->writeWavelet(file); }, failed);
    if (failed == RS_CREATE)
        return true; // a dump that cannot be created is skipped
    if (written.bad())
    {
        DCMDATA_ERROR("Cannot write the image dump " << name << " of frame " << getCurrentFrame());
        m_dumpFailed = true;
    }
    return written.good();
}
