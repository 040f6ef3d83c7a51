#include "cli/key_file.h"

#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

class Key_File_Permissions : public Cli_Test
{};

TEST_F(Key_File_Permissions, PermissionsForOthersAreWorthAWarning)
{
    write("K", "key=0102\niv=03\n");
    const std::string warning = "key file " + path("K") + " can be read by other users";
    const std::pair<unsigned, std::string> modes[] = {
        {0600, ""}, {0400, ""}, {0622, ""}, {0640, warning}, {0604, warning}, {0644, warning}};
    for (const auto& [mode, expected] : modes) {
        fs::permissions(at("K"), static_cast<fs::perms>(mode));
        cio::Key_Material material;
        EXPECT_EQ(cio::read_key_file(path("K"), material), expected) << mode;
    }
}
