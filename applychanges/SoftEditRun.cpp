#include "applychanges/SoftEditRun.h"

#include "applychanges/BatchCommit.h"
#include "applychanges/ObjectVerifier.h"
#include "applychanges/ObjectWriter.h"
#include "applychanges/RunSignals.h"
#include "dcmutils/ChangeSetCheck.h"

#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <vector>

bool verbose = false;

namespace {

// A batch of verified objects is made durable together; beyond this a batch waits no longer.
const unsigned long BATCH_OBJECTS = 64;
const unsigned long long BATCH_BYTES = 256ull << 20;
// How far the main thread may run ahead of the verification (memory: their bytes).
const size_t MAX_IN_FLIGHT = 3;
const unsigned long long MAX_IN_FLIGHT_BYTES = 48ull << 20;

bool usesMoreThanOneCore()
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 1;
}

std::string part(const char* path, bool directoryPart)
{
    std::vector<char> copy(path, path + strlen(path) + 1);
    return directoryPart ? dirname(copy.data()) : basename(copy.data());
}

} // namespace

SoftEditRun::SoftEditRun(DcmDataset& changes, const char* kqrPath, const struct stat& kqrStatus)
    : m_changes(changes)
    , m_kqrPath(kqrPath)
    , m_rules(kqrStatus)
    , m_directories(verbose)
    , m_loader(m_rules, m_directories, true)
    , m_editor(changes)
    , m_inFlight(0)
    , m_inFlightBytes(0)
    , m_commitFailed(false)
    , m_pendingObjects(0)
    , m_pendingBytes(0)
    , m_outputError(0)
{
    m_verifier.reset(new TaskQueue(usesMoreThanOneCore()));
    m_writer.reset(new TaskQueue(usesMoreThanOneCore()));
    m_committer.reset(new TaskQueue(usesMoreThanOneCore()));
}

bool SoftEditRun::checkChanges()
{
    std::string reason;
    if (checkChangeSet(m_changes, reason))
        return true;
    std::cerr << "Refusing the soft edit changes of KqR file " << m_kqrPath << ": " << reason << std::endl;
    return false;
}

void SoftEditRun::prepare(EditedObject& object, ObjectDirectory& directory, bool inDirectory)
{
    ReportLog::Scope scope(object.m_report);
    m_loader.load(object, directory, inDirectory);
    if (object.m_state == EditedObject::EO_LOADED)
        m_editor.edit(object);
    if (object.m_state == EditedObject::EO_EDITED)
        ObjectWriter::prepare(object);
}

bool SoftEditRun::submit(std::unique_ptr<EditedObject> object)
{
    EditedObject* entry = object.get();
    m_queue.push_back(std::move(object));
    if (entry->m_state == EditedObject::EO_FAILED)
        return settle(0) && failAt(entry); // an earlier object may fail first
    if (entry->m_state == EditedObject::EO_EDITED || entry->m_state == EditedObject::EO_WRITTEN)
    {
        if (entry->m_state == EditedObject::EO_EDITED)
            entry->m_writeTicket =
                m_writer->enqueue([entry] { entry->m_writeResult = ObjectWriter::writeEncoded(*entry); });
        entry->m_verifyTicket = m_verifier->enqueue([entry] {
            ReportLog::Scope scope(entry->m_verification);
            entry->m_equal = ObjectVerifier::verify(*entry, entry->m_verification);
        });
        ++m_inFlight;
        m_inFlightBytes += entry->m_inMemory ? entry->m_writtenSize : 0; // a large one's values stay in files
    }
    const size_t keep = m_inFlightBytes > MAX_IN_FLIGHT_BYTES ? 0 : MAX_IN_FLIGHT;
    return settle(keep) && commitWhenDue();
}

bool SoftEditRun::settle(size_t keep)
{
    for (auto& entry : m_queue)
    {
        EditedObject& object = *entry;
        if (object.m_state != EditedObject::EO_EDITED && object.m_state != EditedObject::EO_WRITTEN)
            continue;
        const bool done = m_verifier->finished(object.m_verifyTicket) && m_writer->finished(object.m_writeTicket);
        if (!done && m_inFlight <= keep)
            break;
        m_verifier->waitFor(object.m_verifyTicket);
        m_writer->waitFor(object.m_writeTicket);
        if (!settleOne(object))
            return false;
    }
    return true;
}

