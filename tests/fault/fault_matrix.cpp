// Every command of both tables, with the options people type, against a RAID
// and a JBOF machine whose controllers misbehave in each way the simulator can
// make them. Whatever comes back, each run must end by itself, without a
// signal, and without a sanitizer report when the build carries them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"

namespace krt_test {
namespace {

using Words = std::vector<std::string>;

struct Effect {
    const char *name;
    Words krtsim;  // what makes the machine misbehave; empty: it behaves
};

const Effect kEffects[] = {
    {"none", {}},
    {"status", {"fault", "add", "--status", "0x0107"}},
    {"bad_sign", {"fault", "add", "--bad-sign"}},
    {"envelope_status", {"fault", "add", "--envelope-status", "7"}},
    {"overlong", {"fault", "add", "--overlong"}},
    {"vanish", {"fault", "vanish", "0"}},
    {"list_fail", {"fault", "list-fail"}},
};

// Reading commands first, then the ones that change the machine, so that
// the readers see the fixture as it was built.
const std::vector<Words> kCommands = {
    {"?"},
    {"help"},
    {"help", "info", "vd", "nothing"},
    {"version"},
    {"adapter", "--list"},
    {"adapter", "-i", "0"},
    {"adapter", "-n", "nqn.2026-01.io.krt:nvme-controller:serial:KRT00001001"},
    {"debuglv", "-t", "1"},
    {"--debug"},
    {"info", "-o", "hba"},
    {"info", "-o", "pd"},
    {"info", "-o", "pd", "-i", "1"},
    {"info", "-o", "hd", "-i", "31"},
    {"info", "-o", "vd"},
    {"info", "-o", "vd", "-i", "0"},
    {"info", "-o", "ld", "-i", "7"},
    {"info", "-o", "ns"},
    {"info", "-o", "ns", "-t", "host"},
    {"info", "-o", "ns", "-t", "vd", "-v", "0"},
    {"info", "-o", "ns", "-t", "vd", "-v", "255"},
    {"info", "-o", "hba", "-output", "info.txt"},
    {"1", "info", "-o", "pd"},
    {"event"},
    {"event", "-c", "0"},
    {"event", "-c", "20"},
    {"log", "-a", "show"},
    {"log", "-a", "show", "--outputfile", "spi_log.txt"},
    {"get", "-o", "hba"},
    {"get", "-o", "hba", "-i", "0"},
    {"smart", "-i", "1"},
    {"smart", "-o", "hba"},
    {"smart", "-o", "ns", "-n", "1"},
    {"identify", "-c", "1"},
    {"identify", "-c", "1", "--rawdata"},
    {"identify", "-c", "0", "-n", "1", "--rawdata"},
    {"identify", "-c", "2"},
    {"passthru", "-i", "1", "-r", "read", "-o", "0x06", "--cdw10", "1", "-d", "4096"},
    {"passthru", "-i", "1", "-r", "read", "-o", "2", "-n", "0xffffffff", "--cdw10", "0x7f0002", "-d", "512",
     "--showcmd"},
    {"passthru", "-i", "1", "-r", "read", "-o", "2", "--cdw10", "0x7f0003", "-d", "512", "--outputfile", "pt.bin"},
    {"spi", "-t", "read"},
    {"spi", "-t", "read", "--outputfile", "spi_out.bin"},
    {"flash", "-o", "hba", "-q", "firmware"},
    {"flash", "-o", "pd", "-i", "1", "-q", "firmware"},
    {"inverse", "-a", "get"},
    {"ns", "--list"},
    {"ns", "-p", "ctrl"},
    {"vpd"},
    {"dumphba"},
    {"gpio"},
    {"vpdread"},
    {"gen"},
    {"reg"},
    {"dvf"},
    {"protect"},
    {"i2c"},
    {"pcie"},
    {"sriov"},
    {"hotkey"},
    {"getoemdata"},
    {"mi_passthruread"},
    {"mi_passthruwrite"},
    {"vm_cmd"},
    {"log", "-a", "off"},
    {"log", "-a", "on"},
    {"set", "-o", "hba", "-i", "0", "-a", "on", "-r", "medium"},
    {"inverse", "-a", "inverse"},
    {"inverse", "-a", "noinverse"},
    {"led", "-o", "rc", "-i", "2", "-a", "qb"},
    {"led", "-o", "ep", "-i", "0", "-a", "on"},
    {"reset", "-i", "2"},
    {"reset", "-t", "perstn", "-a", "cycle", "-i", "2"},
    {"reset", "-t", "power", "-a", "cycle", "-i", "1"},
    {"init", "-i", "1"},
    {"init", "-i", "1", "-a", "stop"},
    {"mp", "-i", "0"},
    {"mp", "-i", "0", "-a", "stop"},
    {"rebuild", "-i", "1", "-a", "start", "-d", "7"},
    {"rebuild", "-i", "1", "-a", "stop"},
    {"import", "-l", "1"},
    {"import", "-l", "0", "-p", "1", "-n", "0xff"},
    {"spi", "-t", "write", "--inputfile", "spi_in.bin"},
    {"flash", "-o", "hba", "-f", "fw.bin", "-s", "2", "-c", "1"},
    {"flash", "-o", "hba", "-c", "2", "-s", "2"},
    {"flash", "-o", "hba", "-t", "raw", "-f", "fw.bin"},
    {"flash", "-o", "pd", "-i", "1", "-f", "fw.bin", "-s", "1", "-c", "1"},
    {"ns", "-a", "create", "-i", "1", "-c", "1", "-l", "10"},
    {"ns", "-a", "share", "-i", "1", "-s", "yes"},
    {"ns", "-a", "attach", "-i", "1", "-d", "1"},
    {"ns", "-a", "detach", "-i", "1", "-d", "1"},
    {"ns", "-a", "attach", "-e", "001e000000000201", "-d", "1"},
    {"ns", "-a", "init", "-i", "1", "-n", "2", "--waiveconfirmation"},
    {"vd", "-a", "create", "-r", "5", "-d", "6,7,8", "-b", "256", "-n", "2"},
    {"vd", "-a", "create", "-r", "0", "-d", "9"},
    {"vd", "-a", "delete", "-i", "0"},
};

bool sanitizerReport(const std::string &err)
{
    return err.find("runtime error:") != std::string::npos || err.find("Sanitizer") != std::string::npos;
}

std::string joined(const Words &words)
{
    std::string s;
    for (const auto &w : words)
        s += (s.empty() ? "" : " ") + w;
    return s;
}

using Case = std::tuple<const char *, const Effect *>;

class FaultMatrix : public ::testing::TestWithParam<Case> {};

TEST_P(FaultMatrix, EveryCommandEndsCleanly)
{
    const auto [fixture, effect] = GetParam();
    SimMachine machine(fixture);
    writeFile(machine.dir().file("spi_in.bin"), std::string(4096, 'S'));
    writeFile(machine.dir().file("fw.bin"), "KRTFW:2.1.0.99" + std::string(8192 - 14, '\x5a'));
    if (!effect->krtsim.empty()) {
        RunResult r = machine.krtsim(effect->krtsim);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    RunOptions options;
    options.input = "y\ny\n";
    options.timeoutSeconds = 30;
    auto check = [&](const std::string &what, const RunResult &r) {
        EXPECT_FALSE(r.timedOut) << what << ": did not end within " << options.timeoutSeconds << " s";
        EXPECT_EQ(r.signal, 0) << what << ": ended by signal " << r.signal << "\n" << r.err;
        EXPECT_FALSE(sanitizerReport(r.err)) << what << ":\n" << r.err;
    };
    for (const Words &words : kCommands)
        check(joined(words), machine.cli(words, options));
}

std::vector<Case> allCases()
{
    std::vector<Case> cases;
    for (const char *fixture : {"raid", "jbof"})
        for (const Effect &effect : kEffects)
            cases.emplace_back(fixture, &effect);
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Machines, FaultMatrix, ::testing::ValuesIn(allCases()), [](const auto &param) {
    return std::string(std::get<0>(param.param)) + "_" + std::get<1>(param.param)->name;
});

}  // namespace
}  // namespace krt_test
