// The image pipeline's progress callback.
#ifndef IMAGEPROCESSPROGRESS_H
#define IMAGEPROCESSPROGRESS_H

/// Told by the pixel path after every decoded frame (CImageProcess::setProgressCallback).
class IImageProcessProgress
{
public:
    /// Nothing to release here.
    virtual ~IImageProcessProgress() {}
    /// Frame frameNumber (1 for the first) of frameCount is done (decoded and post-processed,
    /// successfully or not).
    virtual void imageProgress(unsigned int frameNumber, unsigned int frameCount) = 0;
};

#endif
