#include "dcmutils/codec/D2CodestreamEncoder.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2CodestreamDecoder.h"
#include "dcmutils/codec/D2JPEG2000Util.h"
#include "dcmutils/codec/D2MessageCollector.h"
#include "dcmutils/codec/D2OpenJPEGRun.h"
#include "dcmutils/codec/D2MemoryStream.h"
#include "dcmutils/codec/D2RepresentationParameter.h"

#include "dcmtk/dcmdata/dcerror.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The coded value of a stored sample: its stored bits, sign-extended when signed.
class SampleValue
{
public:
    explicit SampleValue(const D2FrameInfo& frame)
    : m_mask(frame.storedBits >= 32 ? 0xFFFFFFFFu : (1u << frame.storedBits) - 1)
    , m_sign(frame.isSigned ? 1u << (frame.storedBits - 1) : 0)
    {
    }
    OPJ_INT32 operator()(unsigned int raw) const
    {
        const unsigned int bits = raw & m_mask;
        return m_sign ? OPJ_INT32(bits ^ m_sign) - OPJ_INT32(m_sign) : OPJ_INT32(bits);
    }

private:
    unsigned int m_mask;
    unsigned int m_sign;
};

template <typename T>
void loadSamples(const Uint8* data, const D2FrameInfo& frame, opj_image_t* image)
{
    const T* in = reinterpret_cast<const T*>(data);
    const SampleValue value(frame);
    const size_t pixels = frame.pixels();
    const size_t samples = frame.samplesPerPixel;
    for (size_t c = 0; c < samples; ++c)
    {
        OPJ_INT32* out = image->comps[c].data;
        if (samples == 1 || frame.planarConfiguration == 1)
        {
            const T* plane = in + c * pixels;
            for (size_t i = 0; i < pixels; ++i)
                out[i] = value(plane[i]);
        }
        else
        {
            const T* sample = in + c;
            for (size_t i = 0; i < pixels; ++i, sample += samples)
                out[i] = value(*sample);
        }
    }
}

template <typename T>
bool sameValues(const Uint8* original, const Uint8* decoded, const D2FrameInfo& frame)
{
    const T* a = reinterpret_cast<const T*>(original);
    const T* b = reinterpret_cast<const T*>(decoded);
    const SampleValue value(frame);
    const size_t count = frame.pixels() * frame.samplesPerPixel;
    for (size_t i = 0; i < count; ++i)
    {
        // the decoder stores values in two's complement of the sample size
        if (T(value(a[i])) != b[i])
            return false;
    }
    return true;
}

// Resolution levels the tile size allows: each level halves it.
int fittingResolutions(int wanted, unsigned int width, unsigned int height)
{
    int resolutions = std::max(1, std::min(wanted, OPJ_J2K_MAXRLVLS));
    while (resolutions > 1 && ((width >> (resolutions - 1)) == 0 || (height >> (resolutions - 1)) == 0))
        --resolutions;
    return resolutions;
}

// An OpenJPEG image holding the coded values of the frame's samples, one component each.
opj_image_t* createImage(const Uint8* data, const D2FrameInfo& frame, unsigned int precision, bool transform)
{
    opj_image_cmptparm_t components[3];
    memset(components, 0, sizeof(components));
    for (Uint16 c = 0; c < frame.samplesPerPixel; ++c)
    {
        components[c].dx = 1;
        components[c].dy = 1;
        components[c].w = frame.columns;
        components[c].h = frame.rows;
        components[c].prec = precision;
        components[c].sgnd = frame.isSigned ? 1 : 0;
    }
    const OPJ_COLOR_SPACE space = frame.samplesPerPixel == 1 ? OPJ_CLRSPC_GRAY
                                  : transform                 ? OPJ_CLRSPC_SRGB
                                                              : OPJ_CLRSPC_UNSPECIFIED;
    opj_image_t* image = opj_image_create(frame.samplesPerPixel, components, space);
    if (image == NULL)
        return NULL;
    image->x0 = 0;
    image->y0 = 0;
    image->x1 = frame.columns;
    image->y1 = frame.rows;
    if (frame.bytesPerSample == 1)
        loadSamples<Uint8>(data, frame, image);
    else
        loadSamples<Uint16>(data, frame, image);
    return image;
}

