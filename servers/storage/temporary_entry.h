#pragma once

#include "servers/storage/file_handle.h"

#include <string>
#include <string_view>

/// A new file or directory under a reserved name, until it is put in its place. At the end it is
/// removed with all it holds, unless it was placed.
///
/// It stands in the directory it is meant for, so that it gets that directory's group and default
/// rights and never has to change file systems. A lock on it tells those of a running process from
/// those that a killed one left.
class Temporary_Entry
{
public:
    Temporary_Entry() = default;
    ~Temporary_Entry();
    Temporary_Entry(const Temporary_Entry&) = delete;
    Temporary_Entry& operator=(const Temporary_Entry&) = delete;

    /// Both leave errno on failure.
    /// @param parent  any handle of the directory; to live longer than this
    [[nodiscard]] bool create_file(int parent);
    [[nodiscard]] bool create_directory(int parent);

    /// Of a file for reading and writing, of a directory for reading.
    int handle() const { return handle_.get(); }
    const std::string& name() const { return name_; }

    /// It has got a name of its own. The handle without its lock is the caller's.
    File_Handle placed();

private:
    template <class Create>
    bool create(int parent, Create create);

    int parent_ = -1;
    std::string name_;
    File_Handle handle_;
};

/// Removes an entry with all it holds, as far as that is possible.
void remove_with_contents(int parent, const std::string& name);

/// Removes the entry when it is a temporary one of a process that is no more.
void remove_left_over(int parent, const std::string& name);
