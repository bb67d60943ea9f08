// Every command of both tables, with the options people type, against a RAID
// and a JBOF machine whose controllers misbehave in each way the simulator can
// make them. Whatever comes back, each run must end by itself, without a
// signal, and without a sanitizer report when the build carries them.
#include <gtest/gtest.h>

#include "harness.h"
#include "machine.h"
#include "text.h"

namespace krt_test {
namespace {

// What makes the machine misbehave; none: it behaves.
const std::pair<const char *, std::vector<std::string>> kEffects[] = {
    {"none", {}},
    {"status", {"fault", "add", "--status", "0x0107"}},
    {"bad_sign", {"fault", "add", "--bad-sign"}},
    {"envelope_status", {"fault", "add", "--envelope-status", "7"}},
    {"overlong", {"fault", "add", "--overlong"}},
    {"vanish", {"fault", "vanish", "0"}},
    {"list_fail", {"fault", "list-fail"}},
};

class FaultMatrix : public ::testing::TestWithParam<std::tuple<const char *, int>> {};

TEST_P(FaultMatrix, EveryCommandEndsCleanly)
{
    const auto [fixture, effect] = GetParam();
    SimMachine machine(fixture);
    writeFile(machine.dir().file("spi_in.bin"), std::string(4096, 'S'));
    writeFile(machine.dir().file("fw.bin"), "KRTFW:2.1.0.99" + std::string(8192 - 14, '\x5a'));
    ASSERT_EQ(effect == 0 ? 0 : machine.krtsim(kEffects[effect].second).status, 0);
    RunOptions options;
    options.input = "y\ny\n";
    options.timeoutSeconds = 30;
    for (const std::string &line : krt_fuzz::commandLines("fw.bin", "spi_in.bin", "out.bin")) {
        const RunResult r = machine.cli(words(line), options);
        EXPECT_FALSE(r.timedOut) << line << ": did not end within " << options.timeoutSeconds << " s";
        EXPECT_EQ(r.signal, 0) << line << ": ended by a signal\n" << r.err;
        for (const char *report : {"runtime error:", "Sanitizer"})
            EXPECT_EQ(r.err.find(report), std::string::npos) << line << ":\n" << r.err;
    }
}

INSTANTIATE_TEST_SUITE_P(Machines, FaultMatrix,
                         ::testing::Combine(::testing::Values("raid", "jbof"), ::testing::Range(0, 7)),
                         [](const auto &param) {
                             return std::string(std::get<0>(param.param)) + "_" +
                                    kEffects[std::get<1>(param.param)].first;
                         });

}  // namespace
}  // namespace krt_test
