// The fourth step of an object: the written object compared with the original.
#ifndef APPLYCHANGES_OBJECTVERIFIER_H
#define APPLYCHANGES_OBJECTVERIFIER_H

#include "applychanges/EditedObject.h"

/** Compares the original with the written temporary file attribute by attribute, ignoring what
 *  the edit changed (and every group length), then checks what the comparison does not cover
 *  (WrittenObjectCheck). Both are parsed as loadFile would parse the files: a small object from
 *  the very bytes read and written, a large one through the descriptors, its values read piece by
 *  piece. Differences are the comparator's lines, then "Objects differ after applying soft edit
 *  changes for <object>[<temporary file>]".
 */
class ObjectVerifier
{
public:
    /** Verifies an EO_WRITTEN object; runs on either thread.
     *  @return true when equal apart from the edit */
    static bool verify(EditedObject& object);
};

#endif
