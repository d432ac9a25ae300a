#include "dcmutils/codec/CodecRegistry.h"

#include "dcmutils/codec/CheckedJPEGDecoder.h"
#include "dcmutils/codec/CheckedRLEDecoder.h"
#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/JPEG2000LossyRates.h"
#include "dcmutils/codec/O2DecoderRegistration.h"
#include "dcmutils/codec/O2EncoderRegistration.h"

#include "dcmtk/dcmdata/dcrledrg.h"
#include "dcmtk/dcmdata/dcrleerg.h"
#include "dcmtk/dcmimage/diregist.h" // colour images for the encoders that render through dcmimage
#include "dcmtk/dcmjpeg/djdecode.h"
#include "dcmtk/dcmjpeg/djencode.h"
#include "dcmtk/dcmjpeg/djrplol.h"
#include "dcmtk/dcmjpeg/djrploss.h"
#include "dcmtk/dcmjpls/djdecode.h"
#include "dcmtk/dcmjpls/djencode.h"

#include <string>

CodecRegistry::CodecRegistry()
{
    // RLE: no new SOP Instance UID, no reversed byte order; DCMTK's decoder behind a check of
    // the frame's fragment, which it would otherwise read past when the header is damaged
    CheckedRLEDecoderRegistration::registerCodecs();

    (void)D2JPEG2000Library::initialize();

    O2EncoderRegistration::registerCodecs(OFList<double>(),
                                          0, 0, 0, 0, 0, // tiles, component size limit
                                          0,             // codestream size limit
                                          6, 6, 15, 15,  // code-blocks 64 x 64, default precincts
                                          false, false, false, false, EJ2KP_LRCP,
                                          6, 2, // resolutions, guard bits
                                          false, false, false, false, true, false, true, EJ2KBD_limit, 16,
                                          0, 0, 0.0, 0.0, 0, 0, 0, 0, true, false, // rendering: unused
                                          0, true, EJ2KUC_never, false, false, false, true, true, true);

    O2DecoderRegistration::registerCodecs(EJ2KUC_default, EJ2KPC_restore, 0, 0, true, true);

    DJEncoderRegistration::registerCodecs(ECC_lossyRGB, EUC_never, OFTrue, 0, 0, 0, OFTrue, ESS_444, OFFalse, OFFalse,
                                          0, 0, 0.0, 0.0, 0, 0, 0, 0, OFTrue, OFFalse, OFFalse, OFFalse, OFTrue);

    // DCMTK's JPEG decoders with these parameters (EDC_photometricInterpretation, EUC_default,
    // EPC_default, no workarounds), behind a check of each frame's first fragment: a TEM marker
    // there would keep them scanning for ever
    CheckedJPEGDecoderRegistration::registerCodecs();

    // JPEG-LS too: without it a JPEG-LS object could be neither compared nor transcoded.
    DJLSDecoderRegistration::registerCodecs();

    // The encoders for RLE and JPEG-LS, with the identity of the object kept as the JPEG and
    // JPEG 2000 encoders keep it: no new SOP Instance UID, no conversion to Secondary Capture;
    // unlimited fragments with an offset table.
    DcmRLEEncoderRegistration::registerCodecs(OFFalse, 0, OFTrue, OFFalse);
    // raw encoding, as dcmcjpls +er: the cooked path of CharLS aborts on signed samples whose
    // stored range it misjudges (a 14-bit signed CT of the pydicom corpus)
    DJLSEncoderRegistration::registerCodecs(0, 0, 0, 0, OFFalse, 0, OFTrue, EJLSUC_never, OFFalse);
}

CodecRegistry::~CodecRegistry()
{
    DJEncoderRegistration::cleanup();
    CheckedJPEGDecoderRegistration::cleanup();
    DJLSDecoderRegistration::cleanup();
    DJLSEncoderRegistration::cleanup();
    DcmRLEEncoderRegistration::cleanup();
    O2EncoderRegistration::cleanup();
    O2DecoderRegistration::cleanup();
    D2JPEG2000Library::cleanup();
    CheckedRLEDecoderRegistration::cleanup();
}

DcmRepresentationParameter* CodecRegistry::getRepresentationParameter(DcmDataset& dataset, E_TransferSyntax xfer)
{
    if (xfer < EXS_JPEGProcess1 || xfer > EXS_JPEG2000)
        return NULL;
    switch (xfer)
    {
    case EXS_JPEGProcess14:
    case EXS_JPEGProcess14SV1:
        // predictor 6 for selection value 1 as well
        return new DJ_RPLossless(6, 0);
    case EXS_RLELossless:
    case EXS_DeflatedLittleEndianExplicit:
    case EXS_JPEGLSLossless:
    case EXS_JPEGLSLossy:
        return NULL;
    case EXS_JPEG2000LosslessOnly:
        return new D2RepresentationParameter(1.0, 0, true, std::string(), true);
    case EXS_JPEG2000:
    {
        const double rate = getJPEG2000LossyCompressionRate(dataset);
        if (rate == 1.0)
            return new D2RepresentationParameter(1.0, 0, true, std::string(), true);
        return new D2RepresentationParameter(rate, 0, false, std::string(), true);
    }
    default:
        // the JPEG processes 1 to 29
        return new DJ_RPLossy(90);
    }
}
