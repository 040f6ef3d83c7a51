// A program as others write it: knows nothing but the installed copy.
// usage: consumer URI

#include <client_io/client_io.h>
#include <cstdio>
#include <string>

int main(int, char** argv)
{
    Client_IO::Options options;
    options.set_extra_option("purpose", "test");
    Client_IO target;
    std::string text;
    if (!target.connect(argv[1], options) ||
        !target.put_contents("a directory/file", "contents", false) ||
        !target.get_contents("a directory/file", text))
    {
        std::fprintf(stderr, "%s\n", target.error().c_str());
        return 1;
    }
    std::vector<Client_IO::Directory_Entry> entries;
    if (!target.get_dir("a directory", entries) || entries.size() != 1)
        return 1;
    std::printf("%s: %s\n", entries[0].name.c_str(), text.c_str());
    return 0;
}
