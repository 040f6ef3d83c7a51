#pragma once

#include "platform/runtime/encryption_algorithm.h"

#include <cstdint>
#include <map>
#include <string>

/// What is known of a storage pool: that part of its description from which set_options_by_pool()
/// makes the options of a connection.
///
/// A plain record of the caller's, who wipes the secrets in it.
struct Pool_Info
{
    Encryption_Algorithm crypt_algorithm = ENCRYPTION_NONE;
    std::string crypt_key;                      ///< as it is, not in base64
    std::string crypt_iv;                       ///< as it is, not in base64
    std::string preferred_source_address;       ///< of outgoing connections; may be empty
    std::map<std::string, std::string> options; ///< of a connection to the pool, secrets included
    std::map<std::int32_t, std::string> node_addrs; ///< address of each node id
    std::string dedup_backend_type;                 ///< may be empty
};
