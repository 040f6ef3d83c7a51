#pragma once

#include "servers/storage/storage_tree.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

using Failure = Storage_Failure;
using Kind = Storage_Tree::Upload_Kind;
using Names = std::vector<std::string>;

std::ostream& operator<<(std::ostream& out, Storage_Failure failure);

/// A tree whose root has a neighbour with a secret that nobody may reach from inside.
class Storage_Fixture
{
protected:
    Storage_Fixture();
    ~Storage_Fixture();
    Storage_Fixture(const Storage_Fixture&) = delete;
    Storage_Fixture& operator=(const Storage_Fixture&) = delete;

    /// Opens the tree again; fails the test when that is refused.
    void open(const Storage_Tree::Options& options);
    Storage_Tree::Options options() const { return {.root = root_, .sync = false}; }

    /// A whole upload.
    Failure put(const std::string& path, std::string_view data, Kind kind = Kind::create,
                std::uint64_t offset = 0, const Storage_Tree::Upload_Options& options = {});
    std::unique_ptr<Storage_Tree::Upload> begin(const std::string& path, Kind kind,
                                                std::uint64_t offset = 0);
    /// Contents, or the failure as text.
    std::string get(const std::string& path);
    /// Names in order, directories with a `/` behind them; or the failure as text.
    Names list(const std::string& path);
    Failure status(const std::string& path);
    std::string tag(const std::string& path);

    /// The path of what the disk holds, without the tree.
    std::string on_disk(const std::string& path) const { return root_ + '/' + path; }
    /// The names that the disk holds, those that the tree hides included.
    Names names_on_disk(const std::string& path) const;
    /// Bytes of all files that the disk holds.
    std::uint64_t bytes_on_disk() const;
    /// Whether all that lies beside the root is as it was.
    bool outside_is_untouched() const;

    Temp_Directory directory_;
    std::string root_ = directory_ / "root";
    std::string outside_ = directory_ / "outside";
    std::string secret_ = outside_ + "/secret";
    std::unique_ptr<Storage_Tree> tree_;
};

class Storage_Test : public Storage_Fixture, public testing::Test
{};

/// For what has to hold however paths are resolved: by the kernel as a whole, or name by name.
class Storage_Both_Ways : public Storage_Fixture, public testing::TestWithParam<bool>
{
protected:
    Storage_Both_Ways() { open(options()); }
    bool follows_links() const { return GetParam(); }
    Storage_Tree::Options options() const
    {
        auto result = Storage_Fixture::options();
        result.follow_links = GetParam();
        return result;
    }
};

std::string resolution_name(const testing::TestParamInfo<bool>& info);
