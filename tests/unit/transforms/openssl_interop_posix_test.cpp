#include "tests/support/log_capture.h"
#include "tests/unit/transforms/interop.h"

#include <algorithm>
#include <sstream>

// Files go both ways between the transform and `openssl enc`, with every cipher.

namespace
{

const std::vector<Kind>& cipher_kinds()
{
    static const std::vector<Kind> kinds(all_kinds().begin() + 2, all_kinds().end());
    return kinds;
}

class Openssl_Interop : public testing::TestWithParam<Kind>
{
protected:
    std::vector<std::string> enc(const char* direction) const
    {
        std::string cipher = GetParam().name;
        std::replace(cipher.begin(), cipher.end(), '_', '-');
        return {"openssl",    "enc",         direction,
                "-" + cipher, "-K",          hex(test_key(key_length(cipher))),
                "-iv",        hex(test_iv())};
    }

    Log_Capture log_;
};

INSTANTIATE_TEST_SUITE_P(Of, Openssl_Interop, testing::ValuesIn(cipher_kinds()), kind_name);

TEST_P(Openssl_Interop, StoredFilesAreExactlyThoseOfTheProgramAndReadable)
{
    for (const auto& [name, plain] : contents_of_every_sort(400000)) {
        const std::string made = tool(enc("-e"), plain);
        EXPECT_TRUE(written_in_parts(GetParam(), plain) == made) << name;
        expect_readable(GetParam(), made, plain, name);
    }
    const std::string plain = sample_text(33);
    for (std::size_t size = 0; size <= plain.size(); ++size)
        EXPECT_TRUE(encoded(GetParam(), plain.substr(0, size)) ==
                    tool(enc("-e"), plain.substr(0, size)))
            << size;
}

TEST_P(Openssl_Interop, TheProgramReadsWhatIsStored)
{
    for (const auto& [name, plain] : contents_of_every_sort(400000))
        EXPECT_TRUE(tool(enc("-d"), written_in_parts(GetParam(), plain)) == plain) << name;
}

TEST(Openssl_Program, OffersEveryCipher)
{
    const std::string offered = tool({"openssl", "enc", "-ciphers"}, "");
    for (const Encryption_Algorithm cipher : all_ciphers()) {
        std::istringstream words(offered);
        const std::string name = std::string("-") + encryption_value_to_name(cipher, false);
        bool found = false;
        for (std::string word; words >> word;)
            found |= word == name;
        EXPECT_TRUE(found) << name;
    }
    EXPECT_EQ(all_ciphers().size(), 29U);
}

} // namespace
