// The directories a run reaches objects in, each opened once, with its ".tmp" directory.
#ifndef APPLYCHANGES_OBJECTDIRECTORIES_H
#define APPLYCHANGES_OBJECTDIRECTORIES_H

#include "applychanges/ObjectDirectory.h"
#include "applychanges/TemporaryDirectory.h"

#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>

/** Opens each directory once (the study directory, and the directories that links lead to),
 *  known by its real path, and, when asked, its locked ".tmp", whose leftovers of ended runs are
 *  removed when it is first opened. Owns both.
 */
class ObjectDirectories
{
public:
    /** @param verbose print a line for each leftover removed */
    explicit ObjectDirectories(bool verbose);

    /** The opened directory at path, or null with errno set. */
    ObjectDirectory* directory(const std::string& path);

    /** The ".tmp" of an opened directory, opened and locked on first use.
     *  @param out where the lines of removed leftovers go
     *  @param err where the one-line error goes
     *  @return null after that error */
    TemporaryDirectory* temporaryDirectory(ObjectDirectory& directory, std::ostream& out, std::ostream& err);

    /** Every ".tmp" opened so far. */
    const std::set<TemporaryDirectory*>& temporaryDirectories() const { return m_opened; }

private:
    bool m_verbose;
    std::map<std::string, std::unique_ptr<ObjectDirectory>> m_byRealPath;
    std::map<std::string, ObjectDirectory*> m_byName;
    std::map<ObjectDirectory*, std::unique_ptr<TemporaryDirectory>> m_temporary;
    std::set<TemporaryDirectory*> m_opened;
};

#endif
