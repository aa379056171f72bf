#pragma once

#include <gtest/gtest.h>

#include <VxTestSupport/Thrown.h>

namespace Vx
{

/// The message with which `call` is refused; empty when it is not.
template <class F>
std::string Refusal(const F& call, Nucleo::Status status = Nucleo::ERROR_PARAMETER)
{
    const auto error = VxTestSupport::Caught(call);
    EXPECT_TRUE(!error || error->Status() == status) << error->what();
    return error ? error->Message() : "";
}

}  // namespace Vx
