#pragma once

#include <string>

#include <gtest/gtest.h>

#include <VxApi/Exception.h>

namespace Vx
{

/// The message with which `call` is refused; empty when it is not.
template <class F>
std::string Refusal(const F& call, Nucleo::Status status = Nucleo::ERROR_PARAMETER)
{
    try {
        call();
    } catch (const Exception& error) {
        EXPECT_EQ(error.Status(), status) << error.what();
        return error.Message();
    }
    return {};
}

}  // namespace Vx
