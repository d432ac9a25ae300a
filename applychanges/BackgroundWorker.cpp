#include "applychanges/BackgroundWorker.h"

BackgroundWorker::BackgroundWorker(bool parallel)
    : m_parallel(parallel), m_pending(false), m_done(false), m_result(false), m_stop(false)
{
    if (m_parallel)
        m_thread = std::thread(&BackgroundWorker::run, this);
}

BackgroundWorker::~BackgroundWorker()
{
    if (!m_parallel)
        return;
    if (m_pending)
        wait();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void BackgroundWorker::start(std::function<bool()> task)
{
    m_pending = true;
    if (!m_parallel)
    {
        m_result = task();
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_task = std::move(task);
        m_done = false;
    }
    m_changed.notify_all();
}

bool BackgroundWorker::wait()
{
    m_pending = false;
    if (!m_parallel)
        return m_result;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_done; });
    return m_result;
}

void BackgroundWorker::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;)
    {
        m_changed.wait(lock, [this] { return m_stop || m_task; });
        if (m_stop && !m_task)
            return;
        std::function<bool()> task = std::move(m_task);
        m_task = nullptr;
        lock.unlock();
        const bool result = task();
        lock.lock();
        m_result = result;
        m_done = true;
        m_changed.notify_all();
    }
}
