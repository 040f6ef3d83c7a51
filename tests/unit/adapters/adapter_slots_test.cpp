#include "client_io/client_io_istreambuf.h"
#include "client_io/client_io_ostreambuf.h"
#include "client_io/yajl_client_io_printer.h"
#include "tests/support/virtual_slots.h"
#include "tests/unit/adapters/recorded_file.h"

#include <gtest/gtest.h>
#include <utility>

// Programs built earlier call by slot number and hold objects of these sizes.

namespace
{

using Buffered = YAJL_Buffered_Printer_T<2048>;
using Output = void (YAJL_Printer::*)(const char*, std::size_t);

/// Calls slot @p number of @p object as a function of type @p Function.
template <class Function, class Object, class... Arguments>
decltype(auto) call_slot(Object& object, std::size_t number, Arguments&&... arguments)
{
    return (object.*in_slot<Function>(number))(std::forward<Arguments>(arguments)...);
}

TEST(Adapter_Slots, AreAsManyAsTheBasesHave)
{
    EXPECT_EQ(slot_count<Client_IO_istreambuf>(), slot_count<std::streambuf>());
    EXPECT_EQ(slot_count<Client_IO_ostreambuf>(), slot_count<std::streambuf>());
    EXPECT_EQ(slot_count<YAJL_Printer>(), 3);
    EXPECT_EQ(slot_count<Buffered>(), 4);
    EXPECT_EQ(slot_count<YAJL_Client_IO_Printer>(), 4);
}

TEST(Adapter_Slots, OfThePrinterAreTheOutputCallAndWhereFullBuffersGo)
{
    EXPECT_EQ(slot_of(&YAJL_Printer::print), 2);
    EXPECT_EQ(slot_of(&Buffered::overflow), 3);
    Recorded_File file(2);
    YAJL_Client_IO_Printer printer(&file.io);
    YAJL_Printer& base = printer;
    call_slot<Output>(base, 2, "buffered", 8U);
    EXPECT_EQ(file.log->written, "");
    call_slot<Output>(base, 3, "straight", 8U);
    EXPECT_EQ(file.log->written, "straight");
}

TEST(Adapter_Slots, OfTheStreamBuffersAreThoseOfTheStandardLibrary)
{
    using Sync = int (std::streambuf::*)();
    using Overflow = int (std::streambuf::*)(int);
    using Seek = std::streampos (std::streambuf::*)(std::streamoff, std::ios_base::seekdir,
                                                    std::ios_base::openmode);
    Recorded_File written(2);
    Client_IO_ostreambuf out(written.io, 8);
    std::streambuf& out_base = out;
    EXPECT_EQ(call_slot<Overflow>(out_base, 13, 'a'), 'a');
    EXPECT_EQ(call_slot<Sync>(out_base, 6), 0);
    EXPECT_EQ(written.log->written, "a");

    Recorded_File read(1);
    read.log->blocks = {"abc"};
    Client_IO_istreambuf in(read.io, 8);
    std::streambuf& in_base = in;
    EXPECT_EQ(call_slot<Sync>(in_base, 9), 'a'); // underflow()
    EXPECT_EQ(call_slot<Seek>(in_base, 4, 2, std::ios_base::cur, std::ios_base::in), 2);
    EXPECT_EQ(in.sgetc(), 'c');
}

TEST(Adapter_Slots, MembersAddTheirOwnSizesOnly)
{
    EXPECT_EQ(sizeof(Client_IO_ostreambuf), sizeof(std::streambuf) + 24);
    EXPECT_EQ(sizeof(Client_IO_istreambuf), sizeof(std::streambuf) + 32);
    EXPECT_EQ(sizeof(Buffered), sizeof(YAJL_Printer) + 2048 + 8);
    EXPECT_EQ(sizeof(YAJL_Client_IO_Printer), sizeof(Buffered) + 24);
}

} // namespace
