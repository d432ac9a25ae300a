// The peak-error measure of two images, used to decide whether a lossy pair is equal.
#ifndef COMPAREIMAGEDATA_H
#define COMPAREIMAGEDATA_H

#include <cmath>
#include <limits>

/// Above this peak-error measure two lossy images count as equal.
const double LOSSY_EQUALITY_THRESHOLD = 40.0;

/** The peak-error measure of count samples of first against second (unsigned char or
 *  unsigned short samples):  -10 log10( (sum of |a - b|^8 / count) / (max a)^8 ), max taken
 *  over the first image only. The eighth powers let one large error dominate. Identical
 *  samples give +infinity; count 0 gives NaN (never above a threshold). Neither array is
 *  changed or kept. */
template <typename T>
double compareImageData(const T* first, const T* second, unsigned int count)
{
    // Differences below 256 have eighth powers below 2^64: their sum is kept exactly in 128
    // bits (several times faster than long double steps); larger ones, from 16-bit samples
    // only, go to the long double sum. Runs of equal samples are passed over with a check the
    // compiler vectorises.
    const unsigned int RUN = 256;
    unsigned __int128 exact = 0;
    long double large = 0.0L;
    T largest = 0;
    for (unsigned int start = 0; start < count; start += RUN)
    {
        const unsigned int end = count - start > RUN ? start + RUN : count;
        T runLargest = 0;
        T differs = 0;
        if (end - start == RUN)
        {
            // a fixed trip count, which -O2 vectorises too
            const T* a = first + start;
            const T* b = second + start;
            for (unsigned int i = 0; i < RUN; ++i)
            {
                runLargest = a[i] > runLargest ? a[i] : runLargest;
                differs |= static_cast<T>(a[i] ^ b[i]);
            }
        }
        else
        {
            for (unsigned int i = start; i < end; ++i)
            {
                runLargest = first[i] > runLargest ? first[i] : runLargest;
                differs |= static_cast<T>(first[i] ^ second[i]);
            }
        }
        largest = runLargest > largest ? runLargest : largest;
        if (differs == 0)
            continue;
        for (unsigned int i = start; i < end; ++i)
        {
            const unsigned int a = first[i];
            const unsigned int b = second[i];
            const unsigned int d = a > b ? a - b : b - a;
            if (d < 256)
            {
                const unsigned int d4 = d * d * d * d; // at most 255^4 < 2^32
                exact += static_cast<unsigned long long>(d4) * d4;
            }
            else
            {
                const long double d2 = static_cast<long double>(d) * d;
                const long double d4 = d2 * d2;
                large += d4 * d4;
            }
        }
    }
    const long double sum = static_cast<long double>(exact) + large;
    // identical samples are equal even when the image is all zero (0 / 0 otherwise)
    if (count > 0 && sum == 0.0L)
        return std::numeric_limits<double>::infinity();
    const long double maximum = static_cast<double>(largest);
    const long double m2 = maximum * maximum;
    const long double m4 = m2 * m2;
    const long double ratio = (sum / count) / (m4 * m4);
    return static_cast<double>(std::log(ratio) * -10.0L / 2.302585092994046L);
}

/** The largest absolute difference between count samples of first and second (0 for count 0). */
template <typename T>
unsigned int largestDifference(const T* first, const T* second, unsigned int count)
{
    unsigned int largest = 0;
    for (unsigned int i = 0; i < count; ++i)
    {
        const unsigned int d = first[i] > second[i] ? first[i] - second[i] : second[i] - first[i];
        largest = d > largest ? d : largest;
    }
    return largest;
}

/** The peak-error measure of count samples at first and second, 16-bit ones when wide, bytes
 *  otherwise (see compareImageData()). */
inline double peakErrorMeasure(const void* first, const void* second, unsigned int count, bool wide)
{
    return wide ? compareImageData(static_cast<const unsigned short*>(first), static_cast<const unsigned short*>(second),
                                   count)
                : compareImageData(static_cast<const unsigned char*>(first), static_cast<const unsigned char*>(second),
                                   count);
}

/** The lossy verdict: true when the measure of the two images is above LOSSY_EQUALITY_THRESHOLD. */
inline bool lossyImagesEqual(const void* first, const void* second, unsigned int count, bool wide)
{
    return peakErrorMeasure(first, second, count, wide) > LOSSY_EQUALITY_THRESHOLD;
}

#endif
