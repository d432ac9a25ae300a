// One 1-bit graphic overlay collected from a dataset (repeating groups 6000-60FE).
#ifndef OVERLAY_H
#define OVERLAY_H

#include <string>

/// Where the overlay's bits come from.
enum OVERLAY_READ_MODE
{
    /// decide from Overlay Bits Allocated and Overlay Bit Position
    OVERLAY_READ_AUTO = 0,
    /// a separate Overlay Data element (60xx,3000)
    OVERLAY_READ_SEPARATE = 1,
    /// the unused high bits of the pixel samples
    OVERLAY_READ_EMBEDDED = 2
};

/// Results of the COverlay operations (also kept in m_status).
enum OVERLAY_STATUS
{
    OVERLAY_OK = 0,                 ///< collecting, no error
    OVERLAY_UNUSABLE = 1,           ///< bit description fits no mode, or wrong operation for the mode
    OVERLAY_ALREADY_INITIALISED = 2,///< data already initialised
    OVERLAY_SIZE_ZERO = 3,          ///< requested size 0
    OVERLAY_NO_DATA = 5,            ///< no buffer or no input bytes
    OVERLAY_OVERFLOW = 6,           ///< more bits than the buffer holds, or too few collected
    OVERLAY_FINALISED = 7           ///< finalised
};

/** The bits of one overlay, packed least significant bit first, with its description. The
 *  overlay owns its data buffer. Problems never stop the image processing: they stay in the
 *  status. */
class COverlay
{
public:
    /// An empty overlay named name (its slot number: "0" to "15").
    explicit COverlay(const std::string& name);
    /// Frees the data buffer.
    ~COverlay();

    /** Prepares a zero-filled buffer of size bytes for mode (OVERLAY_READ_AUTO chooses from
     *  the bit description). Returns the new status: 0, 1 (unusable), 2 (already
     *  initialised) or 3 (size 0). */
    unsigned int initData(unsigned int size, OVERLAY_READ_MODE mode);
    /** Appends n bytes of separate overlay data. 1 (without changing the status) unless the
     *  status is 0 and the mode separate; 5 without buffer or bytes; 6 when they do not fit;
     *  else 0. */
    unsigned int putData(const unsigned char* bytes, unsigned int n);
    /** Appends one embedded bit at the current bit position (embedded mode, status 0); at the
     *  end of the buffer the status becomes 6. */
    void putBit(unsigned int bit);
    /** Ends the collection: a non-zero status is returned unchanged; 6 when fewer bits were
     *  collected than the mode requires; otherwise 7. */
    unsigned int finalizeData();
    /** Writes the data buffer to path: 1 without data, 2 when the file cannot be opened, 3 on a
     *  short write (the file is deleted), 0 on success. */
    unsigned int writeToFile(const char* path) const;

    /// The name ("0" to "15").
    std::string m_name;
    /// Owned, zero-filled at allocation; null before initData().
    unsigned char* m_data;
    /// Bytes in m_data.
    unsigned int m_size;
    /// (60xx,0010) and (60xx,0011) [0].
    unsigned short m_rows;
    unsigned short m_columns;
    /// (60xx,0050) [1, 1].
    short m_originRow;
    short m_originColumn;
    /// (60xx,0100) and (60xx,0102) [0].
    unsigned short m_bitsAllocated;
    unsigned short m_bitPosition;
    /// Overlay Type (60xx,0040) is "R".
    bool m_isROI;
    /// The mode in use.
    OVERLAY_READ_MODE m_mode;
    /// rows x columns, set by initData().
    unsigned int m_pixelCount;
    /// Next bit (0-7) in the current byte (embedded mode).
    unsigned int m_bitCounter;
    /// Bytes completed.
    unsigned int m_written;
    /// The current byte in m_data.
    unsigned char* m_cursor;
    /// OVERLAY_STATUS of the last operation.
    unsigned int m_status;

private:
    COverlay(const COverlay&);
    COverlay& operator=(const COverlay&);
};

#endif
