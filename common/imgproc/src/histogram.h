// A histogram of monochrome sample values, for estimating a window when the object has none.
#ifndef HISTOGRAM_H
#define HISTOGRAM_H

#include <vector>

/** Counts the values of 8- or 16-bit monochrome samples (signed or not) over any number of
 *  images and estimates a window from them: the range between the 1st and the 99th percentile
 *  of the values (outliers such as the padding around a scan then do not widen it). */
class CHistogram
{
public:
    /// An empty histogram.
    CHistogram();
    /// Forgets every value.
    void clear();
    /** Counts count samples of bytesPerSample (1 or 2) bytes, in the machine's byte order;
     *  other widths are ignored. Samples are taken as signed when isSigned is set. */
    void addSamples(const unsigned char* data, unsigned long count, unsigned int bytesPerSample, bool isSigned);
    /// Number of samples counted.
    unsigned long long getCount() const { return m_count; }
    /** Window centre and width (in sample values) covering the 1st to 99th percentile of the
     *  counted values; false (nothing set) when no sample was counted. */
    bool estimateWindow(double& center, double& width) const;

private:
    /// Counts per value: bin i is the value i + m_offset.
    std::vector<unsigned long long> m_bins;
    /// The value of bin 0 (-32768 for signed 16-bit samples, -128 for signed bytes, else 0).
    long m_offset;
    unsigned long long m_count;
};

#endif
