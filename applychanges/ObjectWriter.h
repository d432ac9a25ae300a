// The third step of an object: its temporary file, with the original's access rules, holding the
// edited object as the toolkit writes it.
#ifndef APPLYCHANGES_OBJECTWRITER_H
#define APPLYCHANGES_OBJECTWRITER_H

#include "applychanges/EditedObject.h"

/** Writes an edited object to a new temporary file in the ".tmp" beside it: sequences with
 *  undefined length, group lengths recalculated, padding as it was, a new meta header, the
 *  transfer syntax it was read in. A small object is encoded in memory by the first step and
 *  written by the second in one write; a large one is written at once, its values copied piece
 *  by piece from the original's descriptor, so that memory stays small whatever its size. A save
 *  that fails (full disk, file size limit) keeps its partly written file.
 */
class ObjectWriter
{
public:
    /** Creates the temporary file with the object's access rules, then encodes the object (in
     *  memory: it stays EO_EDITED) or writes it (EO_WRITTEN). EO_FAILED after its lines. */
    static void prepare(EditedObject& object);

    /** Writes the encoded bytes of an object handled in memory (on either thread; the state is
     *  left to the caller).
     *  @return true on success; false after "Error saving to temp file ..." */
    static bool writeEncoded(EditedObject& object);
};

#endif
