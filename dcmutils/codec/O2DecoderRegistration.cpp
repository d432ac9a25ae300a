#include "dcmutils/codec/O2DecoderRegistration.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2Decoder.h"

bool O2DecoderRegistration::m_registered = false;
D2CodecParameter* O2DecoderRegistration::m_codecParameter = NULL;
D2Decoder* O2DecoderRegistration::m_losslessDecoder = NULL;
D2Decoder* O2DecoderRegistration::m_lossyDecoder = NULL;

void O2DecoderRegistration::registerCodecs(J2K_UIDCreation uidCreation, J2K_PlanarConfiguration planarConfiguration,
                                           int qualityLayers, int threads, bool strictDecoding, bool acceptJP2)
{
    if (m_registered)
        return;
    m_codecParameter = new D2CodecParameter();
    m_codecParameter->m_decoderUIDCreation = uidCreation;
    m_codecParameter->m_planarConfiguration = planarConfiguration;
    m_codecParameter->m_qualityLayers = qualityLayers > 0 ? unsigned(qualityLayers) : 0;
    m_codecParameter->m_threads = threads > 0 ? unsigned(threads) : 0;
    m_codecParameter->m_strictDecoding = strictDecoding;
    m_codecParameter->m_acceptJP2 = acceptJP2;

    m_losslessDecoder = new D2Decoder(EXS_JPEG2000LosslessOnly);
    m_lossyDecoder = new D2Decoder(EXS_JPEG2000);
    DcmCodecList::registerCodec(m_losslessDecoder, NULL, m_codecParameter);
    DcmCodecList::registerCodec(m_lossyDecoder, NULL, m_codecParameter);
    m_registered = true;
}

void O2DecoderRegistration::cleanup()
{
    if (!m_registered)
        return;
    DcmCodecList::deregisterCodec(m_losslessDecoder);
    DcmCodecList::deregisterCodec(m_lossyDecoder);
    delete m_losslessDecoder;
    delete m_lossyDecoder;
    delete m_codecParameter;
    m_losslessDecoder = NULL;
    m_lossyDecoder = NULL;
    m_codecParameter = NULL;
    m_registered = false;
}
