// Dataset utilities shared by the archive's tools: per-VR element copies, passing elements and
// sequences between items, reference sequences, UID generation, whole-file reading, safe writing
// through a temporary file, error lines and task files.
#ifndef DCMUTILS_H
#define DCMUTILS_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <string>

// Organisation root of the SOP instance UIDs this archive makes.
#define KQ_SOP_INSTANCE_ROOT "1.2.999.0.1.7777777.4.55.1.1.1"

// Process-wide state of the module: the site id (0 until first needed) and the counter that
// every UID and every written file advances (1..999, wrapping to 1).
extern int siteID;
extern int counter;

DcmElement* copyElement(DcmElement* e);
void copyElementToItem(DcmElement* e, DcmItem* item, bool replaceOld);
void copyItem(DcmItem* src, DcmSequenceOfItems* seq);
void passSequenceElement(DcmSequenceOfItems* seq, DcmItem* item);
void passOrCreateElem(DcmElement* e, DcmTagKey key, DcmItem* item);
DcmElement* getElement(DcmItem* item, DcmTagKey key);
void passTag(DcmTagKey key, DcmItem* from, DcmItem* to);
void passOrCreateTag(DcmTagKey key, DcmItem* from, DcmItem* to);
void passSequence(DcmTagKey key, DcmItem* from, DcmItem* to);
void getValue(DcmItem* item, DcmTagKey key, char*& value);
void moveElement(DcmElement* e, DcmItem* from, DcmItem* to);
DcmSequenceOfItems* createReferenceSequence(DcmTagKey seqKey, const char* sopClassUID, char* sopInstanceUID);
char* createSOPInstanceUID(const char* root);
char* createSOPInstanceUID();
DcmFileFormat* readExistingDicomFile(const char* path);
DcmFileFormat* readOrCreateDicomFile(const char* path);
bool writeDicomFile(const char* path, DcmFileFormat* file);
// DcmFileFormat::saveFile with the same parameters, but the file is flushed and synced to disk
// before it is closed, so that a write that fails late (full disk, file size limit) is reported
// rather than leaving a silently truncated file; errors carry the system's error text. A partly
// written file is left in place.
OFCondition saveFileSynced(DcmFileFormat& file, const char* path, E_TransferSyntax xfer, E_EncodingType encoding,
                           E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength,
                           Uint32 subPadLength, E_FileWriteMode writeMode);
// Flushes a directory to stable storage so that renames in it survive a power loss; true on
// success and where the file system cannot sync directories.
bool syncDirectory(const char* path);
void errmsg(const char* who, const char* format, ...) __attribute__((format(printf, 2, 3)));
void errmsg(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string replaceInOFString(const std::string& text, const std::string& from, const std::string& to);
bool OBS_startTask(const std::string& content, const std::string& prefix, const std::string& suffix,
                   const std::string& taskDirectory);

#endif
