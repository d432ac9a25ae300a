#include "common/imgproc/tests/ImgprocTestSupport.h"

#include "dcmtk/dcmdata/dctk.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace imgproctest {

StderrCapture::StderrCapture()
{
    char name[] = "/tmp/kqstderr.XXXXXX";
    const int fd = mkstemp(name);
    m_path = name;
    fflush(stderr);
    m_saved = dup(2);
    dup2(fd, 2);
    close(fd);
}

StderrCapture::~StderrCapture()
{
    fflush(stderr);
    dup2(m_saved, 2);
    close(m_saved);
    unlink(m_path.c_str());
}

std::string StderrCapture::text()
{
    fflush(stderr);
    std::ifstream in(m_path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

Uint16 ramp(unsigned long i)
{
    return Uint16((i * 37 + 11) & 0xFFFF);
}

DcmDataset* monochromeDataset(unsigned short rows, unsigned short columns, unsigned int frames,
                              unsigned short bitsStored, bool isSigned)
{
    DcmDataset* ds = new DcmDataset();
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.7.1");
    ds->putAndInsertString(DCM_Modality, "OT");
    ds->putAndInsertUint16(DCM_SamplesPerPixel, 1);
    ds->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
    if (frames != 1)
        ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(frames).c_str());
    ds->putAndInsertUint16(DCM_Rows, rows);
    ds->putAndInsertUint16(DCM_Columns, columns);
    ds->putAndInsertUint16(DCM_BitsAllocated, 16);
    ds->putAndInsertUint16(DCM_BitsStored, bitsStored);
    ds->putAndInsertUint16(DCM_HighBit, Uint16(bitsStored - 1));
    ds->putAndInsertUint16(DCM_PixelRepresentation, isSigned ? 1 : 0);
    std::vector<Uint16> pixels(size_t(rows) * columns * frames);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = Uint16(ramp(i) & ((1u << bitsStored) - 1));
    ds->putAndInsertUint16Array(DCM_PixelData, pixels.data(), pixels.size());
    return ds;
}

} // namespace imgproctest
