#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace cio
{

/// Hands jobs to worker objects, each on a thread of its own. Threads (and with them the workers'
/// connections) are started only as far as jobs wait.
///
/// A pool that counts first starts none before it can tell its workers how many they are: when as
/// many jobs wait as there may be threads, or all jobs are there.
///
/// Worker: an object with run(Job&). Job: movable, with weight(), the bytes it holds.
template <class Worker, class Job>
class Worker_Pool
{
public:
    /// Makes a worker, one of so many at most.
    using Make_Worker = std::function<std::unique_ptr<Worker>(unsigned)>;

    /// @param make_worker  called on the worker's thread, perhaps on several threads at once
    Worker_Pool(unsigned threads, Make_Worker make_worker, bool count_first = false)
        : most_threads_(threads), make_worker_(std::move(make_worker)), counting_(count_first)
    {}
    /// Does what is under way; a pool that is still counting forgets its jobs.
    ~Worker_Pool()
    {
        {
            const std::lock_guard lock(mutex_);
            counting_ = false;
        }
        finish();
    }
    Worker_Pool(const Worker_Pool&) = delete;
    Worker_Pool& operator=(const Worker_Pool&) = delete;

    /// Waits while the queue is full.
    void submit(Job job)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return jobs_.size() < most_jobs && weight_ < most_weight; });
        weight_ += job.weight();
        jobs_.push_back(std::move(job));
        if (counting_ && (jobs_.size() >= most_threads_ || weight_ >= most_weight))
            stop_counting(most_threads_);
        else if (!counting_ && idle_ < jobs_.size() && threads_.size() < most_threads_)
            start_thread();
        available_.notify_one();
    }

    /// Waits until every job so far is done.
    void wait_idle()
    {
        std::unique_lock lock(mutex_);
        // How many jobs follow is not known.
        if (counting_ && !jobs_.empty())
            stop_counting(most_threads_);
        changed_.wait(lock, [this] { return jobs_.empty() && running_ == 0; });
    }

    /// Waits until every job is done and ends the threads. Nothing may be submitted afterwards.
    void finish()
    {
        {
            const std::lock_guard lock(mutex_);
            if (counting_ && !jobs_.empty())
                stop_counting(jobs_.size());
            finished_ = true;
        }
        available_.notify_all();
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }

private:
    void stop_counting(std::size_t workers)
    {
        counting_ = false;
        most_threads_ = workers;
        for (std::size_t i = 0; i < std::min(workers, jobs_.size()); ++i)
            start_thread();
    }

    // The system may have no more threads for us; those that there are do the work then.
    void start_thread()
    {
        try {
            threads_.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            if (threads_.empty()) {
                jobs_.clear();
                weight_ = 0;
                throw;
            }
        }
    }

    void work()
    {
        std::unique_lock lock(mutex_);
        const auto workers = static_cast<unsigned>(most_threads_);
        lock.unlock();
        const std::unique_ptr<Worker> worker = make_worker_(workers);
        lock.lock();
        for (;;) {
            ++idle_;
            available_.wait(lock, [this] { return finished_ || !jobs_.empty(); });
            --idle_;
            if (jobs_.empty())
                return;
            Job job = std::move(jobs_.front());
            jobs_.pop_front();
            weight_ -= job.weight();
            ++running_;
            lock.unlock();
            changed_.notify_all();
            worker->run(job);
            lock.lock();
            --running_;
            if (jobs_.empty() && running_ == 0)
                changed_.notify_all();
        }
    }

    // Enough that the sizes of most trees are known long before they are moved, little enough
    // that memory does not grow with the tree.
    static constexpr std::size_t most_jobs = 16384;
    static constexpr std::size_t most_weight = 4U << 20U;

    std::size_t most_threads_;
    const Make_Worker make_worker_;
    bool counting_;
    std::mutex mutex_;
    std::condition_variable available_; // jobs to take
    std::condition_variable changed_;   // room, or nothing left to do
    std::deque<Job> jobs_;
    std::size_t weight_ = 0;
    std::size_t idle_ = 0;
    std::size_t running_ = 0;
    bool finished_ = false;
    std::vector<std::thread> threads_;
};

} // namespace cio
