#include "dcmutils/codec/O2DecoderRegistration.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2Decoder.h"

bool O2DecoderRegistration::registered_ = false;
D2CodecParameter* O2DecoderRegistration::cp_ = NULL;
D2Decoder* O2DecoderRegistration::losslessDecoder_ = NULL;
D2Decoder* O2DecoderRegistration::lossyDecoder_ = NULL;

void O2DecoderRegistration::registerCodecs(J2K_UIDCreation uidCreation, J2K_PlanarConfiguration planarConfiguration,
                                           int qualityLayers, int threads, bool strictDecoding, bool acceptJP2)
{
    if (registered_)
        return;
    cp_ = new D2CodecParameter();
    cp_->decoderUIDCreation = uidCreation;
    cp_->planarConfiguration = planarConfiguration;
    cp_->qualityLayers = qualityLayers > 0 ? unsigned(qualityLayers) : 0;
    cp_->threads = threads > 0 ? unsigned(threads) : 0;
    cp_->strictDecoding = strictDecoding;
    cp_->acceptJP2 = acceptJP2;

    losslessDecoder_ = new D2Decoder(EXS_JPEG2000LosslessOnly);
    lossyDecoder_ = new D2Decoder(EXS_JPEG2000);
    DcmCodecList::registerCodec(losslessDecoder_, NULL, cp_);
    DcmCodecList::registerCodec(lossyDecoder_, NULL, cp_);
    registered_ = true;
}

void O2DecoderRegistration::cleanup()
{
    if (!registered_)
        return;
    DcmCodecList::deregisterCodec(losslessDecoder_);
    DcmCodecList::deregisterCodec(lossyDecoder_);
    delete losslessDecoder_;
    delete lossyDecoder_;
    delete cp_;
    losslessDecoder_ = NULL;
    lossyDecoder_ = NULL;
    cp_ = NULL;
    registered_ = false;
}
