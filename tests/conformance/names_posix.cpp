#include "tests/conformance/names.h"

const std::vector<std::string> names_of_this_system = {
    "double\"quote", "what?",     "a*b",           "<less|more>",           "C:",
    "back\\slash",   "new\nline", "tab\t\x01\x7F", "\xFF\xFE is not UTF-8",
};

const bool file_names_ignore_case = false;
