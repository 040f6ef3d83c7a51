#include "tests/conformance/member.h"
#include "tests/support/temp_directory.h"

namespace
{

/// What becomes of the bytes beneath the layers.
class Storage_Form : public Conformance
{};

INSTANTIATE_TEST_SUITE_P(Of, Storage_Form, testing::ValuesIn(members()), member_name);

TEST_P(Storage_Form, IsTheBytesThemselvesUnlessDeclared)
{
    const std::string data = sample_bytes(50000);
    store("a", data);
    const std::string below = stored_below("a");
    EXPECT_EQ(below == data, !deviates(Deviation::one_stream));
    // Compression lets pieces stand that it cannot make shorter; ciphers must not.
    if (deviates(Deviation::no_append_to_contents)) {
        EXPECT_EQ(below.find(data.substr(0, 100)), std::string::npos);
    }
    EXPECT_EQ(below.size(), size_shown("a", data.size()));
}

TEST_P(Storage_Form, DoesNotDependOnHowTheWritesAreCut)
{
    const std::string data = sample_bytes(3 * 65536 + 1234);
    store("whole", data);
    for (const std::size_t piece : {1000U, 65535U, 65536U, 65537U}) {
        ASSERT_TRUE(
            io_->open("pieces", Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite, 0, 0));
        for (std::size_t done = 0; done < data.size(); done += piece)
            ASSERT_TRUE(io_->write(data.data() + done, std::min(piece, data.size() - done)))
                << io_->error();
        ASSERT_TRUE(io_->close()) << io_->error();
        EXPECT_TRUE(stored("pieces") == data) << piece;
        EXPECT_EQ(size_below("pieces"), size_below("whole")) << piece;
        EXPECT_TRUE(stored_below("pieces") == stored_below("whole")) << piece;
    }
}

} // namespace
