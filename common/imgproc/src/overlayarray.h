// The 16 overlay slots of an image process.
#ifndef OVERLAYARRAY_H
#define OVERLAYARRAY_H

class COverlay;

/** Sixteen slots of owned overlays (null = free) and the walk's current-overlay record: the
 *  slot of the overlay group being walked and that group's number. */
class COverlayArray
{
public:
    /// Number of slots.
    static const int SLOTS = 16;

    /// All slots free, no current overlay.
    COverlayArray();
    /// Deletes every overlay.
    ~COverlayArray();

    /** Puts a new overlay, named after its slot ("%d"), into the first free slot and returns
     *  the slot; -1 when all slots are taken. */
    int createNewOverlay();
    /** Writes every present overlay to "<prefix>_<name>.ovl" (paths cut at 255 characters);
     *  returns the sum of the COverlay::writeToFile results (0 = all written). */
    unsigned int writeOverlays(const char* prefix) const;
    /// Deletes every overlay and forgets the current one.
    void clear();
    /// The overlay of a slot, null when the slot is free or out of range.
    COverlay* get(int slot) const;
    /// True when no slot holds an overlay.
    bool empty() const;

    /// The overlays (owned).
    COverlay* m_slots[SLOTS];
    /// Slot of the current overlay, -1 for none.
    int m_currentIndex;
    /// Group of the current overlay (0 before the first).
    unsigned short m_currentGroup;

private:
    COverlayArray(const COverlayArray&);
    COverlayArray& operator=(const COverlayArray&);
};

#endif
