// The abstract one-dimensional lifting filter of the wavelet codec.
#ifndef GWAV_FILTER_H
#define GWAV_FILTER_H

// A reversible integer filter over lines of samples of type T. A line is `count` samples spaced
// `stride` elements apart; after the forward filter it is interleaved in place (even positions
// low-pass, odd positions high-pass). The filter never owns the lines it is given.
template <typename T>
class Filter
{
public:
    virtual ~Filter() {}

    // Forward filter of a strided line, in place.
    virtual void transform(T* line, int count, unsigned long stride) = 0;
    // Forward filter of a contiguous line that has three spare elements before its first and
    // after its last sample; the spare elements are overwritten.
    virtual void transformInner(T* line, int count) = 0;
    // Inverse filter of a strided line, in place.
    virtual void untransform(T* line, int count, unsigned long stride) = 0;
    // Inverse filter of a contiguous line with three spare elements on each side.
    virtual void untransformInner(T* line, int count) = 0;
    // Forward filter of a strided line through a copy into a line buffer.
    virtual void transformCopy(T* line, int count, unsigned long stride) = 0;
    // Inverse filter of a strided line through a copy into a line buffer.
    virtual void untransformCopy(T* line, int count, unsigned long stride) = 0;
    // Forward filter of a strided line in place, without a copy.
    virtual void transformFast(T* line, int count, unsigned long stride) = 0;
    // Inverse filter of a strided line in place, without a copy.
    virtual void untransformFast(T* line, int count, unsigned long stride) = 0;
};

#endif
