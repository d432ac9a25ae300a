// The image process driver: walks a dataset with a table of tag handlers, collects the image
// description, decodes the pixel data frame by frame, collects overlays and documents.
#ifndef IMAGEPROCESS_H
#define IMAGEPROCESS_H

#include "common/imgproc/src/dicomparser.h"
#include "common/imgproc/src/dicomtaggrouplist.h"
#include "common/imgproc/src/encapsulateddocument.h"
#include "common/imgproc/src/histogram.h"
#include "common/imgproc/src/overlayarray.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcvr.h"

#include <ostream>
#include <string>
#include <vector>

class CExtractedData;
class CImageMemory;
class COverlay;
class CKqRContent;
class CRawImage;
class DcmElement;
class DcmSequenceOfItems;
class DcmTag;
class IImageProcessProgress;

/// SOP Class UID of KqR objects, whose private content is extracted (CKqRContent).
#define IMGPROC_KQR_SOP_CLASS_UID "1.2.999.0.1.7777777.4.55.1.0.1"

/// Photometric codes (m_photometric), set from Photometric Interpretation (0028,0004).
enum PHOTOMETRIC_CODE
{
    PHOTOMETRIC_RGB = 0,
    PHOTOMETRIC_MONOCHROME = 1,
    PHOTOMETRIC_PALETTE = 2,
    PHOTOMETRIC_YBR_FULL = 6,
    PHOTOMETRIC_YBR_FULL_422 = 7,
    PHOTOMETRIC_YBR_PARTIAL_422 = 8,
    PHOTOMETRIC_YBR_RCT = 9,
    PHOTOMETRIC_YBR_ICT = 10
};

/// What the pixel data holds (m_imageKind).
enum IMAGE_KIND
{
    IMAGE_KIND_NONE = 0,
    IMAGE_KIND_MONOCHROME = 1,
    IMAGE_KIND_COLOUR = 2,
    IMAGE_KIND_PALETTE = 3,
    /// the object refers to pixel data kept elsewhere (private reference, no pixel data)
    IMAGE_KIND_REFERENCE = 5
};

/** Walks one dataset once (process()), in ascending tag order, with its table of tag handlers:
 *  collects rows, columns, bits, photometric interpretation, frames, palettes, window and
 *  rescale values and overlays; decodes the pixel data one frame at a time into raw images
 *  made by the derived class (createRawImage()); extracts an encapsulated PDF
 *  (createEncapsulatedDocument()); removes the pixel data, icon image sequence and document
 *  elements from the dataset; and at the end stores the overlays in the KQ private block.
 *
 *  Abstract: a derived class supplies the raw images and documents and installs the
 *  CImageMemory that their buffers come from. The dataset, the memory and the progress
 *  callback are borrowed, never freed here.
 *
 *  The pixel path: native pixel data is read frame by frame with DcmElement::getPartialValue
 *  through a DcmFileCache (what DcmPixelData::getUncompressedFrame does for native data, with
 *  the frame size of the collected description so that 4:2:2 samples and 1-bit images read
 *  too); encapsulated pixel data is decoded frame by frame with getUncompressedFrame through
 *  the codecs registered in DCMTK's codec list (the caller registers them, e.g. with a
 *  CodecRegistry), and the fragments of each frame are given back (compact()) once it is
 *  decoded. A value left in the file is thus never loaded whole. For every frame: imageStart()
 *  makes the raw image, whose init() allocates the frame buffer from the memory under the frame
 *  number (1 for the first frame); the frame is decoded into that buffer; embedded overlays are
 *  taken out of the samples and the bits that are not stored are cleared
 *  (getAndRemoveOverlays()); imageDone() calls postProcessImage() (the raw image's finishing
 *  steps, see CRawImage), tells the progress callback and deletes the raw image, which releases
 *  its buffer. Warnings and errors go to DCMTK's dcmdata logger. */
