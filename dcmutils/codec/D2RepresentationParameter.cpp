#include "dcmutils/codec/D2RepresentationParameter.h"

D2RepresentationParameter::D2RepresentationParameter(double rate, unsigned int psnr, bool lossless,
                                                     const std::string& comment, bool colorTransform)
: DcmRepresentationParameter()
, m_rate(rate)
, m_psnr(psnr)
, m_lossless(lossless)
, m_comment(comment)
, m_colorTransform(colorTransform)
{
}

D2RepresentationParameter::D2RepresentationParameter(const D2RepresentationParameter& arg)
: DcmRepresentationParameter(arg)
, m_rate(arg.m_rate)
, m_psnr(arg.m_psnr)
, m_lossless(arg.m_lossless)
, m_comment(arg.m_comment)
, m_colorTransform(arg.m_colorTransform)
{
}

D2RepresentationParameter::~D2RepresentationParameter()
{
}

DcmRepresentationParameter* D2RepresentationParameter::clone() const
{
    return new D2RepresentationParameter(*this);
}

const char* D2RepresentationParameter::className() const
{
    return "D2RepresentationParameter";
}

OFBool D2RepresentationParameter::operator==(const DcmRepresentationParameter& arg) const
{
    const char* argname = arg.className();
    if (argname == NULL || OFString(argname) != className())
        return OFFalse;
    const D2RepresentationParameter& other = static_cast<const D2RepresentationParameter&>(arg);
    return m_rate == other.m_rate && m_psnr == other.m_psnr && m_lossless == other.m_lossless &&
           m_comment == other.m_comment && m_colorTransform == other.m_colorTransform;
}
