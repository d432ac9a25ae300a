// An encapsulated document (PDF) extracted from a dataset.
#ifndef ENCAPSULATEDDOCUMENT_H
#define ENCAPSULATEDDOCUMENT_H

#include "common/imgproc/src/extracteddata.h"

/// Kinds of encapsulated documents; PDF is the only one produced.
enum DOCUMENT_TYPE
{
    DOCUMENT_TYPE_NONE = 0,
    DOCUMENT_TYPE_PDF = 1
};

/** The bytes of an encapsulated document, copied into a buffer of the process's memory
 *  (allocated under index 1, the document kind). */
class CEncapsulatedDocument : public CExtractedData
{
public:
    /// A document of type with length bytes; process is borrowed.
    CEncapsulatedDocument(CImageProcess* process, DOCUMENT_TYPE type, unsigned int length);
    /// Allocates length bytes from the process's memory; true when it got a buffer.
    bool init() override;
    /// 1 without a buffer or for type 0; otherwise 0 (success).
    int postProcess() override;
    /// Copies n bytes when there is a buffer, bytes is not null and n is exactly the length;
    /// otherwise does nothing.
    void addContent(const unsigned char* bytes, unsigned int n);
    /// The document type.
    DOCUMENT_TYPE getDocumentType() const { return m_documentType; }

protected:
    /// The document type.
    DOCUMENT_TYPE m_documentType;
};

#endif
