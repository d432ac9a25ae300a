// The pixel path of CImageProcess: frames decoded one at a time into raw images, embedded
// overlays, and the encapsulated document.
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/imageprocessprogress.h"
#include "common/imgproc/src/overlay.h"
#include "common/imgproc/src/rawimage.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dctypes.h"
#include "dcmtk/dcmdata/dcfcache.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcvrobow.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <cstring>

namespace {

const char* const ENCAPSULATED_PDF_SOP_CLASS = "1.2.840.10008.5.1.4.1.1.104.1";

bool isSubsampled(unsigned int photometric)
{
    return photometric == PHOTOMETRIC_YBR_FULL_422 || photometric == PHOTOMETRIC_YBR_PARTIAL_422;
}

} // namespace

unsigned int CImageProcess::describedFrameSize() const
{
    const unsigned long long samples = static_cast<unsigned long long>(m_rows) * m_columns * m_samplesPerPixel;
    unsigned long long size = 0;
    if (m_bitsAllocated == 1)
        size = (samples + 7) / 8;
    else if (m_bitsAllocated == 8 || m_bitsAllocated == 16 || m_bitsAllocated == 32)
        size = samples * (m_bitsAllocated / 8);
    return size < 0xFFFFFFF0ull ? static_cast<unsigned int>(size) : 0;
}

unsigned int CImageProcess::processImageElem(DcmElement* element, const DcmEVR& /* vr */)
{
    m_pixelDataSeen = true;
    if (m_specificFrame > 0 && static_cast<unsigned int>(m_specificFrame) > m_numberOfFrames)
    {
        DCMDATA_WARN("Invalid specific frame number " << m_specificFrame << ". There are only " << m_numberOfFrames
                                                      << " frames in the object");
        return 0;
    }
    if (static_cast<unsigned long long>(m_rows) * m_columns * m_samplesPerPixel == 0)
    {
        DCMDATA_ERROR("PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero");
        return 1;
    }
    if (element == nullptr || m_item == nullptr)
        return 1;
    if (m_samplesPerPixel == 3 && !m_planarConfigurationSeen)
    {
        // the decoders read Planar Configuration from the dataset
        DCMDATA_WARN("Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) missing.");
        DCMDATA_WARN("This may break decompression. Inserting Planar Configuration value of " << 0);
        m_item->putAndInsertUint16(DCM_PlanarConfiguration, 0);
        m_planarConfiguration = 0;
        m_planarConfigurationSeen = true;
    }
    m_imageKind = m_photometric == PHOTOMETRIC_MONOCHROME ? IMAGE_KIND_MONOCHROME
                  : m_photometric == PHOTOMETRIC_PALETTE  ? IMAGE_KIND_PALETTE
                                                          : IMAGE_KIND_COLOUR;

    // embedded overlays: every overlay without its own data takes its bits from the samples
    for (int slot = 0; slot < COverlayArray::SLOTS; ++slot)
    {
        COverlay* overlay = m_overlays.get(slot);
        if (overlay == nullptr || overlay->m_data != nullptr)
            continue;
        overlay->m_rows = m_rows;
        overlay->m_columns = m_columns;
        unsigned int size = (static_cast<unsigned int>(m_rows) * m_columns) >> 3;
        if ((size & 7) != 0)
            ++size;
        overlay->initData(size, OVERLAY_READ_AUTO);
        if (overlay->m_bitPosition < 16) // a larger position names no bit of a sample
            m_overlayMask = static_cast<unsigned short>(m_overlayMask | (1u << overlay->m_bitPosition));
    }

    // where the frames come from
    DcmPixelData* pixelData = dynamic_cast<DcmPixelData*>(element);
    DcmPixelSequence* sequence = nullptr;
    bool encapsulated = false;
    if (pixelData != nullptr)
    {
        E_TransferSyntax xfer = EXS_Unknown;
        const DcmRepresentationParameter* parameter = nullptr;
        pixelData->getCurrentRepresentationKey(xfer, parameter);
        encapsulated = DcmXfer(xfer).isEncapsulated();
        if (encapsulated && pixelData->getEncapsulatedRepresentation(xfer, parameter, sequence).bad())
            sequence = nullptr;
    }
    m_frameSize = describedFrameSize();
    if (!encapsulated && isSubsampled(m_photometric) && m_samplesPerPixel == 3)
        m_frameSize = m_frameSize / 3 * 2; // Y1 Y2 Cb Cr for every two pixels
    if (encapsulated && pixelData != nullptr)
    {
        Uint32 size = 0;
        if (pixelData->getUncompressedFrameSize(m_item, size).bad() || size != m_frameSize)
            DCMDATA_WARN("Guessing uncompressed size");
    }
    if (m_frameSize == 0)
    {
        DCMDATA_ERROR("Unsupported Bits Allocated (0028,0100) " << m_bitsAllocated << " of PixelData");
        return 1;
    }

    const unsigned int frames = m_numberOfFrames > 0 ? m_numberOfFrames : 1;
    const unsigned int first = m_specificFrame > 0 ? static_cast<unsigned int>(m_specificFrame - 1) : 0;
    const unsigned int last = m_specificFrame > 0 ? first : frames - 1;
    // What the description claims is checked against what the file holds before any frame is
    // allocated: a header of a few bytes may claim gigabytes.
    if (!encapsulated && element != nullptr)
    {
        const unsigned long long wanted = (static_cast<unsigned long long>(last) + 1) * m_frameSize;
        if (wanted > element->getLength())
        {
            DCMDATA_ERROR("PixelData holds " << element->getLength() << " bytes, fewer than the " << wanted
                                             << " its description asks for (" << last + 1 << " frames of "
                                             << m_frameSize << " bytes)");
            return 1;
        }
    }
    if (encapsulated && sequence != nullptr && sequence->card() > 0 && last + 1 > sequence->card() - 1)
    {
        // every frame needs a fragment of its own
        DCMDATA_ERROR("PixelData holds " << sequence->card() - 1 << " fragments, fewer than its " << last + 1
                                         << " frames");
        return 1;
    }
    unsigned int errors = 0;
    Uint32 startFragment = 0;
    DcmFileCache cache;
    for (unsigned int frame = first; frame <= last; ++frame)
    {
        m_currentFrame = static_cast<int>(frame + 1);
        bool done = imageStart() && decodeFrame(element, encapsulated, frame, startFragment, &cache);
        if (done && (m_bitsAllocated == 8 || m_bitsAllocated == 16))
            getAndRemoveOverlays();
        if (!imageDone() || !done)
            ++errors;
        // the fragments of a decoded frame are read again from the file when needed
        if (sequence != nullptr)
        {
            for (DcmObject* item = sequence->nextInContainer(nullptr); item != nullptr;
                 item = sequence->nextInContainer(item))
                static_cast<DcmPixelItem*>(item)->compact();
        }
    }
    return errors;
}

