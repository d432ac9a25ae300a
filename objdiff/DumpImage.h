// An image read back from an image dump file.
#ifndef DUMPIMAGE_H
#define DUMPIMAGE_H

#include <iostream>
#include <string>

/** The image of a dump file: a "GW10" wavelet stream (as the comparison writes them, decoded
 *  as far as the file goes) or an "ICON" file (columns, rows and bytes per pixel as unsigned
 *  32-bit integers in the machine's byte order, then rows x columns x bytes per pixel raw
 *  bytes). The samples belong to the image. */
class DumpImage
{
public:
    /** Loads fileName (see loadImage); problems are written on err (borrowed, must outlive the
     *  constructor). */
    explicit DumpImage(std::string fileName, std::ostream& err = std::cerr);
    /// Frees the samples.
    ~DumpImage();

    /** Reads fileName, replacing what the image held. False when it cannot be opened
     *  (silently), does not start with "GW10" or "ICON" ("Unknown image format."), or is
     *  truncated or damaged; the image is then empty. */
    bool loadImage(std::string fileName);
    /** Same size (bytes per pixel, columns, rows) and, for 1, 2 or 3 bytes per pixel, a
     *  peak-error measure above 40 over rows x columns samples (16-bit samples for 2 bytes per
     *  pixel, else bytes); other sizes count as equal without looking at the samples. */
    bool operator==(const DumpImage& other) const;

    /// Whether the last loadImage() succeeded.
    bool isLoaded() const { return m_loaded; }
    /// The samples (owned by the image), null when empty.
    const unsigned char* getPixels() const { return m_pixels; }
    /// Bytes per pixel (1, 2 or 3 for wavelet dumps; as the file says for "ICON" files).
    unsigned int getBytesPerPixel() const { return m_bytesPerPixel; }
    /// Pixels per row.
    unsigned int getColumns() const { return m_columns; }
    /// Rows of pixels.
    unsigned int getRows() const { return m_rows; }

private:
    void clear();
    /// Reads an "ICON" file after its magic; false when truncated or too large.
    bool readIcon(FILE* file, unsigned long long remaining);
    /// Reads a whole "GW10" file of size bytes and decodes it; false when it cannot be.
    bool readWavelet(FILE* file, unsigned long long size);

    unsigned char* m_pixels;
    unsigned int m_bytesPerPixel;
    unsigned int m_columns;
    unsigned int m_rows;
    bool m_loaded;
    std::ostream* m_err;

    DumpImage(const DumpImage&);
    DumpImage& operator=(const DumpImage&);
};

#endif
