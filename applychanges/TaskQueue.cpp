#include "applychanges/TaskQueue.h"

#include <pthread.h>
#include <signal.h>

TaskQueue::TaskQueue(bool parallel) : m_parallel(parallel), m_queued(0), m_finished(0), m_stop(false)
{
    if (!m_parallel)
        return;
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &previous);
    m_thread = std::thread(&TaskQueue::run, this);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TaskQueue::~TaskQueue()
{
    if (!m_parallel)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

unsigned long TaskQueue::enqueue(std::function<void()> task)
{
    if (!m_parallel)
    {
        task();
        m_finished = ++m_queued;
        return m_queued;
    }
    unsigned long ticket;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_tasks.push_back(std::move(task));
        ticket = ++m_queued;
    }
    m_changed.notify_all();
    return ticket;
}

bool TaskQueue::finished(unsigned long ticket)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished >= ticket;
}

void TaskQueue::waitFor(unsigned long ticket)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this, ticket] { return m_finished >= ticket; });
}

void TaskQueue::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;)
    {
        m_changed.wait(lock, [this] { return m_stop || !m_tasks.empty(); });
        if (m_tasks.empty())
            return; // stopped, with nothing left to do
        std::function<void()> task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
        ++m_finished;
        m_changed.notify_all();
    }
}
