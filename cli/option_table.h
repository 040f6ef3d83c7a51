#pragma once

#include "client_io/client_io_base.h"

#include <optional>
#include <string>
#include <vector>

namespace cio
{

/// The options of a command line that stand for settings of the transforms, as they were written.
struct Transform_Flags
{
    std::optional<std::string> compress{}; ///< --compress METHOD
    std::optional<std::string> level{};    ///< --level N
    std::optional<std::string> encrypt{};  ///< --encrypt CIPHER
    std::optional<std::string> key_file{}; ///< --key-file FILE
    std::optional<std::string> limit{};    ///< --limit RATE
};

/// Where the settings of a connection come from.
struct Option_Sources
{
    std::optional<std::string> file;      ///< a JSON file, the weakest source
    std::vector<std::string> assignments; ///< "key=value" each, the strongest source
    Transform_Flags flags{};              ///< as strong as the assignments
};

/// Puts the connection options together: the file, above it the environment (CIO_ACCESS_KEY,
/// CIO_SECRET_KEY, CIO_ENCRYPTION_KEY, CIO_ENCRYPTION_IV), above that the assignments and flags.
/// Throws Usage_Error for an unknown key (naming the nearest known one), a value of the wrong
/// type, a file that cannot be read, an assignment and a flag that contradict each other, and
/// settings of the transforms that do not serve together. The texts never hold a value that may be
/// a secret.
/// @param warnings  receives what the user should know; may be NULL
[[nodiscard]] Client_IO_Base::Options read_options(const Option_Sources& sources,
                                                   std::vector<std::string>* warnings = nullptr);

/// The table of all options, for people.
[[nodiscard]] std::string option_help();

/// The known keys, for tests that compare them with what the library reads.
[[nodiscard]] std::vector<std::string> option_keys();

} // namespace cio
