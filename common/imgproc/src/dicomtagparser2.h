// The walker as the tag handlers and registry nodes see it.
#ifndef DICOMTAGPARSER2_H
#define DICOMTAGPARSER2_H

#include "dcmtk/config/osconfig.h"

class DcmItem;
class DcmObject;

/** The interface of a tag walker (CDicomTagParser2), passed to every handler and registry node
 *  during a walk. */
class IDicomTagParser2
{
public:
    /// Asks for the current element to be removed from the item (and deleted) when the walk
    /// advances; the walk goes on with the element that followed it.
    virtual void removeElement() = 0;
    /// Nothing to release here.
    virtual ~IDicomTagParser2() {}
    /// Resets the derived class's per-walk state; called at the start of every walk.
    virtual void InitPrivateData() = 0;

    /// The element being visited (not owned), null before the first step and after the last.
    virtual DcmObject* getCurrentObject() const = 0;
    /// The item being walked (not owned), null before the first walk.
    virtual DcmItem* getItem() const = 0;
    /// Position of the current element in the item, -1 before the first step.
    virtual int getIndex() const = 0;
    /// The user data passed to the walk.
    virtual void* getUserData() const = 0;
};

#endif
