#include "platform/runtime/fixed_block_file.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/page_cache.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace
{

constexpr std::uint64_t default_block_size = 65536;
constexpr std::align_val_t block_alignment{4096};

// A file counts as read in sequence from so many bytes on.
constexpr std::uint64_t sequence_length = 1U << 20U;

// One system call moves at most so much, which every system can count.
constexpr std::uint64_t largest_transfer = 1U << 30U;

// Longer windows help nobody, and sums of positions and windows stay far from the end of their
// type.
constexpr std::uint64_t largest_window = 1U << 30U;

constexpr int access_bits = O_WRONLY | O_RDWR;
// Reading never makes a file nor changes one, whatever the caller's flags say.
constexpr int changing_bits = O_CREAT | O_TRUNC | O_EXCL | O_APPEND;

File_Options with_defaults(File_Options options)
{
    if (options.block_size == 0)
        options.block_size = default_block_size;
    if (options.windows_kept == 0)
        options.windows_kept = 1;
    options.read_ahead = std::min(options.read_ahead, largest_window);
    options.write_behind = std::min(options.write_behind, largest_window);
    return options;
}

ACE_HANDLE open_file(const char* path, int flags, int share)
{
    if (path != nullptr)
        return file_system::open(path, flags, share);
    ACE_OS::last_error(os_error::invalid_argument);
    return ACE_INVALID_HANDLE;
}

// Closes quietly: for files whose fate is decided already.
void discard(ACE_HANDLE& handle)
{
    const int reason = ACE_OS::last_error();
    if (handle != ACE_INVALID_HANDLE)
        ACE_OS::close(std::exchange(handle, ACE_INVALID_HANDLE));
    ACE_OS::last_error(reason);
}

// Some systems open directories for reading and complain at the first read only.
bool refuse_directory(ACE_HANDLE handle)
{
    file_system::Status status;
    if (!file_system::status(handle, status))
        return false;
    if (!status.is_directory())
        return true;
    ACE_OS::last_error(os_error::is_a_directory);
    return false;
}

// Why a writer takes no more data, 0 when it does.
int obstacle(ACE_HANDLE handle, bool failed, int first_failure)
{
    if (failed)
        return first_failure;
    return handle == ACE_INVALID_HANDLE ? os_error::bad_handle : 0;
}

} // namespace

template <class Char>
bool File_Buffer_T<Char>::resize(std::uint64_t size)
{
    static_assert(sizeof(Char) == 1, "positions in files are counted in elements");
    if (size == size_ && data_ != nullptr)
        return true;
    if (size == 0 || size > max_size) {
        ACE_OS::last_error(os_error::invalid_argument);
        return false;
    }
    data_.reset();
    size_ = 0;
    data_.reset(static_cast<Char*>(
        ::operator new(static_cast<std::size_t>(size), block_alignment, std::nothrow)));
    if (data_ == nullptr) {
        ACE_OS::last_error(os_error::out_of_memory);
        return false;
    }
    size_ = size;
    return true;
}

template <class Char>
void File_Buffer_T<Char>::Free::operator()(Char* data) const
{
    ::operator delete(data, block_alignment);
}

template <class Char, class Buffer>
Fixed_Block_File_Reader_T<Char, Buffer>::~Fixed_Block_File_Reader_T()
{
    discard(handle_);
}

