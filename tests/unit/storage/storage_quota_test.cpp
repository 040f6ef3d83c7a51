#include "tests/support/small_disk.h"
#include "tests/unit/storage/storage_fixture.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>

namespace fs = std::filesystem;

namespace
{

class Storage_Quotas : public Storage_Test
{
protected:
    void open_with(std::uint64_t quota)
    {
        auto limited = options();
        limited.quota = quota;
        open(limited);
    }
    void expect_counted() { EXPECT_EQ(tree_->used(), bytes_on_disk()); }
};

TEST_F(Storage_Quotas, WhatIsThereIsCountedAtTheBegin)
{
    ASSERT_EQ(put("a/b/file", "12345"), Failure::none);
    ASSERT_EQ(put("file", "123"), Failure::none);
    fs::create_symlink("file", on_disk("link"));
    EXPECT_EQ(tree_->used(), 0U) << "nobody asked for it";
    open_with(100);
    EXPECT_EQ(tree_->used(), 8U);
}

TEST_F(Storage_Quotas, AWriteThatWouldExceedItWritesNothing)
{
    open_with(10);
    const auto upload = begin("file", Kind::create);
    ASSERT_NE(upload, nullptr);
    ASSERT_TRUE(upload->write("123456"));
    EXPECT_EQ(upload->write("78901").failure, Failure::no_space);
    EXPECT_EQ(get("file"), "123456");
    EXPECT_EQ(upload->finish().failure, Failure::no_space);
    EXPECT_EQ(put("file", "7890", Kind::within, 6), Failure::none);
    EXPECT_EQ(put("file", "abc", Kind::within, 2), Failure::none) << "what is there has its space";
    EXPECT_EQ(put("file", "", Kind::cut, 11), Failure::no_space);
    EXPECT_EQ(put("file", "x", Kind::within, 10), Failure::no_space);
    EXPECT_EQ(get("file"), "12abc67890");
    expect_counted();
}

TEST_F(Storage_Quotas, HolesCountAsTheFileIsLong)
{
    open_with(100);
    EXPECT_EQ(put("file", "x", Kind::within, 100), Failure::no_space);
    EXPECT_EQ(put("file", "x", Kind::within, 99), Failure::none);
    EXPECT_EQ(tree_->used(), 100U);
}

TEST_F(Storage_Quotas, AnEmptyWriteBehindTheEndMakesNoHole)
{
    open_with(100);
    EXPECT_EQ(put("file", "", Kind::within, 50), Failure::none);
    EXPECT_EQ(tree_->used(), 0U);
    expect_counted();
}

TEST_F(Storage_Quotas, WhatTheDiskDidNotTakeIsNotCounted)
{
    const auto disk = Small_Disk::mount(1 << 20);
    if (disk == nullptr)
        return;
    auto limited = options();
    limited.root = disk->path();
    limited.quota = 1 << 30;
    open(limited);
    EXPECT_EQ(put("file", std::string(2 << 20, 'x')), Failure::no_space);
    const std::uint64_t used = tree_->used();
    EXPECT_EQ(used, fs::file_size(*disk / "file"));
    EXPECT_EQ(put("other", "x", Kind::within, 1000), Failure::no_space);
    EXPECT_EQ(fs::file_size(*disk / "other"), 0U);
    EXPECT_EQ(tree_->used(), used);
    tree_.reset();
}

TEST_F(Storage_Quotas, WhatIsReplacedCutOrRemovedMakesRoom)
{
    open_with(10);
    ASSERT_EQ(put("file", "1234567890"), Failure::none);
    EXPECT_EQ(put("other", "x"), Failure::no_space);
    EXPECT_EQ(put("file", "0987654321", Kind::replace), Failure::none);
    EXPECT_EQ(put("file", "", Kind::cut, 4), Failure::none);
    EXPECT_EQ(tree_->used(), 4U);
    EXPECT_EQ(put("other", "123456", Kind::replace), Failure::none);
    EXPECT_TRUE(tree_->move("other", "file", true));
    EXPECT_EQ(tree_->used(), 6U);
    EXPECT_TRUE(tree_->remove("file"));
    EXPECT_EQ(tree_->used(), 0U);
    expect_counted();
}

TEST_F(Storage_Quotas, AnUploadWhoseFileIsGoneCountsNoMore)
{
    open_with(10);
    const auto upload = begin("file", Kind::create);
    ASSERT_NE(upload, nullptr);
    ASSERT_TRUE(upload->write("12345"));
    ASSERT_TRUE(tree_->remove("file"));
    EXPECT_EQ(tree_->used(), 0U);
    EXPECT_EQ(upload->write("12345").failure, Failure::superseded);
    EXPECT_EQ(tree_->used(), 0U);
}

TEST_F(Storage_Quotas, ACopyThatDoesNotFitLeavesNothing)
{
    open_with(25);
    ASSERT_EQ(put("d/a/file", "1234567"), Failure::none);
    ASSERT_EQ(put("d/b/file", "12345"), Failure::none);
    EXPECT_TRUE(tree_->copy("d", "copy", false));
    EXPECT_EQ(tree_->used(), 24U);
    EXPECT_EQ(tree_->copy("d", "again", false).failure, Failure::no_space);
    EXPECT_EQ(tree_->copy("d/b/file", "file", false).failure, Failure::no_space);
    EXPECT_EQ(tree_->used(), 24U);
    EXPECT_EQ(names_on_disk(""), (Names{"copy", "d"}));
    expect_counted();
}

TEST_F(Storage_Quotas, ATreeThatExceedsItFromTheBeginTakesNoMoreButGivesBack)
{
    ASSERT_EQ(put("file", "1234567890"), Failure::none);
    ASSERT_EQ(put("other", "1234567890"), Failure::none);
    open_with(15);
    EXPECT_EQ(put("new", "x"), Failure::no_space);
    EXPECT_TRUE(tree_->remove("other"));
    EXPECT_EQ(put("new", "12345", Kind::replace), Failure::none);
}

TEST_F(Storage_Quotas, SubtreesShareIt)
{
    open_with(10);
    ASSERT_EQ(put("user/file", "123456"), Failure::none);
    std::unique_ptr<Storage_Tree> whole;
    ASSERT_TRUE(tree_->subtree("user", whole));
    std::swap(tree_, whole);
    EXPECT_EQ(tree_->used(), 6U);
    EXPECT_EQ(put("more", "12345"), Failure::no_space);
    EXPECT_TRUE(tree_->remove("file"));
    EXPECT_EQ(whole->used(), 0U);
    std::swap(tree_, whole);
}

TEST_F(Storage_Quotas, ManyWhoFillItAtOnceDoNotExceedItTogether)
{
    constexpr std::uint64_t quota = 1000000;
    open_with(quota);
    std::atomic<int> refused = 0;
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client)
        clients.emplace_back([&, client] {
            for (int i = 0; i < 40; ++i) {
                const std::string path = std::to_string(client) + "/" + std::to_string(i % 7);
                const Failure failure = put(path, std::string(70001, 'x'),
                                            i % 2 == 0 ? Kind::replace : Kind::within, 1000);
                EXPECT_TRUE(failure == Failure::none || failure == Failure::no_space) << failure;
                refused += failure == Failure::no_space;
                EXPECT_LE(tree_->used(), quota);
                if (i % 11 == 0)
                    tree_->remove(path);
            }
        });
    for (auto& client : clients)
        client.join();
    EXPECT_GT(refused, 0);
    expect_counted();
    EXPECT_LE(bytes_on_disk(), quota);
}

