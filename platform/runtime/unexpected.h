#pragma once

/// Logs a broken precondition through ACE at emergency priority.
///
/// @param format  the whole text, with %N and %l for the place and %? for the stack trace, e.g.
///                "Unexpected error in %N:%l, buff is NULL:\n%?\n"
/// @param file, line  the caller's place; leave them to their defaults
/// The system error number is left as it was.
void log_unexpected(const char* format, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE());

/// The same for a text with two %s slots, which show the operands' values behind their names:
/// "=VALUE" for a variable, nothing for a literal. A '%' before a space is the operator.
void log_unexpected_values(const char* format, const char* left, const char* right,
                           const char* file = __builtin_FILE(), int line = __builtin_LINE());
