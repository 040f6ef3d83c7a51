#pragma once

#include <string>

/// Removes a directory and everything in it, as far as that is possible. std::filesystem's own
/// never comes to an end over names that Windows would shorten.
void remove_tree(const std::string& path);
