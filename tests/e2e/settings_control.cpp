// get, set, import, reset, led and inverse against simulated machines: the
// option rules of each, the words they send, and what the machine does.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::SimMachine;
using Words = std::vector<std::string>;

void expectRun(const SimMachine &m, const Words &words, int status, const std::string &out)
{
    const auto r = m.cli(words);
    EXPECT_EQ(r.status, status) << testing::PrintToString(words);
    EXPECT_EQ(r.out, out) << testing::PrintToString(words);
}

struct Case {
    Words words;
    int status;
    std::string out;  // the whole output; for the help, how it begins
};

// Runs usage cases and checks that none of them reached the controller
// with the request named by `cdw12` (as the command log spells it).
void runCases(const SimMachine &m, const std::vector<Case> &cases, const std::string &cdw12)
{
    m.krtsim({"log", "clear"});
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        const bool help = c.out.rfind("Description:", 0) == 0;
        EXPECT_EQ(help ? r.out.substr(0, c.out.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=" + cdw12)) << "sent by a refused command";
}

std::string logOf(const SimMachine &m)
{
    return m.krtsim({"log"}).out;
}

TEST(Settings, Cases)
{
    krt_test::runCaseFile("settings.cases");
}

TEST(Import, UsageErrors)
{
    SimMachine m("import");
    const std::string help = "Description:For import VD\n";
    runCases(m,
             {
                 {{"import", "-l", "x"}, 1, "-l : invalid VD ID 'x'\n"},
                 {{"import", "-l", "65536"}, 1, "-l : invalid VD ID '65536'\n"},
                 {{"import", "-p", "-1", "-l", "0"}, 1, "-p : invalid PD ID '-1'\n"},
                 {{"import", "-p", "70000", "-l", "0"}, 1, "-p : invalid PD ID '70000'\n"},
                 {{"import", "-n", "0x10000", "-l", "0"}, 1, "-n : invalid NS Table ID '0x10000'\n"},
                 {{"import", "-n", "0xg", "-l", "0"}, 1, "-n : invalid NS Table ID '0xg'\n"},
                 {{"import", "-i", "x", "-l", "0"}, 1, "-i : invalid NVMe Controller id 'x'\n"},
                 {{"import", "-i", "2", "-l", "0"}, 1, "NVMe Controller 2 does not exist.\n"},
                 {{"import", "-n", "0", "-n", "1", "-l", "0"}, 1, "Duplicated option specified.\n"},
                 {{"import", "-p", "0"}, 1, "import: option -l is required\n"},
                 {{"import", "-l"}, 1, ""},
                 {{"import"}, 1, help},
                 {{"import", "--help"}, 0, help},
             },
             "0x000006e2");
    EXPECT_FALSE(has(logOf(m), "cdw12=0x000009e1"));
}

TEST(Import, ForeignVirtualDiskIsTakenOver)
{
    SimMachine m("import");
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "1"}).out,
                    "Name:                moved\nStatus:              Foreign\nImportable:          Yes\n"));

    // A VD of this controller is not importable; nothing is sent for it.
    m.krtsim({"log", "clear"});
    expectRun(m, {"import", "-l", "0"}, 0, "\nVD 0 is not importable.\n");
    expectRun(m, {"import", "-l", "9"}, 0, "\nUnable to get info of VD\n");
    EXPECT_FALSE(has(logOf(m), "cdw12=0x000006e2"));

    expectRun(m, {"import", "-l", "0", "--ld_id", "1"}, 0, "VD 1 import successfully.\n");  // the last -l counts
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000006e2 cdw13=0x00000000 cdw14=0x00000001 cdw15=0x00000000 dir=from len=0"));
    const std::string vds = m.cli({"info", "-o", "vd"}).out;
    EXPECT_TRUE(has(vds, "Name:                moved\nStatus:              Functional\nImportable:          No\n"));
    EXPECT_TRUE(has(vds, "Total # of VD:       2\n"));

    // A refusal is reported; the command still succeeds.
    SimMachine f("import");
    f.krtsim({"fault", "add", "--cdw12", "0x000006e2", "--status", "0x0739"});
    expectRun(f, {"import", "-l", "1"}, 0, "Import already in table (Status Code: 0x739)\n\nFail to import VD 1.\n");
}

