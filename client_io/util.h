#pragma once

#include "client_io/client_io.h"
#include "client_io/pool_info.h"
#include "platform/json/json_spirit.h"
#include "platform/runtime/export.h"

// Small jobs that callers of the library do again and again.
//
// A function that fails returns false and has logged one line that says why; the Client_IO keeps
// its own error(). Out of memory sets the system error number to ENOMEM and may fail without a
// line. Like a Client_IO, a call serves one thread and keeps no state.
//
// The first four work on whole files by path. The Client_IO has to be connected, and a file that is
// open on it is closed first.

/// Makes a formatted text the contents of a file, which is replaced when it is there.
/// @param format  as for printf; numbers of 64 bits are passed with the directives of `cinttypes`.
///     What cannot be formatted, or is long and finds no memory, becomes an empty file.
CLIENT_IO_EXPORT bool client_io_write_format(Client_IO& io, const char* path, const char* format,
                                             ...)
#if defined(__MINGW32__)
    __attribute__((format(gnu_printf, 3, 4)))
#elif defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/// Makes a value, as JSON on one line, the contents of a file, which is replaced when it is there.
CLIENT_IO_EXPORT bool client_io_write_json(Client_IO& io, const char* path,
                                           const json_spirit::Value& value);

/// Reads a file of JSON.
/// @param value  untouched on failure
/// @return false, without a line in the log, also when the contents are no JSON (see loads_json)
CLIENT_IO_EXPORT bool client_io_read_json(Client_IO& io, const char* path,
                                          json_spirit::Value& value);

/// Reads the decimal number with which a file begins, after white space and perhaps a sign. A text
/// that begins otherwise is 0; a number beyond an int is the nearest one.
/// @param value  untouched on failure
CLIENT_IO_EXPORT bool client_io_read_int(Client_IO& io, const char* path, int& value);

// The two below copy between the file that is open on a Client_IO and a file or pipe of the system,
// on which they block. Neither is closed. A handle is
// - on Windows a HANDLE that was not opened for overlapped I/O,
// - on Linux a file descriptor that is not in non-blocking mode, as a number in the pointer:
//   reinterpret_cast<void*>(std::intptr_t{descriptor}).

/// Writes everything that can be read from @p handle to the file open on @p io. The writer of a
/// pipe ends the input by closing its end.
CLIENT_IO_EXPORT bool client_io_splice_from(Client_IO& io, void* handle);

/// Writes the rest of the file open on @p io to @p handle.
///
/// A pipe whose reader has gone is a failure like any other and on Linux raises no SIGPIPE,
/// whatever the process does with that signal: it is held back from the calling thread during each
/// write, and the process's own settings stay as they are.
CLIENT_IO_EXPORT bool client_io_splice_to(Client_IO& io, void* handle);

/// Takes what @p pool says over into @p options: its encryption, its credentials ("access_key" and
/// "secret_key" of Pool_Info::options), its nodes and the address to connect from; everything else
/// in Pool_Info::options and the type of a dedup backend become extra options of the same name.
///
/// The address is looked up, which may ask the network. One that cannot be found is only warned
/// about; the one in @p options stays then.
/// @return false, with nothing changed and nothing logged, when the pool's algorithm, key and IV
/// are
///     refused (Options::set_encryption_from_binary)
CLIENT_IO_EXPORT bool set_options_by_pool(Client_IO_Base::Options& options, const Pool_Info& pool);
