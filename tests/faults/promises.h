#pragma once

#include "tests/faults/fault_stack.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Tests of the places where a retry could lose bytes, double them or join two files, one by one.
/// In all of them operation 0 of the layer below is connect, 1 the open, 2 the first one after it.
class Promises : public testing::Test
{
protected:
    static constexpr unsigned reading = Client_IO_Base::mode_read;
    static constexpr unsigned writing = Client_IO_Base::mode_write;
    static constexpr unsigned appending = Client_IO_Base::mode_append;
    static constexpr unsigned random_writing = Client_IO_Base::mode_random_write;
    static constexpr unsigned overwriting =
        Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;
    static constexpr auto file = Fault_Target::path;

    void start(std::map<std::uint64_t, Fault> faults, std::uint64_t buffer_size = 100)
    {
        stack_ = std::make_unique<Fault_Stack>(target_, faults_at(std::move(faults)), buffer_size);
        io_ = stack_->io.get();
        ASSERT_TRUE(stack_->connect());
    }

    bool write(const std::string& data) { return io_->write(data.data(), data.size()); }

    std::string read(std::uint64_t size)
    {
        std::string data(size, '?');
        const std::int64_t n = io_->read(data.data(), size);
        return n < 0 ? "(failed)" : data.substr(0, static_cast<std::size_t>(n));
    }

    std::vector<std::string> logged() const
    {
        std::vector<std::string> result;
        for (const Log_Capture::Message& message : log_.messages())
            result.push_back(message.text);
        return result;
    }

    Fake_Clock clock_;
    Log_Capture log_;
    Fault_Target target_;
    std::unique_ptr<Fault_Stack> stack_;
    Resumption_IO* io_ = nullptr;
};
