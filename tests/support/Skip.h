// Tests of what Windows has not.
#pragma once

#include <gtest/gtest.h>

#ifdef _WIN32
#define NEEDS_POSIX(reason) GTEST_SKIP() << reason
#else
#define NEEDS_POSIX(reason) static_cast<void>(reason)
#endif
