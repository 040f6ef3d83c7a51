#pragma once

#include "tests/support/run_program.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

/// Contents of every sort, by name; @p scale stretches the large ones.
std::map<std::string, std::string> contents_of_every_sort(std::size_t scale);

/// Runs a standard tool on @p input; fails the test when the tool does.
std::string tool(const std::vector<std::string>& arguments, const std::string& input);

/// Reads what a tool made, in both forms and in odd parts.
void expect_readable(const Kind& kind, const std::string& made, const std::string& plain,
                     const std::string& what);

/// Writes in several odd parts.
std::string written_in_parts(const Kind& kind, const std::string& plain);
