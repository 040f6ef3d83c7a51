#pragma once

#include "platform/json/json_value.h"
#include "tests/cli/cli_test.h"

#include <sstream>

/// A test that reads what `--json` writes.
class Json : public Cli_Test
{
protected:
    /// Every line, which has to be an object with a type.
    static std::vector<json_spirit::Value> lines(const std::string& text)
    {
        std::vector<json_spirit::Value> objects;
        std::istringstream stream(text);
        std::string line;
        std::string error;
        while (std::getline(stream, line)) {
            json_spirit::Value value;
            EXPECT_TRUE(loads_json(line, value, &error)) << line << ": " << error;
            EXPECT_TRUE(value.is_object() && value.contains("type")) << line;
            objects.push_back(value);
        }
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        return objects;
    }
    static std::vector<json_spirit::Value> of_type(const std::string& text, const char* type)
    {
        std::vector<json_spirit::Value> found;
        for (const json_spirit::Value& object : lines(text))
            if (object["type"] == type)
                found.push_back(object);
        return found;
    }
};
