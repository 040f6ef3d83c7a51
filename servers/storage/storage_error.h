#pragma once

#include "servers/storage/storage_tree.h"

/// The result of an operation that the system refused with this error number.
Storage_Result storage_error(int errnum);
