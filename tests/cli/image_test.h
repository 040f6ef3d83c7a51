#pragma once

#include "platform/image/image_writer.h"
#include "tests/cli/transform_test.h"

#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

/// A test of `cio image`. Images are stored in the target "target".
class Image_Test : public Transform_Test
{
protected:
    struct Piece
    {
        std::uint64_t offset;
        std::string data;
    };

    /// A file of holes with some data in it.
    void write_sparse(const std::string& name, std::uint64_t size,
                      std::initializer_list<Piece> pieces) const;
    /// Writes into a file that is there.
    void write_into(const std::string& name, std::uint64_t offset, const std::string& data) const;

    Cio_Result image(const std::string& command, const std::vector<std::string>& arguments,
                     Cio_Settings settings = {}) const
    {
        std::vector<std::string> line{"image", command};
        line.insert(line.end(), arguments.begin(), arguments.end());
        return cio(line, std::move(settings));
    }
    /// Runs a command that has to succeed.
    Cio_Result done(const std::string& command, const std::vector<std::string>& arguments) const
    {
        const Cio_Result result = image(command, arguments);
        EXPECT_EQ(result.code, 0) << command << ": " << result.err << result.out;
        return result;
    }
    void save(const std::string& source, const std::string& name,
              std::vector<std::string> options = {}) const
    {
        options.insert(options.end(), {source, uri(), name});
        done("save", options);
    }
    /// The lines of an image's extents.
    std::string extents(const std::string& name) const;
    std::uint64_t stored_size(const std::string& name) const
    {
        return std::filesystem::file_size(at("target/" + name));
    }
    /// Runs info, verify and restore on an image that they have to refuse.
    void expect_refused(const std::string& name, const std::string& text) const;
};

/// Builds images that `cio image save` would not.
class Image_Builder : public qovr::Image_Writer
{
public:
    explicit Image_Builder(const qovr::Image_Options& options);
    ~Image_Builder() override;

    bool overflow(const void* data, std::uint64_t size) override;
    /// One batch: an extent of whole blocks, all of one character.
    void add(std::uint64_t block, std::uint64_t count, char character);
    /// Ends the image with one more such extent.
    const std::string& finish(std::uint64_t block, std::uint64_t count, char character);

private:
    void write_blocks(std::uint64_t count, char character);

    std::string bytes_;
};
