// Standard output of a piece of code, for printers that write with printf.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

template <class F>
std::string stdout_of(F &&print) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    print();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}
