#include "dcmutils/codec/D2JPEG2000Library.h"
#include "dcmutils/codec/D2JPEG2000Util.h"

#include "dcmtk/dcmdata/dcerror.h"

#include <openjpeg.h>

#include <cstdio>

bool D2JPEG2000Library::m_initialized = false;

OFCondition D2JPEG2000Library::initialize()
{
    if (m_initialized)
        return EC_Normal;
    // strict decoding, which turns truncated codestreams into errors, came with 2.5
    int major = 0;
    int minor = 0;
    const char* version = opj_version();
    if (version == NULL || sscanf(version, "%d.%d", &major, &minor) != 2 || major != 2 || minor < 5)
    {
        OFString text = "JPEG 2000 library not usable: OpenJPEG ";
        text += version ? version : "(unknown version)";
        text += ", 2.5 or later needed";
        D2J_ERROR(text);
        return makeOFCondition(OFM_dcmjp2k, 8, OF_error, text.c_str());
    }
    m_initialized = true;
    D2J_DEBUG("JPEG 2000 library initialized: " << getLibraryVersionString());
    return EC_Normal;
}

void D2JPEG2000Library::cleanup()
{
    m_initialized = false;
}

bool D2JPEG2000Library::isInitialized()
{
    return m_initialized;
}

OFString D2JPEG2000Library::getLibraryVersionString()
{
    OFString text = "OpenJPEG, Version ";
    text += opj_version();
    return text;
}
