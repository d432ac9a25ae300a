// Registers the JPEG 2000 decoders (1.2.840.10008.1.2.4.90 and .91) with DCMTK's codec list.
#ifndef O2DECODERREGISTRATION_H
#define O2DECODERREGISTRATION_H

#include "dcmtk/config/osconfig.h"

#include "dcmutils/codec/D2JPEG2000Util.h"

class D2CodecParameter;
class D2Decoder;

class O2DecoderRegistration
{
public:
    // Registers both decoders once; later calls do nothing until cleanup().
    // uidCreation          new SOP Instance UID after decoding: only with "always"
    // planarConfiguration  layout of decoded colour images
    // qualityLayers        quality layers to decode, 0: all (OpenJPEG's layer limit)
    // threads              OpenJPEG worker threads; 0: one per core (none on one core)
    // strictDecoding       truncated or damaged codestreams fail instead of decoding partly
    // acceptJP2            accept codestreams wrapped in a JP2 file header
    static void registerCodecs(J2K_UIDCreation uidCreation = EJ2KUC_default,
                               J2K_PlanarConfiguration planarConfiguration = EJ2KPC_restore, int qualityLayers = 0,
                               int threads = 0, bool strictDecoding = true, bool acceptJP2 = true);

    // Deregisters and deletes the decoders.
    static void cleanup();

private:
    static bool m_registered;
    static D2CodecParameter* m_codecParameter;
    static D2Decoder* m_losslessDecoder;
    static D2Decoder* m_lossyDecoder;
};

#endif
