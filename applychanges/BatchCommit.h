// The last step of an object: made durable with the others of its batch, then put in place.
#ifndef APPLYCHANGES_BATCHCOMMIT_H
#define APPLYCHANGES_BATCHCOMMIT_H

#include "applychanges/EditedObject.h"

#include <vector>

/** Puts verified objects in place, keeping each object at every instant either its original or
 *  completely edited: one sync of each file system for the whole batch (one flush of the disk's
 *  cache instead of one per object), then each object's checked exchange (TemporaryDirectory::
 *  replace) in walk order, then one sync of each directory, after which the displaced originals
 *  are removed. The first object that cannot be put in place stops the batch: the ones before it
 *  stay committed, it and the later ones keep their originals.
 */
class BatchCommit
{
public:
    /** Commits the batch (EO_VERIFIED objects in walk order). Runs on either thread: it writes
     *  only the failing object's report and touches no entry's state, which the caller sets.
     *  @return the number of objects put in place: all of them, or those before the one that
     *    failed (with its lines) */
    static size_t commit(const std::vector<EditedObject*>& batch);
};

#endif
