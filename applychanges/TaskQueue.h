// One thread kept for the run, doing queued tasks one after the other beside the main thread.
#ifndef APPLYCHANGES_TASKQUEUE_H
#define APPLYCHANGES_TASKQUEUE_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

/** Runs tasks on a thread of its own in the order they were queued. Each task gets a ticket;
 *  waiting for a ticket makes everything its task wrote visible to the waiting thread. Without a
 *  second core (parallel false) each task runs at once on the calling thread, and the program
 *  behaves as a single-threaded one. The thread is started with every signal blocked, so that
 *  signals reach the main thread.
 */
class TaskQueue
{
public:
    /** Starts the thread when parallel is true. */
    explicit TaskQueue(bool parallel);
    /** Finishes the queued tasks, then ends the thread. */
    ~TaskQueue();

    /** Queues a task. @return its ticket: 1 for the first task, then one more for each */
    unsigned long enqueue(std::function<void()> task);

    /** True when the task of this ticket, and so every task before it, has finished. */
    bool finished(unsigned long ticket);

    /** Waits until the task of this ticket, and so every task before it, has finished. */
    void waitFor(unsigned long ticket);

    /** Waits until every queued task has finished. */
    void waitIdle() { waitFor(m_queued); }

    /** True while a queued task has not finished. */
    bool busy() { return !finished(m_queued); }

private:
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    void run();

    bool m_parallel;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_tasks;
    unsigned long m_queued;
    unsigned long m_finished;
    bool m_stop;
    std::thread m_thread;
};

#endif
