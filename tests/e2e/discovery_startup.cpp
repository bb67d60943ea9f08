// Discovery at start-up, seen from outside: which controllers the real
// binary registers on simulated machines, and which admin commands it sends
// to each to decide.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;
using Log = std::vector<std::string>;

const std::string kNone = "No NVMe Controller is found.\n";
const std::string kListFailed = "Failed to initialize NVMe.";

// The command log as "<adapter> <opcode> <cdw12>" per admin command.
Log commandLog(const SimMachine &m)
{
    Log out;
    std::istringstream lines(m.krtsim({"log"}).out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string adapter, opc, nsid, cdw10, cdw11, cdw12;
        if (words >> adapter >> opc >> nsid >> cdw10 >> cdw11 >> cdw12)
            out.push_back(adapter + " " + opc.substr(4) + " " + cdw12.substr(6));
    }
    return out;
}

const auto identify = [](const std::string &a) { return a + " 0x06 0x00000000"; };
const auto adapterInfo = [](const std::string &a) { return a + " 0xe2 0x000000e0"; };

// What the scan sends to a controller it accepts: Identify and the
// device-ID check, then the PCI address and the SUBNQN text.
void accepted(Log &log, const std::string &a)
{
    log.insert(log.end(), {identify(a), adapterInfo(a), adapterInfo(a), identify(a)});
}

int controllersListed(const SimMachine &m, std::vector<std::string> words = {})
{
    words.insert(words.end(), {"adapter", "--list"});
    const std::string out = m.cli(words).out, label = "Total number of NVMe Controllers: ";
    const std::size_t at = out.find(label);
    return at == std::string::npos ? -1 : std::stoi(out.substr(at + label.size()));
}

TEST(DiscoveryStartup, NoOneAndSeveralControllers)
{
    const struct {
        const char *fixture;
        std::vector<std::string> adapters;
    } cases[] = {{"empty", {}}, {"raid", {"vmhba1"}}, {"multi", {"vmhba1", "vmhba2", "vmhba3"}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fixture);
        SimMachine m(c.fixture);
        const auto r = m.cli({"version"});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out.rfind(kNone, 0) == 0, c.adapters.empty()) << r.out;
        Log expected;
        for (const auto &a : c.adapters)
            accepted(expected, a);
        for (const auto &a : c.adapters)
            expected.push_back(adapterInfo(a));  // the cached controller records, in list order
        EXPECT_EQ(commandLog(m), expected);
    }
}

TEST(DiscoveryStartup, ForeignControllerOnlyWithItsVendorId)
{
    SimMachine m("foreign");
    ASSERT_EQ(m.cli({"version"}).status, 0);
    Log expected = {identify("vmhba1")};
    accepted(expected, "vmhba2");
    expected.push_back(adapterInfo("vmhba2"));
    EXPECT_EQ(commandLog(m), expected) << "another vendor is turned away after Identify";

    // Named by "--vid", the foreign controller is taken without the
    // device-ID check and ours is turned away.
    m.krtsim({"log", "clear"});
    EXPECT_EQ(controllersListed(m, {"0", "--vid=0x144D"}), 1);
    expected = {identify("vmhba1"), adapterInfo("vmhba1"), identify("vmhba1"), identify("vmhba2"),
                adapterInfo("vmhba1")};
    EXPECT_EQ(commandLog(m), expected);
    EXPECT_EQ(controllersListed(m, {"0", "--vid=0x1e6b"}), 1);
    EXPECT_EQ(controllersListed(m, {"0", "--vid=0x1234"}), -1) << "no controller: only help and version run";
}

TEST(DiscoveryStartup, AdapterThatCannotBeOpened)
{
    SimMachine m("multi");
    ASSERT_EQ(m.krtsim({"fault", "vanish", "0"}).status, 0);
    EXPECT_EQ(controllersListed(m), 2);
    for (const std::string &l : commandLog(m))
        EXPECT_FALSE(has(l, "vmhba1 ")) << l;
    const std::string out = m.cli({"1", "info", "-o", "hba"}).out;
    EXPECT_TRUE(has(out, "Bus Device Fun:                      12:00.00\n")) << out;
    EXPECT_TRUE(has(out, "Device:                              vmhba3\n")) << out;
}

TEST(DiscoveryStartup, RefusedListAndMissingLibrary)
{
    SimMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "list-fail"}).status, 0);
    const krt_test::RunResult runs[] = {m.cli({"version"}), krt_test::cliWithoutLibrary({"info", "-o", "hba"})};
    for (const auto &r : runs)
        EXPECT_EQ(r.status, 0);
    EXPECT_EQ(runs[0].out.rfind(kListFailed + kNone + "CLI Version: 1.0.0.1041\n", 0), 0u) << runs[0].out;
    EXPECT_EQ(runs[1].out, kListFailed + kNone);
    EXPECT_TRUE(commandLog(m).empty());
}

TEST(DiscoveryStartup, ControllerFaultsDuringTheScan)
{
    const struct {
        const char *name;
        std::vector<std::string> rule;
        int listed;
    } cases[] = {
        {"Identify fails", {"--opcode", "0x06", "--status", "0x0002"}, 2},
        {"device-ID check fails", {"--opcode", "0xe2", "--count", "1", "--status", "0x0106"}, 2},
        {"overlong replies", {"--overlong"}, 3},
        {"bad envelope", {"--opcode", "0xe2", "--bad-sign"}, 3},
    };
    for (const auto &c : cases) {
        SimMachine m("multi");
        std::vector<std::string> words = {"fault", "add", "--adapter", "1"};
        words.insert(words.end(), c.rule.begin(), c.rule.end());
        ASSERT_EQ(m.krtsim(words).status, 0) << c.name;
        EXPECT_EQ(controllersListed(m), c.listed) << c.name;
    }
}

}  // namespace
