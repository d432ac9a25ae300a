// One thread kept for the run, doing one task at a time beside the main thread.
#ifndef APPLYCHANGES_BACKGROUNDWORKER_H
#define APPLYCHANGES_BACKGROUNDWORKER_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

/** Runs tasks on a second thread, one at a time, so that consecutive objects overlap without
 *  creating a thread per object. Without a second core (parallel false) each task runs at once
 *  on the calling thread, and the program behaves as a single-threaded one.
 */
class BackgroundWorker
{
public:
    /** Starts the thread when parallel is true. */
    explicit BackgroundWorker(bool parallel);
    /** Waits for the running task, then ends the thread. */
    ~BackgroundWorker();

    /** Hands over a task; the previous one must have been waited for. */
    void start(std::function<bool()> task);

    /** Waits for the task handed over last and returns its result. */
    bool wait();

    /** True while a task has been handed over and not yet waited for. */
    bool pending() const { return m_pending; }

private:
    BackgroundWorker(const BackgroundWorker&);
    BackgroundWorker& operator=(const BackgroundWorker&);

    void run();

    bool m_parallel;
    bool m_pending;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::function<bool()> m_task;
    bool m_done;
    bool m_result;
    bool m_stop;
    std::thread m_thread;
};

#endif