class CImageProcess : private CDicomTagParser2, public SDicomTagGroupList
{
public:
    /** dataset (borrowed; null: process() returns 1), memory (borrowed, may be set later with
     *  setImageMemory()), printElements: print every element visited; noTagHandlers: register
     *  no handler and remove nothing (the walk only prints); printVerbose: escape new lines in
     *  printed values; specificFrame: 1-based number of the only frame to decode, 0 or negative
     *  for all. */
    CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool printElements, bool noTagHandlers,
                  bool printVerbose, int specificFrame);
    /// Deletes the collected overlays and a raw image still held; nothing borrowed is freed.
    ~CImageProcess() override;

    /// Resets per-walk state of a derived class; nothing here.
    void InitPrivateData() override;
    /// Registers the dispatch table (unless noTagHandlers). Called once by the constructor.
    void initFunction() override;
    /// The raw image of the next image (a CRawImage or a subclass), owned by the process
    /// until imageDone(); null on failure.
    virtual CRawImage* createRawImage() = 0;
    /// The object for an encapsulated document of type and length bytes, owned by the
    /// process; null when documents are not extracted.
    virtual CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int length) = 0;
    /// A new KqR content extraction for this process, owned by the caller.
    virtual CKqRContent* createKqRContent();
    /// Finishing step for an extracted object; true when its own postProcess() returns 0.
    virtual bool postProcess(CExtractedData* data);
    /// Before the walk: relocates the dataset's legacy private tags; true.
    virtual bool initProcess();
    /// After the walk: reference values, overlays finalised and stored in the KQ block
    /// (sequence 0x71, items with 0x72 "NONE" and 0x73 bits); false on a failed store.
    virtual bool finalizeProcess();
    /// Whether a private element outside the KQ group is kept; true here.
    virtual bool isIncluded(const DcmTag& tag);
    /// Hooks over each run of decoded samples (bytes, words, double words); nothing here.
    virtual void adjustBytes(unsigned char* data, unsigned int count);
    virtual void adjustBytes(unsigned short* data, unsigned int count);
    virtual void adjustBytes(unsigned int* data, unsigned int count);
    /** Called once per decoded image, after its samples are complete and before the raw image
     *  is released: postProcess() of the raw image here (its finishing steps). The comparison
     *  overrides it to write an image dump. True on success. */
    virtual bool postProcessImage();

    /// 0 on success, otherwise the number of errors or 1.
    int process();
    /// Walks one item; its error count (1 for a null item).
    unsigned int processDataItem(DcmItem* item);
    /// Stores the callback (borrowed), null for none.
    void setProgressCallback(IImageProcessProgress* progress) { m_progress = progress; }
    /// The stream that printed elements go to (borrowed; standard output by default).
    void setOutputStream(std::ostream* out) { m_out = out ? out : m_out; }
    /// The walker's preprocess: prints, and removes private elements that isIncluded() refuses.
    static bool fTagParserPreprocess(IDicomTagParser2* parser);

    /// True only for the capture device model "Zentravox" with version "1.0".
    static bool checkSCDevice(const std::string& model, const std::string& version);
    /// Sets m_photometric from value (see PHOTOMETRIC_CODE; unknown values keep it).
    void setPhotometricInterpretation(const char* value, DcmElement* element);
    /// Sets m_samplesPerPixel (and remembers element when not null).
    void setSamplesPerPixel(unsigned short value, DcmElement* element);
    /// The code of a photometric value; previous for unknown values.
    static unsigned int photometricCode(const char* value, unsigned int previous);

    /// Prints one element line (and the items of a sequence) to the output stream.
    void printElement(DcmElement* element, int depth);
    /// Prints the elements of an item between " **start**" and " **end**" lines.
    void printItem(DcmItem* item, int depth);
    /// Prints the items of a sequence between " **start**" and " **end**" lines.
    void printSequence(DcmSequenceOfItems* sequence, int depth);
    /// text with line feeds and carriage returns written as "\n" and "\r".
    static std::string escapeNewLines(const char* text);

    /// The pixel path for the Pixel Data element; the number of errors (0 = success).
    unsigned int processImageElem(DcmElement* element, const DcmEVR& vr);
    /// Starts the current image: makes and initialises the raw image; false on failure.
    bool imageStart();
    /// Finishes the current image: postProcessImage(), progress, raw image deleted.
    bool imageDone();
    /// After the last image: a window estimated from the samples when the object has none.
    void addReferenceValues();
    /** Takes embedded overlay bits out of the current raw image's samples and clears the bits
     *  that are not stored (sign-extending signed samples); 1 for bits allocated other than 8
     *  and 16, else 0. */
    unsigned int getAndRemoveOverlays();
    /// Copies an encapsulated PDF; 0 when done or not a document, 1 on error.
    unsigned int processEncapsulatedDocument(DcmElement* element);
    /// Reads a palette descriptor (3 values) of colour 0 (red), 1 (green) or 2 (blue).
    void readPaletteDesc(DcmElement* element, int colour);
    /// Reads the palette data of a colour.
    void readPaletteData(DcmElement* element, int colour);
    /// Selects the overlay for the element being dispatched; true when one is available.
    bool checkAndSetCurrentOverLay();
    /// Processes one KqR object's private content; 0 on success, 1 on failure.
    unsigned int processKqRContent();

    /// The dataset (borrowed).
    DcmDataset* getDataset() const { return m_dataset; }
    /// The buffer provider (borrowed), null when none is installed.
    CImageMemory* getImageMemory() const { return m_memory; }
    /// The raw image of the image being processed, null between images.
    CRawImage* getRawImage() const { return m_rawImage; }
    /// Number (1 for the first) of the frame being processed, 0 before the first.
    int getCurrentFrame() const { return m_currentFrame; }
    /// Number of frames of the object (Number of Frames, or Number of Slices when present).
    unsigned int getNumberOfFrames() const { return m_numberOfFrames; }
    /// Bytes of one decoded frame as the decoder delivers it (before colour conversion).
    unsigned int getFrameSize() const { return m_frameSize; }
    /// Photometric code (PHOTOMETRIC_CODE) of the decoded samples of the current frame.
    unsigned int getDecodedPhotometric() const { return m_decodedPhotometric; }
    /// Image description collected by the handlers.
    unsigned short getRows() const { return m_rows; }
    unsigned short getColumns() const { return m_columns; }
    unsigned short getBitsAllocated() const { return m_bitsAllocated; }
    unsigned short getBitsStored() const { return m_bitsStored; }
    unsigned short getHighBit() const { return m_highBit; }
    unsigned short getPixelRepresentation() const { return m_pixelRepresentation; }
    unsigned short getPlanarConfiguration() const { return m_planarConfiguration; }
    unsigned short getSamplesPerPixel() const { return m_samplesPerPixel; }
    unsigned int getPhotometric() const { return m_photometric; }
    bool getInvertMonochrome1() const { return m_invertMonochrome1; }
    double getWindowCenter() const { return m_windowCenter; }
    double getWindowWidth() const { return m_windowWidth; }
    double getRescaleSlope() const { return m_rescaleSlope; }
    double getRescaleIntercept() const { return m_rescaleIntercept; }
    const double* getPixelSpacing() const { return m_pixelSpacing; }
    const std::string& getModality() const { return m_modality; }
    unsigned int getImageKind() const { return m_imageKind; }
    unsigned int getImageCount() const { return m_imageCount; }
    unsigned int getErrorCount() const { return m_errorCount; }
    bool getPixelDataSeen() const { return m_pixelDataSeen; }
    /// Palette of a colour (0 red, 1 green, 2 blue): entries (0 = 65536), first mapped value,
    /// bits per entry, and the entries as read, in the machine's byte order (null before the
    /// data element).
    unsigned short getPaletteEntries(int colour) const { return m_paletteEntries[colour]; }
    int getPaletteFirstMapped(int colour) const { return m_paletteFirstMapped[colour]; }
    unsigned short getPaletteBits(int colour) const { return m_paletteBits[colour]; }
    const unsigned char* getPaletteData(int colour) const;
    /// Bytes of palette data of a colour (entries x 1 or 2 bytes).
    unsigned long getPaletteDataLength(int colour) const { return m_paletteData[colour].size(); }
    /// The overlays collected.
    const COverlayArray& getOverlays() const { return m_overlays; }
    COverlayArray& getOverlays() { return m_overlays; }
    /// Bits of the samples that hold embedded overlays.
    unsigned short getOverlayMask() const { return m_overlayMask; }
    /// The window histogram, fed with the samples of objects without a window.
    CHistogram& getHistogram() { return m_histogram; }
    /// True when the samples should feed the histogram (monochrome, no window in the object).
    bool needsWindowEstimate() const;

    using CDicomTagParser2::getCurrentObject;
    using CDicomTagParser2::getIndex;
    using CDicomTagParser2::getItem;
    using CDicomTagParser2::removeElement;