TEST(Import, NamespaceTableOfAJbofDisk)
{
    SimMachine m("import");  // controller 1: JBOF, PD 1 brought from elsewhere
    EXPECT_FALSE(has(m.cli({"1", "info", "-o", "ns"}).out, "Parent PD ID:        1\n"));
    expectRun(m, {"import", "-i", "1", "-p", "1", "-n", "0xff", "-l", "0"}, 0,
              "NS Table ID 255 import successfully.\n");
    EXPECT_TRUE(has(logOf(m),
                    "vmhba2 opc=0xe2 nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x000009e1 "
                    "cdw13=0x00000000 cdw14=0x00ff0001"));
    EXPECT_TRUE(has(m.cli({"1", "info", "-o", "ns"}).out,
                    "Parent PD ID:        1\nValid:               Yes\nActive:              No\n"));

    // Nothing left to import; table 0 by default.
    expectRun(m, {"1", "import", "-p", "1", "-l", "0"}, 0,
              "Import no table (Status Code: 0x738)\n\nFail to import NS Table ID 0.\n");
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000009e1 cdw13=0x00000000 cdw14=0x00000001"));

    SimMachine jbof("jbof");  // no import support
    expectRun(jbof, {"import", "-p", "1", "-l", "0"}, 0, "Importable not support or parameters error.\n");
}

TEST(Reset, OptionsWordsAndWhatTheSlotDoes)
{
    SimMachine m("raid");
    const std::string help = "Description:For reset back-end device\n[Notice]\n";
    runCases(m,
             {
                 {{"reset", "-a", "maybe"}, 0, "-a : invalid action 'maybe'.\n"},
                 {{"reset", "-i", "x"}, 0, "-i : invalid device id 'x'\n"},
                 {{"reset", "-i", "65536"}, 0, "-i : invalid device id '65536'\n"},
                 {{"reset", "-t", "warm"}, 0, "-t : invalid type 'warm'.\n"},
                 {{"reset", "-t", "perstn", "--action", "on"}, 0, "reset: option -a is required\n"},
                 {{"reset", "-t", "device", "-a", "on"}, 0, "Option action is not allow.\n"},
                 {{"reset", "-t", "power", "-a", "on", "-i", "2"}, 1, "Power Pin ID only support 0 or 1\n"},
                 {{"reset", "-i", "1", "-i", "2"}, 1, "Duplicated option specified.\n"},
                 {{"reset"}, 1, help},
                 {{"reset", "-h"}, 0, help},
             },
             "0x000008e1");

    const std::pair<Words, std::string> sent[] = {
        {{"reset", "-t", "device", "-i", "3"}, "cdw14=0x00000003"},
        {{"reset", "-a", "on", "-i", "2"}, "cdw14=0x00000002"},  // no -t: a device reset
        {{"reset", "-t", "PERSTN", "-a", "off", "-i", "3"}, "cdw14=0x02020003"},
        {{"reset", "-t", "perstn", "-a", "cycle", "-i", "3"}, "cdw14=0x00020003"},
        {{"reset", "--type=power", "--action=cycle", "-i", "1"}, "cdw14=0x00010001"},
    };
    for (const auto &[words, cdw14] : sent) {
        m.krtsim({"log", "clear"});
        expectRun(m, words, 0, "Reset success\n");
        EXPECT_TRUE(has(logOf(m), "cdw12=0x000008e1 cdw13=0x00000000 " + cdw14 + " cdw15=0x00000000 dir=from len=0"))
            << testing::PrintToString(words);
    }

    // A powered-off slot's SSD is gone until it is powered on.
    EXPECT_EQ(m.cli({"reset", "-t", "power", "-a", "off", "-i", "1"}).out, "Reset success\n");
    EXPECT_TRUE(has(m.krtsim({"show"}).out, "SSD010001000101 3750748848 x 512 status=0x01 led=off power=off\n"));
    EXPECT_EQ(m.cli({"info", "-o", "pd", "-i", "1"}).out, "\nUnable to get info of PD\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "0"}).out, "PDs:                 0 ? 2 3 \n"));
    expectRun(m, {"reset", "-i", "1"}, 6, "Invalid HD ID (Status Code: 0x706)\nReset failed.\n");
    m.cli({"reset", "-t", "power", "-a", "on", "-i", "1"});
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "pd"}).out, "PD ID:"), 8);
}

