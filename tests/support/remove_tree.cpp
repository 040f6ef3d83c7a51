#include "tests/support/remove_tree.h"

#include "platform/runtime/directory_reader.h"
#include "platform/runtime/file_system.h"

#include <vector>

void remove_tree(const std::string& path)
{
    std::vector<Directory_Reader::Entry> entries;
    {
        Directory_Reader reader;
        Directory_Reader::Entry entry;
        if (reader.open(path.c_str(), false, 0))
            while (reader.read(entry) == 1)
                entries.push_back(entry);
    }
    for (const Directory_Reader::Entry& entry : entries) {
        const std::string below = path + '/' + entry.name;
        if (entry.is_dir())
            remove_tree(below);
        else
            static_cast<void>(file_system::remove(below.c_str()));
    }
    static_cast<void>(file_system::remove(path.c_str()));
}