bool SoftEditRun::settleOne(EditedObject& object)
{
    --m_inFlight;
    m_inFlightBytes -= object.m_inMemory ? object.m_writtenSize : 0;
    const unsigned long long size = object.m_original->size();
    object.m_read.reset(); // its bytes, copy and descriptor are no longer needed
    object.m_original.reset();
    object.m_encoded.reset();
    if (!object.m_writeRefusal.empty())
    {
        object.refuse(object.m_writeRefusal);
        return failAt(&object);
    }
    if (object.m_writeResult.bad())
    {
        // a save that failed is reported before any comparison, and keeps its file
        ObjectWriter::saveFailed(object, object.m_writeResult);
        return failAt(&object);
    }
    object.m_report.append(object.m_verification);
    if (!object.m_equal)
    {
        object.discardTemporaryFile();
        object.m_state = EditedObject::EO_FAILED;
        return failAt(&object);
    }
    object.m_state = EditedObject::EO_VERIFIED;
    ++m_pendingObjects;
    m_pendingBytes += size;
    return true;
}

bool SoftEditRun::commitWhenDue()
{
    if (m_pendingObjects >= BATCH_OBJECTS || m_pendingBytes >= BATCH_BYTES)
        handOver(nullptr);
    return collectCommit(false);
}

void SoftEditRun::handOver(const EditedObject* stopAt)
{
    std::unique_ptr<Commit> commit(new Commit);
    for (auto& entry : m_queue)
    {
        if (entry.get() == stopAt)
            break;
        if (entry->m_state == EditedObject::EO_VERIFIED)
            commit->batch.push_back(entry.get());
    }
    m_pendingObjects = 0;
    m_pendingBytes = 0;
    if (commit->batch.empty())
        return;
    for (EditedObject* object : commit->batch)
        object->m_state = EditedObject::EO_COMMITTING;
    Commit* handed = commit.get();
    handed->ticket = m_committer->enqueue([this, handed] {
        if (!m_commitFailed)
            handed->committed = BatchCommit::commit(handed->batch);
        if (handed->committed < handed->batch.size())
            m_commitFailed = true;
    });
    m_commits.push_back(std::move(commit));
}

bool SoftEditRun::commitAll(const EditedObject* stopAt)
{
    handOver(stopAt);
    return collectCommit(true);
}

bool SoftEditRun::collectCommit(bool block)
{
    while (!m_commits.empty() && (block || m_committer->finished(m_commits.front()->ticket)))
    {
        m_committer->waitFor(m_commits.front()->ticket);
        std::unique_ptr<Commit> commit = std::move(m_commits.front());
        m_commits.pop_front();
        const std::vector<EditedObject*>& batch = commit->batch;
        for (size_t i = 0; i < batch.size(); ++i)
            batch[i]->m_state = i < commit->committed    ? EditedObject::EO_COMMITTED
                                : i == commit->committed ? EditedObject::EO_FAILED
                                                         : EditedObject::EO_VERIFIED; // discarded with the rest
        if (commit->committed < batch.size())
        {
            // the batches after it were given up: their objects are discarded with the rest
            for (const auto& later : m_commits)
            {
                m_committer->waitFor(later->ticket);
                for (EditedObject* object : later->batch)
                    object->m_state = EditedObject::EO_VERIFIED;
            }
            m_commits.clear();
            return failAt(batch[commit->committed]);
        }
    }
    writeReports();
    return true;
}

bool SoftEditRun::failAt(EditedObject* failed)
{
    m_failedPath = failed->m_path;
    // what came before the failure is committed (that may itself fail earlier)
    if (!commitAll(failed))
        return false;
    // the objects read ahead finish their tasks before their files are removed
    m_verifier->waitIdle();
    m_writer->waitIdle();
    bool after = false;
    while (!m_queue.empty())
    {
        std::unique_ptr<EditedObject> entry = std::move(m_queue.front());
        m_queue.pop_front();
        if (after)
        {
            // never reached by a run that stops at the failure: no file and no line of it stays
            entry->discardTemporaryFile();
            continue;
        }
        writeNow(entry->m_report);
        after = entry.get() == failed;
    }
    return false;
}

void SoftEditRun::writeReports()
{
    while (!m_queue.empty() && (m_queue.front()->m_state == EditedObject::EO_SKIPPED ||
                                m_queue.front()->m_state == EditedObject::EO_UNCHANGED ||
                                m_queue.front()->m_state == EditedObject::EO_COMMITTED))
    {
        writeNow(m_queue.front()->m_report);
        m_queue.pop_front();
    }
}

void SoftEditRun::writeNow(ObjectReport& report)
{
    if (m_outputError)
        report.discard(); // nothing more is written once the output failed
    else if (!report.write())
        m_outputError = errno ? errno : EIO;
}

bool SoftEditRun::finish()
{
    return settle(0) && commitAll(nullptr);
}

bool SoftEditRun::isPending(const struct stat& status) const
{
    for (const auto& entry : m_queue)
        if (entry->m_identity.isFile(status) &&
            (entry->m_state == EditedObject::EO_EDITED || entry->m_state == EditedObject::EO_WRITTEN ||
             entry->m_state == EditedObject::EO_VERIFIED || entry->m_state == EditedObject::EO_COMMITTING))
            return true;
    return false;
}

