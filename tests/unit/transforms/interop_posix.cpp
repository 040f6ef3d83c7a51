#include "tests/unit/transforms/interop.h"

#include "tests/support/temp_directory.h"

#include <algorithm>

std::map<std::string, std::string> contents_of_every_sort(std::size_t scale)
{
    const std::string random = sample_bytes(scale);
    std::string mixed;
    for (std::size_t i = 0; i < 4; ++i)
        mixed += sample_text(scale / 3) + random.substr(0, scale / 4 + i) +
                 std::string(scale / 2, static_cast<char>(i));
    return {{"nothing", ""},
            {"one byte", "x"},
            {"a word", "hello"},
            {"text", sample_text(scale)},
            {"zeros", std::string(2 * scale, '\0')},
            {"random bytes", random},
            {"a mixture", mixed}};
}

std::string tool(const std::vector<std::string>& arguments, const std::string& input)
{
    const Program_Result result = run_program(arguments, input);
    EXPECT_EQ(result.code, 0) << testing::PrintToString(arguments) << ": " << result.err;
    return result.out;
}

void expect_readable(const Kind& kind, const std::string& made, const std::string& plain,
                     const std::string& what)
{
    EXPECT_EQ(decoded(kind, made, Form::copying), plain) << what;
    EXPECT_EQ(decoded(kind, made, Form::zero_copy), plain) << what;
    EXPECT_EQ(decoded(kind, made, Form::copying, 4099), plain) << what;
}

std::string written_in_parts(const Kind& kind, const std::string& plain)
{
    return encoded(kind, plain, std::max<std::size_t>(plain.size() / 3, 1));
}
