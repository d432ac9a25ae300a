// Which entries of a study directory are objects to edit, which are passed over and which are
// refused: every rule of the run in one place, for the run and for its preview.
#ifndef APPLYCHANGES_OBJECTRULES_H
#define APPLYCHANGES_OBJECTRULES_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <sys/stat.h>

#include <string>

/** What becomes of an entry or an object. */
struct ObjectDecision
{
    /// the three outcomes
    enum VERDICT
    {
        /// go on with it
        OD_EDIT,
        /// pass over it (a directory run); line: its "Skipping ..." line, printed with -v
        OD_SKIP,
        /// it may not be edited; line: the reason, printed after "Refusing to edit <object>: "
        OD_REFUSE
    };
    VERDICT verdict = OD_EDIT;
    std::string line;
};

/** The rules, applied in this order:
 *  1. by name and directory entry type (a directory run): names starting with "." are skipped,
 *     then directories, then names starting with "KqR.";
 *  2. by the status of the file an entry leads to, before it is opened (following links): a link
 *     to a directory is skipped in a directory run; a FIFO, device or socket is skipped in a
 *     directory run and refused when named alone (opening or reading it could block or never
 *     end); the run's own KqR file is skipped in a directory run;
 *  3. by the content: a DICOMDIR is skipped in a directory run and refused when named alone;
 *  4. by the status of the descriptor the object was read through: the run's own KqR file, a
 *     file with more than one hard link, a file without write permission are refused.
 */
class ObjectRules
{
public:
    /** @param kqr the status of the run's KqR file, to recognise it under any name */
    explicit ObjectRules(const struct stat& kqr);

    /** Rule 1 for a directory entry (type: the entry's d_type). */
    ObjectDecision byEntry(const std::string& name, unsigned char type) const;

    /** Rule 2 for the file behind an entry or a named object.
     *  @param status its status, links followed
     *  @param throughLink true when the entry itself is a symbolic link
     *  @param inDirectory true in a directory run */
    ObjectDecision byStatus(const std::string& name, const struct stat& status, bool throughLink,
                            bool inDirectory) const;

    /** Rule 3 for a loaded object. */
    ObjectDecision byContent(const std::string& name, DcmFileFormat& file, bool inDirectory) const;

    /** Rule 4 for the opened object.
     *  @param fd the descriptor it was read through, status its fstat
     *  @return the reason, or empty when it may be edited */
    std::string refusal(int fd, const struct stat& status) const;

    /** True when status is the run's KqR file. */
    bool isKqRFile(const struct stat& status) const;

private:
    struct stat m_kqr;
};

/** "a FIFO", "a character device", ...: what a file that is not a regular file is. */
std::string fileKind(const struct stat& status);

#endif
