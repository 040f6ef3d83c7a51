#include "client_io/yajl_client_io_printer.h"

#include "platform/json/json_value.h"
#include "tests/unit/adapters/broken_precondition.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/stored_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <type_traits>

namespace
{

using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t capacity = 2048;

class YAJL_Client_IO_Printer_Bytes : public testing::Test
{
protected:
    /// Prints the next @p size of the sample's bytes in one call.
    void print(std::size_t size)
    {
        printer_->print(sample_.data() + printed_, size);
        printed_ += size;
    }

    /// Destroys the printer, which flushes it.
    void destroy()
    {
        printer_.reset();
        EXPECT_TRUE(file_.log->written == sample_.substr(0, printed_));
    }

    Recorded_File file_{2};
    std::optional<YAJL_Client_IO_Printer> printer_{&file_.io};
    const std::string sample_ = sample_bytes(100'000);
    std::size_t printed_ = 0;
};

TEST_F(YAJL_Client_IO_Printer_Bytes, FiveThousandBehindAHundredWriteAHundredAnd4096AndKeep904)
{
    print(100);
    EXPECT_THAT(file_.write_sizes(), IsEmpty());
    print(5000);
    EXPECT_THAT(file_.write_sizes(), ElementsAre(100U, 4096U));
    EXPECT_EQ(printer_->size(), 4196U);
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(100U, 4096U, 904U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, ABufferfulStaysUntilTheNextCall)
{
    print(capacity);
    EXPECT_THAT(file_.write_sizes(), IsEmpty());
    print(1);
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U));
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U, 1U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, ABufferfulStaysUntilDestruction)
{
    print(capacity);
    EXPECT_THAT(file_.write_sizes(), IsEmpty());
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, ABufferfulBehindABufferfulStaysToo)
{
    print(capacity);
    print(capacity);
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U));
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U, 2048U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, WholeMultiplesLeaveNothingBehind)
{
    print(2 * capacity);
    EXPECT_THAT(file_.write_sizes(), ElementsAre(4096U));
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(4096U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, OneMoreThanABufferfulKeepsOne)
{
    print(capacity + 1);
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U));
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U, 1U));
}

TEST_F(YAJL_Client_IO_Printer_Bytes, LargePiecesAreNotCopied)
{
    print(50'000);
    EXPECT_EQ(file_.log->actions().at(0),
              call_text("write", static_cast<const void*>(sample_.data()), 49'152));
    destroy();
}

TEST_F(YAJL_Client_IO_Printer_Bytes, NothingIsNothing)
{
    printer_->print(nullptr, 5000);
    printer_->print(sample_.data(), 0);
    printer_->print(nullptr, 0);
    printer_->flush();
    destroy();
    EXPECT_TRUE(file_.log->calls.empty());
}

TEST_F(YAJL_Client_IO_Printer_Bytes, FlushWritesWhatIsBufferedOnce)
{
    print(10);
    printer_->flush();
    printer_->flush();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(10U));
    EXPECT_EQ(printer_->size(), 10U);
    destroy();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(10U));
    EXPECT_TRUE(file_.io.is_open());
    EXPECT_EQ(file_.log->count("flush("), 0U);
    EXPECT_EQ(file_.log->count("close("), 0U);
}

TEST_F(YAJL_Client_IO_Printer_Bytes, PiecesOfAnySizeArriveInOrder)
{
    for (std::size_t size = 1; printed_ + size < sample_.size(); size = size * 5 % 7919)
        print(size);
    EXPECT_TRUE(static_cast<bool>(*printer_));
    destroy();
}

TEST_F(YAJL_Client_IO_Printer_Bytes, AfterAFailedWriteEverythingIsDroppedWithoutAnother)
{
    print(3000);
    EXPECT_TRUE(static_cast<bool>(*printer_));
    EXPECT_EQ(printer_->size(), 2048U);
    file_.log->failing.insert("write");
    // The buffered bytes fail; the large piece behind them in the same call is not tried.
    print(10'000);
    EXPECT_FALSE(static_cast<bool>(*printer_));
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U, 952U));
    file_.log->failing.clear();
    print(10'000);
    print(100);
    printer_->flush();
    EXPECT_FALSE(static_cast<bool>(*printer_));
    EXPECT_EQ(printer_->size(), 2048U);
    printer_.reset();
    EXPECT_THAT(file_.write_sizes(), ElementsAre(2048U, 952U));
    EXPECT_TRUE(file_.log->written == sample_.substr(0, 2048));
}

TEST(YAJL_Client_IO_Printer, IsMadeOfAClientIOAndIsABool)
{
    static_assert(std::is_convertible_v<Client_IO*, YAJL_Client_IO_Printer>);
    Recorded_File file(2);
    const YAJL_Client_IO_Printer printer = &file.io;
    const bool ok = printer;
    EXPECT_TRUE(ok);
}

TEST(YAJL_Client_IO_Printer, WithoutAClientIOFailsAndLogs)
{
    Log_Capture log;
    YAJL_Client_IO_Printer printer(nullptr);
    EXPECT_TRUE(printer.null());
    EXPECT_TRUE(static_cast<bool>(printer));
    EXPECT_TRUE(log.messages().empty());
    printer.flush();
    EXPECT_FALSE(static_cast<bool>(printer));
    EXPECT_EQ(printer.size(), 0U);
    expect_broken_precondition(log, "yajl_client_io_printer.cpp", "io_ is NULL");
    printer.print("x", 1);
    printer.flush();
    EXPECT_EQ(log.messages().size(), 1U);
}

TEST(YAJL_Client_IO_Printer, PrettyTextHasALineForEachMember)
{
    Recorded_File file(2);
    YAJL_Client_IO_Printer printer(&file.io, true);
    EXPECT_TRUE(printer.value({{"a", {1, 2}}}));
    printer.flush();
    EXPECT_EQ(file.log->written, "{\n"
                                 "    \"a\": [\n"
                                 "        1,\n"
                                 "        2\n"
                                 "    ]\n"
                                 "}\n");
}

/// A value whose text has 16 MiB and more (less in a sanitized build, which says how much): many
/// small members, and a few large ones.
Value large_value()
{
    Value value = Value::object();
    Value& entries = value["entries"] = Value::array();
    for (int i = 0; i < LARGE_DOCUMENT_ENTRIES; ++i)
        entries.push_back({{"name", "folder/file " + std::to_string(i) + "\t\"\xc3\xa9\""},
                           {"size", std::uint64_t(i) << 33U},
                           {"change", -i},
                           {"rate", i / 7.0},
                           {"directory", i % 9 == 0},
                           {"owner", nullptr}});
    value["large"] = std::string(50 * LARGE_DOCUMENT_ENTRIES, 'x');
    value["escaped"] = std::string(10 * LARGE_DOCUMENT_ENTRIES, '\n');
    return value;
}

class Large_Document : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        value_ = new Value(large_value());
        constexpr std::size_t of_an_entry = 168; // bytes, with its part of the large members
        ASSERT_GE(JSON_Dump(*value_, false).size(), of_an_entry * LARGE_DOCUMENT_ENTRIES);
    }
    static void TearDownTestSuite() { delete value_; }

    static void expect_whole(const std::string& text)
    {
        Value read;
        std::string reason;
        ASSERT_TRUE(loads_json(text, read, &reason)) << reason;
        EXPECT_TRUE(read == *value_);
    }

    static Value* value_;
};

