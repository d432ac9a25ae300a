// Registers every codec the archive's tools use with DCMTK's codec list for as long as it
// lives, and chooses the compression parameters for a target transfer syntax. The
// registrations are process-wide: use one registry at a time.
#ifndef CODECREGISTRY_H
#define CODECREGISTRY_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcxfer.h"

class CodecRegistry
{
public:
    // RLE decoder, JPEG 2000 library, JPEG 2000 encoders and decoders, JPEG encoders and
    // decoders, JPEG-LS decoders, RLE and JPEG-LS encoders.
    CodecRegistry();
    ~CodecRegistry();

    // A new parameter for encoding dataset into xfer, owned by the caller; NULL for a
    // transfer syntax that needs none or is not supported. JPEG 2000 lossy takes the rate
    // configured for the dataset's modality.
    DcmRepresentationParameter* getRepresentationParameter(DcmDataset& dataset, E_TransferSyntax xfer);

private:
    CodecRegistry(const CodecRegistry&);
    CodecRegistry& operator=(const CodecRegistry&);
};

#endif
