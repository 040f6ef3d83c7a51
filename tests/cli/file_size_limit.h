#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/resource.h>

/// As long as the object lives, no file of this process and its children can be written beyond so
/// many bytes. Children record no coverage then, whose counts would be cut off as well.
class File_Size_Limit
{
public:
    explicit File_Size_Limit(rlim_t bytes)
    {
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &old_), 0);
        const rlimit limit{bytes, old_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(::setenv("GCOV_PREFIX", "/dev/null", 1), 0);
    }
    ~File_Size_Limit()
    {
        (void)::setrlimit(RLIMIT_FSIZE, &old_);
        (void)::unsetenv("GCOV_PREFIX");
    }
    File_Size_Limit(const File_Size_Limit&) = delete;
    File_Size_Limit& operator=(const File_Size_Limit&) = delete;

private:
    rlimit old_ = {};
};