// Quality layers: the configured intermediate rates below the final one, then the final rate
// (lossless, or the representation parameter's); or one layer at the asked PSNR.
void setQualityLayers(const D2CodecParameter& cp, const D2RepresentationParameter& rp, bool lossless,
                      opj_cparameters_t& parameters)
{
    if (!lossless && rp.getPSNR() > 0)
    {
        parameters.tcp_numlayers = 1;
        parameters.tcp_distoratio[0] = float(rp.getPSNR());
        parameters.cp_fixed_quality = 1;
        return;
    }
    std::vector<double> rates;
    const double finalRate = lossless ? 1.0 : rp.getRate();
    for (size_t i = 0; i < cp.m_layerRates.size(); ++i)
    {
        const double r = cp.m_layerRates[i];
        if (r > 0.0 && r < finalRate)
            rates.push_back(r);
    }
    std::sort(rates.begin(), rates.end());
    rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
    rates.push_back(finalRate);
    if (rates.size() > 100)
        rates.erase(rates.begin(), rates.end() - 100);
    parameters.tcp_numlayers = int(rates.size());
    for (size_t i = 0; i < rates.size(); ++i)
    {
        // OpenJPEG takes compression ratios; 0 for the last layer means lossless
        parameters.tcp_rates[i] = rates[i] >= 1.0 ? (lossless ? 0.0f : 1.0f) : float(1.0 / rates[i]);
    }
    parameters.cp_disto_alloc = 1;
}

// Tiles, resolution levels, code-blocks, precincts, markers, code-block modes, progression
// and size limits, from the codec parameter.
void setCodingStructure(const D2CodecParameter& cp, const D2FrameInfo& frame, opj_cparameters_t& parameters)
{
    unsigned int tileWidth = frame.columns;
    unsigned int tileHeight = frame.rows;
    if (cp.m_tileWidth > 0 && cp.m_tileHeight > 0)
    {
        parameters.tile_size_on = OPJ_TRUE;
        parameters.cp_tdx = int(cp.m_tileWidth);
        parameters.cp_tdy = int(cp.m_tileHeight);
        parameters.cp_tx0 = int(cp.m_tileOriginX);
        parameters.cp_ty0 = int(cp.m_tileOriginY);
        tileWidth = std::min(tileWidth, cp.m_tileWidth);
        tileHeight = std::min(tileHeight, cp.m_tileHeight);
    }
    parameters.numresolution = fittingResolutions(cp.m_resolutions, tileWidth, tileHeight);
    parameters.cblockw_init = 1 << std::max(2, std::min(10, int(cp.m_codeBlockWidthExponent)));
    parameters.cblockh_init = 1 << std::max(2, std::min(10, int(cp.m_codeBlockHeightExponent)));
    if (cp.m_precinctWidthExponent < 15 || cp.m_precinctHeightExponent < 15)
    {
        parameters.csty |= 0x01;
        parameters.res_spec = 1;
        parameters.prcw_init[0] = 1 << std::max(1, std::min(15, int(cp.m_precinctWidthExponent)));
        parameters.prch_init[0] = 1 << std::max(1, std::min(15, int(cp.m_precinctHeightExponent)));
    }
    if (cp.m_sopMarkers)
        parameters.csty |= 0x02;
    if (cp.m_ephMarkers)
        parameters.csty |= 0x04;
    parameters.mode = (cp.m_selectiveBypass ? 1 : 0) | (cp.m_resetContexts ? 2 : 0) |
                      (cp.m_terminateEachPass ? 4 : 0) | (cp.m_verticallyCausal ? 8 : 0) |
                      (cp.m_predictableTermination ? 16 : 0) | (cp.m_segmentationSymbols ? 32 : 0);
    parameters.prog_order = OPJ_PROG_ORDER(cp.m_progression);
    parameters.max_comp_size = int(cp.m_maxComponentSize);
    parameters.max_cs_size = int(cp.m_maxCodestreamSize);
}

