#pragma once

#include "client_io/image_block_reader.h"
#include "client_io/image_block_writer.h"
#include "tests/support/fault_io.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_io.h"
#include "tests/support/open_facade.h"

#include <memory>
#include <string>
#include <vector>

// Images in open files.

/// A facade over storage in memory with one file, the image, and faults where a test wants them.
class Image_File
{
public:
    explicit Image_File(std::string bytes = {}, Fault_Plan plan = {});

    /// Opens the file for writing, at its start.
    void open_new();
    void open();
    void close();
    /// What the file holds.
    std::string bytes() const;
    /// The file, to be changed directly.
    Sparse_Bytes& contents();

    Open_Facade io;

private:
    std::shared_ptr<Memory_File_System> files_ = std::make_shared<Memory_File_System>();
};

/// The three forms of reading an image.
enum class Reading
{
    zero_copy,
    buffered,
    aligned,
};
constexpr Reading every_reading[] = {Reading::zero_copy, Reading::buffered, Reading::aligned};
std::ostream& operator<<(std::ostream& out, Reading reading);

/// Reads from the open file.
bool read_image(Image_Block_Reader& reader, Reading reading, Client_IO& io,
                const Image_Block_Reader::Handler& handler, std::uint64_t buffer_size = 0);
/// The same with a reader that wants nothing of its own.
bool read_image(Reading reading, Client_IO& io, const Image_Block_Reader::Handler& handler,
                std::uint64_t buffer_size = 0);

/// A piece that was delivered.
struct Piece
{
    std::int64_t offset = 0;
    std::string bytes;

    bool operator==(const Piece&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Piece& piece);

/// A handler that collects.
Image_Block_Reader::Handler into(std::vector<Piece>& pieces);
/// The same, with pieces that follow each other joined.
Image_Block_Reader::Handler joined_into(std::vector<Piece>& pieces);

/// The bytes of a source, which tell their offset: no two of its blocks are alike.
class Test_Source
{
public:
    void read(std::uint64_t offset, char* to, std::uint64_t size) const;
    std::string read(std::uint64_t offset, std::uint64_t size) const;
    /// A reader callback that gives @p most bytes at most.
    Image_Block_Writer::Reader reader(std::uint64_t most = ~std::uint64_t{0}) const;
};

/// A progress callback that goes on.
bool go_on(std::uint64_t bytes);

/// What was logged, each message as "error: TEXT" or "emergency: TEXT". Places of broken
/// preconditions become "%N:%l" after their file's name was compared with @p file, stack traces
/// are cut off.
std::vector<std::string> logged(const Log_Capture& log, const std::string& file);
