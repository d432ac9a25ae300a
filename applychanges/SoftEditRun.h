// One run of applyChanges: the soft edit changes of one KqR file applied to one object or to
// every object of a study directory, step by step: load (ObjectLoader), edit (ObjectEditor),
// write (ObjectWriter), verify (ObjectVerifier), commit (BatchCommit), report (ObjectReport).
#ifndef APPLYCHANGES_SOFTEDITRUN_H
#define APPLYCHANGES_SOFTEDITRUN_H

#include "applychanges/EditedObject.h"
#include "applychanges/ObjectDirectories.h"
#include "applychanges/ObjectEditor.h"
#include "applychanges/ObjectLoader.h"
#include "applychanges/ObjectRules.h"
#include "applychanges/TaskQueue.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <sys/stat.h>

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

/// Process-wide: print progress and every modified key on standard output (-v).
extern bool verbose;

/** Applies a KqR file's changes to objects, as a pipeline that keeps every guarantee of doing
 *  them one after the other:
 *  - the main thread loads, edits and encodes objects, up to three ahead of the oldest one not
 *    yet verified; a verifier thread compares each written object with its original, in walk
 *    order, while a writer thread writes the temporary files (the time-zone conversion, which
 *    changes the process's TZ, stays on the main thread);
 *  - verified objects are made durable in batches (64 objects or 256 MiB; each sync flushes the
 *    disk's cache, which costs the same for one object as for many), then put in place in walk
 *    order, each only if it is still the file that was read (BatchCommit), on a commit thread
 *    while the others go on;
 *  - when object k fails, every earlier object is committed, k and every later object stay
 *    byte-identical (later temporary files are removed), and the lines printed are those of a
 *    run that did one object after the other and stopped at k, in the order it printed them;
 *  - an interrupt, termination or hang-up, or an output that can no longer be written, ends the
 *    run after the objects verified so far are in place, with one line saying so.
 *  With one core, every task runs on the main thread.
 */
class SoftEditRun
{
public:
    /** Borrows the KqR dataset (loaded whole; it outlives the run).
     *  @param changes the KqR file's dataset
     *  @param kqrPath its path, for messages
     *  @param kqrStatus the status of the KqR file read, to recognise it among the objects */
    SoftEditRun(DcmDataset& changes, const char* kqrPath, const struct stat& kqrStatus);

    /** Refuses a change set that can only damage objects, before any object is touched.
     *  @return true when the changes may be applied; false after one line on standard error */
    bool checkChanges();

    /** The single-object flow (-o).
     *  @return the exit status: 0 when the object was edited, 1 otherwise */
    int applyToSingleObject(const char* objectName);

    /** The study-directory flow (-d): every object file of the directory in directory order; the
     *  first object that fails ends the run.
     *  @return the exit status: 0 when every object was edited or left unchanged, 1 otherwise */
    int applyToStudyDirectory(const char* studyDir);

private:
    SoftEditRun(const SoftEditRun&) = delete;
    SoftEditRun& operator=(const SoftEditRun&) = delete;

    /** After a directory run that ended well: one warning line on standard error for every
     *  series and instance item that applied to no object, or for a directory without object. */
    void warnAboutUnusedChanges(const char* studyDir);

    /** Stage one, on the main thread: load, edit, encode or write. */
    void prepare(EditedObject& object, ObjectDirectory& directory, bool inDirectory);

    /** Takes an entry that went through stage one into the pipeline.
     *  @return false when the run has ended with a failure */
    bool submit(std::unique_ptr<EditedObject> object);

    /** Settles the entries in verification in walk order, those whose tasks have finished, and
     *  waits for the oldest ones until at most keep are left.
     *  @return false when one failed (the run has then ended) */
    bool settle(size_t keep);

    /** Settles one entry whose tasks have finished; false when it failed. */
    bool settleOne(EditedObject& object);

    /** Hands a batch to the writer thread when enough objects wait.
     *  @return false when a batch failed (the run has then ended) */
    bool commitWhenDue();

    /** Hands the verified objects before stopAt (all of them for null) to the commit thread as
     *  one batch and waits until it and every batch before it are settled.
     *  @return false when one of them failed (the run has then ended) */
    bool commitAll(const EditedObject* stopAt);

    /** Hands the verified objects before stopAt to the commit thread as one batch. */
    void handOver(const EditedObject* stopAt);

    /** Settles the batches the commit thread has finished, oldest first; with block, waits for
     *  all of them. @return false when one of their objects failed (the run has then ended) */
    bool collectCommit(bool block);

    /** Ends the run at a failed entry: what came before it is committed, the reports up to it are
     *  written and every later entry is discarded. Returns false. */
    bool failAt(EditedObject* failed);

    /** Writes the reports of the settled entries at the front of the queue, in walk order. */
    void writeReports();

    /** Writes a report at once, noting a failed output (which ends the run). */
    void writeNow(ObjectReport& report);

    /** Waits for the pipeline to empty and commits the rest; false when something failed. */
    bool finish();

    /** True when the file with this status is already on its way through the pipeline. */
    bool isPending(const struct stat& status) const;

    /** True when the run must stop taking objects: a signal came or the output failed. */
    bool mustStop() const;

    /** The exit status of a run that ended: its closing line, if any, on standard error. */
    int conclude(bool ok, const std::string& failureLine);

    DcmDataset& m_changes;
    std::string m_kqrPath;
    ObjectRules m_rules;
    ObjectDirectories m_directories;
    ObjectLoader m_loader;
    ObjectEditor m_editor;
    /// entries not yet reported, in walk order
    std::deque<std::unique_ptr<EditedObject>> m_queue;
    /// the threads that verify, that write temporary files, and that commit batches (the last
    /// two wait for the disk most of the time)
    std::unique_ptr<TaskQueue> m_verifier;
    std::unique_ptr<TaskQueue> m_writer;
    std::unique_ptr<TaskQueue> m_committer;
    /// entries handed to the threads and not yet settled, and their bytes
    size_t m_inFlight;
    unsigned long long m_inFlightBytes;
    /// a batch handed to the commit thread: its objects in walk order, its ticket there, how many
    /// of it were put in place (written by that thread), and whether it was given up because a
    /// batch before it failed
    struct Commit
    {
        std::vector<EditedObject*> batch;
        unsigned long ticket = 0;
        size_t committed = 0;
    };
    /// the batches handed over and not yet settled, oldest first (the commit thread takes them in
    /// that order, so that the disk's latency never stops the other threads); a failed batch makes
    /// the thread give up every later one
    std::deque<std::unique_ptr<Commit>> m_commits;
    std::atomic<bool> m_commitFailed;
    /// verified objects waiting for the next commit, and their bytes
    unsigned long m_pendingObjects;
    unsigned long long m_pendingBytes;
    /// the object whose failure ended the run
    std::string m_failedPath;
    /// the error with which writing a report failed, 0 while none did
    int m_outputError;
};

#endif
