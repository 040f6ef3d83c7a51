#include "tests/faults/promises.h"

#include <new>

/// Memory that runs out below in the midst of a write: how much arrived is not known.

namespace
{

class Out_Of_Memory : public Promises
{
protected:
    /// Throws at the operation of that index; the next one fails so that a retry may help.
    void start_throwing_at(std::uint64_t index)
    {
        const auto plan = [index](const Fault_Point& point) -> std::optional<Fault> {
            if (point.index == index)
                throw std::bad_alloc();
            return point.index == index + 1 ? std::optional<Fault>(Fault{}) : std::nullopt;
        };
        stack_ = std::make_unique<Fault_Stack>(target_, plan, 100);
        io_ = stack_->io.get();
        ASSERT_TRUE(stack_->connect());
        ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
    }
};

TEST_F(Out_Of_Memory, InAWriteIsFollowedByNoResumption)
{
    start_throwing_at(3);
    EXPECT_TRUE(write("ABCD"));
    EXPECT_THROW(static_cast<void>(write("EFGH")), std::bad_alloc);
    EXPECT_FALSE(write("IJKL"));
    EXPECT_EQ(stack_->faults->operations(), 5U); // that write was the last one
    EXPECT_THAT(logged(),
                testing::ElementsAre("Not retry writing file since an earlier write failed\n"));
    EXPECT_EQ(target_.contents(), "ABCD");
}

TEST_F(Out_Of_Memory, InAWriteDoesNotSpoilTheNextFile)
{
    start_throwing_at(2);
    EXPECT_THROW(static_cast<void>(write("ABCD")), std::bad_alloc);
    static_cast<void>(io_->close());
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0)) << io_->error();
    EXPECT_TRUE(write("MNOP"));
    EXPECT_TRUE(io_->close()) << io_->error();
    EXPECT_EQ(target_.contents(), "MNOP");
}

} // namespace