// Runs OpenJPEG's encoder over the image into codestream (raw J2K).
OFCondition runEncoder(const D2CodecParameter& cp, D2OpenJPEGRun& run, opj_cparameters_t& parameters,
                       std::vector<Uint8>& codestream)
{
    D2MessageCollector messages;
    run.codec = opj_create_compress(OPJ_CODEC_J2K);
    if (run.codec == NULL)
        return EC_MemoryExhausted;
    messages.attach(run.codec);
    if (!opj_setup_encoder(run.codec, &parameters, run.image))
        return messages.condition(EC_CODE_J2KEncodingFailed, "JPEG 2000 encoding failed", "cannot set up encoder");

    char guardBits[32];
    snprintf(guardBits, sizeof(guardBits), "GUARD_BITS=%u", unsigned(std::min<unsigned char>(cp.m_guardBits, 7)));
    const char* options[3] = {guardBits, cp.m_tlmMarkers ? "TLM=YES" : NULL, NULL};
    if (!opj_encoder_set_extra_options(run.codec, options))
        return messages.condition(EC_CODE_J2KEncodingFailed, "JPEG 2000 encoding failed", "invalid encoder options");
    // worker threads only pay for starting when there is much to encode
    const size_t samples = size_t(run.image->x1 - run.image->x0) * (run.image->y1 - run.image->y0) * run.image->numcomps;
    run.setThreads(samples >= 256 * 256 ? cp.m_threads : 1);

    D2MemoryStream output;
    if (output.stream() == NULL)
        return EC_MemoryExhausted;
    if (!opj_start_compress(run.codec, run.image, output.stream()) || !opj_encode(run.codec, output.stream()) ||
        !opj_end_compress(run.codec, output.stream()))
        return messages.condition(EC_CODE_J2KEncodingFailed, "JPEG 2000 encoding failed", "encoder error");
    codestream = output.written();
    if (codestream.empty())
        return messages.condition(EC_CODE_J2KEncodingFailed, "JPEG 2000 encoding failed", "empty codestream");
    return EC_Normal;
}

} // namespace

D2CodestreamEncoder::D2CodestreamEncoder(const D2CodecParameter& cp, const D2RepresentationParameter& rp,
                                         bool lossless, bool colorTransform)
: m_cp(cp)
, m_rp(rp)
, m_lossless(lossless)
, m_colorTransform(colorTransform)
{
}

unsigned int D2CodestreamEncoder::precisionFor(const D2FrameInfo& frame) const
{
    const unsigned int stored = frame.storedBits;
    if (stored < 1 || stored > 8u * frame.bytesPerSample)
        return 0;
    switch (m_cp.m_bitDepthMode)
    {
    case EJ2KBD_limit:
        return stored <= m_cp.m_bitDepth ? stored : 0;
    case EJ2KBD_force:
        return (m_cp.m_bitDepth >= stored && m_cp.m_bitDepth <= 16) ? m_cp.m_bitDepth : 0;
    case EJ2KBD_original:
    default:
        return stored;
    }
}

OFCondition D2CodestreamEncoder::encode(const Uint8* data, const D2FrameInfo& frame,
                                        std::vector<Uint8>& codestream) const
{
    codestream.clear();
    const unsigned int precision = precisionFor(frame);
    if (precision == 0)
        return EC_J2KUnsupportedBitDepth;
    if ((frame.samplesPerPixel != 1 && frame.samplesPerPixel != 3) || frame.columns == 0 || frame.rows == 0)
        return EC_J2KUnsupportedImageType;
    const bool transform = m_colorTransform && frame.samplesPerPixel == 3;
    D2OpenJPEGRun run;
    run.image = createImage(data, frame, precision, transform);
    if (run.image == NULL)
        return EC_MemoryExhausted;

    opj_cparameters_t parameters;
    opj_set_default_encoder_parameters(&parameters);
    setQualityLayers(m_cp, m_rp, m_lossless, parameters);
    parameters.irreversible = (!m_lossless && m_cp.m_irreversibleLossy) ? 1 : 0;
    parameters.tcp_mct = transform ? 1 : 0;
    setCodingStructure(m_cp, frame, parameters);
    std::string comment = m_rp.getComment();
    if (!comment.empty())
        parameters.cp_comment = &comment[0];

    OFCondition result = runEncoder(m_cp, run, parameters, codestream);
    if (result.good() && m_lossless && m_cp.m_verifyLossless)
        result = verify(data, frame, codestream);
    return result;
}

OFCondition D2CodestreamEncoder::verify(const Uint8* data, const D2FrameInfo& frame,
                                        const std::vector<Uint8>& codestream) const
{
    std::vector<Uint8> decoded(frame.frameSize());
    // every layer, and nothing but the codestream this encoder writes
    D2CodecParameter full(m_cp);
    full.m_qualityLayers = 0;
    full.m_acceptJP2 = false;
    full.m_strictDecoding = true;
    D2CodestreamDecoder decoder(full);
    OFCondition result = decoder.decode(codestream.data(), codestream.size(), frame, decoded.data(), decoded.size());
    if (result.bad())
        return result;
    const bool same = frame.bytesPerSample == 1 ? sameValues<Uint8>(data, decoded.data(), frame)
                                                : sameValues<Uint16>(data, decoded.data(), frame);
    return same ? EC_Normal : EC_J2KLosslessVerificationFailed;
}
