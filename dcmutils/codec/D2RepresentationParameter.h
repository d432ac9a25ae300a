// Representation parameter of the JPEG 2000 transfer syntaxes: how one object is encoded.
#ifndef D2REPRESENTATIONPARAMETER_H
#define D2REPRESENTATIONPARAMETER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcpixel.h"

#include <string>

class D2RepresentationParameter : public DcmRepresentationParameter
{
public:
    // rate: the fraction of the uncompressed size (of the stored bits) the codestream may take,
    //   in (0, 1]; 1.0 and lossless both give reversible, lossless coding.
    // psnr: when not 0 and lossy, a peak signal-to-noise ratio in dB to reach instead of a rate.
    // lossless: lossless coding, whatever the rate (always so for the lossless-only syntax).
    // comment: text of the codestream's comment marker; empty gives the library's own.
    // colorTransform: RGB images may use the multiple-component transform (YBR_RCT or
    //   YBR_ICT), where the encoder's registration allows it.
    D2RepresentationParameter(double rate = 1.0, unsigned int psnr = 0, bool lossless = true,
                              const std::string& comment = std::string(), bool colorTransform = true);

    D2RepresentationParameter(const D2RepresentationParameter& arg);

    ~D2RepresentationParameter() override;

    DcmRepresentationParameter* clone() const override;
    const char* className() const override;
    OFBool operator==(const DcmRepresentationParameter& arg) const override;

    double getRate() const { return m_rate; }
    unsigned int getPSNR() const { return m_psnr; }
    // true when the coding is lossless: asked for, or a rate of 1.0 or more
    bool useLosslessProcess() const { return m_lossless || m_rate >= 1.0; }
    const std::string& getComment() const { return m_comment; }
    bool getColorTransform() const { return m_colorTransform; }

private:
    D2RepresentationParameter& operator=(const D2RepresentationParameter&);

    double m_rate;
    unsigned int m_psnr;
    bool m_lossless;
    std::string m_comment;
    bool m_colorTransform;
};

#endif
