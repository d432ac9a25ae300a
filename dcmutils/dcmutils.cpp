// Dataset utilities shared by the archive's tools.
#include "dcmutils/dcmutils.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcostrmf.h"
#include "dcmtk/dcmdata/dcwcache.h"
#include "dcmtk/dcmdata/dcovlay.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcstack.h"
#include "dcmtk/dcmdata/dcvrae.h"
#include "dcmtk/dcmdata/dcvras.h"
#include "dcmtk/dcmdata/dcvrat.h"
#include "dcmtk/dcmdata/dcvrcs.h"
#include "dcmtk/dcmdata/dcvrda.h"
#include "dcmtk/dcmdata/dcvrds.h"
#include "dcmtk/dcmdata/dcvrdt.h"
#include "dcmtk/dcmdata/dcvrfd.h"
#include "dcmtk/dcmdata/dcvrfl.h"
#include "dcmtk/dcmdata/dcvris.h"
#include "dcmtk/dcmdata/dcvrlo.h"
#include "dcmtk/dcmdata/dcvrlt.h"
#include "dcmtk/dcmdata/dcvrpn.h"
#include "dcmtk/dcmdata/dcvrpobw.h"
#include "dcmtk/dcmdata/dcvrsh.h"
#include "dcmtk/dcmdata/dcvrsl.h"
#include "dcmtk/dcmdata/dcvrss.h"
#include "dcmtk/dcmdata/dcvrst.h"
#include "dcmtk/dcmdata/dcvrtm.h"
#include "dcmtk/dcmdata/dcvrui.h"
#include "dcmtk/dcmdata/dcvrul.h"
#include "dcmtk/dcmdata/dcvrus.h"
#include "dcmtk/dcmdata/dcvrut.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <libgen.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

int siteID = 0;
int counter = 0;

namespace {

// Site id used when no valid one is configured.
const int DEFAULT_SITE_ID = 11111111;
// Longest UID DICOM allows.
const size_t MAX_UID_LENGTH = 64;

// Advances the module counter through 1..999, wrapping to 1.
int nextCounter()
{
    counter = (counter >= 1 && counter < 999) ? counter + 1 : 1;
    return counter;
}

// Reads the site id once per process from the file named by SITEID_FILE.
int establishSiteID()
{
    if (siteID != 0)
        return siteID;
    int value = DEFAULT_SITE_ID;
    const char* name = getenv("SITEID_FILE");
    if (name != NULL)
    {
        FILE* f = fopen(name, "rb");
        if (f != NULL)
        {
            if (fscanf(f, "%d", &value) != 1)
                value = -1;
            fclose(f);
            if (value < 1 || value > 9999999)
                value = DEFAULT_SITE_ID;
        }
    }
    siteID = value;
    return siteID;
}

// printf-style formatting into a string.
std::string vformat(const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(NULL, 0, format, copy);
    va_end(copy);
    if (n <= 0)
        return std::string();
    std::vector<char> buffer(OFstatic_cast(size_t, n) + 1);
    vsnprintf(buffer.data(), buffer.size(), format, args);
    return std::string(buffer.data(), OFstatic_cast(size_t, n));
}

// Writes one line to standard error in a single call.
void writeLine(const std::string& line)
{
    std::string text = line + "\n";
    fputs(text.c_str(), stderr);
    fflush(stderr);
}

// Flushes a file's content to stable storage; false with errno set on failure.
bool syncPath(const char* path, int flags)
{
    int fd = open(path, flags);
    if (fd < 0)
        return false;
    int rc = fsync(fd);
    int saved = errno;
    close(fd);
    errno = saved;
    return rc == 0;
}

} // namespace

bool syncDirectory(const char* path)
{
    if (path == NULL)
        return false;
    if (syncPath(path, O_RDONLY | O_DIRECTORY))
        return true;
    // Some file systems cannot sync directories; nothing more can be done there.
    return errno == EINVAL || errno == EROFS;
}

