#pragma once

#include "servers/storage/file_handle.h"

/// Makes one process the only one to serve a directory: a locked file of a reserved name in it.
/// The file is removed at the end, so that one that is found tells of a process that was killed.
class Root_Lock
{
public:
    enum class State
    {
        taken,
        taken_after_kill,
        in_use,       ///< somebody else serves the directory
        not_lockable, ///< nothing can be written to it, or files cannot be locked there
    };

    ~Root_Lock();

    /// @param root  any handle of the directory; to live longer than this
    State take(int root);

private:
    int root_ = -1;
    File_Handle file_;
};
