// The driver's own checks of a written object, beyond the attribute comparison: they cover what
// writing could break and the comparison does not look at.
#ifndef APPLYCHANGES_WRITTENOBJECTCHECK_H
#define APPLYCHANGES_WRITTENOBJECTCHECK_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <list>
#include <ostream>

/** Checks the written object against the original:
 *  - its meta header keeps the original's Media Storage SOP Class UID, Media Storage SOP Instance
 *    UID and Transfer Syntax UID, except that a Media Storage UID follows an edited SOP Class or
 *    SOP Instance UID;
 *  - encapsulated pixel data has the same fragments, byte for byte (read piece by piece from the
 *    files, so that memory stays bounded).
 *  Each difference is printed on err as one line starting with "! ".
 *  @param original the original object as loaded for the comparison (values may stay in its file)
 *  @param written the written object as loaded for the comparison
 *  @param modified the keys the edit set
 *  @return true when nothing differs
 */
bool checkWrittenObject(DcmFileFormat& original, DcmFileFormat& written, const std::list<DcmTagKey>& modified,
                        std::ostream& err);

#endif
