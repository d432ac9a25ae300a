// Checks that refuse soft edit changes which can only damage objects, before any object is
// touched: command and file meta information elements, pixel data and the attributes describing
// it, Specific Character Set, public attributes whose VR contradicts the data dictionary, empty
// Study, Series, SOP Instance and SOP Class UIDs, private elements without their creator, a SOP
// Instance UID above instance level (it would give every object of the study or series the same
// identity) and a Series Instance UID at study level (it would merge the study's series).
#ifndef DCMUTILS_CHANGESETCHECK_H
#define DCMUTILS_CHANGESETCHECK_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcelem.h"

#include <string>

/// The level of a change set at which an attribute is set.
enum CHANGE_LEVEL
{
    /// the change item: every object of the study
    CL_STUDY,
    /// a series item: every object of one series
    CL_SERIES,
    /// an instance item: one object
    CL_INSTANCE
};

/** Why an attribute with this tag and VR may not be set by a soft edit at this level.
 *  @param key the attribute's tag
 *  @param vr the VR the attribute carries
 *  @param level where in the change set it stands
 *  @return empty when the attribute may be set; otherwise one line naming the attribute and the
 *    reason, e.g. "(7fe0,0010) PixelData: pixel data cannot be changed by a soft edit"
 */
std::string changeRefusal(const DcmTagKey& key, DcmEVR vr, CHANGE_LEVEL level);

/** Checks every attribute of a KqR file's change item, its series items and their instance items
 *  (the levels that applyModifications copies), and the VR of every public attribute nested in
 *  their sequences.
 *  @param changes the KqR dataset; not changed
 *  @param reason set to the first refusal's text when the result is false
 *  @return true when every attribute may be applied; a KqR file without changes passes
 */
bool checkChangeSet(DcmDataset& changes, std::string& reason);

/** Why a value given by hand for an attribute may not go into a change set, or empty when it
 *  may: everything changeRefusal refuses, private creator elements (the KqR file's own blocks
 *  are made by its writer), and a value that is not valid for the attribute's VR and value
 *  multiplicity (dates, times, numbers, UIDs, lengths) by the toolkit's value checks.
 *  @param key the attribute's tag
 *  @param value the value as text
 *  @param level where in the change set it is to stand
 */
std::string assignmentRefusal(const DcmTagKey& key, const char* value, CHANGE_LEVEL level);

/** The partner of a date (DA) or time (TM) attribute that forms a date/time pair with another,
 *  such as StudyDate and StudyTime: a value converted to another UTC offset needs both.
 *  @param key a date or time attribute
 *  @param partner set to the other attribute of the pair
 *  @return false when key belongs to no pair
 */
bool dateTimePartner(const DcmTagKey& key, DcmTagKey& partner);

/** True when an element's VR is one the data dictionary allows for its tag; elements of private
 *  groups, tags unknown to the dictionary and VR UN always are.
 */
bool hasDictionaryVR(const DcmTagKey& key, DcmEVR vr);

/** "(gggg,eeee) Keyword" for messages, or just the tag for a tag the dictionary does not know. */
std::string tagName(const DcmTagKey& key);

#endif
