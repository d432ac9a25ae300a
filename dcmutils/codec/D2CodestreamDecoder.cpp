#include "dcmutils/codec/D2CodestreamDecoder.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2JPEG2000Util.h"
#include "dcmutils/codec/D2MessageCollector.h"
#include "dcmutils/codec/D2OpenJPEGRun.h"
#include "dcmutils/codec/D2MemoryStream.h"

#include "dcmtk/dcmdata/dcerror.h"

#include <openjpeg.h>

#include <cstring>

namespace {

template <typename T>
void storeSamples(const opj_image_t* image, const D2FrameInfo& frame, Uint8* buffer)
{
    T* out = reinterpret_cast<T*>(buffer);
    const size_t pixels = frame.pixels();
    const size_t samples = frame.samplesPerPixel;
    for (size_t c = 0; c < samples; ++c)
    {
        const OPJ_INT32* in = image->comps[c].data;
        if (samples == 1 || frame.planarConfiguration == 1)
        {
            T* plane = out + c * pixels;
            for (size_t i = 0; i < pixels; ++i)
                plane[i] = T(in[i]);
        }
        else
        {
            T* sample = out + c;
            for (size_t i = 0; i < pixels; ++i, sample += samples)
                *sample = T(in[i]);
        }
    }
}

OFCondition mismatch(const char* what)
{
    OFString text = "Image data mismatch between DICOM header and JPEG 2000 codestream: ";
    text += what;
    return makeOFCondition(OFM_dcmjp2k, EC_J2KImageDataMismatch.theCode, OF_error, text.c_str());
}

} // namespace

D2CodestreamDecoder::D2CodestreamDecoder(const D2CodecParameter& cp)
: m_cp(cp)
, m_colorTransform(false)
, m_irreversible(false)
, m_precision(0)
, m_signed(false)
{
}

bool D2CodestreamDecoder::isJ2KCodestream(const Uint8* data, size_t length)
{
    return length >= 4 && data[0] == 0xFF && data[1] == 0x4F && data[2] == 0xFF && data[3] == 0x51;
}

bool D2CodestreamDecoder::isJP2File(const Uint8* data, size_t length)
{
    static const Uint8 signature[8] = {0x00, 0x00, 0x00, 0x0C, 0x6A, 0x50, 0x20, 0x20};
    return length >= 8 && memcmp(data, signature, 8) == 0;
}

OFCondition D2CodestreamDecoder::decode(const Uint8* data, size_t length, const D2FrameInfo& frame,
                                        Uint8* buffer, size_t bufSize)
{
    m_colorTransform = false;
    m_irreversible = false;
    m_precision = 0;
    m_signed = false;
    if (buffer == NULL || bufSize < frame.frameSize())
        return EC_J2KUncompressedBufferTooSmall;

    OPJ_CODEC_FORMAT format = OPJ_CODEC_UNKNOWN;
    if (isJ2KCodestream(data, length))
        format = OPJ_CODEC_J2K;
    else if (isJP2File(data, length))
    {
        if (!m_cp.m_acceptJP2)
            return makeOFCondition(OFM_dcmjp2k, EC_CODE_J2KDecodingFailed, OF_error,
                                   "JPEG 2000 decoding failed: codestream wrapped in a JP2 file header");
        D2J_WARN("JPEG 2000 codestream is wrapped in a JP2 file header, which DICOM does not allow");
        format = OPJ_CODEC_JP2;
    }
    else
        return makeOFCondition(OFM_dcmjp2k, EC_CODE_J2KDecodingFailed, OF_error,
                               "JPEG 2000 decoding failed: no JPEG 2000 codestream at start of frame");

    D2MemoryStream input(data, length);
    D2OpenJPEGRun run;
    D2MessageCollector messages;
    run.codec = opj_create_decompress(format);
    if (input.stream() == NULL || run.codec == NULL)
        return EC_MemoryExhausted;
    messages.attach(run.codec);

    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    parameters.cp_layer = m_cp.m_qualityLayers;
    if (!opj_setup_decoder(run.codec, &parameters) ||
        !opj_decoder_set_strict_mode(run.codec, m_cp.m_strictDecoding ? OPJ_TRUE : OPJ_FALSE))
        return messages.condition(EC_CODE_J2KDecodingFailed, "JPEG 2000 decoding failed", "cannot set up decoder");
    // worker threads only pay for starting when there is much to decode
    run.setThreads(length >= 32768 ? m_cp.m_threads : 1);

    if (!opj_read_header(input.stream(), run.codec, &run.image) || run.image == NULL)
        return messages.condition(EC_CODE_J2KDecodingFailed, "JPEG 2000 decoding failed", "cannot read codestream header");

    // check the geometry before the library allocates for the whole image
    const opj_image_t* image = run.image;
    if (image->numcomps != frame.samplesPerPixel)
        return mismatch("number of components");
    for (OPJ_UINT32 c = 0; c < image->numcomps; ++c)
    {
        const opj_image_comp_t& comp = image->comps[c];
        if (comp.dx != 1 || comp.dy != 1)
            return makeOFCondition(OFM_dcmjp2k, EC_J2KUnsupportedImageType.theCode, OF_error,
                                   "Unsupported type of image for JPEG 2000 decompression: subsampled components");
        if (comp.w != frame.columns || comp.h != frame.rows)
            return mismatch("image size");
        if (comp.prec < 1 || comp.prec > 8u * frame.bytesPerSample)
            return mismatch("sample precision exceeds Bits Allocated");
    }

    if (!opj_decode(run.codec, input.stream(), run.image) || !opj_end_decompress(run.codec, input.stream()))
        return messages.condition(EC_CODE_J2KDecodingFailed, "JPEG 2000 decoding failed", "damaged codestream");

    // a JP2 palette can change the components while decoding
    if (image->numcomps != frame.samplesPerPixel)
        return mismatch("number of components");
    for (OPJ_UINT32 c = 0; c < image->numcomps; ++c)
    {
        const opj_image_comp_t& comp = image->comps[c];
        if (comp.data == NULL || comp.w != frame.columns || comp.h != frame.rows)
            return messages.condition(EC_CODE_J2KDecodingFailed, "JPEG 2000 decoding failed", "incomplete image");
        if (comp.prec < 1 || comp.prec > 8u * frame.bytesPerSample)
            return mismatch("sample precision exceeds Bits Allocated");
    }

    m_precision = image->comps[0].prec;
    m_signed = image->comps[0].sgnd != 0;
    opj_codestream_info_v2_t* info = opj_get_cstr_info(run.codec);
    if (info)
    {
        m_colorTransform = info->m_default_tile_info.mct != 0;
        m_irreversible = info->m_default_tile_info.tccp_info && info->m_default_tile_info.tccp_info[0].qmfbid == 0;
        opj_destroy_cstr_info(&info);
    }

    if (frame.bytesPerSample == 1)
        storeSamples<Uint8>(image, frame, buffer);
    else
        storeSamples<Uint16>(image, frame, buffer);
    return EC_Normal;
}