DcmElement* copyElement(DcmElement* e)
{
    if (e == NULL)
        return NULL;
    switch (e->ident())
    {
    case EVR_AE: return new DcmApplicationEntity(*OFstatic_cast(DcmApplicationEntity*, e));
    case EVR_AS: return new DcmAgeString(*OFstatic_cast(DcmAgeString*, e));
    case EVR_AT: return new DcmAttributeTag(*OFstatic_cast(DcmAttributeTag*, e));
    case EVR_CS: return new DcmCodeString(*OFstatic_cast(DcmCodeString*, e));
    case EVR_DA: return new DcmDate(*OFstatic_cast(DcmDate*, e));
    case EVR_DS: return new DcmDecimalString(*OFstatic_cast(DcmDecimalString*, e));
    case EVR_DT: return new DcmDateTime(*OFstatic_cast(DcmDateTime*, e));
    case EVR_FL: return new DcmFloatingPointSingle(*OFstatic_cast(DcmFloatingPointSingle*, e));
    case EVR_FD: return new DcmFloatingPointDouble(*OFstatic_cast(DcmFloatingPointDouble*, e));
    case EVR_IS: return new DcmIntegerString(*OFstatic_cast(DcmIntegerString*, e));
    case EVR_LO: return new DcmLongString(*OFstatic_cast(DcmLongString*, e));
    case EVR_LT: return new DcmLongText(*OFstatic_cast(DcmLongText*, e));
    case EVR_PN: return new DcmPersonName(*OFstatic_cast(DcmPersonName*, e));
    case EVR_SH: return new DcmShortString(*OFstatic_cast(DcmShortString*, e));
    case EVR_SL: return new DcmSignedLong(*OFstatic_cast(DcmSignedLong*, e));
    case EVR_SQ: return new DcmSequenceOfItems(*OFstatic_cast(DcmSequenceOfItems*, e));
    case EVR_SS: return new DcmSignedShort(*OFstatic_cast(DcmSignedShort*, e));
    case EVR_ST: return new DcmShortText(*OFstatic_cast(DcmShortText*, e));
    case EVR_TM: return new DcmTime(*OFstatic_cast(DcmTime*, e));
    case EVR_UI: return new DcmUniqueIdentifier(*OFstatic_cast(DcmUniqueIdentifier*, e));
    case EVR_UL: return new DcmUnsignedLong(*OFstatic_cast(DcmUnsignedLong*, e));
    case EVR_US: return new DcmUnsignedShort(*OFstatic_cast(DcmUnsignedShort*, e));
    case EVR_UT: return new DcmUnlimitedText(*OFstatic_cast(DcmUnlimitedText*, e));
    case EVR_pixelSQ: return new DcmPixelSequence(*OFstatic_cast(DcmPixelSequence*, e));
    case EVR_PixelData: return new DcmPixelData(*OFstatic_cast(DcmPixelData*, e));
    case EVR_OverlayData:
        // The OB/OW value is copied by the polymorphic base; the copy keeps the overlay class.
        return new DcmOverlayData(*OFstatic_cast(DcmOverlayData*, e));
    default:
        // OB, OD, OF, OL, OV, OW, SV, UC, UR, UV, UN and internal representations: the
        // caller treats these as corrupted data.
        return NULL;
    }
}

void copyElementToItem(DcmElement* e, DcmItem* item, bool replaceOld)
{
    if (e == NULL || item == NULL)
        return;
    if (e->ident() == EVR_SQ)
    {
        passSequenceElement(OFstatic_cast(DcmSequenceOfItems*, e), item);
        return;
    }
    // The tag carries the private creator and the VR the element was read or made with, so
    // private elements unknown to the dictionary keep their representation.
    DcmElement* copy = NULL;
    if (DcmItem::newDicomElementWithVR(copy, e->getTag()).bad() || copy == NULL)
        return;
    char* value = NULL;
    e->getString(value);
    copy->putString(value);
    if (item->insert(copy, replaceOld).bad())
        delete copy;
}

void copyItem(DcmItem* src, DcmSequenceOfItems* seq)
{
    if (src == NULL || seq == NULL)
        return;
    DcmItem* copy = new DcmItem();
    const unsigned long count = src->card();
    for (unsigned long i = 0; i < count; ++i)
        copyElementToItem(src->getElement(i), copy, false);
    if (seq->append(copy).bad())
        delete copy;
}

void passSequenceElement(DcmSequenceOfItems* seq, DcmItem* item)
{
    if (seq == NULL || item == NULL)
        return;
    DcmSequenceOfItems* copy = new DcmSequenceOfItems(seq->getTag());
    const unsigned long count = seq->card();
    for (unsigned long i = 0; i < count; ++i)
        copyItem(seq->getItem(i), copy);
    if (item->insert(copy, false).bad())
        delete copy;
}

