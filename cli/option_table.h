#pragma once

#include "client_io/client_io_base.h"

#include <optional>
#include <string>
#include <vector>

namespace cio
{

/// Where the settings of a connection come from.
struct Option_Sources
{
    std::optional<std::string> file;      ///< a JSON file, the weakest source
    std::vector<std::string> assignments; ///< "key=value" each, the strongest source
};

/// Puts the connection options together: the file, above it the environment (CIO_ACCESS_KEY,
/// CIO_SECRET_KEY, CIO_ENCRYPTION_KEY, CIO_ENCRYPTION_IV), above that the assignments.
/// Throws Usage_Error for an unknown key (naming the nearest known one), a value of the wrong
/// type, and a file that cannot be read. The texts never hold a value that may be a secret.
[[nodiscard]] Client_IO_Base::Options read_options(const Option_Sources& sources);

/// The table of all options, for people.
[[nodiscard]] std::string option_help();

/// The known keys, for tests that compare them with what the library reads.
[[nodiscard]] std::vector<std::string> option_keys();

} // namespace cio
