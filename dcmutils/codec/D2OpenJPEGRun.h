// Owns what OpenJPEG allocates for one encoding or decoding, and frees it whichever way it ends.
#ifndef D2OPENJPEGRUN_H
#define D2OPENJPEGRUN_H

#include <openjpeg.h>

#include <cstddef>

class D2OpenJPEGRun
{
public:
    D2OpenJPEGRun() : codec(NULL), image(NULL) {}
    ~D2OpenJPEGRun()
    {
        if (image)
            opj_image_destroy(image);
        if (codec)
            opj_destroy_codec(codec);
    }

    opj_codec_t* codec;
    opj_image_t* image;

private:
    D2OpenJPEGRun(const D2OpenJPEGRun&);
    D2OpenJPEGRun& operator=(const D2OpenJPEGRun&);
};

#endif
