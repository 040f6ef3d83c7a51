#pragma once

#include "tests/conformance/targets.h"
#include "tests/support/open_facade.h"

#include <utility>

/// A place behind a backend, which a subclass makes.
class Backend_Target : public Target
{
public:
    using Layer = Stack::Layer;

    explicit Backend_Target(Stack stack) : stack_(std::move(stack)) {}

    Layer connect() override
    {
        Layer layer = stack_.wrap(backend());
        if (stack_.beneath_facade) {
            auto facade = std::make_unique<Open_Facade>();
            EXPECT_TRUE(facade->connect_stack(std::move(layer), Client_IO::PROTOCOL_FILE, uri(),
                                              stack_.options, stack_.options))
                << facade->error();
            return facade;
        }
        EXPECT_TRUE(layer->connect(uri(), stack_.options)) << layer->error();
        return layer;
    }

    Layer connect_below() override
    {
        Layer layer = storage();
        EXPECT_TRUE(layer->connect(uri(), {})) << layer->error();
        return layer;
    }

protected:
    /// What the stack stands on.
    virtual Layer backend() { return storage(); }
    virtual Layer storage() = 0;
    virtual URI uri() const = 0;

private:
    Stack stack_;
};
