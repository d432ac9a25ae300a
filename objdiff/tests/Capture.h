// Runs a piece of code while capturing what it writes on standard output and error.
#ifndef OBJDIFF_TESTS_CAPTURE_H
#define OBJDIFF_TESTS_CAPTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <iostream>
#include <string>

struct Captured
{
    std::string out;
    std::string err;
};

template <typename F>
Captured capture(F body)
{
    Captured c;
    std::cout.flush();
    std::cerr.flush();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    body();
    std::cout.flush();
    std::cerr.flush();
    c.err = testing::internal::GetCapturedStderr();
    c.out = testing::internal::GetCapturedStdout();
    return c;
}

#endif
