#include "dcmutils/codec/D2MessageCollector.h"
#include "dcmutils/codec/D2JPEG2000Util.h"

#include "dcmtk/dcmdata/dcerror.h"

void D2MessageCollector::attach(opj_codec_t* codec)
{
    opj_set_error_handler(codec, error, this);
    opj_set_warning_handler(codec, warning, this);
    opj_set_info_handler(codec, NULL, NULL);
}

// OpenJPEG messages end in a line feed.
static OFString trimmed(const char* message)
{
    OFString text = message ? message : "";
    while (!text.empty() && (text[text.size() - 1] == '\n' || text[text.size() - 1] == ' '))
        text.erase(text.size() - 1);
    return text;
}

void D2MessageCollector::error(const char* message, void* self)
{
    D2MessageCollector* collector = static_cast<D2MessageCollector*>(self);
    const OFString text = trimmed(message);
    // a damaged codestream can repeat one complaint many times; keep the line short
    if (text.empty() || collector->m_errors.find(text) != OFString_npos || collector->m_errors.size() > 400)
        return;
    if (!collector->m_errors.empty())
        collector->m_errors += "; ";
    collector->m_errors += text;
}

void D2MessageCollector::warning(const char* message, void*)
{
    D2J_DEBUG("OpenJPEG: " << trimmed(message));
}

OFString D2MessageCollector::text(const char* fallback) const
{
    return m_errors.empty() ? OFString(fallback) : m_errors;
}

OFCondition D2MessageCollector::condition(unsigned short code, const char* what, const char* fallback) const
{
    OFString message = what;
    message += ": ";
    message += text(fallback);
    return makeOFCondition(OFM_dcmjp2k, code, OF_error, message.c_str());
}
