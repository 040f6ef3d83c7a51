#include "tests/unit/storage/storage_fixture.h"

#include "servers/storage/temporary_entry.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

std::ostream& operator<<(std::ostream& out, Storage_Failure failure)
{
    static constexpr const char* names[] = {
        "none",     "not_found", "is_collection", "not_collection", "exists", "not_empty",
        "no_space", "bad_path",  "denied",        "superseded",     "failed"};
    return out << names[static_cast<std::size_t>(failure)];
}

namespace
{

constexpr const char* secret_text = "the secret";

std::string text_of(Storage_Failure failure)
{
    std::ostringstream text;
    text << '<' << failure << '>';
    return text.str();
}

} // namespace

Storage_Fixture::Storage_Fixture()
{
    fs::create_directory(root_);
    fs::create_directory(outside_);
    write_local(secret_, secret_text);
    open(options());
}

Storage_Fixture::~Storage_Fixture()
{
    tree_.reset();
    // Paths may be longer than those that std::filesystem takes.
    const File_Handle top(::open(directory_.str().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    remove_with_contents(top.get(), "root");
}

void Storage_Fixture::open(const Storage_Tree::Options& options)
{
    tree_.reset();
    std::string error;
    tree_ = Storage_Tree::open(options, error);
    ASSERT_NE(tree_, nullptr) << error;
}

Failure Storage_Fixture::put(const std::string& path, std::string_view data, Kind kind,
                             std::uint64_t offset, const Storage_Tree::Upload_Options& options)
{
    std::unique_ptr<Storage_Tree::Upload> upload;
    Storage_Result result = tree_->upload(path, kind, offset, options, upload);
    EXPECT_EQ(upload != nullptr, static_cast<bool>(result));
    if (result)
        result = upload->write(data);
    return (result ? upload->finish() : result).failure;
}

std::unique_ptr<Storage_Tree::Upload> Storage_Fixture::begin(const std::string& path, Kind kind,
                                                             std::uint64_t offset)
{
    std::unique_ptr<Storage_Tree::Upload> upload;
    const Storage_Result result = tree_->upload(path, kind, offset, {}, upload);
    EXPECT_EQ(result.failure, Failure::none) << path;
    return upload;
}

std::string Storage_Fixture::get(const std::string& path)
{
    std::unique_ptr<Storage_Tree::Download> download;
    const Storage_Result result = tree_->download(path, download);
    if (!result)
        return text_of(result.failure);
    std::string data(download->status().size, '\0');
    const auto count = download->read(data.data(), data.size(), 0);
    return count < 0 ? "<unreadable>" : data.substr(0, static_cast<std::size_t>(count));
}

Names Storage_Fixture::list(const std::string& path)
{
    std::unique_ptr<Storage_Tree::Listing> listing;
    Storage_Result result = tree_->list(path, listing);
    Names names;
    Storage_Tree::Entry entry;
    for (bool end = false; result;) {
        result = listing->next(entry, end);
        if (end)
            break;
        if (result)
            names.push_back(entry.name + (entry.is_dir ? "/" : ""));
    }
    if (!result)
        return {text_of(result.failure)};
    std::sort(names.begin(), names.end());
    return names;
}

Failure Storage_Fixture::status(const std::string& path)
{
    Storage_Status status;
    return tree_->status(path, status).failure;
}

std::string Storage_Fixture::tag(const std::string& path)
{
    Storage_Status status;
    EXPECT_TRUE(tree_->status(path, status)) << path;
    return status.entity_tag;
}

Names Storage_Fixture::names_on_disk(const std::string& path) const
{
    Names names;
    for (const auto& entry : fs::directory_iterator(on_disk(path)))
        if (entry.path().filename() != ".cio-lock")
            names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::uint64_t Storage_Fixture::bytes_on_disk() const
{
    std::uint64_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root_))
        if (entry.is_regular_file() && !entry.is_symlink())
            bytes += entry.file_size();
    return bytes;
}

bool Storage_Fixture::outside_is_untouched() const
{
    const auto count = std::distance(fs::directory_iterator(outside_), fs::directory_iterator());
    return count == 1 && read_local(secret_) == secret_text;
}

std::string resolution_name(const testing::TestParamInfo<bool>& info)
{
    return info.param ? "By_The_Kernel" : "Name_By_Name";
}
