// The base of what the image pipeline extracts from a dataset.
#ifndef EXTRACTEDDATA_H
#define EXTRACTEDDATA_H

class CImageProcess;

/// Kinds of extracted data (m_kind).
enum EXTRACTED_KIND
{
    EXTRACTED_DOCUMENT = 1,
    EXTRACTED_RAW_IMAGE = 2,
    EXTRACTED_KQR_CONTENT = 3
};

/** An object extracted from a dataset by a CImageProcess: its content lives in a buffer
 *  supplied by the process's CImageMemory. Lifecycle: construct, init(), fill, postProcess(),
 *  delete; the destructor gives the buffer back to the memory (release). */
class CExtractedData
{
public:
    /// process is borrowed and must outlive the object; kind is one of EXTRACTED_KIND.
    CExtractedData(CImageProcess* process, unsigned int kind);
    /// Releases the buffer to the process's memory, if one was allocated.
    virtual ~CExtractedData();
    /// Prepares the object (typically allocates its buffer); false on failure.
    virtual bool init() = 0;
    /// Finishes the object once it is filled; 0 on success.
    virtual int postProcess() = 0;

    /// The process that extracted the object.
    CImageProcess* getProcess() const { return m_process; }
    /// The content buffer (owned by the memory), null before init().
    unsigned char* getBuffer() const { return m_buffer; }
    /// Bytes of content.
    unsigned int getLength() const { return m_length; }
    /// The kind (EXTRACTED_KIND).
    unsigned int getKind() const { return m_kind; }

protected:
    /** Allocates size bytes from the process's memory under index; the buffer is released by
     *  the destructor. True when a buffer was returned. */
    bool allocateBuffer(unsigned int size, int index);

    /// Borrowed.
    CImageProcess* m_process;
    /// From the process's memory, not owned.
    unsigned char* m_buffer;
    /// Bytes of content in m_buffer.
    unsigned int m_length;
    /// EXTRACTED_KIND.
    unsigned int m_kind;
    /// Size and index of the allocation, for the release.
    unsigned int m_capacity;
    int m_memoryIndex;

private:
    CExtractedData(const CExtractedData&);
    CExtractedData& operator=(const CExtractedData&);
};

#endif
