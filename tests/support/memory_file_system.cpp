#include "tests/support/memory_file_system.h"

#include "platform/runtime/os_error.h"
#include "tests/support/this_system.h"

#include <algorithm>
#include <cstring>
#include <iterator>

void Sparse_Bytes::write(std::uint64_t offset, const char* data, std::uint64_t size)
{
    size_ = std::max(size_, offset + size);
    while (size > 0) {
        const std::uint64_t start = offset % chunk_size;
        const std::uint64_t n = std::min(size, chunk_size - start);
        std::vector<char>& chunk = chunks_[offset / chunk_size];
        chunk.resize(chunk_size);
        std::memcpy(chunk.data() + start, data, n);
        offset += n;
        data += n;
        size -= n;
    }
}

std::uint64_t Sparse_Bytes::read(std::uint64_t offset, char* data, std::uint64_t size) const
{
    if (offset >= size_)
        return 0;
    const std::uint64_t total = std::min(size, size_ - offset);
    for (std::uint64_t done = 0; done < total;) {
        const std::uint64_t start = (offset + done) % chunk_size;
        const std::uint64_t n = std::min(total - done, chunk_size - start);
        const auto chunk = chunks_.find((offset + done) / chunk_size);
        if (chunk == chunks_.end())
            std::memset(data + done, 0, n);
        else
            std::memcpy(data + done, chunk->second.data() + start, n);
        done += n;
    }
    return total;
}

void Sparse_Bytes::truncate(std::uint64_t size)
{
    if (size < size_) {
        chunks_.erase(chunks_.lower_bound((size + chunk_size - 1) / chunk_size), chunks_.end());
        const auto last = chunks_.find(size / chunk_size);
        if (last != chunks_.end())
            std::fill(last->second.begin() + static_cast<std::ptrdiff_t>(size % chunk_size),
                      last->second.end(), '\0');
    }
    size_ = size;
}

Memory_File_System::Memory_File_System()
{
    nodes_[""].is_dir = true;
}

std::string Memory_File_System::clean(const std::string& path)
{
    std::string result;
    for (const char c : path) {
        if (c != '/' || (!result.empty() && result.back() != '/'))
            result += c;
    }
    if (!result.empty() && result.back() == '/')
        result.pop_back();
    return result;
}

std::string Memory_File_System::parent(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

Memory_File_System::Node* Memory_File_System::find(const std::string& path)
{
    const auto found = nodes_.find(clean(path));
    return found == nodes_.end() ? nullptr : &found->second;
}

int Memory_File_System::missing(const std::string& path)
{
    return find(parent(clean(path))) == nullptr ? os_error::no_such_directory
                                                : os_error::no_such_file;
}

int Memory_File_System::create_file(const std::string& path, Node*& node)
{
    const std::string name = clean(path);
    node = find(name);
    if (node != nullptr)
        return node->is_dir ? this_system::errors.open_directory : 0;
    if (const int result = make_dir(parent(name)); result != 0)
        return os_error::is_taken(result) ? this_system::errors.below_a_file : result;
    node = &nodes_[name];
    node->version = ++last_version_;
    return 0;
}

void Memory_File_System::begin_again(Node& node)
{
    node.bytes.truncate(0);
    node.version = ++last_version_;
}

int Memory_File_System::make_dir(const std::string& path)
{
    const std::string name = clean(path);
    if (const Node* node = find(name))
        return node->is_dir ? 0 : os_error::already_exists;
    if (const int result = make_dir(parent(name)); result != 0)
        return os_error::is_taken(result) ? this_system::errors.make_below_a_file : result;
    nodes_[name].is_dir = true;
    return 0;
}

int Memory_File_System::list(const std::string& path,
                             std::vector<Client_IO_Base::Directory_Entry>& entries) const
{
    const std::string name = clean(path);
    const auto dir = nodes_.find(name);
    if (dir == nodes_.end())
        return os_error::no_such_directory;
    if (!dir->second.is_dir)
        return os_error::not_a_directory;
    for (const auto& [key, node] : nodes_) {
        if (!key.empty() && parent(key) == name)
            entries.push_back({key.substr(name.empty() ? 0 : name.size() + 1), node.is_dir,
                               node.mtime, node.bytes.size()});
    }
    return 0;
}

int Memory_File_System::remove(const std::string& path)
{
    const std::string name = clean(path);
    const auto found = nodes_.find(name);
    if (found == nodes_.end())
        return 0;
    const auto next = nodes_.lower_bound(name + '/');
    if (next != nodes_.end() && next->first.starts_with(name + '/'))
        return this_system::errors.directory_not_empty;
    nodes_.erase(found);
    return 0;
}

int Memory_File_System::copy(const std::string& src, const std::string& dst)
{
    const Node* from = find(src);
    if (from == nullptr)
        return os_error::no_such_file;
    if (from->is_dir)
        return os_error::is_a_directory;
    const Node copied = *from;
    if (find(parent(clean(dst))) == nullptr)
        return os_error::no_such_directory;
    Node* to = nullptr;
    if (const int result = create_file(dst, to); result != 0)
        return result;
    *to = copied;
    to->version = ++last_version_;
    return 0;
}

int Memory_File_System::rename(const std::string& src, const std::string& dst)
{
    const std::string from = clean(src);
    const std::string to = clean(dst);
    const Node* node = find(from);
    if (node == nullptr || find(parent(to)) == nullptr)
        return os_error::no_such_file;
    if (from == to)
        return 0;
    if (to.starts_with(from + '/'))
        return this_system::errors.move_into_itself;
    if (const Node* target = find(to)) {
        if (target->is_dir != node->is_dir)
            return target->is_dir ? this_system::errors.replace_directory
                                  : os_error::not_a_directory;
        if (const int result = remove(to); result != 0)
            return result;
    }
    std::vector<std::string> moved = {from};
    for (auto below = nodes_.lower_bound(from + '/');
         below != nodes_.end() && below->first.starts_with(from + '/'); ++below)
        moved.push_back(below->first);
    for (const std::string& name : moved) {
        auto handle = nodes_.extract(name);
        handle.key() = to + name.substr(from.size());
        nodes_.insert(std::move(handle));
    }
    return 0;
}
