// Compares docs/options.md with what the option record writes: keys, JSON types and defaults.

#include "client_io/client_io_base.h"
#include "platform/json/json_value.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace
{

struct Documented
{
    std::string type;
    std::string default_value;
};

std::string trimmed(std::string text)
{
    const char* blanks = " `";
    text.erase(0, text.find_first_not_of(blanks));
    text.erase(text.find_last_not_of(blanks) + 1);
    return text;
}

/// Reads the table that follows the heading "## @p section": its first column is the key, then
/// come the JSON type, the unit and the default.
std::map<std::string, Documented> documented_options(const std::string& section)
{
    std::map<std::string, Documented> options;
    std::ifstream page(OPTIONS_PAGE);
    std::string line;
    bool inside = false;
    while (std::getline(page, line)) {
        if (line.starts_with("## "))
            inside = line == "## " + section;
        if (!inside || !line.starts_with("| `"))
            continue;
        std::vector<std::string> cells;
        std::istringstream row(line.substr(1));
        for (std::string cell; std::getline(row, cell, '|');)
            cells.push_back(trimmed(cell));
        if (cells.size() < 4)
            continue;
        EXPECT_TRUE(options.emplace(cells[0], Documented{cells[1], cells[3]}).second)
            << cells[0] << " stands twice";
    }
    return options;
}

std::string json_type(const json_spirit::Value& value)
{
    if (value.is_boolean())
        return "boolean";
    if (value.is_number_integer())
        return "integer";
    if (value.is_string())
        return "string";
    if (value.is_array())
        return "array of objects";
    return value.is_object() ? "object of strings" : "unknown";
}

/// A record in which nothing is left out of the JSON form.
Client_IO_Base::Options full_record()
{
    Client_IO_Base::Options options;
    options.rate_control.emplace_back(0, 3600, 1U);
    EXPECT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_256_CBC, std::string(32, 'k'),
                                                   std::string(16, 'i')));
    options.node_addrs[1] = "node";
    return options;
}

} // namespace

TEST(OptionsPage, ListsEveryKeyOfTheRecordWithItsTypeAndNoOther)
{
    json_spirit::Object written;
    full_record() >> written;
    const auto documented = documented_options("Keys");
    for (const auto& [key, value] : written) {
        const auto entry = documented.find(key);
        ASSERT_NE(entry, documented.end()) << key << " is not documented";
        EXPECT_EQ(entry->second.type, json_type(value)) << key;
    }
    for (const auto& [key, entry] : documented)
        EXPECT_EQ(written.count(key), 1U) << key << " is documented but not written";
}

TEST(OptionsPage, GivesTheDefaultsThatANewRecordHas)
{
    json_spirit::Object written;
    Client_IO_Base::Options{} >> written;
    ASSERT_FALSE(written.empty());
    for (const auto& [key, entry] : documented_options("Keys")) {
        const auto member = written.find(key);
        const std::string value =
            member == written.end() ? "absent" : JSON_Dump(member->second, false);
        EXPECT_EQ(entry.default_value, value) << key;
    }
}

TEST(OptionsPage, GivesTheKeysOfAPeriodWithTheirTypes)
{
    json_spirit::Object written;
    full_record() >> written;
    const json_spirit::Object period = written.at("rate_control").at(0);
    const auto documented = documented_options("Periods of `rate_control`");
    EXPECT_EQ(documented.size(), period.size());
    for (const auto& [key, value] : period) {
        const auto entry = documented.find(key);
        ASSERT_NE(entry, documented.end()) << key << " is not documented";
        EXPECT_EQ(entry->second.type, json_type(value)) << key;
    }
}

TEST(OptionsPage, GivesTheKeysOfANodeWithTheirTypes)
{
    json_spirit::Object written;
    full_record() >> written;
    const json_spirit::Object node = written.at("node_addrs").at(0);
    const auto documented = documented_options("Nodes of `node_addrs`");
    EXPECT_EQ(documented.size(), node.size());
    for (const auto& [key, value] : node) {
        const auto entry = documented.find(key);
        ASSERT_NE(entry, documented.end()) << key << " is not documented";
        EXPECT_EQ(entry->second.type, json_type(value)) << key;
    }
}