bool CImageProcess::decodeFrame(DcmElement* element, bool encapsulated, unsigned int frameIndex,
                                Uint32& startFragment, void* fileCache)
{
    CRawImage* image = m_rawImage;
    unsigned char* target = image->getWritePointer();
    if (target == nullptr || image->getFreeSpace() < m_frameSize)
        return false;
    OFCondition result = EC_Normal;
    OFString colourModel;
    if (encapsulated)
    {
        result = element->getUncompressedFrame(m_item, frameIndex, startFragment, target, image->getFreeSpace(),
                                               colourModel, static_cast<DcmFileCache*>(fileCache));
    }
    else
    {
        const unsigned long long offset = static_cast<unsigned long long>(frameIndex) * m_frameSize;
        if (m_bitsAllocated == 1 && frameIndex > 0 &&
            (static_cast<unsigned long long>(m_rows) * m_columns * m_samplesPerPixel) % 8 != 0)
            result = EC_IllegalCall; // 1-bit frames that do not start on a byte
        else if (offset + m_frameSize > 0xFFFFFFFFull)
            result = EC_InvalidOffset;
        else
            result = element->getPartialValue(target, static_cast<Uint32>(offset), m_frameSize,
                                              static_cast<DcmFileCache*>(fileCache));
        const DcmXfer source(m_dataset ? m_dataset->getOriginalXfer() : EXS_Unknown);
        if (result.good() && m_bitsAllocated == 32 && source.getByteOrder() == EBO_BigEndian &&
            element->getVR() == EVR_OW)
        {
            // big endian words came swapped word by word: put the two halves of each sample in place
            Uint16* words = reinterpret_cast<Uint16*>(target);
            for (unsigned int i = 0; i + 1 < m_frameSize / 2; i += 2)
            {
                const Uint16 high = words[i];
                words[i] = words[i + 1];
                words[i + 1] = high;
            }
        }
    }
    if (result.bad())
    {
        DCMDATA_ERROR("Cannot decode frame " << frameIndex + 1 << " of PixelData: " << result.text());
        return false;
    }
    m_decodedPhotometric = colourModel.empty() ? m_photometric : photometricCode(colourModel.c_str(), m_photometric);
    image->setDecodedPhotometric(m_decodedPhotometric);
    if (!image->addSamples(m_frameSize))
        return false;
    const unsigned int bytesPerSample = m_bitsAllocated / 8;
    if (bytesPerSample == 1)
        adjustBytes(target, m_frameSize);
    else if (bytesPerSample == 2)
        adjustBytes(reinterpret_cast<unsigned short*>(target), m_frameSize / 2);
    else if (bytesPerSample == 4)
        adjustBytes(reinterpret_cast<unsigned int*>(target), m_frameSize / 4);
    return true;
}

