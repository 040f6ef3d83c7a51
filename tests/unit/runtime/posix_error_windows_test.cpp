#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace
{

TEST(POSIX_Error, TextAloneIsTheTextOfTheSystem)
{
    struct Known
    {
        int number;
        const char* of_windows;
        const char* of_wine;
    };
    const Known texts[] = {
        {ERROR_FILE_NOT_FOUND, "The system cannot find the file specified.", "File not found."},
        {ERROR_ACCESS_DENIED, "Access is denied.", "Access denied."},
        {ERROR_SHARING_VIOLATION,
         "The process cannot access the file because it is being used by another process.",
         "Sharing violation."},
    };
    for (const auto& [number, of_windows, of_wine] : texts) {
        const std::string text = POSIX_Error(number, 1).str();
        EXPECT_TRUE(text == of_windows || text == of_wine) << number << ": " << text;
        EXPECT_EQ(POSIX_Error(number).str(), text + " (errno " + std::to_string(number) + ")");
    }
}

TEST(POSIX_Error, TextsAreOneLine)
{
    for (int number = 1; number < 2000; ++number) {
        const std::string text = POSIX_Error(number, 1).str();
        ASSERT_FALSE(text.empty()) << number;
        EXPECT_EQ(text.find_first_of("\r\n\t"), std::string::npos) << number << ": " << text;
        EXPECT_NE(text.back(), ' ') << number;
    }
}

TEST(POSIX_Error, NearlyEveryNumberThatTheCodeNamesHasAText)
{
    using namespace os_error;
    // Wine has none for file_too_large and is_a_directory.
    for (const int number :
         {no_such_file, no_such_directory, access_denied, bad_handle, out_of_memory, file_exists,
          invalid_argument, broken_pipe, invalid_name, seek_on_device, busy, already_exists,
          name_too_long, pipe_closing, write_fault, not_a_directory})
        EXPECT_FALSE(POSIX_Error(number, 1).str().starts_with("Unknown error")) << number;
}

TEST(POSIX_Error, NumbersAreThoseOfTheSystem)
{
    EXPECT_EQ(os_error::no_such_file, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(os_error::no_such_directory, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(os_error::access_denied, ERROR_ACCESS_DENIED);
    EXPECT_EQ(os_error::bad_handle, ERROR_INVALID_HANDLE);
    EXPECT_EQ(os_error::out_of_memory, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(os_error::file_exists, ERROR_FILE_EXISTS);
    EXPECT_EQ(os_error::invalid_argument, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(os_error::broken_pipe, ERROR_BROKEN_PIPE);
    EXPECT_EQ(os_error::invalid_name, ERROR_INVALID_NAME);
    EXPECT_EQ(os_error::seek_on_device, ERROR_SEEK_ON_DEVICE);
    EXPECT_EQ(os_error::busy, ERROR_BUSY);
    EXPECT_EQ(os_error::already_exists, ERROR_ALREADY_EXISTS);
    EXPECT_EQ(os_error::name_too_long, ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(os_error::file_too_large, ERROR_FILE_TOO_LARGE);
    EXPECT_EQ(os_error::pipe_closing, ERROR_NO_DATA);
    EXPECT_EQ(os_error::not_a_directory, ERROR_DIRECTORY);
    EXPECT_EQ(os_error::is_a_directory, 336) << "ERROR_DIRECTORY_NOT_SUPPORTED";
    EXPECT_EQ(os_error::write_fault, ERROR_WRITE_FAULT);
}

} // namespace
