// Owns what OpenJPEG allocates for one encoding or decoding, and frees it whichever way it ends.
#ifndef D2OPENJPEGRUN_H
#define D2OPENJPEGRUN_H

#include <openjpeg.h>

#include <cstddef>

#include <sched.h>

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

    /** Gives the codec worker threads: the number asked for, or with 0 as many as the process may
     *  use cores (on one core none, and the calling thread does all the work); 1 asks for none. */
    void setThreads(unsigned int threads);

    opj_codec_t* codec;
    opj_image_t* image;

private:
    D2OpenJPEGRun(const D2OpenJPEGRun&);
    D2OpenJPEGRun& operator=(const D2OpenJPEGRun&);
};

inline void D2OpenJPEGRun::setThreads(unsigned int threads)
{
    if (threads == 0)
    {
        cpu_set_t set;
        const int cores = sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 1;
        threads = cores > 1 ? unsigned(cores) : 0;
    }
    if (threads > 1 && opj_has_thread_support())
        opj_codec_set_threads(codec, int(threads));
}

#endif