protected:
    /// Installs the buffer provider (borrowed; the derived class keeps it alive).
    void setImageMemory(CImageMemory* memory) { m_memory = memory; }
    /// When set, the preprocess step keeps every private element (isIncluded() is not asked).
    void setKeepAllElements(bool keep) { m_keepAllElements = keep; }

    /// Constructor arguments.
    DcmDataset* m_dataset;
    CImageMemory* m_memory;
    bool m_printElements;
    bool m_noTagHandlers;
    bool m_printVerbose;
    int m_specificFrame;
    bool m_keepAllElements;

    /// Image description [0, samples per pixel 1, frames 1].
    unsigned short m_rows, m_columns, m_bitsAllocated, m_bitsStored, m_highBit, m_pixelRepresentation,
        m_planarConfiguration;
    unsigned short m_samplesPerPixel;
    DcmElement* m_samplesPerPixelElement;
    // the full count: the 16 bits of the original layout would compare two objects of 65,537
    // frames on their first frame only
    unsigned int m_numberOfFrames;
    bool m_planarConfigurationSeen;
    unsigned int m_photometric;
    DcmElement* m_photometricElement;
    bool m_invertMonochrome1;
    double m_pixelSpacing[2];
    double m_windowCenter, m_windowWidth, m_rescaleIntercept, m_rescaleSlope;
    std::string m_modality, m_scDeviceManufacturerModelName, m_scDeviceSoftwareVersions;
    /// Palette descriptors and data per colour (red 0, green 1, blue 2).
    unsigned short m_paletteEntries[3];
    unsigned short m_paletteBits[3];
    int m_paletteFirstMapped[3];
    std::vector<unsigned char> m_paletteData[3];
    bool m_pixelDataSeen;
    unsigned int m_errorCount;
    unsigned int m_imageKind;
    unsigned int m_imageCount;
    COverlayArray m_overlays;
    unsigned short m_overlayMask;
    CHistogram m_histogram;
    CRawImage* m_rawImage;
    IImageProcessProgress* m_progress;
    std::ostream* m_out;

    /// The pixel path's frame state.
    int m_currentFrame;
    unsigned int m_frameSize;
    unsigned int m_decodedPhotometric;

