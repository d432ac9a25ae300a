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
    /** Commits the batch (EO_VERIFIED objects in walk order), setting each to EO_COMMITTED.
     *  @return the object that failed (EO_FAILED, with its lines), or null when all were committed */
    static EditedObject* commit(const std::vector<EditedObject*>& batch);
};

#endif