Value* Large_Document::value_ = nullptr;

TEST_F(Large_Document, IsWrittenInBuffersAndTheirMultiples)
{
    Recorded_File file(2);
    std::uint64_t size = 0;
    {
        YAJL_Client_IO_Printer printer(&file.io);
        EXPECT_TRUE(printer.value(*value_));
        EXPECT_TRUE(printer.complete());
        printer.flush();
        EXPECT_TRUE(static_cast<bool>(printer));
        size = printer.size();
    }
    EXPECT_EQ(size, file.log->written.size());
    expect_whole(file.log->written);

    // A piece that does not fit sends out what is buffered, and there are no larger pieces but one.
    const std::vector<std::uint64_t> sizes = file.write_sizes();
    std::uint64_t large = 0;
    for (const std::uint64_t n : sizes) {
        EXPECT_TRUE(n <= capacity || n % capacity == 0) << n;
        large += n > capacity ? 1 : 0;
    }
    EXPECT_EQ(large, 1U);
    EXPECT_LT(sizes.size(), size / capacity * 11 / 10);
}

TEST_F(Large_Document, ReadsBackFromAStoredFile)
{
    for (const Compression_Method method : {COMPRESSION_NONE, COMPRESSION_ZSTD}) {
        Stored_File file(method);
        {
            YAJL_Client_IO_Printer printer(&file.written());
            EXPECT_TRUE(printer.value(*value_));
        }
        expect_whole(file.contents());
    }
}

TEST_F(Large_Document, WrittenCallByCallIsTheSameText)
{
    Recorded_File file(2);
    {
        YAJL_Client_IO_Printer printer(&file.io);
        EXPECT_TRUE(printer.open_map());
        EXPECT_TRUE(printer.key("entries") && printer.open_array());
        for (const Value& entry : (*value_)["entries"]) {
            EXPECT_TRUE(printer.open_map());
            for (const auto& [name, member] : entry.items())
                EXPECT_TRUE(printer.key(name) && printer.value(member));
            EXPECT_TRUE(printer.close_map());
        }
        EXPECT_TRUE(printer.close_array());
        for (const char* const name : {"escaped", "large"})
            EXPECT_TRUE(printer.key(name) &&
                        printer.string((*value_)[name].get_ref<const std::string&>()));
        EXPECT_TRUE(printer.close_map());
        EXPECT_TRUE(printer.complete());
    }
    Recorded_File whole(2);
    {
        YAJL_Client_IO_Printer printer(&whole.io);
        EXPECT_TRUE(printer.value(*value_));
    }
    EXPECT_TRUE(file.log->written == whole.log->written);
}

TEST_F(Large_Document, AFailedWriteInTheMiddleIsTheLast)
{
    const auto log = std::make_shared<Recording>();
    class Filling_IO : public Recording_IO
    {
    public:
        explicit Filling_IO(const std::shared_ptr<Recording>& recording)
            : Recording_IO(recording), recording_(recording)
        {}
        bool write(const void* buf, std::uint64_t size) override
        {
            if (recording_->written.size() > 1'000'000)
                recording_->failing.insert("write");
            return Recording_IO::write(buf, size);
        }

    private:
        std::shared_ptr<Recording> recording_;
    };
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Filling_IO>(log)));
    ASSERT_TRUE(io.open("file", Client_IO::mode_write, 0, 0));
    std::uint64_t size = 0;
    std::size_t writes = 0;
    {
        YAJL_Client_IO_Printer printer(&io);
        EXPECT_TRUE(printer.value(*value_)) << "the generator does not know of writes";
        EXPECT_FALSE(static_cast<bool>(printer));
        size = printer.size();
        writes = log->count("write(");
    }
    EXPECT_EQ(size, log->written.size());
    EXPECT_LT(size, 1'000'000U + 2 * capacity);
    EXPECT_EQ(log->count("write("), writes) << "nor at destruction";
    EXPECT_LE(writes, 1'000'000 / capacity * 11 / 10 + 2);
}

} // namespace
