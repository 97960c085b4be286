// refusal.h - the code that a call fails with.
#pragma once

#include "servicing_error.h"

#include <gtest/gtest.h>

namespace kestro::test {

// The code that a call fails with; ok when it does not.
template <class Call>
servicing::Code CodeOf(Call call)
{
    try {
        call();
    } catch (const servicing::ServicingError& error) {
        return error.GetCode();
    }
    return servicing::code::ok;
}

} // namespace kestro::test

// Codes are compared, and shown, in hex.
#define EXPECT_CODE(call, expected)                                                                \
    EXPECT_EQ(static_cast<unsigned>(kestro::test::CodeOf([&] { call; })),                          \
              static_cast<unsigned>(expected))                                                     \
        << std::hex << static_cast<unsigned>(expected)
