/** @file dcmutils.h
 *  Dataset utilities shared by the archive's tools: per-VR element copies, passing elements
 *  and sequences between items, reference sequences, UID generation, whole-file reading, safe
 *  writing through a temporary file, error lines and task files.
 *
 *  Where the code lives: elementcopy.cpp (copies, passing, reference sequences), uidgen.cpp
 *  (UIDs and the module counter), safewrite.cpp (reading, safe writing through replaceFile of fileio.h),
 *  errmsg.cpp (error lines, string replacement), taskfile.cpp (task files).
 *
 *  Ownership: every pointer these functions return belongs to the caller, who deletes it as
 *  stated with each function. Elements inserted into an item belong to that item.
 */
#ifndef DCMUTILS_H
#define DCMUTILS_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <string>

/// Organisation root of the SOP instance UIDs this archive makes.
#define KQ_SOP_INSTANCE_ROOT "1.2.999.0.1.7777777.4.55.1.1.1"

/** Site id of the UIDs this process makes: 0 until the first UID, then read once from the
 *  file named by the environment variable SITEID_FILE (11111111 when unset, unreadable or
 *  outside 1..9999999).
 */
extern int siteID;

/** Counter advanced by every UID made, every file written by writeDicomFile and every task
 *  file: 1..999, wrapping to 1 (0 before the first use).
 */
extern int counter;

// --- element copies and passing ---

/** Makes a deep copy of an element by the copy constructor of its class (AE ... UT, SQ with all
 *  its items, pixel data, pixel sequences, overlay data).
 *  @param e the element to copy; may be null
 *  @return the copy, owned by the caller (delete it); null for a null element and for every
 *    representation outside that list (OB, OW, UN, UC, UR, ...), which callers treat as
 *    corrupted data
 */
DcmElement* copyElement(DcmElement* e);

/** Copies an element into an item. A sequence goes through passSequenceElement(); any other
 *  element is rebuilt with the same tag, private creator and VR and given the source's value
 *  through its string form (numeric and binary values as getString() gives them).
 *  @param e the element; nothing happens when it or item is null
 *  @param item receives the new element, which it owns
 *  @param replaceOld replace an element with the same tag; otherwise the existing one stays
 */
void copyElementToItem(DcmElement* e, DcmItem* item, bool replaceOld);

/** Appends to a sequence a new item holding copyElementToItem() of every element of src (an
 *  existing element is never replaced). Nothing happens when either is null.
 */
void copyItem(DcmItem* src, DcmSequenceOfItems* seq);

/** Inserts into an item a new sequence with the tag of seq holding copyItem() of each of its
 *  items, in order; a sequence already in the item stays. Nothing happens when either is null.
 */
void passSequenceElement(DcmSequenceOfItems* seq, DcmItem* item);

/** copyElementToItem(e, item, false) when e is given; otherwise inserts an empty element for
 *  key (an existing one stays).
 */
void passOrCreateElem(DcmElement* e, DcmTagKey key, DcmItem* item);

/** Finds the first element with the key at any depth of an item, nested sequences included.
 *  @return the element, owned by its item; null when not found or item is null
 */
DcmElement* getElement(DcmItem* item, DcmTagKey key);

/// Copies the element found by getElement(from, key), if any, into to (not replacing).
void passTag(DcmTagKey key, DcmItem* from, DcmItem* to);

/// passOrCreateElem() of the element found by getElement(from, key).
void passOrCreateTag(DcmTagKey key, DcmItem* from, DcmItem* to);

/// passSequenceElement() of the sequence found by getElement(from, key), if any.
void passSequence(DcmTagKey key, DcmItem* from, DcmItem* to);

/** Gets the string value of the element found by getElement(item, key).
 *  @param value receives a pointer into the element (not owned, valid while the element
 *    lives); left as it was when no element is found
 */
void getValue(DcmItem* item, DcmTagKey key, char*& value);

/** Moves an element from one item to another: inserted into to (replacing), and removed from
 *  from (not deleted) only when that insertion succeeded. Nothing happens when any is null.
 */
void moveElement(DcmElement* e, DcmItem* from, DcmItem* to);

/** Builds a reference sequence of one item holding Referenced SOP Class UID (0008,1150) and
 *  Referenced SOP Instance UID (0008,1155), in that order.
 *  @return the new sequence with tag seqKey, owned by the caller (delete it)
 */
DcmSequenceOfItems* createReferenceSequence(DcmTagKey seqKey, const char* sopClassUID, char* sopInstanceUID);

// --- UIDs ---

/** Makes a new UID: root, site id, local date and time (YYYYMMDDhhmmss), process id and the
 *  advanced counter, separated by dots. The counter advances even when no UID results.
 *  @param root the UID root
 *  @return the UID, allocated with new[] and owned by the caller (free it with delete[]);
 *    null when root is null or the UID would exceed 64 characters
 */
char* createSOPInstanceUID(const char* root);

/// createSOPInstanceUID(KQ_SOP_INSTANCE_ROOT); the caller frees the result with delete[].
char* createSOPInstanceUID();

// --- reading and safe writing ---

/** Loads a DICOM file whole: values longer than 4096 bytes are read after the parse.
 *  @return the file, allocated with new and owned by the caller (delete it); null when the
 *    file cannot be loaded (nothing leaked)
 */
DcmFileFormat* readExistingDicomFile(const char* path);

/** As readExistingDicomFile(), but a file that does not exist (ENOENT) gives a new, empty
 *  DcmFileFormat for a file to be created; any other failure gives null. The caller owns and
 *  deletes the result.
 */
DcmFileFormat* readOrCreateDicomFile(const char* path);

/** Writes a DICOM file safely: into "<path>.wtmp.<pid>.<counter>" beside it (transfer syntax
 *  as read, explicit VR little endian for a dataset made in memory; explicit lengths, group
 *  lengths recalculated, new meta header), synced to disk, then renamed over path.
 *  Failures print one line through errmsg() with the prefix "writeDicomFile" and remove the
 *  temporary file; the target is either untouched or wholly replaced.
 *  @param file the file to write; not changed beyond DCMTK's own write preparation
 *  @return true once the rename is done
 */
bool writeDicomFile(const char* path, DcmFileFormat* file);

// --- messages, strings and task files ---

/// Writes who, ": ", the printf-formatted text and a line end to standard error in one write.
void errmsg(const char* who, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Writes the printf-formatted text and a line end to standard error in one write.
void errmsg(const char* format, ...) __attribute__((format(printf, 1, 2)));

/** Replaces every occurrence of from by to, left to right, resuming after each inserted text
 *  (replacements are never scanned again).
 *  @return the new text; text itself when from is empty
 */
std::string replaceInOFString(const std::string& text, const std::string& from, const std::string& to);

/** Drops a task file for the archive's task daemon: content and a line end, written to
 *  "$TMP/<name>", given mode 0777 (the daemon may run as another user) and renamed into
 *  taskDirectory, so that the daemon never sees a half-written file. The name is
 *  "<prefix>.<YYYYMMDDhhmmss>_0.<pid>.<counter>.<suffix>". TMP must lie on the file system of
 *  taskDirectory.
 *  @return true when the file is in place; false (and no file left) otherwise
 *  @throw std::logic_error when the environment variable TMP is not set (a programming error)
 */
bool OBS_startTask(const std::string& content, const std::string& prefix, const std::string& suffix,
                   const std::string& taskDirectory);

#endif
