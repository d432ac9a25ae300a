#include "dcmutils/codec/D2RepresentationParameter.h"

D2RepresentationParameter::D2RepresentationParameter(double rate, unsigned int psnr, bool lossless,
                                                     const std::string& comment, bool colorTransform)
: DcmRepresentationParameter()
, rate_(rate)
, psnr_(psnr)
, lossless_(lossless)
, comment_(comment)
, colorTransform_(colorTransform)
{
}

D2RepresentationParameter::D2RepresentationParameter(const D2RepresentationParameter& arg)
: DcmRepresentationParameter(arg)
, rate_(arg.rate_)
, psnr_(arg.psnr_)
, lossless_(arg.lossless_)
, comment_(arg.comment_)
, colorTransform_(arg.colorTransform_)
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
    return rate_ == other.rate_ && psnr_ == other.psnr_ && lossless_ == other.lossless_ &&
           comment_ == other.comment_ && colorTransform_ == other.colorTransform_;
}
