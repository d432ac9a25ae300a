// Reading the KqR file of a run (applyChanges, previewChanges).
#ifndef APPLYCHANGES_KQRFILE_H
#define APPLYCHANGES_KQRFILE_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <sys/stat.h>

#include <ostream>

/** Loads the KqR file whole through one descriptor: a FIFO or device is refused unopened, a
 *  shape the toolkit's reader would not survive is refused before it is parsed.
 *  @param kqr receives the file, every value in memory
 *  @param status receives the status of the file read (to recognise it among the objects)
 *  @param err where the one line of a failure goes ("Error loading KqR file <path>", ...)
 *  @return true when loaded */
bool loadKqRFile(const char* path, DcmFileFormat& kqr, struct stat& status, std::ostream& err);

#endif
