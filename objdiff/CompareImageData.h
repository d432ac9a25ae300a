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
    long double sum = 0.0L;
    T largest = 0;
    for (unsigned int i = 0; i < count; ++i)
    {
        const T a = first[i];
        const T b = second[i];
        if (a > largest)
            largest = a;
        if (a != b)
        {
            const long double d = a > b ? a - b : b - a;
            const long double d2 = d * d;
            const long double d4 = d2 * d2;
            sum += d4 * d4;
        }
    }
    const double maximum = static_cast<double>(largest);
    // identical samples are equal even when the image is all zero (0 / 0 otherwise)
    if (count > 0 && sum == 0.0L)
        return std::numeric_limits<double>::infinity();
    const long double m2 = static_cast<long double>(maximum) * maximum;
    const long double m4 = m2 * m2;
    const long double ratio = (sum / count) / (m4 * m4);
    return static_cast<double>(std::log(ratio) * -10.0L / 2.302585092994046L);
}

#endif
