// The image process of the comparison: decodes every frame of a dataset into memory kept per
// frame, and can write a small image dump of each frame.
#ifndef OBJDIFFPROCESS_H
#define OBJDIFFPROCESS_H

#include "common/imgproc/src/imageprocess.h"
#include "objdiff/LocalObjDiffMemory.h"

#include <string>

/** A CImageProcess that keeps every decoded frame (ObjDiffRawImage samples, exactly as
 *  decoded) in its own LocalObjDiffMemory until it is destroyed; with a dump prefix it also
 *  writes one image dump per frame. Encapsulated documents are not extracted.
 *
 *  Like every image process it changes the dataset it walks (pixel data, icon image sequence
 *  and document removed, legacy private tags relocated, overlays stored): give it a dataset
 *  that may change. The dataset is borrowed. */
class ObjDiffProcess : public CImageProcess
{
public:
    /// Decodes dataset (borrowed); printElements prints every element visited; no dumps.
    ObjDiffProcess(DcmDataset* dataset, bool printElements);
    /** Like the above; noTagHandlers runs the walk without handlers (nothing decoded); a
     *  non-null prefix writes the image dumps prefix + ".dump.wavelet" (one frame) or prefix +
     *  ".frame-" + number + ".dump.wavelet". */
    ObjDiffProcess(DcmDataset* dataset, bool printElements, bool noTagHandlers, const char* prefix);
    /// Frees the frames.
    ~ObjDiffProcess() override;

    /// A new ObjDiffRawImage for the current frame, owned by the process.
    CRawImage* createRawImage() override;
    /// Null: documents are not extracted.
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int length) override;
    /// The base's preparation of the dataset; true on success.
    bool initProcess() override;
    /// The base's finishing of the dataset; true on success.
    bool finalizeProcess() override;
    /** Finishes the current frame (the raw image's own steps) and, when dumping, writes its
     *  dump; a dump file that cannot be created is skipped silently. A dump that cannot be
     *  written (samples the wavelet codec cannot hold, a full disk) is removed, logged once
     *  through the dcmdata logger, and fails this frame and the ones after it. True on
     *  success. */
    bool postProcessImage() override;

    /// The decoded frames by frame number (1 for the first), owned by the process.
    const LocalObjDiffMemory::FrameMap& getFrames() const { return m_memory.getFrames(); }
    /// The dump prefix (empty when not dumping).
    const std::string& getDumpPrefix() const { return m_prefix; }
    /// Whether dumps are written.
    bool isDumping() const { return m_dump; }

private:
    LocalObjDiffMemory m_memory;
    std::string m_prefix;
    bool m_dump;
    bool m_dumpFailed;
};

#endif