bool CImageProcess::imageStart()
{
    ++m_imageCount;
    delete m_rawImage;
    m_rawImage = createRawImage();
    if (m_rawImage == nullptr)
    {
        DCMDATA_ERROR("Cannot create the raw image of frame " << m_currentFrame);
        return false;
    }
    if (!m_rawImage->init())
    {
        DCMDATA_ERROR("Cannot allocate the memory of frame " << m_currentFrame);
        return false;
    }
    return true;
}

bool CImageProcess::imageDone()
{
    bool result = m_rawImage != nullptr && m_rawImage->getLength() > 0 && postProcessImage();
    if (m_progress != nullptr)
        m_progress->imageProgress(static_cast<unsigned int>(m_currentFrame), m_numberOfFrames);
    delete m_rawImage;
    m_rawImage = nullptr;
    return result;
}

unsigned int CImageProcess::getAndRemoveOverlays()
{
    if (m_rawImage == nullptr || m_rawImage->getPixels() == nullptr)
        return 1;
    unsigned char* data = m_rawImage->getPixels();
    const unsigned int length = m_rawImage->getLength();
    if (m_bitsAllocated != 8 && m_bitsAllocated != 16)
        return 1;
    const unsigned int bits = m_bitsAllocated;
    // Samples are masked to their stored bits only when the description says which bits those
    // are. Without Bits Stored (0) nothing does, and masking would clear real sample bits; a
    // Bits Stored or High Bit that does not fit the sample would shift past its width. Such
    // samples are left as they are.
    const bool describable = m_bitsStored > 0 && m_bitsStored <= bits && m_highBit < bits && m_highBit + 1 >= m_bitsStored;
    const unsigned int all = bits == 16 ? 0xFFFFu : 0xFFu;
    const unsigned int keep = describable ? ((all >> (bits - m_bitsStored)) << (m_highBit + 1 - m_bitsStored)) & all : all;
    const unsigned int signBit = describable ? 1u << m_highBit : 0;
    const unsigned int extension = describable ? (all << (m_highBit + 1)) & all : 0;
    const bool extend = describable && m_pixelRepresentation == 1 && extension != 0;
    const unsigned int mask = m_overlayMask & all;
    COverlay* embedded[COverlayArray::SLOTS];
    int embeddedCount = 0;
    for (int slot = 0; slot < COverlayArray::SLOTS; ++slot)
    {
        COverlay* overlay = m_overlays.get(slot);
        if (overlay != nullptr && overlay->m_bitPosition != 0)
            embedded[embeddedCount++] = overlay;
    }
    const unsigned long count = bits == 16 ? length / 2 : length;
    if (mask == 0 && keep == all && !extend)
        return 0;
    for (unsigned long i = 0; i < count; ++i)
    {
        unsigned int sample;
        if (bits == 16)
        {
            Uint16 v;
            memcpy(&v, data + 2 * i, 2);
            sample = v;
        }
        else
            sample = data[i];
        if (mask != 0)
        {
            const unsigned int m = sample & mask;
            for (int k = 0; k < embeddedCount; ++k)
            {
                COverlay* overlay = embedded[k];
                if (overlay->m_status == OVERLAY_OK && overlay->m_mode == OVERLAY_READ_EMBEDDED &&
                    overlay->m_bitPosition < 16)
                    overlay->putBit((m >> overlay->m_bitPosition) & 1);
            }
        }
        sample &= keep;
        if (extend && (sample & signBit) != 0)
            sample |= extension;
        if (bits == 16)
        {
            const Uint16 v = static_cast<Uint16>(sample);
            memcpy(data + 2 * i, &v, 2);
        }
        else
            data[i] = static_cast<unsigned char>(sample);
    }
    return 0;
}

unsigned int CImageProcess::processEncapsulatedDocument(DcmElement* element)
{
    const char* sopClass = nullptr;
    bool isDocument = false;
    if (m_dataset != nullptr && m_dataset->findAndGetString(DCM_SOPClassUID, sopClass).good() && sopClass != nullptr)
        isDocument = strcmp(sopClass, ENCAPSULATED_PDF_SOP_CLASS) == 0;
    else
    {
        const char* mime = nullptr;
        if (m_dataset == nullptr || m_dataset->findAndGetString(DCM_MIMETypeOfEncapsulatedDocument, mime).bad() ||
            mime == nullptr)
            return 0;
        isDocument = strcmp(mime, "application/pdf") == 0;
    }
    if (!isDocument)
        return 0;
    if (dynamic_cast<DcmOtherByteOtherWord*>(element) == nullptr)
        return 1;
    const Uint8* bytes = elementBytes(element);
    Uint32 length = element->getLength();
    if (bytes == nullptr || length == 0)
        return 1;
    if (length % 2 == 0 && bytes[length - 1] == 0)
        --length; // the pad byte of an odd-length document
    CEncapsulatedDocument* document = createEncapsulatedDocument(DOCUMENT_TYPE_PDF, length);
    if (document == nullptr)
        return 1;
    bool done = document->init();
    if (done)
    {
        document->addContent(bytes, length);
        done = postProcess(document);
    }
    delete document;
    return done ? 0 : 1;
}
