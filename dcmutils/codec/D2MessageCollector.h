// Collects what OpenJPEG reports while one codestream is coded: errors are kept for the
// condition text, warnings go to the debug log. Internal to the codec (needs openjpeg.h).
#ifndef D2MESSAGECOLLECTOR_H
#define D2MESSAGECOLLECTOR_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"
#include "dcmtk/ofstd/ofstring.h"

#include <openjpeg.h>

class D2MessageCollector
{
public:
    D2MessageCollector() : m_errors() {}

    // Routes the codec's error and warning messages here for as long as the codec lives.
    void attach(opj_codec_t* codec);

    // The errors of the run joined by "; ", or fallback when there was none.
    OFString text(const char* fallback) const;

    // An error condition "<what>: <messages>" of the given code (module OFM_dcmjp2k).
    OFCondition condition(unsigned short code, const char* what, const char* fallback) const;

private:
    static void error(const char* message, void* self);
    static void warning(const char* message, void* self);

    OFString m_errors;
};

#endif
