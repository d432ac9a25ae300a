#include "dcmutils/codec/D2JPEG2000Util.h"

#include "dcmtk/dcmdata/dcerror.h"

makeOFConditionConst(EC_J2KUnsupportedImageType, OFM_dcmjp2k, 1, OF_error,
                     "Unsupported type of image for JPEG 2000 compression");
makeOFConditionConst(EC_J2KUnsupportedBitDepth, OFM_dcmjp2k, 2, OF_error,
                     "Unsupported bit depth in JPEG 2000 transfer syntax");
makeOFConditionConst(EC_J2KImageDataMismatch, OFM_dcmjp2k, 3, OF_error,
                     "Image data mismatch between DICOM header and JPEG 2000 codestream");
makeOFConditionConst(EC_J2KCannotComputeNumberOfFragments, OFM_dcmjp2k, 4, OF_error,
                     "Cannot compute number of fragments for JPEG 2000 frame");
makeOFConditionConst(EC_J2KUncompressedBufferTooSmall, OFM_dcmjp2k, 5, OF_error,
                     "Too small buffer used for uncompressed image data");
makeOFConditionConst(EC_J2KLosslessVerificationFailed, OFM_dcmjp2k, 6, OF_error,
                     "JPEG 2000 lossless compression did not reproduce the image");
makeOFConditionConst(EC_J2KLibraryNotInitialized, OFM_dcmjp2k, 7, OF_error,
                     "JPEG 2000 library not initialized");

OFLogger D2J_LOGGER = OFLog::getLogger("dcmtk.kqcodec.jpeg2000");
