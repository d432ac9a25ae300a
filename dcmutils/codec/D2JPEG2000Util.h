// Shared definitions of the JPEG 2000 codec: option enumerations, error conditions and the
// codec's logger. OpenJPEG's own types stay in the codec's internal headers.
#ifndef D2JPEG2000UTIL_H
#define D2JPEG2000UTIL_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"
#include "dcmtk/oflog/oflog.h"
#include "dcmtk/ofstd/ofstring.h"

// When a codec assigns a new SOP Instance UID.
enum J2K_UIDCreation
{
    // encoder: new UID for lossy output only; decoder: never
    EJ2KUC_default,
    // always a new UID, on encoding and decoding
    EJ2KUC_always,
    // never a new UID
    EJ2KUC_never
};

// Planar configuration of decoded colour images.
enum J2K_PlanarConfiguration
{
    // keep the object's Planar Configuration (0 when missing or invalid)
    EJ2KPC_restore,
    // choose by SOP class and colour model as the DICOM standard expects
    EJ2KPC_auto,
    // always colour-by-pixel (0)
    EJ2KPC_colorByPixel,
    // always colour-by-plane (1)
    EJ2KPC_colorByPlane
};

// Progression order of encoded codestreams; the values are OpenJPEG's.
enum J2K_Progression
{
    EJ2KP_LRCP,
    EJ2KP_RLCP,
    EJ2KP_RPCL,
    EJ2KP_PCRL,
    EJ2KP_CPRL
};

// How the encoder treats the sample precision.
enum J2K_CompressionBitDepth
{
    // the precision of the stored values (High Bit + 1), whatever it is
    EJ2KBD_original,
    // the precision of the stored values; refuse images above the configured bit depth
    EJ2KBD_limit,
    // always the configured bit depth (at least the precision of the stored values)
    EJ2KBD_force
};

// Error conditions of the codec (module OFM_dcmjp2k).
extern const OFConditionConst EC_J2KUnsupportedImageType;
extern const OFConditionConst EC_J2KUnsupportedBitDepth;
extern const OFConditionConst EC_J2KImageDataMismatch;
extern const OFConditionConst EC_J2KCannotComputeNumberOfFragments;
extern const OFConditionConst EC_J2KUncompressedBufferTooSmall;
extern const OFConditionConst EC_J2KLosslessVerificationFailed;
extern const OFConditionConst EC_J2KLibraryNotInitialized;

// Error codes of conditions made at run time with OpenJPEG's own message.
#define EC_CODE_J2KDecodingFailed 10
#define EC_CODE_J2KEncodingFailed 11

extern OFLogger D2J_LOGGER;

#define D2J_DEBUG(msg) OFLOG_DEBUG(D2J_LOGGER, msg)
#define D2J_WARN(msg) OFLOG_WARN(D2J_LOGGER, msg)
#define D2J_ERROR(msg) OFLOG_ERROR(D2J_LOGGER, msg)

#endif