TEST(Led, OptionsSlotsAndTheEndPoint)
{
    SimMachine m("raid");
    runCases(m,
             {
                 {{"led", "-o", "xx", "-i", "0", "-a", "on"}, 0, "-m : invalid object 'xx'.\n"},
                 {{"led", "-o", "rc", "-i", "x", "-a", "on"}, 0, "-i : invalid id 'x'\n"},
                 {{"led", "-o", "rc", "-i", "65536", "-a", "on"}, 0, "-i : invalid id '65536'\n"},
                 {{"led", "-o", "rc", "-i", "0", "-a", "blink"}, 0, "-a : invalid action 'blink'.\n"},
                 {{"led", "-a", "on"}, 0, "led: option -o is required\n"},
                 {{"led", "-o", "rc", "-a", "on"}, 0, "led: option -i is required\n"},
                 {{"led", "-i", "0", "-o", "rc"}, 0, "led: option -a is required\n"},
                 {{"led", "-o", "rc", "-o", "ep", "-i", "0", "-a", "on"}, 1, "Duplicated option specified.\n"},
                 {{"led"}, 1, "Description:For control LED of device\n"},
             },
             "0x000007e1");
    EXPECT_FALSE(has(logOf(m), "cdw12=0x000007e0"));

    expectRun(m, {"led", "-o", "rc", "-i", "2", "-a", "qb"}, 0, "LED control success\n");
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000007e1 cdw13=0x00000000 cdw14=0x00030002 cdw15=0x00000000 dir=from len=0"));
    EXPECT_EQ(m.cli({"led", "--object=EP", "--id=0", "--action=Sb"}).status, 0);
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000007e0 cdw13=0x00000000 cdw14=0x00020000"));

    const std::string shown = m.krtsim({"show"}).out;
    EXPECT_TRUE(has(shown, " ep_led=sb\n"));
    EXPECT_TRUE(has(shown, "status=0x01 led=qb\n  PD 3 "));
    EXPECT_EQ(occurrences(shown, " led=off"), 7);
    expectRun(m, {"led", "-o", "rc", "-i", "9", "-a", "on"}, 6,
              "Invalid HD ID (Status Code: 0x706)\nLED control failed.\n");
}

TEST(Inverse, OptionsSetGetAndFailures)
{
    SimMachine m("raid");
    runCases(m,
             {
                 {{"inverse", "-a", "flip"}, 0, "-a : invalid action 'flip'.\n"},
                 {{"inverse", "-a", "get", "-a", "get"}, 1, "Duplicated option specified.\n"},
                 {{"inverse", "-x"}, 0, ""},
                 {{"inverse"}, 1, "Description:For GPIO 8,9,10 and 11 inverse control.\n"},
             },
             "0x00001ae0");
    EXPECT_FALSE(has(logOf(m), "19e0"));

    const std::string status = "GPIO 8,9,10,11 Inverse Status: ";
    const std::string got = "Get Inverse Status success.\n";
    EXPECT_EQ(m.cli({"inverse", "-a", "get"}).out, status + "No Inverse\n" + got);
    EXPECT_TRUE(has(logOf(m), "cdw12=0x00001ae0 cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 dir=from"));

    expectRun(m, {"inverse", "-a", "Inverse"}, 0, "Set Inverse success.\n");
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000119e0 cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 dir=from len=0"));
    EXPECT_EQ(m.cli({"inverse", "-a", "get"}).out, status + "Inverse\n" + got);
    EXPECT_TRUE(has(m.krtsim({"show"}).out, " gpio8-11=inverted "));

    // The reset lines are GPIO 8-11: inverted, "on" holds the disk in reset.
    m.cli({"reset", "-t", "perstn", "-a", "on", "-i", "0"});
    EXPECT_EQ(m.cli({"info", "-o", "pd", "-i", "0"}).out, "\nUnable to get info of PD\n");
    m.cli({"reset", "-t", "perstn", "-a", "off", "-i", "0"});
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "0"}).out, "PD ID:                           0\n"));

    EXPECT_EQ(m.cli({"inverse", "--action=noinverse"}).out, "Set Inverse success.\n");
    EXPECT_TRUE(has(logOf(m), "cdw12=0x000019e0"));
    EXPECT_EQ(m.cli({"inverse", "-a", "get"}).out, status + "No Inverse\n" + got);

    // A controller that fails either request.
    m.krtsim({"fault", "add", "--cdw12", "0x00001ae0", "--status", "0x0002"});
    expectRun(m, {"inverse", "-a", "get"}, 2,
              "Invalid Field in Command (Status Code: 0x2)\n" + status +
                  "Unknown Status\nGet Inverse Status failed.(error code: 0x02)\n");
    m.krtsim({"fault", "add", "--cdw12", "0x000119e0", "--status", "0x0705"});
    expectRun(m, {"inverse", "-a", "inverse"}, 5,
              "Not supported (Status Code: 0x705)\nSet Inverse failed.(error code: 0x705)\n");
}

}  // namespace
