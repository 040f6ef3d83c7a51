#include "tests/unit/transforms/store_io.h"

#include <algorithm>
#include <cstring>
#include <new>

Store_IO::Store_IO(std::shared_ptr<Store> store) : store_(std::move(store)) {}

std::int64_t Store_IO::read(void* buf, std::uint64_t size)
{
    std::fill(block_.begin(), block_.end(), '!');
    if (store_->failing.contains("read") || store_->reads_left == 0 || !store_->open) {
        if (store_->throws)
            throw std::bad_alloc();
        error_ = store_->error;
        return -1;
    }
    --store_->reads_left;
    const std::uint64_t n =
        std::min({size, store_->piece, std::uint64_t{store_->data.size() - position_}});
    std::memcpy(buf, store_->data.data() + position_, n);
    position_ += n;
    return static_cast<std::int64_t>(n);
}

bool Store_IO::write(const void* buf, std::uint64_t size)
{
    if (store_->failing.contains("write") || store_->writes_left == 0 || !store_->open) {
        if (store_->throws)
            throw std::bad_alloc();
        error_ = store_->error;
        return false;
    }
    --store_->writes_left;
    store_->data.append(static_cast<const char*>(buf), size);
    return true;
}

std::uint64_t Store_IO::size() const
{
    return store_->open ? store_->data.size() : size_unknown;
}

bool Store_IO::connect(const URI&, const Options&)
{
    store_->calls.emplace_back("connect");
    return answer("connect");
}

bool Store_IO::reconnect()
{
    store_->calls.emplace_back("reconnect");
    return answer("reconnect");
}

void Store_IO::disconnect()
{
    store_->calls.emplace_back("disconnect");
    store_->open = false;
}

bool Store_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    store_->calls.push_back(std::string("open ") + path + ' ' + std::to_string(mode) + ' ' +
                            std::to_string(offset) + ' ' + std::to_string(size));
    return open_file(mode);
}

bool Store_IO::open(const char* path, unsigned mode, const json_spirit::Value&)
{
    store_->calls.push_back(std::string("open ") + path + ' ' + std::to_string(mode) + " extra");
    return open_file(mode);
}

bool Store_IO::close()
{
    store_->calls.emplace_back("close");
    const bool closed = answer("close") && store_->open;
    store_->open = store_->open && !closed && store_->stays_open_at_failed_close;
    if (closed && store_->forgets_error_at_close)
        error_.clear();
    return closed;
}

bool Store_IO::read(const void*& data, std::uint64_t& size)
{
    // A new block each time, so that use of the last one is seen by the sanitizer too.
    std::vector<char> block(65536);
    const std::int64_t n = read(block.data(), block.size());
    block_.swap(block);
    data = block_.data();
    size = n < 0 ? 0 : static_cast<std::uint64_t>(n);
    return n >= 0;
}

bool Store_IO::flush()
{
    store_->calls.emplace_back("flush");
    return answer("flush");
}

bool Store_IO::seek(std::uint64_t offset, std::uint64_t)
{
    store_->calls.emplace_back("seek");
    position_ = offset;
    return true;
}

std::uint64_t Store_IO::size(const char* path)
{
    std::vector<char>().swap(block_); // it was lent until the next call
    store_->calls.push_back(std::string("size ") + path);
    return store_->path_size;
}

bool Store_IO::get_dir(const char* path, std::vector<Directory_Entry>&)
{
    std::vector<char>().swap(block_);
    store_->calls.push_back(std::string("get_dir ") + path);
    return answer("get_dir");
}

bool Store_IO::make_dir(const char* path, unsigned short)
{
    store_->calls.push_back(std::string("make_dir ") + path);
    return answer("make_dir");
}

bool Store_IO::truncate(const char* path, std::uint64_t)
{
    store_->calls.push_back(std::string("truncate ") + path);
    return answer("truncate");
}

bool Store_IO::remove(const char* path)
{
    store_->calls.push_back(std::string("remove ") + path);
    return answer("remove");
}

bool Store_IO::copy(const char* src, const char* dst, bool)
{
    store_->calls.push_back(std::string("copy ") + src + ' ' + dst);
    return answer("copy");
}

bool Store_IO::rename(const char* src, const char* dst, bool)
{
    store_->calls.push_back(std::string("rename ") + src + ' ' + dst);
    return answer("rename");
}

std::string Store_IO::get_config(const char* key) const
{
    return std::string("value of ") + key;
}

bool Store_IO::answer(const char* operation)
{
    if (!store_->failing.contains(operation))
        return true;
    error_ = store_->error;
    return false;
}

bool Store_IO::open_file(unsigned mode)
{
    if (!answer("open"))
        return false;
    store_->open = true;
    position_ = 0;
    if ((mode & mode_access) == mode_write)
        store_->data.clear();
    return true;
}
