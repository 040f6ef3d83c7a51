#include "client_io/client_io_base.h"
#include "platform/json/json_value.h"
#include "tests/support/open_facade.h"

#include <gtest/gtest.h>

namespace
{

/// Overrides only what has no default.
class Minimal_IO : public Client_IO_Base
{
public:
    using Client_IO_Base::open;

    std::int64_t read(void*, std::uint64_t) override { return -1; }
    bool write(const void*, std::uint64_t) override { return false; }
    std::uint64_t size() const override { return open_ ? 42 : size_unknown; }
    bool connect(const URI&, const Options&) override { return true; }
    bool reconnect() override { return true; }
    bool is_connected() const override { return true; }
    void disconnect() override {}
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override
    {
        calls.push_back(call_text("open", path, mode, offset, size));
        open_ = answer;
        return answer;
    }
    bool is_open() const override { return open_; }
    bool close() override { return false; }
    bool read(const void*&, std::uint64_t&) override { return false; }
    bool flush() override { return false; }
    std::uint64_t size(const char*) override { return size_unknown; }
    bool get_dir(const char*, std::vector<Directory_Entry>&) override { return false; }
    bool make_dir(const char*, unsigned short) override { return false; }
    bool remove(const char*) override { return false; }

    void set_text(const std::string& text) { error_ = text; }

    std::vector<std::string> calls;
    bool answer = true;
    bool open_ = false;
};

TEST(Client_IO_Base_Defaults, AFreshObjectHasNoErrorAndIsNotRetriable)
{
    const Minimal_IO io;
    EXPECT_EQ(io.errnum(), 0);
    EXPECT_EQ(io.error(), "");
    EXPECT_FALSE(io.retriable());
}

TEST(Client_IO_Base_Defaults, AFreshFacadeHasNoErrorAndIsNotRetriable)
{
    const Client_IO io;
    EXPECT_EQ(io.errnum(), 0);
    EXPECT_EQ(io.error(), "");
    EXPECT_FALSE(io.retriable());
    EXPECT_FALSE(io.is_connected());
    EXPECT_FALSE(io.is_open());
    EXPECT_EQ(io.get_config("any"), "");
}

TEST(Client_IO_Base_Defaults, OpenWithExtraIsOpenAtOffsetAndSizeZero)
{
    Minimal_IO io;
    const json_spirit::Value extra = {{"anything", 7}};
    EXPECT_TRUE(io.open("a/b", 0x102, extra));
    io.answer = false;
    EXPECT_FALSE(io.open("c", 1, extra));
    EXPECT_EQ(io.calls, (std::vector<std::string>{"open(a/b, 258, 0, 0)", "open(c, 1, 0, 0)"}));
}

TEST(Client_IO_Base_Defaults, OriginalAndStorageSizeAreTheSizeAlsoWhenItIsUnknown)
{
    Minimal_IO io;
    EXPECT_EQ(io.original_size(), Client_IO_Base::size_unknown);
    EXPECT_EQ(io.storage_size(), Client_IO_Base::size_unknown);
    ASSERT_TRUE(io.open("a", 1, 0, 0));
    EXPECT_EQ(io.original_size(), 42U);
    EXPECT_EQ(io.storage_size(), 42U);
}

TEST(Client_IO_Base_Defaults, SeekTruncateCopyAndRenameAreNotSupportedAndSetNoText)
{
    Minimal_IO io;
    io.set_text("what was there before");
    EXPECT_FALSE(io.seek(0, 0));
    EXPECT_FALSE(io.truncate("a", 0));
    EXPECT_FALSE(io.copy("a", "b", true));
    EXPECT_FALSE(io.rename("a", "b", true));
    EXPECT_EQ(io.error(), "what was there before");
    EXPECT_EQ(io.errnum(), 0);
}

TEST(Client_IO_Base_Defaults, GetConfigOfAnyKeyIsEmpty)
{
    const Minimal_IO io;
    EXPECT_EQ(io.get_config("any"), "");
    EXPECT_EQ(io.get_config(""), "");
}

TEST(Client_IO_Base_Defaults, ADirectoryEntryStartsEmpty)
{
    const Client_IO_Base::Directory_Entry entry;
    EXPECT_EQ(entry.name, "");
    EXPECT_FALSE(entry.is_dir);
    EXPECT_EQ(entry.mtime, 0);
    EXPECT_EQ(entry.size, 0U);
}

TEST(Client_IO_Base_Defaults, OpenModesHaveTheirNumbers)
{
    EXPECT_EQ(Client_IO_Base::mode_read, 1U);
    EXPECT_EQ(Client_IO_Base::mode_write, 2U);
    EXPECT_EQ(Client_IO_Base::mode_append, 3U);
    EXPECT_EQ(Client_IO_Base::mode_random_write, 4U);
    EXPECT_EQ(Client_IO_Base::mode_overwrite, 0x100U);
    EXPECT_EQ(Client_IO_Base::size_of_directory, static_cast<std::uint64_t>(-21));
}

} // namespace
