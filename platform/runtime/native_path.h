#pragma once

#include <string>
#include <string_view>

/// How paths reach 64-bit Windows, and names come back. Nothing else in the project converts them.
///
/// Narrow paths are UTF-8, whatever the code page. File names on Windows are any 16-bit units; one
/// that is not UTF-16 (half of a surrogate pair) is written like WTF-8, so that it too comes back
/// as it was. Anything else that is not UTF-8 is refused (ERROR_NO_UNICODE_TRANSLATION, 1113).
///
/// A path is made absolute here, its `/` become `\`, repeated separators one, "." and ".." are
/// resolved by name, and it is handed over in the form that the system does not edit
/// ("\\?\C:\dir\name", "\\?\UNC\server\share\name"). So paths may be longer than 260 characters,
/// and names that the system would otherwise redirect or shorten ("CON", "NUL", "aux.txt", a
/// trailing dot or space) are ordinary names. Characters that no file name may hold are refused
/// (ERROR_INVALID_NAME, 123): `< > : " | ? *` and control characters; a colon in a name would
/// otherwise write into a hidden stream of another file. The same rules hold for paths that begin
/// with "\\?\" or "\\.\"; those that name a volume or device by itself keep that beginning.

/// @return false on failure (ACE_OS::last_error())
[[nodiscard]] bool to_native_path(const char* path, std::wstring& native);

/// A name or path as the system gives it, without the prefix of the form above.
[[nodiscard]] std::string from_native_path(std::wstring_view native);

/// Text, not a path: UTF-8 to UTF-16 and back, under the rules above.
[[nodiscard]] bool utf8_to_wide(std::string_view text, std::wstring& wide);
[[nodiscard]] std::string wide_to_utf8(std::wstring_view wide);
