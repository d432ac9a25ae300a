// Process-wide set-up of the JPEG 2000 library (OpenJPEG) used by the JPEG 2000 codecs.
#ifndef D2JPEG2000LIBRARY_H
#define D2JPEG2000LIBRARY_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"
#include "dcmtk/ofstd/ofstring.h"

class D2JPEG2000Library
{
public:
    // Checks that the OpenJPEG library linked at run time can serve the codecs (version 2.5
    // or later); the codecs refuse to work until this succeeded. Later calls do nothing.
    static OFCondition initialize();

    // Ends the library's use; codecs still registered fail from now on.
    static void cleanup();

    static bool isInitialized();

    // "OpenJPEG, Version x.y.z"
    static OFString getLibraryVersionString();

private:
    static bool m_initialized;
};

#endif
