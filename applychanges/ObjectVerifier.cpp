#include "applychanges/ObjectVerifier.h"

#include "applychanges/SoftEditRun.h"
#include "applychanges/WrittenObjectCheck.h"
#include "dcmutils/DescriptorInputStream.h"
#include "objdiff/ObjDiff.h"

#include <unistd.h>

bool ObjectVerifier::verify(EditedObject& object, ObjectReport& lines)
{
    std::ostream& err = lines.err();
    std::shared_ptr<const InputFile> written = object.m_encoded;
    if (!written)
    {
        written.reset(new InputFile(dup(object.m_tempFd), object.m_writtenSize));
        object.closeTemporaryFile();
    }

    ObjectComparator comparator(object.m_ignore);
    comparator.verbose = verbose;
    comparator.setOutput(lines.out(), err);
    // The original as it was read, and the toolkit's lines of reading it, which a second read of
    // the same bytes would print again.
    DcmFileFormat& original = *object.m_read;
    lines.appendCopy(object.m_readLog);
    DcmFileFormat edited;
    const OFCondition cond = loadFileFormat(edited, written);
    if (cond.bad())
        err << "Error loading " << object.m_tempPath << "(" << cond.text() << ")" << std::endl;
    const bool equal = cond.good() &&
                       comparator.compareObjects(original.getDataset(), edited.getDataset(), OC_MODE_BINARY) &&
                       checkWrittenObject(original, edited, object.m_modified, err);
    std::string corrected;
    if (equal && verbose && !(corrected = metaHeaderInconsistency(original)).empty())
        lines.out() << "Meta header of " << object.m_path << " made consistent with its dataset: " << corrected
                    << std::endl;
    if (!equal)
        err << "Objects differ after applying soft edit changes for " << object.m_path << "[" << object.m_tempPath
            << "]" << std::endl;
    return equal;
}
