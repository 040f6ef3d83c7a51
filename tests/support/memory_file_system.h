#pragma once

#include "client_io/client_io_base.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// File contents that cost memory only where bytes were written.
class Sparse_Bytes
{
public:
    std::uint64_t size() const { return size_; }
    void write(std::uint64_t offset, const char* data, std::uint64_t size);
    /// @return bytes read, fewer than @p size at the end
    std::uint64_t read(std::uint64_t offset, char* data, std::uint64_t size) const;
    void truncate(std::uint64_t size);

private:
    static constexpr std::uint64_t chunk_size = 65536;

    std::map<std::uint64_t, std::vector<char>> chunks_; // by offset / chunk_size
    std::uint64_t size_ = 0;
};

/// A tree of files in memory. Paths are relative to its root, with `/` between the names.
/// Operations return 0 or a system error number.
class Memory_File_System
{
public:
    struct Node
    {
        bool is_dir = false;
        std::int64_t mtime = 0;
        Sparse_Bytes bytes;
        std::uint64_t version = 0; ///< another number for every file and every new beginning of one
    };

    Memory_File_System();

    /// @return NULL when there is none; valid until the next change of the tree
    Node* find(const std::string& path);
    /// The error number of a path at which there is nothing.
    int missing(const std::string& path);
    /// Creates the file and its missing parents, or finds it.
    int create_file(const std::string& path, Node*& node);
    /// Empties a file: what is written to it from now on is another file under the same name.
    void begin_again(Node& node);
    int make_dir(const std::string& path);
    int list(const std::string& path, std::vector<Client_IO_Base::Directory_Entry>& entries) const;
    int remove(const std::string& path);
    int copy(const std::string& src, const std::string& dst);
    int rename(const std::string& src, const std::string& dst);

private:
    static std::string clean(const std::string& path);
    static std::string parent(const std::string& path);

    std::map<std::string, Node> nodes_; // "" is the root
    std::uint64_t last_version_ = 0;
};
