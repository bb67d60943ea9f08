// Discovery at start-up, seen from outside: which controllers the real
// binary registers on simulated machines, and which admin commands it sends
// to each to decide.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "machine.h"

namespace {

using krt_test::SimMachine;

const std::string kNone = "No NVMe Controller is found.\n";
const std::string kListFailed = "Failed to initialize NVMe.";

// One logged admin command: adapter, wire opcode and CDW12.
struct Logged {
    std::string adapter;
    std::string opc;
    std::string cdw12;
    bool operator==(const Logged &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Logged &l)
{
    return os << l.adapter << ' ' << l.opc << ' ' << l.cdw12;
}

std::string field(const std::string &line, const std::string &name)
{
    const std::size_t at = line.find(" " + name + "=");
    if (at == std::string::npos)
        return "";
    const std::size_t start = at + name.size() + 2;
    return line.substr(start, line.find(' ', start) - start);
}

std::vector<Logged> commandLog(const SimMachine &m)
{
    std::vector<Logged> out;
    std::istringstream lines(m.krtsim({"log"}).out);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty())
            continue;
        out.push_back({line.substr(0, line.find(' ')), field(line, "opc"), field(line, "cdw12")});
    }
    return out;
}

const Logged identify(const std::string &a)
{
    return {a, "0x06", "0x00000000"};
}
const Logged adapterInfo(const std::string &a)
{
    return {a, "0xe2", "0x000000e0"};
}

// What the scan sends to a controller it accepts: Identify and the
// device-ID check, then the PCI address and the SUBNQN text.
std::vector<Logged> accepted(const std::string &a)
{
    return {identify(a), adapterInfo(a), adapterInfo(a), identify(a)};
}

int controllersListed(const SimMachine &m, const std::vector<std::string> &prefix = {})
{
    std::vector<std::string> words = prefix;
    words.push_back("adapter");
    words.push_back("--list");
    const auto r = m.cli(words);
    const std::string label = "Total number of NVMe Controllers: ";
    const std::size_t at = r.out.find(label);
    if (at == std::string::npos)
        return -1;
    return std::stoi(r.out.substr(at + label.size()));
}

TEST(DiscoveryStartup, NoController)
{
    SimMachine m("empty");
    const auto r = m.cli({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kNone, 0), 0u) << r.out;
    EXPECT_TRUE(commandLog(m).empty());
}

TEST(DiscoveryStartup, OneControllerCommandsAtStartup)
{
    SimMachine m("raid");
    const auto r = m.cli({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("No NVMe Controller"), std::string::npos);
    std::vector<Logged> expected = accepted("vmhba1");
    expected.push_back(adapterInfo("vmhba1"));  // the cached controller record
    EXPECT_EQ(commandLog(m), expected);
    EXPECT_EQ(controllersListed(m), 1);
}

TEST(DiscoveryStartup, SeveralControllersInListOrder)
{
    SimMachine m("multi");
    ASSERT_EQ(m.cli({"version"}).status, 0);
    std::vector<Logged> expected;
    for (const char *a : {"vmhba1", "vmhba2", "vmhba3"}) {
        const auto part = accepted(a);
        expected.insert(expected.end(), part.begin(), part.end());
    }
    for (const char *a : {"vmhba1", "vmhba2", "vmhba3"})
        expected.push_back(adapterInfo(a));
    EXPECT_EQ(commandLog(m), expected);
    EXPECT_EQ(controllersListed(m), 3);

    // The registry's PCI address and adapter name per controller.
    const auto r = m.cli({"2", "info", "-o", "hba"});
    EXPECT_NE(r.out.find("Bus Device Fun:                      12:00.00\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Device:                              vmhba3\n"), std::string::npos) << r.out;
}

TEST(DiscoveryStartup, ForeignControllerOnlyWithItsVendorId)
{
    SimMachine m("foreign");
    ASSERT_EQ(m.cli({"version"}).status, 0);
    std::vector<Logged> expected = {identify("vmhba1")};
    const auto part = accepted("vmhba2");
    expected.insert(expected.end(), part.begin(), part.end());
    expected.push_back(adapterInfo("vmhba2"));
    EXPECT_EQ(commandLog(m), expected) << "another vendor is turned away after Identify";

    // Named by "--vid", the foreign controller is taken without the
    // device-ID check and ours is turned away.
    m.krtsim({"log", "clear"});
    const auto r = m.cli({"0", "--vid=0x144D", "adapter", "--list"});
    EXPECT_NE(r.out.find("Total number of NVMe Controllers: 1\n"), std::string::npos) << r.out;
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
    for (const Logged &l : commandLog(m))
        EXPECT_NE(l.adapter, "vmhba1");
    const auto r = m.cli({"0", "info", "-o", "hba"});
    EXPECT_NE(r.out.find("Device:                              vmhba2\n"), std::string::npos) << r.out;
}

TEST(DiscoveryStartup, RefusedListAndMissingLibrary)
{
    SimMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "list-fail"}).status, 0);
    auto r = m.cli({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kListFailed + kNone, 0), 0u) << r.out;
    EXPECT_TRUE(commandLog(m).empty());

    r = krt_test::cliWithoutLibrary({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kListFailed + kNone, 0), 0u) << r.out;
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);

    r = krt_test::cliWithoutLibrary({"info", "-o", "hba"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, kListFailed + kNone);
}

TEST(DiscoveryStartup, ControllerFaultsDuringTheScan)
{
    struct Case {
        const char *name;
        std::vector<std::string> rule;
        int listed;
    };
    const Case cases[] = {
        {"Identify fails", {"--opcode", "0x06", "--status", "0x0002"}, 2},
        {"device-ID check fails", {"--opcode", "0xe2", "--count", "1", "--status", "0x0106"}, 2},
        {"overlong replies", {"--overlong"}, 3},
        {"bad envelope", {"--opcode", "0xe2", "--bad-sign"}, 3},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SimMachine m("multi");
        std::vector<std::string> words = {"fault", "add", "--adapter", "1"};
        words.insert(words.end(), c.rule.begin(), c.rule.end());
        ASSERT_EQ(m.krtsim(words).status, 0);
        EXPECT_EQ(controllersListed(m), c.listed);
    }
}

}  // namespace
