// Start-up, the dispatcher, adapter, version, --debug and debuglv against
// simulated machines: the table of single runs, then what only a session
// of typed lines, the start-up's own requests or the loader can show.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::SimMachine;
using Words = std::vector<std::string>;

const std::string kBanner = "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n";
const std::string kNone = "No NVMe Controller is found.\n";
const std::string kFirmware = "Support Firmware Version: 1.0.x.1039 above\n";
const std::string kList = "Total number of NVMe Controllers: 3\nCurrent default NVMe Controller ID for CLI commands: ";
const std::string kNqn = "\"nqn.2026-01.io.krt:nvme-controller:serial:KRT00001002       0\"";

TEST(Shell, Cases)
{
    krt_test::runCaseFile("shell.cases");
}

// A machine after `krtsim` steps (words; "" for none).
SimMachine machine(const char *fixture, const std::string &krtsim)
{
    SimMachine m(fixture);
    EXPECT_TRUE(krtsim.empty() || m.krtsim(krt_test::words(krtsim)).status == 0) << krtsim;
    return m;
}

// Lines typed into one shell: what they printed, each fragment after the
// one before it ("|" between fragments).
TEST(Shell, TypedLinesShareTheChosenControllerAndDebugMode)
{
    const struct {
        const char *machine, *krtsim;
        std::string typed, said;
    } sessions[] = {
        // A typed "-output" is an ordinary word: help describes itself.
        {"raid", "", "\nversion\n\"open\nbogus arg\nh\nhelp vd -output typed.txt\n",
         kBanner + "|Type 'exit' to exit CLI.\n|" + kFirmware +
             "|Invalid quoted string.\n|Invalid command 'bogus'!\n"
             "|Ambiguous command 'h'!\n|Description:Get brief help for all commands or detail help"},
        {"multi", "", "adapter -i 2\ninfo -o pd -i 0\nadapter --list\n",
         "Controller 2 set as default CLI commands refers to.\nUpdated current NVMe Controller id : 0\n"
         "|Importable:                      No\n|" +
             kList + "2\n"},
        {"multi", "", "adapter -s 11:00.00\ninfo -o vd\n",
         "Updated current NVMe Controller id : 1\n|Name:                fast\n"},
        // A request that failed leaves the choice alone.
        {"multi", "", "adapter -i 1\nadapter -i 7\nadapter --list\n",
         "NVMe Controller 7 does not exist.\n|" + kList + "1\n"},
        // By SUBNQN as the controller's block shows it, blanks and all.
        {"multi", "", "adapter -n " + kNqn + "\nadapter --list\nadapter -n " + kNqn + " -n " + kNqn + "\n",
         "Updated current NVMe Controller id : 2\n|" + kList + "2\n|Duplicated option specified.\n"},
        {"degraded", "", "--debug\ninfo -o vd -i 1\n--debug -a disable\ninfo -o vd -i 0\n",
         "Set debug mode to enable\nCDW[0] : 0x000000e2\nCDW[12]: 0x000000e2\nCDW[14]: 0x00000001\ncmd_status: 0x0\nVD "
         "ID:"
         "|CDW[12]: 0x000002e3\nCDW[14]: 0x00000001\ncmd_status: 0x0\nBGA progress:|Set debug mode to disable\nVD ID:"
         "               0\n"},
        // A reply without our signature is described.
        {"degraded", "fault add --opcode 0xe2 --cdw12 0x000000e1 --bad-sign", "--debug\ninfo -o pd -i 2\n",
         "CDW[14]: 0x00000002\nreceive sign get 0x42 0x41 0x44 expect 0x4b 0x52 0x54\n\nUnable to get info of PD\n"},
    };
    for (const auto &s : sessions) {
        const SimMachine m = machine(s.machine, s.krtsim);
        const std::string out = m.shell(s.typed);
        std::size_t at = 0;
        for (std::size_t from = 0, to; from <= s.said.size(); from = to + 1) {
            to = std::min(s.said.find('|', from), s.said.size());
            at = out.find(s.said.substr(from, to - from), at);
            ASSERT_NE(at, std::string::npos) << s.said.substr(from, to - from) << "\n--- in ---\n" << out;
        }
        EXPECT_FALSE(std::filesystem::exists(m.dir().file("typed.txt")));
    }

    // Without a controller the shell reads nothing.
    krt_test::RunOptions typed;
    typed.input = "help\n";
    EXPECT_EQ(SimMachine("empty").cli({}, typed).out, kNone + kBanner);

    // A line of 2048 characters or more ends the shell with a message.
    const SimMachine m("raid");
    const std::string fits(2047, 'a');
    EXPECT_TRUE(has(m.shell(fits + "\n"), "Invalid command '" + fits + "'!\n"));
    typed.input = fits + "a\nversion\n";
    const auto r = m.cli({}, typed);
    EXPECT_NE(r.status, 0);
    EXPECT_LT(r.status, 128);  // an orderly end, not a signal
    EXPECT_TRUE(has(r.err, "too long")) << r.err;
    EXPECT_FALSE(has(r.out, kFirmware));
}

