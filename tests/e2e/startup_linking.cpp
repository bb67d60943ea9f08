// The shipped binary must run on a host that offers only the C library: it
// carries line editing and the C++ runtime itself.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "machine.h"

namespace {

bool allowedLibrary(const std::string &name)
{
    const std::string base = name.substr(name.rfind('/') + 1);
    for (const char *prefix :
         {"linux-vdso.so", "linux-gate.so", "libc.so", "libdl.so", "libpthread.so", "libm.so", "ld-linux"}) {
        if (base.rfind(prefix, 0) == 0)
            return true;
    }
    return false;
}

TEST(StartupLinking, NeedsOnlyTheCLibrary)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "sanitizer builds link their runtimes dynamically";
#endif
    const auto r = krt_test::runProcess({"/usr/bin/ldd", krt_test::cliPath()});
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::string line;
    int libraries = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string name;
        if (!(words >> name))
            continue;
        ++libraries;
        EXPECT_TRUE(allowedLibrary(name)) << line;
    }
    EXPECT_GT(libraries, 0) << r.out;
}

}  // namespace