TEST_F(Storage_Quotas, StayTrueWhenAFileIsRemovedAndReplacedWhileItIsUploaded)
{
    open_with(1000000);
    std::atomic<bool> stop = false;
    std::vector<std::thread> clients;
    for (const Kind kind : {Kind::within, Kind::replace})
        clients.emplace_back([&, kind] {
            while (!stop) {
                const Failure failure = put("file", "1234567", kind);
                EXPECT_TRUE(failure == Failure::none || failure == Failure::superseded) << failure;
            }
        });
    for (int i = 0; i < 5000; ++i)
        tree_->remove("file");
    stop = true;
    for (auto& client : clients)
        client.join();
    expect_counted();
}

TEST_F(Storage_Quotas, StayTrueThroughAnyOperations)
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const std::uint64_t seed =
        given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    std::mt19937_64 random(seed);
    open_with(3000);
    const Names paths = {"a", "b", "d/a", "d/b", "d/e/c", "f/a", "d", "d/e", "f"};
    const auto any_path = [&] { return paths[random() % paths.size()]; };
    int succeeded = 0;
    for (int i = 0; i < 3000; ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        Storage_Result result;
        const std::string path = any_path();
        const std::string other = any_path();
        const bool overwrite = random() % 2 == 0;
        switch (random() % 6) {
        case 0:
        case 1: {
            const auto kind = static_cast<Kind>(random() % 4);
            const std::uint64_t offset =
                kind == Kind::create || kind == Kind::replace ? 0 : random() % 300;
            std::unique_ptr<Storage_Tree::Upload> upload;
            result = tree_->upload(path, kind, offset, {}, upload);
            for (auto writes = random() % 3; writes > 0 && result; --writes)
                result = upload->write(std::string(random() % 200, 'x'));
            if (result && random() % 4 != 0)
                result = upload->finish();
            break;
        }
        case 2:
            result = tree_->copy(path, other, overwrite);
            break;
        case 3:
            result = tree_->move(path, other, overwrite);
            break;
        case 4:
            result = tree_->remove(path);
            break;
        default:
            result = tree_->make_collection(path, 022);
        }
        succeeded += static_cast<bool>(result);
        ASSERT_EQ(tree_->used(), bytes_on_disk());
        ASSERT_LE(tree_->used(), 3000U);
    }
    EXPECT_GT(succeeded, 300);
}

} // namespace
