#pragma once

#include <ace/Basic_Types.h>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

/// What the two systems do differently, as far as tests that hold on both have to know it.
namespace this_system
{

/// The error numbers of failures for which os_error.h has no common name: it names what the code
/// asks for, these are answers that it only passes on.
struct Errors
{
    int below_a_file;        ///< a path leads through a file
    int make_below_a_file;   ///< a directory was to be made at such a path
    int directory_not_empty; ///< a directory that has entries was to be removed
    int open_directory;      ///< a directory was to be opened as if it were a file
    int replace_directory;   ///< a file was to be put in the place of a directory
    int name_too_long;       ///< a name has 300 letters
    int seek_before_start;   ///< a negative position
    int move_into_itself;    ///< a directory was to be moved into itself
};
extern const Errors errors;

/// Handles of files (on Windows: of anything) that this process has open.
std::size_t open_handles();

/// Whether a child process would get the handle.
bool is_inherited(ACE_HANDLE handle);

/// @param seconds  since 1970, negative before
void set_modification_time(const std::string& path, std::int64_t seconds);

/// Makes a file so long; what is new is a hole and takes no space.
void resize_with_hole(const std::string& path, std::uint64_t size);

/// A file that can be opened for writing and then takes no byte.
class Unwritable_File
{
public:
    Unwritable_File();
    ~Unwritable_File();
    Unwritable_File(const Unwritable_File&) = delete;
    Unwritable_File& operator=(const Unwritable_File&) = delete;

    const std::string& path() const { return path_; }
    /// To be called when the file is open.
    void take_no_more();
    /// The error number of every write from then on.
    static int errnum();

private:
    struct State;

    std::string path_;
    std::unique_ptr<State> state_;
};

} // namespace this_system
