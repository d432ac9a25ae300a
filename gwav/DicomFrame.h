// One frame of a DICOM object as a RasterImage for the wavelet codec.
#ifndef GWAV_DICOMFRAME_H
#define GWAV_DICOMFRAME_H

#include "gwav/RasterImage.h"

#include <string>

// Reads frame `frame` (1 for the first) of the DICOM file at path into image: 8-bit grey, 16-bit
// grey or 8-bit three-sample images (colour by plane is interleaved). 16-bit samples are
// masked to Bits Stored and sign-extended when Pixel Representation is 1; the image parameter
// becomes Bits Stored, plus 128 for signed samples. Compressed pixel data is decoded by the codecs
// registered with the DICOM toolkit (the caller registers them). False with a one-line reason in
// error otherwise.
bool readDicomFrame(const std::string& path, unsigned long frame, RasterImage& image, std::string& error);

#endif
