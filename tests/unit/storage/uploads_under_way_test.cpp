#include "servers/storage/uploads_under_way.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace
{

constexpr File_Key file{1, 2};
constexpr File_Key other_file{1, 3};

TEST(Uploads_Under_Way_Test, TheNewerWaitsUntilTheOlderHasWrittenItsLast)
{
    Uploads_Under_Way uploads;
    // Locked as while a write is in flight.
    auto older = uploads.begin(file);
    const std::uint64_t version = uploads.version(file);
    std::string order;
    std::thread newer([&] {
        const auto membership = uploads.begin(file);
        order += "newer";
    });
    while (uploads.version(file) == version)
        std::this_thread::yield();
    EXPECT_FALSE(older.entry->superseded);
    order += "older, ";
    older.lock.unlock();
    newer.join();
    EXPECT_EQ(order, "older, newer");
    EXPECT_TRUE(older.entry->superseded);
}

TEST(Uploads_Under_Way_Test, WhoComesThirdWaitsForTheFirstToo)
{
    Uploads_Under_Way uploads;
    auto first = uploads.begin(file);
    std::uint64_t version = uploads.version(file);
    const auto join = [&](bool& first_was_stopped) {
        std::thread thread([&] {
            const auto membership = uploads.begin(file);
            first_was_stopped = first.entry->superseded;
        });
        while (uploads.version(file) == version)
            std::this_thread::yield();
        version = uploads.version(file);
        return thread;
    };
    bool seen_by_second = false;
    bool seen_by_third = false;
    std::thread second = join(seen_by_second);
    std::thread third = join(seen_by_third);
    first.lock.unlock();
    second.join();
    third.join();
    EXPECT_TRUE(seen_by_second);
    EXPECT_TRUE(seen_by_third);
}

TEST(Uploads_Under_Way_Test, FilesDoNotConcernEachOther)
{
    Uploads_Under_Way uploads;
    const auto one = uploads.begin(file);
    const auto other = uploads.begin(other_file);
    EXPECT_FALSE(one.entry->superseded);
    uploads.end(other_file, other.entry);
    EXPECT_NE(uploads.version(file), 0U);
    EXPECT_EQ(uploads.version(other_file), 0U);
}

TEST(Uploads_Under_Way_Test, VersionsAreNeverTheSame)
{
    Uploads_Under_Way uploads;
    std::uint64_t first = 0;
    {
        const auto one = uploads.begin(file);
        first = uploads.version(file);
        uploads.count_version(*one.entry);
        EXPECT_NE(uploads.version(file), first);
        uploads.end(file, one.entry);
    }
    EXPECT_EQ(uploads.version(file), 0U);
    const auto next = uploads.begin(file);
    EXPECT_NE(uploads.version(file), first);
}

TEST(Uploads_Under_Way_Test, WhoIsSupersededDoesNotTakeTheNewerAlong)
{
    Uploads_Under_Way uploads;
    auto older = uploads.begin(file);
    older.lock.unlock();
    auto newer = uploads.begin(file);
    newer.lock.unlock();
    uploads.end(file, older.entry);
    EXPECT_NE(uploads.version(file), 0U);
    uploads.supersede(file);
    EXPECT_TRUE(newer.entry->superseded);
    EXPECT_EQ(uploads.version(file), 0U);
    uploads.supersede(file);
}

} // namespace
