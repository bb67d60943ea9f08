// The shipped binary must run on a host that offers only the C library: it
// carries line editing and the C++ runtime itself.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "machine.h"

namespace {

TEST(StartupLinking, NeedsOnlyTheCLibrary)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "sanitizer builds link their runtimes dynamically";
#endif
    const auto r = krt_test::runProcess({"/usr/bin/ldd", krt_test::cliPath()});
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    int libraries = 0;
    for (std::string name, rest; lines >> name && std::getline(lines, rest); ++libraries) {
        const std::string base = name.substr(name.rfind('/') + 1);
        bool allowed = false;
        for (const char *prefix :
             {"linux-vdso.so", "linux-gate.so", "libc.so", "libdl.so", "libpthread.so", "libm.so", "ld-linux"})
            allowed = allowed || base.rfind(prefix, 0) == 0;
        EXPECT_TRUE(allowed) << name << rest;
    }
    EXPECT_GT(libraries, 0) << r.out;
}

}  // namespace
