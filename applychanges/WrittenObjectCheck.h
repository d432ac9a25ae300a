// The driver's own checks of a written object, beyond the attribute comparison: they cover what
// writing could break and the comparison does not look at.
#ifndef APPLYCHANGES_WRITTENOBJECTCHECK_H
#define APPLYCHANGES_WRITTENOBJECTCHECK_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <list>
#include <ostream>
#include <string>

/** Checks the written object against the original:
 *  - its meta header names the edited dataset: Media Storage SOP Class UID and Media Storage SOP
 *    Instance UID equal the dataset's SOP Class and SOP Instance UID (the original's, or the
 *    edit's where the edit set them), and Transfer Syntax UID is the syntax the original was
 *    read in (a new meta header is made from the dataset, so one that named another instance is
 *    made consistent);
 *  - encapsulated pixel data has the same fragments, byte for byte (read piece by piece from the
 *    files, so that memory stays bounded).
 *  Each difference is printed on err as one line starting with "! ".
 *  @param original the original object as loaded for the comparison (values may stay in its file)
 *  @param written the written object as loaded for the comparison
 *  @param modified the keys the edit set
 *  @return true when nothing differs
 */
bool checkWrittenObject(DcmFileFormat& original, DcmFileFormat& written, const std::list<DcmTagKey>& modified,
                        std::ostream& err);

/** Where an object's meta header names another SOP class or instance than its dataset, which its
 *  new meta header corrects: "(0002,0003) MediaStorageSOPInstanceUID <meta> -> <dataset>" for
 *  each such element, comma-separated; empty when the two agree.
 */
std::string metaHeaderInconsistency(DcmFileFormat& original);

#endif
