// The first step of an object: from its name to the object in memory, through the rules.
#ifndef APPLYCHANGES_OBJECTLOADER_H
#define APPLYCHANGES_OBJECTLOADER_H

#include "applychanges/EditedObject.h"
#include "applychanges/ObjectDirectories.h"
#include "applychanges/ObjectRules.h"

/** Opens an object without ever blocking (a FIFO or device is decided on before it is opened),
 *  follows a link to the file it names, reads the file through one descriptor (never beyond its
 *  size when opened; whole, when it is small enough to be handled in memory) and parses it as the
 *  toolkit's loadFile would, so that every error is the one loadFile gives. Refusals and the
 *  status kept for the replacement come from the descriptor, not from the name.
 */
class ObjectLoader
{
public:
    /** Objects up to this size are read whole and handled in memory. */
    static const unsigned long long IN_MEMORY_LIMIT = 16ull << 20;

    /** Borrows the rules and the directories; with temporaries false (a preview) no ".tmp" is
     *  made or locked. */
    ObjectLoader(const ObjectRules& rules, ObjectDirectories& directories, bool temporaries);

    /** Loads the entry object.m_entryName of directory (a directory run) or the object named
     *  alone (directory: the one its path names). On return the object is EO_LOADED (its file,
     *  identity and temporary directory set), EO_SKIPPED or EO_FAILED, with its lines. */
    void load(EditedObject& object, ObjectDirectory& directory, bool inDirectory);

private:
    const ObjectRules& m_rules;
    ObjectDirectories& m_directories;
    bool m_temporaries;
};

#endif
