#include <client_io/client_io.h>
#include <client_io/client_io_istreambuf.h>
#include <client_io/client_io_ostreambuf.h>
#include <client_io/yajl_client_io_printer.h>
#include <iostream>

namespace
{

bool write_lines(Client_IO& target)
{
    if (!target.open("lines.txt", Client_IO::mode_write | Client_IO::mode_overwrite, 0, 0))
        return false;
    Client_IO_ostreambuf buffer(target, 65536);
    std::ostream out(&buffer);
    for (int number = 1; number <= 10000; ++number)
        out << "line " << number << '\n';
    out.flush(); // or the last ones are lost
    return out.good() && target.close();
}

bool count_lines(Client_IO& target, int& lines)
{
    if (!target.open("lines.txt", Client_IO::mode_read, 0, 0))
        return false;
    Client_IO_istreambuf buffer(target, 65536);
    std::istream in(&buffer);
    for (std::string line; std::getline(in, line);)
        ++lines;
    char byte = 0; // a read that failed ended the loop as well: only the real end is 0 again
    return target.read(&byte, 1) == 0 && target.close();
}

bool write_report(Client_IO& target, int lines)
{
    if (!target.open("report.json", Client_IO::mode_write | Client_IO::mode_overwrite, 0, 0))
        return false;
    YAJL_Client_IO_Printer printer(&target);
    printer.open_map();
    printer.key("file");
    printer.string("lines.txt");
    printer.key("lines");
    printer.number(lines);
    printer.close_map();
    printer.flush();
    return printer.complete() && printer && target.close();
}

} // namespace

int main(int, char** argv)
{
    Client_IO target(argv[1], {});
    int lines = 0;
    if (write_lines(target) && count_lines(target, lines) && write_report(target, lines))
        return 0;
    std::cerr << target.error() << '\n';
    return 1;
}
