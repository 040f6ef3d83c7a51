#include "tests/conformance/names.h"

const std::vector<std::string> names_of_this_system = {
    // Devices, unless the path is in the form that is not edited.
    "CON",
    "nul",
    "aux.txt",
    "COM1",
    "lpt9.log",
    "CONIN$",
    // What the system would otherwise cut off.
    "dot at the end.",
    "space at the end ",
    "...",
    "\x7F",
};

const bool file_names_ignore_case = true;