bool SoftEditRun::mustStop() const
{
    return RunSignals::received() != 0 || m_outputError != 0;
}

int SoftEditRun::conclude(bool ok, const std::string& failureLine)
{
    if (!ok)
        std::cerr << failureLine << std::endl;
    if (m_outputError)
    {
        std::cerr << "Error writing the output of the run [" << strerror(m_outputError)
                  << "]: the objects verified until then are in place, the others as they were" << std::endl;
        return 1;
    }
    if (const int signal = RunSignals::received())
    {
        std::cerr << "Run interrupted by signal " << signal << " (" << strsignal(signal)
                  << "): the objects verified until then are in place, the others as they were" << std::endl;
        return 1;
    }
    return ok ? 0 : 1;
}

void SoftEditRun::warnAboutUnusedChanges(const char* studyDir)
{
    if (m_editor.objectsSeen() == 0)
    {
        std::cerr << "Warning: study directory " << studyDir << " holds no object: the changes of KqR file "
                  << m_kqrPath << " applied to nothing" << std::endl;
        return;
    }
    for (const ChangeSet::Item& item : m_editor.items())
    {
        if (item.matches > 0)
            continue;
        if (item.instance)
            std::cerr << "Warning: instance item " << item.uid << " (series " << item.seriesUID << ") of KqR file "
                      << m_kqrPath << " matched no object" << std::endl;
        else
            std::cerr << "Warning: series item " << item.uid << " of KqR file " << m_kqrPath << " matched no object"
                      << std::endl;
    }
}

int SoftEditRun::applyToSingleObject(const char* objectName)
{
    std::unique_ptr<EditedObject> object(new EditedObject(objectName, part(objectName, false), DT_UNKNOWN));
    ObjectDirectory* directory = m_directories.directory(part(objectName, true));
    if (!directory)
    {
        std::cerr << "Temporary directory could not be created: " << part(objectName, true) << "/.tmp" << std::endl;
        return 1;
    }
    // The ".tmp" beside a plain object is made first; a link's is made beside the file it names,
    // and nothing is made for a FIFO or device, which is refused.
    struct stat status;
    const bool plain = lstat(objectName, &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
    if (plain)
    {
        ObjectReport opening;
        const bool opened = m_directories.temporaryDirectory(*directory, opening.out(), opening.err()) != nullptr;
        writeNow(opening);
        if (!opened)
            return 1;
    }
    prepare(*object, *directory, false);
    const bool ok = submit(std::move(object)) && finish();
    return conclude(ok, "Applying soft edit changes to object failed: " + std::string(objectName));
}

int SoftEditRun::applyToStudyDirectory(const char* studyDir)
{
    ObjectDirectory* directory = m_directories.directory(studyDir);
    DIR* dir = directory ? directory->list() : nullptr;
    if (!dir)
    {
        std::cerr << "Study directory could not be opened: " << studyDir << std::endl;
        return 1;
    }
    ObjectReport opening;
    const bool opened = m_directories.temporaryDirectory(*directory, opening.out(), opening.err()) != nullptr;
    if (opened && verbose)
        opening.out() << "Iterating through files in " << studyDir << std::endl;
    writeNow(opening);
    if (!opened)
    {
        closedir(dir);
        return 1;
    }

    bool ok = true;
    errno = 0;
    while (struct dirent* entry = readdir(dir))
    {
        const std::string name = entry->d_name;
        std::unique_ptr<EditedObject> object(
            new EditedObject(std::string(studyDir) + "/" + name, name, entry->d_type));
        const ObjectDecision decision = m_rules.byEntry(name, entry->d_type);
        if (decision.verdict == ObjectDecision::OD_SKIP)
        {
            if (verbose)
                object->m_report.out() << decision.line << std::endl;
            object->m_state = EditedObject::EO_SKIPPED;
        }
        else
        {
            // a second name of an object still on its way (a link to it): that one is finished
            // first, so that the two edits follow each other as they would one at a time
            struct stat status;
            if (fstatat(directory->fd(), name.c_str(), &status, 0) == 0 && isPending(status) && !finish())
            {
                ok = false;
                break;
            }
            prepare(*object, *directory, true);
        }
        if (!submit(std::move(object)))
        {
            ok = false;
            break;
        }
        if (mustStop())
            break;
        errno = 0;
    }
    const int walkError = mustStop() ? 0 : errno;
    closedir(dir);
    if (ok && !finish())
        ok = false;
    if (ok && walkError != 0)
        return conclude(false, std::string("An error occured while iterating through on files in ") + studyDir);
    if (ok && !mustStop())
        warnAboutUnusedChanges(studyDir);
    return conclude(ok, "Applying soft edit changes to object failed: " + m_failedPath);
}
