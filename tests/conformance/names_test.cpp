#include "platform/runtime/os_error.h"
#include "tests/conformance/member.h"
#include "tests/conformance/names.h"
#include "tests/support/this_system.h"

#include <algorithm>

namespace
{

const std::vector<std::string> common_names = {
    "with space",
    " leading and trailing ",
    "percent%20sign",
    "100%",
    "%s%n%d",
    "quote's",
    "back`tick$(x)",
    "plus+and&amp;=#;",
    "~tilde",
    "-dash",
    ".hidden",
    "..two dots",
    "comma,semicolon;",
    "[brackets]{braces}",
    "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F",                 // äöüß
    "\xE5\xA4\x87\xE4\xBB\xBD\xE6\x95\xB0\xE6\x8D\xAE", // 备份数据
    "\xF0\x9F\x92\xBE.img",                             // a floppy disk
    std::string(200, 'n'),
};

std::vector<std::string> all_names()
{
    std::vector<std::string> names = common_names;
    names.insert(names.end(), names_of_this_system.begin(), names_of_this_system.end());
    return names;
}

class Names : public Conformance
{
protected:
    const std::vector<std::string> odd_names = all_names();
};

INSTANTIATE_TEST_SUITE_P(Of, Names, testing::ValuesIn(members()), member_name);

TEST_P(Names, OddFileNamesAreKeptExactly)
{
    std::vector<std::string> expected;
    for (const std::string& name : odd_names) {
        store(name, "contents of " + name);
        expected.push_back(name_shown(name));
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(names(""), expected);
    for (const std::string& name : odd_names) {
        EXPECT_EQ(stored(name), "contents of " + name) << name;
        EXPECT_EQ(stored_size(name), size_shown(name, 12 + name.size())) << name;
    }
}

TEST_P(Names, OddDirectoryNamesAreKeptExactly)
{
    std::vector<std::string> expected;
    for (const std::string& name : odd_names) {
        ASSERT_TRUE(io_->make_dir(name.c_str(), 0750)) << name << ": " << io_->error();
        store(name + "/file", name);
        EXPECT_EQ(names(name), std::vector<std::string>{"file"}) << name;
        EXPECT_EQ(stored(name + "/file"), name);
        expected.push_back(name_shown(name) + '/');
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(names(""), expected);
}

TEST_P(Names, ListedNamesLeadToTheirFiles)
{
    for (const std::string& name : odd_names)
        store(name, "contents of " + name);
    for (const std::string& name : odd_names)
        EXPECT_EQ(stored(name_shown(name)), "contents of " + name) << name;
}

TEST_P(Names, OddNamesCanBeCopiedRenamedTruncatedAndRemoved)
{
    for (const std::string& name : odd_names) {
        store("plain", "12345");
        const char* odd = name.c_str();
        const std::string rest = stored_below("plain").substr(0, 3);
        EXPECT_TRUE(io_->copy("plain", odd, false)) << name << ": " << io_->error();
        EXPECT_TRUE(truncate(odd, rest.size())) << name << ": " << io_->error();
        EXPECT_TRUE(io_->rename(odd, "back", true)) << name << ": " << io_->error();
        EXPECT_EQ(stored_below("back"), rest) << name;
        EXPECT_TRUE(io_->rename("back", odd, false)) << name << ": " << io_->error();
        EXPECT_TRUE(io_->remove(odd)) << name << ": " << io_->error();
        EXPECT_EQ(names(""), std::vector<std::string>{"plain"}) << name;
    }
}

TEST_P(Names, OfDifferentCaseAreDifferentFiles)
{
    if (deviates(Deviation::names_ignore_case)) {
        store("name", "lower");
        EXPECT_EQ(stored("NAME"), "lower");
        EXPECT_EQ(names(""), std::vector<std::string>{"name"});
        return;
    }
    store("name", "lower");
    store("NAME", "upper");
    EXPECT_EQ(stored("name"), "lower");
    EXPECT_EQ(stored("NAME"), "upper");
}

TEST_P(Names, ThatAreTooLongAreRefusedWithAText)
{
    if (deviates(Deviation::names_have_no_limit)) {
        store(std::string(300, 'x'), "data");
        EXPECT_EQ(stored(std::string(300, 'x')), "data");
        return;
    }
    expect_write_refused(std::string(300, 'x').c_str(), Client_IO_Base::mode_write);
    EXPECT_EQ(io_->errnum(), number_shown(this_system::errors.name_too_long));
    EXPECT_TRUE(names("").empty());
}

} // namespace