void passOrCreateElem(DcmElement* e, DcmTagKey key, DcmItem* item)
{
    if (item == NULL)
        return;
    if (e != NULL)
        copyElementToItem(e, item, false);
    else
        item->insertEmptyElement(DcmTag(key), false);
}

DcmElement* getElement(DcmItem* item, DcmTagKey key)
{
    if (item == NULL)
        return NULL;
    DcmStack stack;
    if (item->search(key, stack, ESM_fromHere, true).bad() || stack.empty())
        return NULL;
    // A search for an item delimitation key may land on an item, which is no element.
    return dynamic_cast<DcmElement*>(stack.top());
}

void passTag(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    DcmElement* found = getElement(from, key);
    if (found != NULL)
        copyElementToItem(found, to, false);
}

void passOrCreateTag(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    passOrCreateElem(getElement(from, key), key, to);
}

void passSequence(DcmTagKey key, DcmItem* from, DcmItem* to)
{
    DcmElement* found = getElement(from, key);
    if (found != NULL && found->ident() == EVR_SQ)
        passSequenceElement(OFstatic_cast(DcmSequenceOfItems*, found), to);
}

void getValue(DcmItem* item, DcmTagKey key, char*& value)
{
    DcmElement* found = getElement(item, key);
    if (found != NULL)
        found->getString(value);
}

void moveElement(DcmElement* e, DcmItem* from, DcmItem* to)
{
    if (e == NULL || from == NULL || to == NULL)
        return;
    if (to->insert(e, true) != EC_Normal)
        return;
    from->remove(e);
    // Removal forgets the parent; the element now lives in the target item.
    e->setParent(to);
}

DcmSequenceOfItems* createReferenceSequence(DcmTagKey seqKey, const char* sopClassUID, char* sopInstanceUID)
{
    DcmSequenceOfItems* seq = new DcmSequenceOfItems(DcmTag(seqKey));
    DcmItem* item = new DcmItem();
    item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClassUID);
    item->putAndInsertString(DCM_ReferencedSOPInstanceUID, sopInstanceUID);
    if (seq->append(item).bad())
        delete item;
    return seq;
}

char* createSOPInstanceUID(const char* root)
{
    time_t now = time(NULL);
    struct tm local;
    memset(&local, 0, sizeof(local));
    localtime_r(&now, &local);
    const int pid = OFstatic_cast(int, getpid());
    const int site = establishSiteID();
    const int count = nextCounter();
    if (root == NULL)
        return NULL;

    const char* format = "%s.%d.%04d%02d%02d%02d%02d%02d.%d.%d";
    int n = snprintf(NULL, 0, format, root, site, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min, local.tm_sec, pid, count);
    if (n < 0 || OFstatic_cast(size_t, n) > MAX_UID_LENGTH)
        return NULL;
    char* uid = new char[n + 1];
    snprintf(uid, n + 1, format, root, site, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec, pid, count);
    return uid;
}

char* createSOPInstanceUID()
{
    return createSOPInstanceUID(KQ_SOP_INSTANCE_ROOT);
}

