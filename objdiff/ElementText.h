// The value of an element as text, in the form the DICOM toolkit prints it.
#ifndef ELEMENTTEXT_H
#define ELEMENTTEXT_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcelem.h"

// Returns a malloc'ed string (free it with free()): all values backslash separated, a readable
// form for sequences, and "Empty Value" for an element without value.
char* toString(DcmElement* element);

#endif
