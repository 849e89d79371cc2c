#ifndef OSTRUM_TESTS_SUPPORT_FAKE_OS_FIXTURE_H
#define OSTRUM_TESTS_SUPPORT_FAKE_OS_FIXTURE_H
// A test that begins and ends with an operating system without faults, times in UTC and no debug lines.
#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "support/fake_os.h"
#include "util/diagnostics.h"

class fake_os_fixture : public testing::Test {
protected:
    fake_os_fixture()
    {
        setenv("TZ", "UTC", 1);
        tzset();
        fake_os::reset();
    }
    ~fake_os_fixture() override
    {
        ostrum::set_debug_bits(0);
        fake_os::reset();
    }
};
#endif
