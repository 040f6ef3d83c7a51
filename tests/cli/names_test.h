#pragma once

#include "tests/cli/cli_test.h"

/// A file that bears the name, brought to a target and back.
class Names : public Cli_Test, public testing::WithParamInterface<std::string>
{};
