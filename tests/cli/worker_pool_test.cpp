#include "cli/worker_pool.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>

namespace
{

struct Job
{
    int number = 0;
    std::size_t weight() const { return 100; }
};

struct Counts
{
    std::atomic<unsigned> workers{0};
    std::atomic<unsigned> done{0};
    std::atomic<unsigned> told{0}; ///< how many workers there are, as the last one was told
    std::mutex mutex;
    std::set<int> numbers;
};

struct Worker
{
    Worker(Counts& c, unsigned workers) : counts(c)
    {
        ++counts.workers;
        counts.told = workers;
    }
    void run(const Job& job)
    {
        const std::lock_guard lock(counts.mutex);
        counts.numbers.insert(job.number);
        ++counts.done;
    }
    Counts& counts;
};

using Pool = cio::Worker_Pool<Worker, Job>;

} // namespace

TEST(Worker_Pool, EveryJobIsDoneOnceThoughTheQueueIsBounded)
{
    constexpr int jobs = 100'000; // more than the queue holds
    Counts counts;
    Pool pool(4, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); });
    for (int i = 0; i < jobs; ++i)
        pool.submit({i});
    pool.finish();
    EXPECT_EQ(counts.done, static_cast<unsigned>(jobs));
    EXPECT_EQ(counts.numbers.size(), static_cast<std::size_t>(jobs));
    EXPECT_LE(counts.workers, 4U);
}

TEST(Worker_Pool, OneJobTakesOneWorkerAndNoneTakesNone)
{
    Counts counts;
    {
        Pool pool(8, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); });
    }
    EXPECT_EQ(counts.workers, 0U);
    Pool pool(8, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); });
    pool.submit({1});
    pool.finish();
    EXPECT_EQ(counts.workers, 1U);
    EXPECT_EQ(counts.done, 1U);
}

TEST(Worker_Pool, WaitingForIdleSeesEverythingDone)
{
    Counts counts;
    Pool pool(3, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); });
    for (unsigned round = 1; round <= 50; ++round) {
        for (int i = 0; i < 20; ++i)
            pool.submit({i});
        pool.wait_idle();
        EXPECT_EQ(counts.done, round * 20);
    }
}

TEST(Worker_Pool, WorkersOfAPoolThatCountsFirstAreToldHowManyTheyAre)
{
    for (const auto& [jobs, expected] : {std::pair{1, 1U}, {3, 3U}, {4, 4U}, {5, 4U}, {1000, 4U}}) {
        Counts counts;
        Pool pool(
            4, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); }, true);
        for (int i = 0; i < jobs; ++i)
            pool.submit({i});
        pool.finish();
        EXPECT_EQ(counts.done, static_cast<unsigned>(jobs));
        EXPECT_EQ(counts.told, expected) << jobs;
        EXPECT_LE(counts.workers, expected) << jobs;
    }
}

TEST(Worker_Pool, BeforeItHasCountedAPoolDoesNothing)
{
    Counts counts;
    {
        Pool pool(
            4, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); }, true);
        for (int i = 0; i < 3; ++i)
            pool.submit({i});
    }
    EXPECT_EQ(counts.workers, 0U);
    EXPECT_EQ(counts.done, 0U);
}

TEST(Worker_Pool, WaitingForIdleEndsTheCountWithAsManyWorkersAsThereMayBe)
{
    Counts counts;
    Pool pool(
        4, [&counts](unsigned n) { return std::make_unique<Worker>(counts, n); }, true);
    pool.wait_idle();
    pool.submit({1});
    pool.wait_idle();
    EXPECT_EQ(counts.done, 1U);
    EXPECT_EQ(counts.told, 4U);
    for (int i = 2; i < 100; ++i)
        pool.submit({i});
    pool.finish();
    EXPECT_EQ(counts.done, 99U);
}