DcmFileFormat* readExistingDicomFile(const char* path)
{
    if (path == NULL)
        return NULL;
    DcmFileFormat* file = new DcmFileFormat();
    if (file->loadFile(path, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad() ||
        file->loadAllDataIntoMemory().bad())
    {
        delete file;
        return NULL;
    }
    return file;
}

DcmFileFormat* readOrCreateDicomFile(const char* path)
{
    if (path == NULL)
        return NULL;
    DcmFileFormat* file = new DcmFileFormat();
    errno = 0;
    if (file->loadFile(path, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad())
    {
        if (errno == ENOENT)
            return file; // a file to be created
        delete file;
        return NULL;
    }
    if (file->loadAllDataIntoMemory().bad())
    {
        delete file;
        return NULL;
    }
    return file;
}

bool writeDicomFile(const char* path, DcmFileFormat* file)
{
    if (path == NULL || file == NULL)
        return false;
    char suffix[64];
    snprintf(suffix, sizeof(suffix), ".wtmp.%d.%d", OFstatic_cast(int, getpid()), nextCounter());
    const std::string temporary = std::string(path) + suffix;

    E_TransferSyntax xfer = file->getDataset()->getOriginalXfer();
    if (xfer == EXS_Unknown)
        xfer = EXS_LittleEndianExplicit;

    // The content must be on disk before the rename makes it the target.
    OFCondition status = saveFileSynced(*file, temporary.c_str(), xfer, EET_ExplicitLength, EGL_recalcGL,
                                        EPD_noChange, 0, 0, EWM_createNewMeta);
    if (status.bad())
    {
        errmsg("writeDicomFile", "error writing temporary file: %s: %s", temporary.c_str(), status.text());
        unlink(temporary.c_str());
        return false;
    }
    if (rename(temporary.c_str(), path) != 0)
    {
        errmsg("writeDicomFile", "error moving temporary file %s to %s", temporary.c_str(), path);
        unlink(temporary.c_str());
        return false;
    }
    // The target is wholly replaced now; the directory sync only makes the rename durable.
    std::vector<char> copy(path, path + strlen(path) + 1);
    syncDirectory(dirname(copy.data()));
    return true;
}

static OFCondition systemError(int error)
{
    return makeOFCondition(OFM_dcmdata, 19, OF_error, strerror(error != 0 ? error : EIO));
}

OFCondition saveFileSynced(DcmFileFormat& file, const char* path, E_TransferSyntax xfer, E_EncodingType encoding,
                           E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength,
                           Uint32 subPadLength, E_FileWriteMode writeMode)
{
    if (path == NULL || *path == '\0')
        return EC_InvalidFilename;
    FILE* out = fopen(path, "wb");
    if (out == NULL)
        return systemError(errno);
    // The stream closes the file when it goes; everything is flushed and synced before that.
    DcmOutputFileStream stream(out);
    DcmWriteCache cache;
    errno = 0;
    file.transferInit();
    OFCondition status =
        file.write(stream, xfer, encoding, &cache, groupLength, padding, padLength, subPadLength, 0, writeMode);
    file.transferEnd();
    // A compressing stream (deflated transfer syntax) still holds the end of the data: write it
    // out now rather than in the stream's destructor, where a failure would go unnoticed.
    if (status.good())
        stream.flush();
    // A short write shows only as a stream suspension; the system's reason is clearer.
    if (ferror(out))
        status = systemError(errno);
    else if (status.good() && !stream.isFlushed())
        status = systemError(EIO);
    else if (status.good() && fflush(out) != 0)
        status = systemError(errno);
    else if (status.good() && fsync(fileno(out)) != 0)
        status = systemError(errno);
    return status;
}

void errmsg(const char* who, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    writeLine(std::string(who != NULL ? who : "") + ": " + text);
}

void errmsg(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    writeLine(text);
}

std::string replaceInOFString(const std::string& text, const std::string& from, const std::string& to)
{
    if (from.empty())
        return text;
    std::string result;
    result.reserve(text.size());
    size_t start = 0;
    size_t pos;
    while ((pos = text.find(from, start)) != std::string::npos)
    {
        result.append(text, start, pos - start);
        result.append(to);
        start = pos + from.size();
    }
    result.append(text, start, std::string::npos);
    return result;
}

bool OBS_startTask(const std::string& content, const std::string& prefix, const std::string& suffix,
                   const std::string& taskDirectory)
{
    time_t now = time(NULL);
    struct tm local;
    memset(&local, 0, sizeof(local));
    localtime_r(&now, &local);
    char stamp[64];
    snprintf(stamp, sizeof(stamp), "%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    char process[64];
    snprintf(process, sizeof(process), "%d.%d", OFstatic_cast(int, getpid()), nextCounter());

    const std::string name = prefix + "." + stamp + "_0." + process + "." + suffix;
    const char* tmp = getenv("TMP");
    if (tmp == NULL)
        throw std::logic_error("OBS_startTask: TMP is not set");
    const std::string staging = std::string(tmp) + "/" + name;
    const std::string final = taskDirectory + "/" + name;

    FILE* f = fopen(staging.c_str(), "wb");
    if (f == NULL)
        return false;
    const bool written = fprintf(f, "%s\n", content.c_str()) >= 0;
    if (fclose(f) != 0 || !written)
    {
        // A half-written task must never reach the daemon.
        unlink(staging.c_str());
        return false;
    }
    // The daemon may run as another user and must be able to consume and delete the task.
    chmod(staging.c_str(), 0777);
    if (rename(staging.c_str(), final.c_str()) != 0)
    {
        unlink(staging.c_str());
        return false;
    }
    return true;
}
