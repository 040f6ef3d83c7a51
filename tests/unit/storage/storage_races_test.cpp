#include "tests/unit/storage/storage_fixture.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <thread>

// What happens between a look and a step, and between clients.

namespace fs = std::filesystem;

namespace
{

class Storage_Races : public Storage_Both_Ways
{};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Races, testing::Bool(), resolution_name);

/// Exchanges two entries for each other as fast as it can.
class Swapper
{
public:
    Swapper(const std::string& first, const std::string& second)
        : thread_([=, this] {
              while (!stop_)
                  EXPECT_EQ(
                      renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE),
                      0);
          })
    {}
    ~Swapper()
    {
        stop_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

/// Repeats a step until it has met both states of what is swapped, and then some more.
void repeat(const std::function<Failure()>& step, Failure when_outside)
{
    std::map<Failure, int> met;
    for (int i = 0; i < 200000; ++i) {
        ++met[step()];
        if (i >= 500 && met[when_outside] > 20 && met.size() > 1 && i - met[when_outside] > 20)
            return;
    }
    FAIL() << "the swap was never met: " << met[when_outside] << " times outside";
}

TEST_P(Storage_Races, ADirectoryThatBecomesALinkLeadsNobodyOutside)
{
    fs::create_directory(on_disk("d"));
    write_local(on_disk("d/secret"), "harmless");
    write_local(on_disk("mine"), "mine");
    fs::create_symlink("../outside", on_disk("link"));
    {
        const Swapper swapper(on_disk("d"), on_disk("link"));
        int count = 0;
        const std::function<Failure()> steps[] = {
            [&] {
                const std::string data = get("d/secret");
                EXPECT_TRUE(data == "harmless" || data.front() == '<') << data;
                return data == "harmless" ? Failure::none : Failure::bad_path;
            },
            [&] {
                std::unique_ptr<Storage_Tree::Listing> listing;
                return tree_->list("d", listing).failure;
            },
            [&] { return put("d/secret", "harmless", Kind::within); },
            [&] { return put("d/secret", "harmless", Kind::cut); },
            [&] { return put("d/secret", "harmless", Kind::replace); },
            [&] { return put("d/new" + std::to_string(++count), "", Kind::create); },
            [&] { return tree_->make_collection("d/d" + std::to_string(++count), 022).failure; },
            [&] { return tree_->copy("mine", "d/copy", true).failure; },
            [&] { return tree_->move("d/secret", "d/secret2", true).failure; },
            [&] { return tree_->move("d/secret2", "d/secret", true).failure; },
            [&] { return tree_->remove("d/secret").failure; },
        };
        for (const auto& step : steps)
            repeat(step, Failure::bad_path);
    }
    EXPECT_TRUE(outside_is_untouched());
}

TEST_P(Storage_Races, AFileThatBecomesALinkIsNeitherReadNorWrittenOutside)
{
    write_local(on_disk("file"), "harmless");
    fs::create_symlink("../outside/secret", on_disk("link"));
    {
        const Swapper swapper(on_disk("file"), on_disk("link"));
        const std::function<Failure()> steps[] = {
            [&] {
                const std::string data = get("file");
                EXPECT_TRUE(data == "harmless" || data.front() == '<') << data;
                return data == "harmless" ? Failure::none : Failure::bad_path;
            },
            [&] { return put("file", "harmless", Kind::within); },
            [&] { return put("file", "harmless", Kind::cut); },
            [&] { return tree_->copy("file", "copy", true).failure; },
        };
        for (const auto& step : steps)
            repeat(step, Failure::bad_path);
    }
    EXPECT_TRUE(outside_is_untouched());
}

TEST_P(Storage_Races, ANewerUploadSupersedesTheOlderWhichWritesNothingMore)
{
    for (const Kind older_kind : {Kind::create, Kind::replace, Kind::within})
        for (const Kind newer_kind : {Kind::replace, Kind::within, Kind::cut}) {
            const auto older = begin("file", older_kind);
            ASSERT_NE(older, nullptr);
            ASSERT_TRUE(older->write("older "));
            const auto newer = begin("file", newer_kind);
            ASSERT_NE(newer, nullptr);
            EXPECT_EQ(older->write("more of the older").failure, Failure::superseded);
            ASSERT_TRUE(newer->write("newer"));
            EXPECT_EQ(older->write("x").failure, Failure::superseded);
            EXPECT_EQ(older->finish().failure, Failure::superseded);
            ASSERT_TRUE(newer->finish());
            EXPECT_EQ(get("file"), newer_kind == Kind::within ? "newer " : "newer");
            ASSERT_TRUE(tree_->remove("file"));
        }
}

TEST_P(Storage_Races, TheEndOfASupersededUploadLeavesTheNewerAlone)
{
    auto older = begin("file", Kind::create);
    const auto newer = begin("file", Kind::within);
    ASSERT_NE(newer, nullptr);
    older.reset();
    ASSERT_TRUE(newer->write("newer"));
    const auto newest = begin("file", Kind::within, 5);
    ASSERT_NE(newest, nullptr);
    EXPECT_EQ(newer->write("x").failure, Failure::superseded);
    ASSERT_TRUE(newest->finish());
    EXPECT_EQ(get("file"), "newer");
}

TEST_P(Storage_Races, AnUploadBehindAnotherNameOfTheFileSupersedesToo)
{
    if (!follows_links())
        return;
    const auto older = begin("file", Kind::create);
    fs::create_symlink("file", on_disk("link"));
    const auto newer = begin("link", Kind::within);
    ASSERT_NE(newer, nullptr);
    EXPECT_EQ(older->write("x").failure, Failure::superseded);
    EXPECT_TRUE(newer->finish());
}

TEST_P(Storage_Races, AnUploadEndsWhenItsFileIsRemovedOrReplaced)
{
    ASSERT_EQ(put("other", "other"), Failure::none);
    const std::function<Storage_Result()> ends[] = {
        [&] { return tree_->remove("file"); },
        [&] { return tree_->move("other", "file", true); },
        [&] { return tree_->copy("file", "other", true); }, // for the next step; ends nothing
        [&] { return tree_->copy("other", "file", true); },
    };
    for (std::size_t i = 0; i < std::size(ends); ++i) {
        const auto upload = begin("file", Kind::within);
        ASSERT_NE(upload, nullptr);
        ASSERT_TRUE(upload->write("first"));
        ASSERT_TRUE(ends[i]());
        EXPECT_EQ(upload->write("x").failure, i == 2 ? Failure::none : Failure::superseded);
    }
}

TEST_P(Storage_Races, OfManyUploadsAtOnceTheLastToBeginPrevails)
{
    constexpr int threads = 4;
    constexpr std::size_t block = 4096;
    constexpr int blocks = 16;
    for (const Kind kind : {Kind::cut, Kind::replace}) {
        ASSERT_EQ(put("file", "", Kind::replace), Failure::none);
        std::atomic<int> finished = 0;
        std::vector<std::thread> clients;
        for (int client = 0; client < threads; ++client)
            clients.emplace_back([&, client] {
                for (int round = 0; round < 50; ++round) {
                    std::unique_ptr<Storage_Tree::Upload> upload;
                    const Storage_Result begun = tree_->upload("file", kind, 0, {}, upload);
                    EXPECT_EQ(begun.failure, Failure::none);
                    const auto letter = static_cast<char>('a' + (round * threads + client) % 26);
                    Storage_Result result = begun;
                    for (int i = 0; i < blocks && result; ++i)
                        result = upload->write(std::string(block, letter));
                    if (result)
                        result = upload->finish();
                    EXPECT_TRUE(result || result.failure == Failure::superseded);
                    finished += static_cast<bool>(result);
                }
            });
        for (auto& client : clients)
            client.join();
        const std::string data = get("file");
        EXPECT_EQ(data, std::string(block * blocks, data.front()));
        EXPECT_GT(finished, 0);
        EXPECT_EQ(names_on_disk(""), Names{"file"});
    }
}

TEST_P(Storage_Races, OfManyThatCreateAFileOneSucceeds)
{
    for (int round = 0; round < 100; ++round) {
        const std::string path = "d" + std::to_string(round) + "/a/b/file";
        std::atomic<int> created = 0;
        std::vector<std::thread> clients;
        for (int i = 0; i < 3; ++i)
            clients.emplace_back([&] {
                const Failure failure = put(path, "x");
                EXPECT_TRUE(failure == Failure::none || failure == Failure::exists) << failure;
                created += failure == Failure::none;
            });
        for (auto& client : clients)
            client.join();
        EXPECT_EQ(created, 1);
    }
}

TEST_P(Storage_Races, ReadersOfAReplacedFileSeeOneVersionOrTheOther)
{
    const std::string old_data(100000, 'a');
    const std::string new_data(50000, 'b');
    write_local(on_disk("a"), old_data);
    write_local(on_disk("b"), new_data);
    ASSERT_TRUE(tree_->copy("a", "file", false));
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (int i = 0; !stop; ++i)
            EXPECT_TRUE(tree_->copy(i % 2 == 0 ? "b" : "a", "file", true));
    });
    int both[2] = {};
    for (int i = 0; i < 100000 && (i < 1000 || both[0] == 0 || both[1] == 0); ++i) {
        const std::string data = get("file");
        EXPECT_TRUE(data == old_data || data == new_data) << data.size();
        ++both[data == old_data];
    }
    stop = true;
    writer.join();
    EXPECT_GT(both[0], 0);
    EXPECT_GT(both[1], 0);
}

} // namespace
