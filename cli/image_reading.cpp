#include "cli/image_reading.h"

#include "cli/interrupt.h"
#include "cli/path_rules.h"

#include <algorithm>
#include <memory>

namespace cio
{
namespace
{

constexpr std::uint64_t buffer_size = 1U << 18U;

/// One run through an image.
class Run
{
public:
    Run(Client_IO& io, Image_Block_Reader::Callback& callback, Image_Data data, Failure& failure)
        : io_(io), callback_(callback), parser_(&callback, data == Image_Data::none, 0),
          failure_(failure)
    {}

    bool read_pieces();
    bool read_blocks(bool with_data);

private:
    bool parse(const void* data, std::uint64_t size);
    bool read_block(std::uint64_t size);
    bool finish();
    bool fail(const std::string& reason)
    {
        failure_ = {exit_failed, "Bad image: " + reason};
        return false;
    }
    bool fail_to_read()
    {
        failure_ = stream_failure(io_);
        return false;
    }

    Client_IO& io_;
    Image_Block_Reader::Callback& callback_;
    qovr::Image_Parser parser_;
    Failure& failure_;
    std::unique_ptr<char[]> buffer_;
    bool ended_ = false; // the image, perhaps within what was asked for last
};

bool Run::read_pieces()
{
    for (;;) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        if (!io_.read(data, size))
            return fail_to_read();
        if (size == 0)
            return finish();
        if (interrupt::requested() || !parse(data, size))
            return false;
    }
}

/// Reads the super block, the descriptor blocks and, in pieces of whole blocks, the data.
bool Run::read_blocks(bool with_data)
{
    buffer_ = std::make_unique_for_overwrite<char[]>(buffer_size);
    if (!read_block(qovr::image_superblock_size))
        return false;
    const std::uint64_t descriptor = callback_.desc_block_bytes();
    if (descriptor > buffer_size)
        buffer_ = std::make_unique_for_overwrite<char[]>(descriptor);
    std::uint64_t position = qovr::image_superblock_size; // while data are passed over
    while (!ended_) {
        if (!read_block(descriptor))
            return false;
        if (ended_)
            break;
        std::uint64_t left = callback_.data_blocks() * callback_.data_block_bytes();
        if (!with_data) {
            position += descriptor + left;
            if (position > io_.size())
                return fail("cut off");
            if (position == io_.size()) // a target need not be able to go to its end
                break;
            if (!io_.seek(position, descriptor))
                return fail_to_read();
            left = 0;
        }
        for (std::uint64_t n = 0; left > 0 && !ended_; left -= n) {
            n = std::min<std::uint64_t>(left, buffer_size);
            if (!read_block(n))
                return false;
        }
    }
    return finish();
}

/// Reads so many bytes, or fewer where the image ends, and parses them.
bool Run::read_block(std::uint64_t size)
{
    if (interrupt::requested())
        return false;
    std::uint64_t count = 0;
    while (count < size && !ended_) {
        const std::int64_t got = io_.read(buffer_.get() + count, size - count);
        if (got < 0)
            return fail_to_read();
        ended_ = got == 0;
        count += static_cast<std::uint64_t>(got);
    }
    return parse(buffer_.get(), count);
}

bool Run::parse(const void* data, std::uint64_t size)
{
    std::uint64_t parsed = 0;
    if (parser_.parse(data, size, parsed))
        return true;
    return *parser_.error() != '\0' && fail(parser_.error());
}

bool Run::finish()
{
    return parser_.complete() || fail("cut off");
}

} // namespace

Place read_image_place(const Invocation& invocation)
{
    Place place = read_place(invocation);
    if (place.path.empty())
        throw Usage_Error("the target's root is a directory, not a file");
    return place;
}

Client_IO* open_image(Connection& connection, const Place& place, Reporter& report)
{
    Client_IO* io = connection.open(report);
    if (io == nullptr || io->open(place.path.c_str(), Client_IO_Base::mode_read, 0, 0))
        return io;
    report.error(place.path, target_failure(*io));
    return nullptr;
}

void report_image_found(Reporter& report, const qovr::Image_Superblock& super)
{
    // More than any file has is not told, and cannot come.
    constexpr std::uint64_t most = std::uint64_t{1} << 63U;
    if (super.data_blocks > most / super.data_blk_size)
        report.file_found(std::nullopt);
    else
        report.file_found(super.data_blocks * super.data_blk_size);
    report.all_found();
}

bool can_pass_over_data(const Client_IO& io, const Place& place)
{
    return !place.target.transforms(place.path) && io.size() != Client_IO_Base::size_unknown;
}

bool read_image(Client_IO& io, Image_Block_Reader::Callback& callback, Image_Data data,
                Failure& failure)
{
    Run run(io, callback, data, failure);
    const bool whole = data == Image_Data::pieces ? run.read_pieces()
                                                  : run.read_blocks(data == Image_Data::blocks);
    if (!whole)
        (void)io.close();
    else if (!io.close()) {
        failure = stream_failure(io);
        return false;
    }
    return whole;
}

} // namespace cio
