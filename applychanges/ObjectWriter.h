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
    /** Names the temporary file, then encodes an object handled in memory (it stays EO_EDITED:
     *  writeEncoded() makes and writes its file on the writer thread), or makes the temporary
     *  file with the object's access rules and writes a large object into it at once
     *  (EO_WRITTEN). EO_FAILED after its lines. */
    static void prepare(EditedObject& object);

    /** Makes the temporary file of an object handled in memory with the object's access rules,
     *  writes the encoded bytes, starts their write-out and closes the file; runs on the writer
     *  thread and touches nothing of the object but its temporary file and the refusal it may
     *  leave in m_writeRefusal (the file then removed).
     *  @return EC_Normal, or the condition of the failed creation or write (the file then stays) */
    static OFCondition writeEncoded(EditedObject& object);

    /** Ends an object whose save failed: "Error saving to temp file <path> [<condition>]", its
     *  partly written file kept. */
    static void saveFailed(EditedObject& object, const OFCondition& cond);
};

#endif
