// smart, identify and passthru against simulated machines: their option
// rules, what they show, and the request words the controller received.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::SimMachine;

std::string sent(const SimMachine &m)
{
    return m.krtsim({"log"}).out;
}

// What one run sent after start-up's own questions, which every run asks
// first and alike: as many lines as a run that sends nothing else.
std::string sentBy(const SimMachine &m, const std::vector<std::string> &words, krt_test::RunResult *result = nullptr)
{
    m.krtsim({"log", "clear"});
    m.cli({"version"});
    const int startup = occurrences(sent(m), "\n");
    m.krtsim({"log", "clear"});
    const krt_test::RunResult r = m.cli(words);
    if (result != nullptr)
        *result = r;
    std::string log = sent(m);
    std::size_t at = 0;
    for (int i = 0; i < startup && at < log.size(); ++i)
        at = log.find('\n', at) + 1;
    return log.substr(at);
}

struct Usage {
    std::vector<std::string> words;
    int status;
    std::string out;  // for the help: how it begins
};

// Runs each case; none of them may reach the controller.
void expectUsage(const SimMachine &m, const std::vector<Usage> &cases, const std::string &help)
{
    for (const Usage &c : cases) {
        krt_test::RunResult r;
        EXPECT_EQ(sentBy(m, c.words, &r), "") << testing::PrintToString(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(c.out == help ? r.out.substr(0, help.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
}

std::string smartLine(const std::string &label, const std::string &value)
{
    return label + std::string(54 - label.size(), ' ') + ": " + value + "\n";
}

const std::string kSmartHead =
    "\nNVME SMART Information :\n"
    "Notice: Please refer to NVMe Specific v1.3, Get Log Page - SMART / Health Information Log definition\n\n";

TEST(Smart, OptionsControllerDiskAndNamespace)
{
    SimMachine m("degraded");  // SSD 7 warns, SSD 9 has read more than 2^64 data units
    const std::string help = "Description:Get SSD backend RC/Slot SMART info.\nUsage:";
    expectUsage(m,
                {
                    {{"smart"}, 1, help},
                    {{"smart", "-h"}, 0, help},
                    {{"smart", "-u", "x"}, 0, help},
                    {{"smart", "-i", "0", "-o", "hba"}, 0, "smart: option -i is not required\n"},
                    {{"smart", "-n", "1"}, 0, "smart: option -i is required\n"},
                    {{"smart", "-o", "ns"}, 0, "smart: option -i is required\n"},
                    {{"smart", "-i", "1", "--pd_id=2"}, 1, "Duplicated option specified.\n"},
                    {{"smart", "-i", "x"}, 0, "-i : invalid NVMe Controller id 'x'\n"},
                    {{"smart", "-i", "65536"}, 0, "-i : invalid NVMe Controller id '65536'\n"},
                    {{"smart", "--object=disk"}, 0, "-o : invalid object 'disk'\n"},
                    {{"smart", "-o", "ns", "-n", "0"}, 0, "-n : invalid namespace id '0'\n"},
                    {{"smart", "-o", "ns", "-n", "0x1"}, 0, "-n : invalid namespace id '0x1'\n"},
                    {{"smart", "--bogus"}, 0, ""},
                },
                help);

    EXPECT_EQ(m.cli({"smart", "-o", "HBA"}).out,
              kSmartHead + smartLine("Critical Warning", "0x01") + smartLine("Composite Temperature", "37 Celsius") +
                  smartLine("Available Spare", "4%") + smartLine("Available Spare Threshold", "10%") +
                  smartLine("Percentage Used", "5%") + "\n");

    auto r = m.cli({"smart", "--pd_id", "9"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kSmartHead + smartLine("Critical Warning", "0x00"), 0), 0u);
    EXPECT_TRUE(has(r.out, smartLine("Data Units Read", "18446744073709675072 (9444732965739354 GB)")));
    EXPECT_TRUE(has(r.out, smartLine("Power On Hours", "61320")));
    EXPECT_EQ(occurrences(r.out, "\n"), 26);
    EXPECT_TRUE(has(m.cli({"smart", "-i", "7"}).out,
                    smartLine("Critical Warning", "0x01") + smartLine("Composite Temperature", "35 Celsius")));

    // Namespace 3 lies on the VD of SSDs 5-7: its warning, no GB figures.
    r = m.cli({"smart", "-o", "ns", "-n", "3"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(has(r.out, smartLine("Critical Warning", "0x01")));
    EXPECT_TRUE(has(r.out, smartLine("Data Units Read", "512910")));

    const std::string log = sent(m);
    EXPECT_TRUE(has(log, "opc=0x02 nsid=4294967295 cdw10=0x007f0002 cdw11=0x00000000 cdw12=0x00000000"));
    EXPECT_TRUE(has(log,
                    "opc=0xc2 nsid=9 cdw10=0x007f0002 cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 "
                    "cdw14=0x00000002 cdw15=0xffffffff dir=from len=512 status=0x0"));
    EXPECT_TRUE(has(log,
                    "opc=0xe2 nsid=0 cdw10=0x0000007f cdw11=0x00000000 cdw12=0x000308e5 cdw13=0x00000000 "
                    "cdw14=0x00000000 cdw15=0x00000000 dir=from len=512 status=0x0"));

    // The namespace request's words, with debugging on.
    EXPECT_TRUE(has(m.shell("--debug\nsmart -o ns -n 1\n"),
                    "CDW[0]  : 0x000000e2\nCDW[9]  : 0x00000200\nCDW[10] : 0x0000007f\nCDW[12] : 0x000108e5\n"));
}

TEST(Smart, FailedRequests)
{
    SimMachine m("degraded");
    auto r = m.cli({"smart", "-i", "31"});
    EXPECT_EQ(r.status, 0x706 & 0xFF);
    EXPECT_EQ(r.out, "Invalid HD ID (Status Code: 0x706)\nget smart info failed.\n");
    r = m.cli({"smart", "-o", "ns", "-n", "99"});
    EXPECT_EQ(r.out, "Invalid Namespace or Format (Status Code: 0xb)\nget smart info failed.\n");
    m.krtsim({"fault", "add", "--opcode", "0x02", "--status", "0x0109"});
    r = m.cli({"smart", "-o", "hba"});
    EXPECT_EQ(r.status, 9);
    EXPECT_EQ(r.out, "Invalid Log Page (Status Code: 0x109)\nget smart info failed.\n");
}

TEST(Identify, OptionsControllerNamespaceAndRawData)
{
    SimMachine m("raid");
    const std::string help = "Description:Get controller identify info.\nUsage:";
    expectUsage(m,
                {
                    {{"identify", "-h"}, 0, help},
                    {{"identify", "-c", "0"}, 0, "identify: option -n is required\n"},
                    {{"identify", "-c", "1", "--cns=1"}, 1, "Duplicated option specified.\n"},
                    {{"identify", "-c", "1", "-r", "x", "--rawdata"}, 1, "Duplicated option specified.\n"},
                    {{"identify", "-c", "one"}, 0, "-c : invalid controller or namepsace structure 'one'\n"},
                    {{"identify", "-c", "1", "-n", "-1"}, 0, "-n : invalid namepsace id '-1'\n"},
                    {{"identify", "-c", "1", "--cntid"}, 0, "-i : invalid controller identifier ''\n"},
                    {{"identify", "-c"}, 0, ""},
                },
                help);

    auto r = m.cli({"identify", "-c", "0x1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("\nNVME identify Information :\n\nVID:                     0x1e6b\n", 0), 0u);
    EXPECT_TRUE(has(r.out, "SUBNQN:                  nqn.2026-01.io.krt:nvme-controller:serial:KRT00001000"));
    EXPECT_FALSE(has(r.out, "[RAW Data]"));

    // Without -c: Identify Namespace of the namespace given.
    r = m.cli({"identify", "--namep=2"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("NSZE:                0x", 0), 0u);
    EXPECT_TRUE(has(r.out, "nlbaf:               0x3\nflbas:               0x0\n"));
    EXPECT_EQ(occurrences(r.out, "[LBAF]"), 4);
    EXPECT_TRUE(has(r.out, "[LBAF]               2\n  MS:                0x0\n  DS:                0xc\n"));

    r = m.cli({"identify", "-c", "0", "-n", "1", "--rawdata"});
    EXPECT_TRUE(has(r.out, "  RP:                0x1\n\n[RAW Data]\n      00 01 02"));
    EXPECT_TRUE(has(r.out, "\n4080  "));  // 4096 bytes, 16 to a row
    EXPECT_FALSE(has(r.out, "\n4096  "));

    // Other structures are shown raw only; a CNS of 257 is sent as 1.
    EXPECT_TRUE(has(sentBy(m, {"identify", "-c", "2"}, &r), "opc=0x06 nsid=0 cdw10=0x00000002 "));
    EXPECT_EQ(r.out.rfind("\n[RAW Data]\n", 0), 0u);
    EXPECT_TRUE(has(r.out, "\n0000  01 00 00 00 02 00 00 00 03 00 00 00 00 00"));
    EXPECT_TRUE(has(sentBy(m, {"identify", "-c", "257"}, &r), "opc=0x06 nsid=0 cdw10=0x00000001 "));
    EXPECT_EQ(r.out.rfind("\n[RAW Data]\n", 0), 0u);
    EXPECT_TRUE(has(r.out, "\n0000  6b 1e 6b 1e"));
    EXPECT_TRUE(has(sentBy(m, {"identify", "-n", "2", "-i", "0x7"}), "opc=0x06 nsid=2 cdw10=0x00000000 "));
}

TEST(Identify, FailuresAndOverlongTexts)
{
    SimMachine m("raid");
    auto r = m.cli({"identify", "-c", "0", "-n", "99"});
    EXPECT_EQ(r.status, 11);
    EXPECT_EQ(r.out, "Invalid Namespace or Format (Status Code: 0xb)\nget identify info failed.\n");
    EXPECT_EQ(m.cli({"identify", "-c", "0x55"}).out,
              "Invalid Field in Command (Status Code: 0x2)\nget identify info failed.\n");

    m.krtsim({"fault", "add", "--opcode", "0x06", "--overlong"});
    r = m.cli({"identify", "-c", "1"});
    EXPECT_TRUE(has(r.out, "SN:                      " + std::string(20, 'X') + "\n"));
    EXPECT_TRUE(has(r.out, "FR:                      XXXXXXXX\n"));
    EXPECT_TRUE(has(r.out, "SUBNQN:                  " + std::string(60, 'X') + "1482184792\n"));
}

TEST(Passthru, OptionsAndTheSmartLogOfADisk)
{
    SimMachine m("raid");
    const std::string help = "Description:Passthrough NVMe admin command to backend device\nUsage:";
    const std::vector<std::string> read = {"passthru", "-i", "0", "-r", "read", "-o", "6"};
    const auto with = [&read](std::vector<std::string> more) {
        more.insert(more.begin(), read.begin(), read.end());
        return more;
    };
    expectUsage(m,
                {
                    {{"passthru"}, 1, help},
                    {{"passthru", "-u", "x"}, 0, help},
                    {{"passthru", "-o", "6"}, 0, "passthru: option -i is required\n"},
                    {{"passthru", "-i", "0", "-r", "read"}, 0, "passthru: option -r is required\n"},
                    {with({"-i", "1"}), 0, "Duplicated option specified.\n"},
                    {with({"-t", "io"}), 0, "-t : invalid action 'io'\n"},
                    {with({"-r", "both"}), 0, "-r : invalid request 'both'\n"},
                    {{"passthru", "-i", "x"}, 0, "-i: SSD backend RC/Slot ID should be a number\n"},
                    {{"passthru", "-i", "70000"}, 0, "-i : invalid SSD backend RC/Slot ID '70000'.\n"},
                    {with({"-p", "x"}), 0, "-p: PSDT should be a decimal or hexadecimal\n"},
                    {with({"-f", "-1"}), 0, "-f: FUSE should be a decimal or hexadecimal\n"},
                    {{"passthru", "-o", "six"}, 0, "-o: OPCode should be a decimal or hexadecimal\n"},
                    {with({"-n", "ns1"}), 0, "-n: Backend Namespace ID should be a decimal or hexadecimal\n"},
                    {with({"-m", "1k"}), 0, "-m: Metadata length id should be a decimal or hexadecimal\n"},
                    {with({"-d", "4k"}), 0, "-d: data length id should be a decimal or hexadecimal\n"},
                    {with({"--data-len=0x10000"}), 0, "-d: data length should be at most 65535 bytes\n"},
                    {with({"--cdw2", "z"}), 0, "--cdw2: CDW2 should be a decimal or hexadecimal\n"},
                    {with({"--cdw13", "z"}), 0, "--cdw13: CDW13 should be a decimal or hexadecimal\n"},
                    {with({"-z"}), 0, ""},
                },
                help);

    krt_test::RunResult r;
    const std::string log = sentBy(
        m, {"passthru", "-i", "0", "-o", "0x2", "-n", "0xffffffff", "--cdw10=0x7f0002", "--data-len=512", "-r", "read"},
        &r);
    EXPECT_EQ(log,
              "vmhba1 opc=0xc2 nsid=0 cdw10=0x007f0002 cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 "
              "cdw14=0x00000002 cdw15=0xffffffff dir=from len=512 status=0x0\n");
    EXPECT_EQ(r.status, 0);
    // The bytes (temperature 306 K), then the same log as SMART information.
    EXPECT_EQ(r.out.rfind("CDW[0]: 0x2\n\n0x00 0x32 0x01 0x64 0x0a 0x02 ", 0), 0u);
    EXPECT_EQ(occurrences(r.out, "0x"), 1 + 512 + 1);
    EXPECT_TRUE(has(r.out, "0x00 \n" + kSmartHead + smartLine("Critical Warning", "0x00")));
    EXPECT_TRUE(has(r.out, smartLine("Data Units Read", "123456 (63 GB)")));
    EXPECT_EQ(r.out.substr(r.out.size() - 34), "\n\nPassthrough command is success.\n");
}

TEST(Passthru, ForwardedWordsFileAndShowcmd)
{
    SimMachine m("raid");
    const std::string file = m.dir().file("id_data");
    krt_test::RunResult r;
    std::string log =
        sentBy(m, {"passthru", "-i", "3", "-o", "6", "--cdw10=1",       "--cdw11", "0x11", "--cdw12=12",   "--cdw13",
                   "0xd",      "-f", "1", "-p", "2", "--data-len=4096", "-r",      "read", "--outputfile", file},
               &r);
    EXPECT_EQ(log,
              "vmhba1 opc=0xc2 nsid=3 cdw10=0x00000001 cdw11=0x00000011 cdw12=0x0000000c cdw13=0x0000000d "
              "cdw14=0x00008106 cdw15=0x00000000 dir=from len=4096 status=0x0\n");
    EXPECT_EQ(r.out, "CDW[0]: 0x8106\nPassthrough command is success.\n");
    const std::string data = krt_test::readFile(file);
    ASSERT_EQ(data.size(), 4096u);
    EXPECT_EQ(data.substr(24, 15), "NVMe SSD 1920GB");  // the disk's own model

    r = m.cli(
        {"passthru", "-i", "1", "-o", "6", "--cdw10=1", "-d", "16", "-r", "read", "-s", "x", "--cdw3=3", "--showcmd"});
    EXPECT_EQ(r.out.rfind("CDW[0]: 0x6\n[Command Format]\nCDW00: 0xc2\nCDW01: 0x1\nCDW02: 0x0\nCDW03: 0x3\n", 0), 0u);
    EXPECT_TRUE(has(r.out,
                    "CDW08: 0x0\nCDW09: 0x10\nCDW10: 0x1\nCDW11: 0x0\nCDW12: 0x0\nCDW13: 0x0\n"
                    "CDW14: 0x6\nCDW15: 0x0\n\n0x6b 0x1e "));

    // Without a data length nothing comes back, which is no failure.
    r = m.cli({"passthru", "-i", "1", "-o", "6", "--cdw10=1", "-r", "read"});
    EXPECT_EQ(r.out, "CDW[0]: 0x6\n\nPassthrough command is success.\n");

    // A file that cannot be written: said on standard error, data on screen.
    r = m.cli({"passthru", "-i", "1", "-o", "6", "--cdw10=1", "-d", "4", "-r", "read", "--outputfile",
               m.dir().file("no/such")});
    EXPECT_TRUE(has(r.err, "cannot open " + m.dir().file("no/such") + ": No such file or directory\n"));
    EXPECT_EQ(r.out, "CDW[0]: 0x6\n\n0x6b 0x1e 0x6b 0x1e \nPassthrough command is success.\n");
}

TEST(Passthru, WritesRefusedAndFailures)
{
    SimMachine m("raid");
    const std::string input = m.dir().file("prp_data");
    krt_test::writeFile(input, std::string(4096, 'p'));
    krt_test::RunResult r;
    EXPECT_EQ(sentBy(m, {"passthru", "-i", "0", "-o", "0x15", "-r", "write", "--inputfile", input}, &r), "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "CDW[0]: 0x15\nVMware does not support passthrough write command .\n");
    EXPECT_EQ(sentBy(m, {"passthru", "-i", "0", "-o", "0x80", "-r", "NONE"}, &r), "");

    r = m.cli({"passthru", "-i", "31", "-o", "2", "--cdw10=0x7f0002", "-d", "512", "-r", "read"});
    EXPECT_EQ(r.status, 6);
    EXPECT_EQ(r.out, "CDW[0]: 0x2\nInvalid HD ID (Status Code: 0x706)\nPassthrough command is failed.\n");
    // The disk answers what it knows; an opcode it does not know is refused.
    r = m.cli({"passthru", "-i", "0", "-o", "0x0a", "--cdw10=7", "-d", "64", "-r", "read"});
    EXPECT_EQ(r.out, "CDW[0]: 0xa\nInvalid Command Opcode (Status Code: 0x1)\nPassthrough command is failed.\n");
    r = m.cli({"passthru", "-i", "0", "-o", "6", "-d", "64", "-r", "read"});  // CNS 0 without its namespace
    EXPECT_EQ(r.out, "CDW[0]: 0x6\nInvalid Namespace or Format (Status Code: 0xb)\nPassthrough command is failed.\n");
}

}  // namespace