template <class Char, class Buffer>
bool Fixed_Block_File_Reader_T<Char, Buffer>::open(const char* path, int flags,
                                                   const File_Options& options, int share,
                                                   bool prefetch)
{
    discard(handle_);
    options_ = with_defaults(options);
    position_ = sequential_ = advised_ = dropped_ = 0;
    last_error_ = 0;
    if (!buffer_.resize(options_.block_size))
        return fail();
    handle_ = open_file(path, (flags & ~(access_bits | changing_bits)) | O_RDONLY, share);
    if (handle_ == ACE_INVALID_HANDLE)
        return fail();
    if (!refuse_directory(handle_)) {
        fail();
        discard(handle_);
        return false;
    }
    if (prefetch && options_.read_ahead != 0) {
        page_cache::expect_sequential(handle_);
        page_cache::fetch(handle_, 0, options_.read_ahead);
        advised_ = options_.read_ahead;
    }
    return true;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Reader_T<Char, Buffer>::read(Char*& data, std::int64_t& size)
{
    data = nullptr;
    size = read(buffer_.data(), buffer_.size());
    if (size >= 0)
        data = buffer_.data();
    return size >= 0;
}

template <class Char, class Buffer>
std::int64_t Fixed_Block_File_Reader_T<Char, Buffer>::read(Char* data, std::uint64_t size)
{
    if (handle_ == ACE_INVALID_HANDLE) {
        ACE_OS::last_error(os_error::bad_handle);
        fail();
        return -1;
    }
    std::uint64_t count = 0;
    // Until all is there, so that less is the end even where the system delivers less than was
    // asked for.
    while (count < size) {
        const ssize_t got =
            ACE_OS::read(handle_, data + count,
                         static_cast<std::size_t>(std::min(size - count, largest_transfer)));
        if (got < 0 && ACE_OS::last_error() == os_error::interrupted)
            continue;
        if (got == 0)
            break;
        if (got < 0) {
            // What was read before the failure is not delivered, since less would pass for the end
            // of the file. The position goes back, so that the call can be repeated.
            fail();
            file_system::seek(handle_, static_cast<std::int64_t>(position_), SEEK_SET);
            ACE_OS::last_error(last_error_);
            return -1;
        }
        count += static_cast<std::uint64_t>(got);
    }
    position_ += count;
    sequential_ += count;
    advise();
    return static_cast<std::int64_t>(count);
}

template <class Char, class Buffer>
std::int64_t Fixed_Block_File_Reader_T<Char, Buffer>::seek(std::int64_t offset, int whence)
{
    const std::int64_t position = file_system::seek(handle_, offset, whence);
    if (position < 0) {
        fail();
        return -1;
    }
    position_ = advised_ = dropped_ = static_cast<std::uint64_t>(position);
    sequential_ = 0;
    return position;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Reader_T<Char, Buffer>::close()
{
    if (handle_ == ACE_INVALID_HANDLE)
        return true;
    // The last, incomplete window of a file of which others were forgotten.
    if (options_.drop_behind && options_.read_ahead != 0 && sequential_ > options_.read_ahead)
        page_cache::forget(handle_, dropped_, position_ - dropped_);
    return ACE_OS::close(std::exchange(handle_, ACE_INVALID_HANDLE)) == 0 || fail();
}

template <class Char, class Buffer>
bool Fixed_Block_File_Reader_T<Char, Buffer>::fail()
{
    last_error_ = ACE_OS::last_error();
    return false;
}

template <class Char, class Buffer>
void Fixed_Block_File_Reader_T<Char, Buffer>::advise()
{
    const std::uint64_t window = options_.read_ahead;
    if (window == 0)
        return;
    if (sequential_ >= sequence_length && advised_ < position_ + window / 2) {
        if (advised_ <= position_)
            page_cache::expect_sequential(handle_);
        const std::uint64_t from = std::max(advised_, position_);
        page_cache::fetch(handle_, from, position_ + window - from);
        advised_ = position_ + window;
    }
    for (; options_.drop_behind && position_ - dropped_ >= window; dropped_ += window)
        page_cache::forget(handle_, dropped_, window);
}

template <class Char, class Buffer>
Fixed_Block_File_Writer_T<Char, Buffer>::~Fixed_Block_File_Writer_T()
{
    discard(handle_);
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::open(const char* path, int flags, bool buffered,
                                                   int share, const File_Options& options)
{
    discard(handle_);
    options_ = with_defaults(options);
    buffered_ = position_ = window_ = 0;
    buffering_ = buffered;
    failed_ = false;
    last_error_ = 0;
    if ((flags & access_bits) == O_RDONLY)
        flags |= O_WRONLY;
    if (buffer_.resize(options_.block_size))
        handle_ = open_file(path, flags, share);
    if (handle_ == ACE_INVALID_HANDLE) {
        last_error_ = ACE_OS::last_error();
        return false;
    }
    appending_ = (flags & O_APPEND) != 0;
    if (appending_)
        go_to_end();
    return true;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::write(const Char* data, std::uint64_t size,
                                                    std::uint64_t* accepted)
{
    std::uint64_t unwanted = 0;
    if (accepted == nullptr)
        accepted = &unwanted;
    *accepted = 0;
    int reason = obstacle(handle_, failed_, last_error_);
    if (reason == 0 && data == nullptr && size > 0)
        reason = os_error::invalid_argument;
    if (reason != 0) {
        ACE_OS::last_error(last_error_ = reason);
        return false;
    }
    const std::uint64_t block = buffer_.size();
    while (*accepted < size) {
        const std::uint64_t left = size - *accepted;
        if (buffered_ == 0 && (!buffering_ || left >= block)) {
            const std::uint64_t before = position_;
            const bool stored = store(data + *accepted, buffering_ ? left - left % block : left);
            *accepted += position_ - before;
            if (!stored)
                return false;
            continue;
        }
        const std::uint64_t count = std::min(left, block - buffered_);
        std::memcpy(buffer_.data() + buffered_, data + *accepted, static_cast<std::size_t>(count));
        buffered_ += count;
        if (buffered_ == block && !flush())
            return false;
        *accepted += count;
    }
    return true;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::flush()
{
    const int reason = obstacle(handle_, failed_, last_error_);
    if (reason != 0) {
        ACE_OS::last_error(last_error_ = reason);
        return false;
    }
    return store(buffer_.data(), std::exchange(buffered_, 0));
}

template <class Char, class Buffer>
std::int64_t Fixed_Block_File_Writer_T<Char, Buffer>::seek(std::int64_t offset, int whence)
{
    if (!flush())
        return -1;
    const std::int64_t position = file_system::seek(handle_, offset, whence);
    if (position < 0) {
        // Nothing was lost, so later writes are as good as before.
        last_error_ = ACE_OS::last_error();
        return -1;
    }
    position_ = window_ = static_cast<std::uint64_t>(position);
    if (appending_)
        go_to_end();
    return position;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::close()
{
    if (handle_ != ACE_INVALID_HANDLE) {
        const bool stored = flush();
        // A network file system may tell of a failed write only now. The first failure counts.
        if (ACE_OS::close(std::exchange(handle_, ACE_INVALID_HANDLE)) != 0 && stored)
            fail();
    }
    buffered_ = 0;
    if (failed_)
        ACE_OS::last_error(last_error_);
    return !failed_;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::fail()
{
    failed_ = true;
    last_error_ = ACE_OS::last_error();
    return false;
}

// Where the system puts what is appended. Only the hints need to know, so a pipe, which has no
// positions, stays at 0.
template <class Char, class Buffer>
void Fixed_Block_File_Writer_T<Char, Buffer>::go_to_end()
{
    const std::int64_t end = file_system::seek(handle_, 0, SEEK_END);
    position_ = window_ = end > 0 ? static_cast<std::uint64_t>(end) : 0;
}

template <class Char, class Buffer>
bool Fixed_Block_File_Writer_T<Char, Buffer>::store(const Char* data, std::uint64_t size)
{
    while (size > 0) {
        const ssize_t count = ACE_OS::write(
            handle_, data, static_cast<std::size_t>(std::min(size, largest_transfer)));
        if (count < 0 && ACE_OS::last_error() == os_error::interrupted)
            continue;
        if (count <= 0) {
            if (count == 0)
                ACE_OS::last_error(os_error::write_fault);
            return fail();
        }
        data += count;
        size -= static_cast<std::uint64_t>(count);
        position_ += static_cast<std::uint64_t>(count);
        advise();
    }
    return true;
}

template <class Char, class Buffer>
void Fixed_Block_File_Writer_T<Char, Buffer>::advise()
{
    const std::uint64_t size = options_.write_behind;
    if (size == 0)
        return;
    const std::uint64_t kept = size * options_.windows_kept;
    for (; position_ - window_ >= size; window_ += size) {
        page_cache::store(handle_, window_, size);
        if (options_.drop_behind && window_ >= kept)
            page_cache::forget(handle_, window_ - kept, size);
    }
}

template class File_Buffer_T<char>;
template class Fixed_Block_File_Reader_T<char, File_Buffer_T<char>>;
template class Fixed_Block_File_Writer_T<char, File_Buffer_T<char>>;