// The marked "-output" word reaches the dispatcher; the file, appended to,
// gets everything, even a controller number's refusal.
TEST(Shell, OutputFileTakesEverything)
{
    const SimMachine m("raid");
    const std::string file = m.dir().file("out.txt");
    krt_test::writeFile(file, "earlier\n");
    for (const Words &words : {Words{"7", "version", "-output", file}, Words{"info", "-o", "hba", "-Output", file},
                               Words{"-output", file}}) {
        const auto r = m.cli(words);
        EXPECT_EQ(r.out, "") << words[0];
        EXPECT_EQ(r.status, words[0] == "-output" ? 1 : 0);
    }
    const std::string text = krt_test::readFile(file);
    EXPECT_EQ(text.rfind("earlier\nAdapter ID 7 is not exist\n", 0), 0u) << text;
    EXPECT_TRUE(has(text, "Firmware Version:")) << text;
    EXPECT_TRUE(has(text, "Invalid command '-\x01utput'!\n")) << text;
}

// What start-up asks each controller, as "<adapter number>:<opcode or class>":
// Identify (06) and the device-ID check (e0) to accept one, then its PCI
// address and SUBNQN text; last the cached controller records. Another
// vendor is turned away after Identify, unless "--vid" names it.
TEST(Startup, DiscoveryAsksEachControllerInTurn)
{
    const std::string accept1 = "1:06 1:e0 1:e0 1:06 ", accept2 = "2:06 2:e0 2:e0 2:06 ";
    const struct {
        const char *machine, *krtsim, *words;
        std::string asked;
    } cases[] = {
        {"empty", "", "version", ""},
        {"raid", "", "version", accept1 + "1:e0"},
        {"multi", "", "version", accept1 + accept2 + "3:06 3:e0 3:e0 3:06 1:e0 2:e0 3:e0"},
        {"multi", "fault vanish 0", "version", accept2 + "3:06 3:e0 3:e0 3:06 2:e0 3:e0"},
        {"raid", "fault list-fail", "version", ""},
        {"foreign", "", "version", "1:06 " + accept2 + "2:e0"},
        {"foreign", "", "0 --vid=0x144D version", "1:06 1:e0 1:06 2:06 1:e0"},
    };
    for (const auto &c : cases) {
        const SimMachine m = machine(c.machine, c.krtsim);
        m.krtsim({"log", "clear"});
        const auto r = m.cli(krt_test::words(c.words));
        EXPECT_EQ(has(r.out, kNone), c.asked.empty()) << r.out;
        std::istringstream log(m.krtsim({"log"}).out);
        std::string asked;
        for (std::string adapter, opc, nsid, cdw10, cdw11, cdw12, rest;
             log >> adapter >> opc >> nsid >> cdw10 >> cdw11 >> cdw12 && std::getline(log, rest);)
            asked += (asked.empty() ? "" : " ") + adapter.substr(5) + ":" +
                     (opc == "opc=0xe2" ? cdw12.substr(14) : opc.substr(6));
        EXPECT_EQ(asked, c.asked) << c.machine << " " << c.krtsim << " " << c.words;
    }
    EXPECT_EQ(krt_test::cliWithoutLibrary({"info", "-o", "hba"}).out, "Failed to initialize NVMe." + kNone);
}

// The shipped binary runs on a host that offers only the C library: it
// carries line editing and the C++ runtime itself.
TEST(Startup, NeedsOnlyTheCLibrary)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "sanitizer builds link their runtimes dynamically";
#endif
    const auto r = krt_test::runProcess({"/usr/bin/ldd", krt_test::cliPath()});
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    int libraries = 0;
    for (std::string name, rest; lines >> name && std::getline(lines, rest); ++libraries) {
        bool allowed = false;
        for (const char *prefix :
             {"linux-vdso.so", "linux-gate.so", "libc.so", "libdl.so", "libpthread.so", "libm.so", "ld-linux"})
            allowed = allowed || name.substr(name.rfind('/') + 1).rfind(prefix, 0) == 0;
        EXPECT_TRUE(allowed) << name << rest;
    }
    EXPECT_GT(libraries, 0) << r.out;
}

}  // namespace
