#pragma once

#include "client_io/client_io.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>
#include <string>

/// A file of a local target, and a connection to it.
class Stored_File
{
public:
    explicit Stored_File(Compression_Method compression = COMPRESSION_NONE)
    {
        Client_IO_Base::Options options;
        options.compression = compression;
        EXPECT_TRUE(io_.connect(file_uri(directory_.str()).c_str(), options)) << io_.error();
    }

    /// The connection, with the file open for writing.
    Client_IO& written()
    {
        EXPECT_TRUE(io_.open("file", Client_IO::mode_write | Client_IO::mode_overwrite, 0, 0))
            << io_.error();
        return io_;
    }

    /// The connection, with the file open for reading; it holds @p data.
    Client_IO& holding(const std::string& data)
    {
        EXPECT_TRUE(io_.put_contents("file", data, true)) << io_.error();
        EXPECT_TRUE(io_.open("file", Client_IO::mode_read, 0, 0)) << io_.error();
        return io_;
    }

    /// Closes the file and returns what it holds.
    std::string contents()
    {
        EXPECT_TRUE(io_.close()) << io_.error();
        std::string data;
        EXPECT_TRUE(io_.get_contents("file", data)) << io_.error();
        return data;
    }

private:
    Temp_Directory directory_;
    Client_IO io_;
};
