// The tag walker: visits the elements of one DICOM item in order and calls the registry's
// handlers for them.
#ifndef DICOMPARSER_H
#define DICOMPARSER_H

#include "common/imgproc/src/dicomtagparser2.h"

class IDicomTagParserData;
class SDicomTagGroupList;
class SDicomTagParserGroupData;

/** Walks the top-level elements of an item in ascending tag order and dispatches each one to
 *  the handler registered for it in an SDicomTagGroupList. A handler (or the preprocess
 *  function) may ask for the current element to be removed. The walker reads the registry and
 *  never changes it. Abstract: the derived class resets its per-walk state in InitPrivateData(). */
class CDicomTagParser2 : public IDicomTagParser2
{
public:
    /// A walker that has not walked yet.
    CDicomTagParser2();
    /// Nothing owned but the cursors of a walk, which end with it.
    ~CDicomTagParser2() override;

    /// The current element is removed from the item (and deleted) when the walk advances.
    void removeElement() override;

    /** One walk over item's top-level elements. For each element preprocess is called first
     *  (false: the element is not dispatched), then the handler registered in list for it.
     *  userData is passed through to getUserData(). item and list are borrowed. */
    void parseTags(DcmItem* item, void* userData, SDicomTagGroupList* list,
                   bool (*preprocess)(IDicomTagParser2*) = NoPreprocessFunction);
    /// The default preprocess: true (every element is dispatched).
    static bool NoPreprocessFunction(IDicomTagParser2* parser);

    /// The element being visited, null before the first step and after the last.
    DcmObject* getCurrentObject() const override { return m_current; }
    /// The item of the last walk.
    DcmItem* getItem() const override { return m_item; }
    /// Position of the current element in the item, -1 before the first step.
    int getIndex() const override { return m_index; }
    /// The user data of the walk.
    void* getUserData() const override { return m_userData; }

protected:
    /// Set by removeElement(), cleared when the removal is done.
    bool m_removeRequested;
    /// The element being visited (owned by m_item).
    DcmObject* m_current;
    /// The user data of the walk.
    void* m_userData;
    /// The item being walked (borrowed).
    DcmItem* m_item;
    /// Position of m_current in m_item, -1 before the first step.
    int m_index;
    /// The preprocess function of the walk.
    bool (*m_preprocess)(IDicomTagParser2*);
    /// Head of the registry's group list, copied at the start of a walk.
    SDicomTagParserGroupData* m_groups;

private:
    /// Moves to the next element (after a requested removal: the element that followed the
    /// removed one); false at the end.
    bool step();

    CDicomTagParser2(const CDicomTagParser2&);
    CDicomTagParser2& operator=(const CDicomTagParser2&);
};

#endif
