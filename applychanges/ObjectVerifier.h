// The fourth step of an object: the written object compared with the original.
#ifndef APPLYCHANGES_OBJECTVERIFIER_H
#define APPLYCHANGES_OBJECTVERIFIER_H

#include "applychanges/EditedObject.h"

/** Compares the original with the written temporary file attribute by attribute, ignoring what
 *  the edit changed (and every group length), then checks what the comparison does not cover
 *  (WrittenObjectCheck). The original is the copy the loader kept of the object as read (with the
 *  toolkit's lines of reading it, as a second read would print them); the written file is parsed
 *  as loadFile would parse it: from the very bytes written for a small object, through its
 *  descriptor for a large one, whose values are then read piece by piece. Differences are the comparator's lines, then "Objects differ after applying soft edit
 *  changes for <object>[<temporary file>]".
 */
class ObjectVerifier
{
public:
    /** Verifies a written object; runs on the verifier thread and touches nothing of the object
     *  but its temporary file's descriptor when the object was written as it was read.
     *  @param lines where the comparison's lines go
     *  @return true when equal apart from the edit */
    static bool verify(EditedObject& object, ObjectReport& lines);
};

#endif
