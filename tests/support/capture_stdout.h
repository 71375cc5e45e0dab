// Captures what a callable writes to standard output (std::cout and printf).
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace larkspin_test {

template <typename F> std::string captureStdout(F&& f) {
  testing::internal::CaptureStdout();
  f();
  std::cout.flush();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

} // namespace larkspin_test
