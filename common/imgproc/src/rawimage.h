// One decoded image (one frame) of the pixel path.
#ifndef RAWIMAGE_H
#define RAWIMAGE_H

#include "common/imgproc/src/extracteddata.h"

/** The samples of one frame, in a buffer from the process's CImageMemory allocated under the
 *  frame number (1 for the first frame).
 *
 *  Filling: the decoder writes the frame at getWritePointer() and declares the bytes with
 *  addSamples(n) (or addSamples(data, n) copies them); samples are in the machine's byte order,
 *  as the decoder delivers them (bits that are not stored already cleared by the process).
 *
 *  postProcess() then runs, in order:
 *   1. 1-bit images: every bit becomes one byte (0 or 1), first pixel from the lowest bit.
 *   2. toInterleaved(): three samples per pixel stored by plane (planar configuration 1)
 *      become R1 G1 B1 R2 G2 B2 ... (samples per pixel 3 only).
 *   3. toRGB(): YBR_FULL and YBR_FULL_422 (4:2:2: Y1 Y2 Cb Cr per pair of pixels, expanded
 *      first) become RGB: R = Y + 1.402 (Cr - c), G = Y - 0.344136 (Cb - c) - 0.714136 (Cr - c),
 *      B = Y + 1.772 (Cb - c), c = 2^(bits stored - 1), rounded to nearest and clipped to the
 *      stored range; PALETTE COLOR indices (shifted to origin first) become the RGB entries of
 *      the palette (indices below the first mapped value take the first entry, above the last
 *      the last), 8-bit samples for palettes of 8 bits per entry, else 16-bit. Other colour
 *      models (RGB, YBR_PARTIAL, YBR_RCT/ICT left by a decoder) stay as they are.
 *   4. shiftToOrigin(): when the stored bits do not end at bit bits stored - 1 (high bit + 1 !=
 *      bits stored), every sample is shifted right (arithmetically for signed samples) so that
 *      the lowest stored bit becomes bit 0.
 *   5. The process's window histogram is fed when the object has no window.
 *   6. optimizeBitmap() (virtual): monochrome samples are made ready for display: MONOCHROME1
 *      images that the process inverts (see CImageProcess::getInvertMonochrome1) are inverted
 *      within the stored range, and signed samples are offset by 2^(bits stored - 1) into
 *      unsigned ones. A subclass that needs the decoded values overrides it with nothing.
 *   7. The final length is declared to the memory (CImageMemory::chunk).
 *  The destructor releases the buffer to the memory. */
class CRawImage : public CExtractedData
{
public:
    /// The raw image of frame frameNumber (1 for the first) of process (borrowed).
    CRawImage(CImageProcess* process, int frameNumber);

    /** Takes the description from the process and allocates a buffer large enough for the
     *  decoded frame (plus a pad byte) and for the converted image; false without memory or
     *  buffer. */
    bool init() override;
    /// The finishing steps above; 0 on success, 1 when the image is incomplete or unusable.
    int postProcess() override;

    /// Where the next decoded bytes go.
    unsigned char* getWritePointer() const { return m_buffer ? m_buffer + m_length : nullptr; }
    /// Bytes that can still be written at getWritePointer().
    unsigned int getFreeSpace() const { return m_capacity - m_length; }
    /// Declares n bytes written at getWritePointer(); false when they do not fit.
    bool addSamples(unsigned int n);
    /// Copies n bytes to getWritePointer(); false when they do not fit.
    bool addSamples(const unsigned char* data, unsigned int n);
    /// Sets the colour model of the decoded samples (PHOTOMETRIC_CODE), by default the object's.
    void setDecodedPhotometric(unsigned int code) { m_photometric = code; }

    /// Steps of postProcess(); each true on success.
    virtual bool toInterleaved();
    virtual bool toRGB();
    virtual bool shiftToOrigin();
    virtual void optimizeBitmap();

    /// The samples (owned by the memory) and their description.
    unsigned char* getPixels() const { return m_buffer; }
    int getFrameNumber() const { return m_frameNumber; }
    unsigned short getRows() const { return m_rows; }
    unsigned short getColumns() const { return m_columns; }
    /// 1 (monochrome) or 3 (RGB after toRGB()).
    unsigned short getSamplesPerPixel() const { return m_samplesPerPixel; }
    /// Bytes per sample: 1, 2 or 4.
    unsigned int getBytesPerSample() const { return m_bytesPerSample; }
    /// Bytes per pixel: samples per pixel x bytes per sample (1, 2, 3, 4, 6, 12).
    unsigned int getBytesPerPixel() const { return m_bytesPerSample * m_samplesPerPixel; }
    /// Significant bits per sample (from bit 0 once shifted to origin).
    unsigned short getBitsStored() const { return m_bitsStored; }
    /// Whether samples are signed.
    bool isSigned() const { return m_signed; }
    /// Colour model of the samples (PHOTOMETRIC_CODE).
    unsigned int getPhotometric() const { return m_photometric; }
    /** The one-byte image parameter stored in image dumps: bits 0-5 the significant bits per
     *  sample (bits stored, 1-63; 0 when unknown), bit 6 set for signed samples, bit 7 set for
     *  MONOCHROME1 samples still in that polarity (higher values darker). */
    unsigned char getImageParameter() const;

    /// YBR_FULL to RGB in place over count pixels of 8-bit (bytesPerSample 1) or 16-bit
    /// interleaved samples with bitsStored significant bits (formula above).
    static void convertYbrFullToRgb(unsigned char* data, unsigned long count, unsigned int bytesPerSample,
                                    unsigned int bitsStored);

protected:
    /// Samples of the image as they stand.
    unsigned long sampleCount() const;

    int m_frameNumber;
    unsigned short m_rows;
    unsigned short m_columns;
    unsigned short m_samplesPerPixel;
    unsigned short m_bitsAllocated;
    unsigned short m_bitsStored;
    unsigned short m_highBit;
    unsigned int m_bytesPerSample;
    unsigned short m_planarConfiguration;
    bool m_signed;
    bool m_monochrome1;
    unsigned int m_photometric;
};

#endif
