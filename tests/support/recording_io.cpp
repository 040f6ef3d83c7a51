#include "tests/support/recording_io.h"

#include "platform/json/json_value.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace
{

constexpr std::array questions = {"is_connected(", "is_open(", "error(", "errnum(", "retriable("};

} // namespace

std::vector<std::string> Recording::actions() const
{
    std::vector<std::string> result;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(result), [](const auto& call) {
        return std::none_of(questions.begin(), questions.end(),
                            [&](const char* start) { return call.starts_with(start); });
    });
    return result;
}

std::size_t Recording::count(const std::string& start) const
{
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(),
                      [&](const std::string& call) { return call.starts_with(start); }));
}

Recording_IO::Recording_IO(std::shared_ptr<Recording> recording) : recording_(std::move(recording))
{}

Recording_IO::~Recording_IO()
{
    recording_->destroyed = true;
}

template <class... Arguments>
void Recording_IO::note(const char* name, const Arguments&... arguments) const
{
    recording_->calls.push_back(call_text(name, arguments...));
}

std::int64_t Recording_IO::read(void* buf, std::uint64_t size)
{
    note("read", buf, size);
    if (!answer("read"))
        return -1;
    if (recording_->blocks.empty())
        return 0;
    const std::string block = recording_->blocks.front().substr(0, size);
    recording_->blocks.pop_front();
    std::memcpy(buf, block.data(), block.size());
    return static_cast<std::int64_t>(block.size());
}

bool Recording_IO::write(const void* buf, std::uint64_t size)
{
    note("write", buf, size);
    if (!answer("write"))
        return false;
    recording_->written.append(static_cast<const char*>(buf), size);
    return true;
}

std::uint64_t Recording_IO::size() const
{
    note("size");
    return recording_->stream_size;
}

bool Recording_IO::connect(const URI& uri, const Options& options)
{
    note("connect", &uri, &options);
    recording_->connected = answer("connect");
    return recording_->connected;
}

bool Recording_IO::reconnect()
{
    note("reconnect");
    recording_->connected = answer("reconnect");
    return recording_->connected;
}

bool Recording_IO::is_connected() const
{
    note("is_connected");
    return recording_->connected;
}

void Recording_IO::disconnect()
{
    note("disconnect");
    recording_->connected = false;
}

bool Recording_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    note("open", path, mode, offset, size);
    recording_->open = answer("open");
    return recording_->open;
}

bool Recording_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    note("open", path, mode, &extra);
    recording_->open = answer("open");
    return recording_->open;
}

bool Recording_IO::is_open() const
{
    note("is_open");
    return recording_->open;
}

bool Recording_IO::close()
{
    note("close");
    recording_->open = false;
    return answer("close");
}

bool Recording_IO::read(const void*& data, std::uint64_t& size)
{
    note("read_block");
    if (!answer("read_block"))
        return false;
    recording_->block.clear();
    if (!recording_->blocks.empty()) {
        recording_->block = recording_->blocks.front();
        recording_->blocks.pop_front();
    }
    data = recording_->block.data();
    size = recording_->block.size();
    return true;
}

bool Recording_IO::flush()
{
    note("flush");
    return answer("flush");
}

bool Recording_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    note("seek", offset, length);
    return answer("seek");
}

std::uint64_t Recording_IO::original_size() const
{
    note("original_size");
    return recording_->original;
}

std::uint64_t Recording_IO::storage_size() const
{
    note("storage_size");
    return recording_->storage;
}

std::uint64_t Recording_IO::size(const char* path)
{
    note("path_size", path == nullptr ? "NULL" : path);
    return recording_->path_size;
}

bool Recording_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    note("get_dir", path, &entries);
    const auto found = recording_->directories.find(path);
    if (found != recording_->directories.end())
        entries.insert(entries.end(), found->second.begin(), found->second.end());
    return answer("get_dir") && answer(std::string("get_dir ") + path);
}

bool Recording_IO::make_dir(const char* path, unsigned short mode)
{
    note("make_dir", path, mode);
    return answer("make_dir");
}

bool Recording_IO::truncate(const char* path, std::uint64_t size)
{
    note("truncate", path, size);
    return answer("truncate");
}

bool Recording_IO::remove(const char* path)
{
    note("remove", path);
    return answer("remove");
}

bool Recording_IO::copy(const char* src, const char* dst, bool overwrite)
{
    note("copy", src, dst, overwrite);
    return answer("copy");
}

bool Recording_IO::rename(const char* src, const char* dst, bool overwrite)
{
    note("rename", src, dst, overwrite);
    return answer("rename");
}

int Recording_IO::errnum() const
{
    note("errnum");
    return recording_->errnum;
}

const std::string& Recording_IO::error() const
{
    note("error");
    return recording_->error;
}

bool Recording_IO::retriable() const
{
    note("retriable");
    return recording_->retriable;
}

std::string Recording_IO::get_config(const char* key) const
{
    note("get_config", key);
    return recording_->config;
}