private:
    /// Decodes frame frameIndex (0-based) of element into the current raw image.
    bool decodeFrame(DcmElement* element, bool encapsulated, unsigned int frameIndex, unsigned int& startFragment,
                     void* fileCache);
    /// The frame size from the description; 0 when it is not usable.
    unsigned int describedFrameSize() const;
    /// Runs an extracted object's finishing step; true on success.
    bool finishExtracted(CExtractedData* data);

    // the dispatch table
    static void fTagPIXEL_DATA_REFERENCE(IDicomTagParser2* parser);
    static void fTag2DCM_PixelData(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayData(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayBitPosition(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayBitsAllocated(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayOrigin(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayType(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayColumns(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayRows(IDicomTagParser2* parser);
    static void fTag2DCM_IconImageSequence(IDicomTagParser2* parser);
    static void fTag2DCM_NumberOfSlices(IDicomTagParser2* parser);
    static void fTag2DCM_EncapsulatedDocument(IDicomTagParser2* parser);
    static void fTag2DCM_BluePaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_GreenPaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_RedPaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_BluePaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_GreenPaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_RedPaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_RescaleSlope(IDicomTagParser2* parser);
    static void fTag2DCM_RescaleIntercept(IDicomTagParser2* parser);
    static void fTag2DCM_WindowWidth(IDicomTagParser2* parser);
    static void fTag2DCM_WindowCenter(IDicomTagParser2* parser);
    static void fTag2DCM_PixelRepresentation(IDicomTagParser2* parser);
    static void fTag2DCM_HighBit(IDicomTagParser2* parser);
    static void fTag2DCM_BitsStored(IDicomTagParser2* parser);
    static void fTag2DCM_BitsAllocated(IDicomTagParser2* parser);
    static void fTag2DCM_PixelSpacing(IDicomTagParser2* parser);
    static void fTag2DCM_Columns(IDicomTagParser2* parser);
    static void fTag2DCM_Rows(IDicomTagParser2* parser);
    static void fTag2DCM_NumberOfFrames(IDicomTagParser2* parser);
    static void fTag2DCM_PlanarConfiguration(IDicomTagParser2* parser);
    static void fTag2DCM_PhotometricInterpretation(IDicomTagParser2* parser);
    static void fTag2DCM_SamplesPerPixel(IDicomTagParser2* parser);
    static void fTag2DCM_SecondaryCaptureDeviceSoftwareVersions(IDicomTagParser2* parser);
    static void fTag2DCM_SecondaryCaptureDeviceManufacturerModelName(IDicomTagParser2* parser);
    static void fTag2DCM_Modality(IDicomTagParser2* parser);

    /// The process behind a handler's parser, and the element it is at (null if none).
    static CImageProcess* self(IDicomTagParser2* parser);
    /// The value of an OB, OW, US or SS element as bytes (words in the machine's byte order);
    /// null when it cannot be read.
    static Uint8* elementBytes(DcmElement* element);
    DcmElement* currentElement() const;
    /// An overlay handler's common part: the current overlay, or null.
    COverlay* currentOverlay();
    /// Reads the current element's unsigned 16-bit value into field (unchanged when unreadable).
    void readUint16(unsigned short& field);
    /// Reads the current element's first value as text and strtod into field.
    void readDouble(double& field);
    /// Reads the current element's first value as text into field.
    void readString(std::string& field);

    CImageProcess(const CImageProcess&);
    CImageProcess& operator=(const CImageProcess&);
};

#endif
