// info against simulated machines: every object on RAID and JBOF
// controllers, the option rules, and controllers that fail queries.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"

namespace {

using krt_test::SimMachine;

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

int occurrences(const std::string &text, const std::string &part)
{
    int n = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}

const std::string kInfoHelpHead =
    "Description:For display NVMe Controller(hba), virtual disk(vd), physical disk(pd) or Namespace(ns) "
    "information.\n";

TEST(InfoOptions, UsageErrorsAndTheirOrder)
{
    SimMachine m("raid");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
    };
    const Case cases[] = {
        {{"info", "-o", "pd", "-o", "vd"}, 1, "Duplicated option specified.\n"},
        {{"info", "-i", "1"}, 1, "info: option -o is required\n"},
        {{"info", "-o", "disk"}, 1, "-o : invalid object 'disk'\n"},
        {{"info", "-o", "pd", "-i", "x"}, 1, "-i : id should be a number\n"},
        {{"info", "-o", "ns", "-t", "pd"}, 1, "-t : invalid type 'pd'\n"},
        {{"info", "-o", "ns", "-t", "vd", "-v", "a"}, 1, "-v : VD id should be a number\n"},
        // The bad value is reported, then the missing object.
        {{"info", "-i", "x"}, 1, "-i : id should be a number\ninfo: option -o is required\n"},
        // Parsing stops at the bad value: the later duplicate goes unseen.
        {{"info", "-o", "pd", "-i", "x", "-o", "vd"}, 1, "-i : id should be a number\n"},
        {{"info", "-o", "hba", "-i", "0"}, 1, "\n'info -o hba' does not support '-i' action\n"},
        {{"INFO", "-o", "ns", "-v", "1", "-v", "2"}, 1, "Duplicated option specified.\n"},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.words);
    }
    // Nothing reached the controller beyond start-up's own questions.
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000000e1"));
}

TEST(InfoOptions, HelpAndUnhandledOptions)
{
    SimMachine m("raid");
    struct Case {
        std::vector<std::string> words;
        int status;
    };
    const Case cases[] = {
        {{"info"}, 1},
        {{"info", "-h"}, 0},
        {{"info", "--help"}, 0},
        {{"info", "-u", "3"}, 0},
        {{"info", "-o", "vd", "--vd_id", "1"}, 0},  // only --vdid is known
        {{"info", "-o"}, 0},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out.substr(0, kInfoHelpHead.size()), kInfoHelpHead) << testing::PrintToString(c.words);
        EXPECT_TRUE(has(r.out, "Usage: info -o <object>"));
    }
}

TEST(InfoOptions, ObjectWordsIgnoreCaseAndOutputOptionPassesThrough)
{
    SimMachine m("raid");
    for (const char *object : {"HBA", "Pd", "hd", "VD", "Ld", "nS"}) {
        const auto r = m.cli({"info", "-o", object});
        EXPECT_EQ(r.status, 0) << object;
        EXPECT_TRUE(has(r.out, "Total # of ")) << object << r.out;
    }
    auto r = m.cli({"info", "-o", "ns", "-t", "LD", "--vdid", "1"});
    EXPECT_TRUE(has(r.out, "NS ID:               3\n"));
    EXPECT_TRUE(has(r.out, "Total # of NS:       1\n"));

    r = m.cli({"info", "-o", "vd", "-output", "out.txt"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(has(krt_test::readFile(m.dir().file("out.txt")), "Total # of VD:       2\n"));
}

TEST(InfoRaid, VirtualDisks)
{
    SimMachine m("raid");
    const auto r = m.cli({"info", "-o", "vd"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "\n"
              "VD ID:               0\n"
              "Name:                data\n"
              "Status:              Functional\n"
              "Importable:          No\n"
              "RAID Mode:           RAID5\n"
              "size:                5365 GB\n"
              "PD Count:            4\n"
              "PDs:                 0 1 2 3 \n"
              "Stripe Block Size:   128K\n"
              "Sector Size:         512 bytes\n"
              "\n"
              "VD ID:               1\n"
              "Name:                mirror\n"
              "Status:              Functional\n"
              "Importable:          No\n"
              "RAID Mode:           RAID1\n"
              "size:                1788 GB\n"
              "PD Count:            2\n"
              "PDs:                 4 5 \n"
              "Stripe Block Size:   128K\n"
              "Sector Size:         512 bytes\n"
              "\n"
              "Total # of VD:       2\n"
              "\n");

    // Each VD is asked for, then its background activity, by id in CDW14.
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_TRUE(has(log,
                    "opc=0xe2 nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x000000e2 cdw13=0x00000000 "
                    "cdw14=0x00000001 cdw15=0x00000000 dir=from len=4096"));
    EXPECT_TRUE(has(log, "cdw12=0x000002e3 cdw13=0x00000000 cdw14=0x00000001"));

    const auto one = m.cli({"info", "-o", "ld", "-i", "1"});
    EXPECT_EQ(one.out.substr(0, 22), "VD ID:               1");
    EXPECT_FALSE(has(one.out, "Total #"));
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "5"}).out, "\nUnable to get info of VD\n");
}

TEST(InfoRaid, PhysicalDisks)
{
    SimMachine m("raid");
    auto r = m.cli({"info", "-o", "pd"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "PD ID:"), 8);
    EXPECT_EQ(r.out.substr(0, 7), "\nPD ID:");
    EXPECT_TRUE(has(r.out, "\n\nTotal # of PD:          8\n\n"));
    EXPECT_FALSE(has(r.out, "Importable:"));  // a RAID controller does not say

    r = m.cli({"info", "-o", "hd", "-i", "6"});
    EXPECT_EQ(r.out.substr(0, 34), "PD ID:                           6");
    EXPECT_TRUE(has(r.out, "Serial:                          SSD010006000106     \n"));
    EXPECT_TRUE(has(r.out, "Assigned:                        No\nSMART Critical Warning:          No\n"));
    EXPECT_EQ(m.cli({"info", "-o", "pd", "-i", "9"}).out, "\nUnable to get info of PD\n");
    // 255 is the id of "all".
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "pd", "-i", "255"}).out, "PD ID:"), 8);
}

const std::string kRaidNs1 =
    "NS ID:               1\n"
    "Size:                2682 GB\n"
    "Parent VD ID:        0\n"
    "Valid:               Yes\n"
    "Active:              Yes\n"
    "VD status:           Healthy\n"
    "\n";
const std::string kRaidNs3 =
    "NS ID:               3\n"
    "Size:                1788 GB\n"
    "Parent VD ID:        1\n"
    "Valid:               Yes\n"
    "Active:              Yes\n"
    "VD status:           Healthy\n"
    "\n";

TEST(InfoRaid, Namespaces)
{
    SimMachine m("raid");
    auto r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "NS ID:"), 3);
    EXPECT_EQ(r.out.substr(0, kRaidNs1.size()), kRaidNs1);
    EXPECT_TRUE(has(r.out, kRaidNs3 + "Total # of NS:       3\n\n"));

    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "3"}).out, kRaidNs3);
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "7"}).out, "\nUnable to get info of NS\n");
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd", "-v", "1"}).out, kRaidNs3 + "Total # of NS:       1\n\n");
    // The controller refuses a VD it does not have.
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd", "-v", "6"}).out, "\nUnable to get info of VD\n");
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd", "-i", "1"}).out, kRaidNs1);

    const std::string log = m.krtsim({"log"}).out;
    EXPECT_TRUE(has(log, "cdw12=0x000000e5 cdw13=0x00000000 cdw14=0x00000000"));
    EXPECT_TRUE(has(log, "cdw12=0x000101e5"));  // per VD, VD id in the unit
    EXPECT_TRUE(has(log, "cdw12=0x00ff01e5"));  // per VD, all of them
}

TEST(InfoRaid, Controller)
{
    SimMachine m("raid");
    auto r = m.cli({"info", "-o", "hba"});
    EXPECT_EQ(r.status, 0);
    for (const char *line :
         {"NVMe Controller ID:                  0\n", "Device:                              vmhba1\n",
          "Firmware Version:                    2.1.0.0035\n", "VID:                                 0x1e6b\n",
          "DID:                                 0x7a10\n", "RevisionID:                          A1V\n",
          "Max PD of Per VD:                    32\n", "Max VD:                              8\n",
          "Max NS:                              32\n", "Host ID:                             1\n",
          "Supported RAID Mode:                 RAID0 RAID1 RAID5 RAID6 RAID10 RAID50 RAID60 JBOD \n",
          "Supported Features:                  Import RAID Namespace \n",
          "End Point:                           0\n  Link width:                        8x\n"
          "  Max PCIe speed:                    8Gb/s\n\nTotal # of HBA:      1\n\n"}) {
        EXPECT_TRUE(has(r.out, line)) << line;
    }
    EXPECT_TRUE(
        has(r.out, "SUBNQN:                              nqn.2026-01.io.krt:nvme-controller:serial:KRT00001000"));

    // Bound to a controller by the leading number: that one, no total.
    r = m.cli({"0", "info", "-o", "hba"});
    EXPECT_TRUE(has(r.out, "NVMe Controller ID:                  0\n"));
    EXPECT_FALSE(has(r.out, "Total # of HBA:"));
}

TEST(InfoMulti, EveryControllerAndTheBoundOne)
{
    SimMachine m("multi");
    auto r = m.cli({"info", "-o", "hba"});
    EXPECT_EQ(occurrences(r.out, "NVMe Controller ID:"), 3);
    EXPECT_TRUE(has(r.out,
                    "NVMe Controller ID:                  2\nBus Device Fun:                      12:00.00\n"
                    "Device:                              vmhba3\n"));
    EXPECT_TRUE(has(r.out, "Total # of HBA:      3\n\n"));
    // Every block takes the layout of the addressed controller (RAID here),
    // the JBOF one included.
    EXPECT_EQ(occurrences(r.out, "Max VD:"), 3);

    r = m.cli({"2", "info", "-o", "hba"});
    EXPECT_EQ(occurrences(r.out, "NVMe Controller ID:"), 1);
    EXPECT_TRUE(has(r.out, "Device:                              vmhba3\n"));
    EXPECT_TRUE(has(r.out, "Supported RAID Mode:                 Not Support\n"));

    // The leading number addresses the other objects too.
    r = m.cli({"1", "info", "-o", "vd"});
    EXPECT_TRUE(has(r.out, "Name:                fast\n"));
    EXPECT_TRUE(has(r.out, "Total # of VD:       1\n"));
}

TEST(InfoJbof, EveryObject)
{
    SimMachine m("jbof");
    auto r = m.cli({"info", "-o", "pd", "-i", "0"});
    EXPECT_EQ(r.out,
              "PD ID:                           0\n"
              "Model:                           NVMe SSD 1920GB                         \n"
              "Serial:                          SSD010000000100     \n"
              "Sector Size:                     512 bytes\n"
              "LBA:                             3750748848\n"
              "Size:                            1788 GB\n"
              "SSD backend RC/Slot ID:          0\n"
              "SSD backend Namespace ID:        1\n"
              "Firmware version:                1.0.3   \n"
              "Status:                          Idle\n"
              "Assigned:                        No\n"
              "Importable:                      No\n"
              "SMART Critical Warning:          No\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd"}).out, "Total # of PD:          4\n"));

    r = m.cli({"info", "-o", "ns", "-i", "2"});
    EXPECT_EQ(r.out,
              "NS ID:               2\n"
              "Size:                1788 GB\n"
              "Parent PD ID:        1\n"
              "Valid:               Yes\n"
              "Active:              Yes\n"
              "\n");
    r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(occurrences(r.out, "Parent PD ID:"), 4);
    EXPECT_FALSE(has(r.out, "VD status:"));
    EXPECT_TRUE(has(r.out, "Total # of NS:       4\n"));

    EXPECT_EQ(m.cli({"info", "-o", "vd"}).out, "\nNo virtual disk is found.\n");
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd"}).out, "No Namespace Info Exist.\n");

    r = m.cli({"info", "-o", "hba"});
    EXPECT_TRUE(has(r.out,
                    "Port Count:                          8\nMax PD:                              32\n"
                    "Max NS of Per PD:                    8\nMax NS:                              32\n"));
    EXPECT_TRUE(has(r.out,
                    "Supported RAID Mode:                 Not Support\nCache:                               On \n"
                    "Supported Features:                  JBOF Namespace \n"));
    EXPECT_FALSE(has(r.out, "Max VD:"));
    EXPECT_FALSE(has(r.out, "Supported BGA Features:"));
}

TEST(InfoDegraded, MissingMemberParityAndActivities)
{
    SimMachine m("degraded");
    auto r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_EQ(r.out,
              "VD ID:               0\n"
              "Name:                archive\n"
              "Status:              Degrade\n"
              "Importable:          No\n"
              "RAID Mode:           RAID6\n"
              "size:                3576 GB\n"
              "PD Count:            4\n"
              "PDs:                 0 1 2 ? \n"
              "Parity Disk Number:  2\n"
              "Stripe Block Size:   128K\n"
              "Sector Size:         512 bytes\n"
              "BGA progress:        Rebuilding is pause in 40%\n");
    r = m.cli({"info", "-o", "vd", "-i", "1"});
    EXPECT_TRUE(has(r.out, "RAID Mode:           RAID5\n"));
    EXPECT_FALSE(has(r.out, "Parity Disk Number:"));
    EXPECT_TRUE(has(r.out, "BGA progress:        Initializing is running in 10%\n"));

    r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(occurrences(r.out, "VD status:           Unhealthy\n"), 2);  // degraded parent
    EXPECT_TRUE(has(r.out,
                    "NS ID:               2\nSize:                1788 GB\nParent VD ID:        0\n"
                    "Valid:               Yes\nActive:              No\n"));

    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "4"}).out, "Status:                          Fail\n"));
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "7"}).out, "SMART Critical Warning:          Yes\n"));
}

TEST(InfoFaults, RepliesThatFail)
{
    SimMachine m("raid");
    struct Case {
        std::vector<std::string> fault;
        std::vector<std::string> words;
        std::string out;
    };
    const Case cases[] = {
        {{"--cdw12", "0x000000e2", "--bad-sign"}, {"info", "-o", "vd", "-i", "0"}, "\nUnable to get info of VD\n"},
        {{"--cdw12", "0x000000e2", "--envelope-status", "3"}, {"info", "-o", "vd"}, "\nNo virtual disk is found.\n"},
        {{"--cdw12", "0x000000e1", "--envelope-status", "3"},
         {"info", "-o", "pd", "-i", "0"},
         "\nUnable to get info of PD\n"},
        {{"--cdw12", "0x000000e1", "--status", "0x0107"},
         {"info", "-o", "pd", "-i", "0"},
         "Invalid Firmware Image (Status Code: 0x107)\n\nUnable to get info of PD\n"},
        {{"--cdw12", "0x000000e5", "--bad-sign"}, {"info", "-o", "ns"}, "\nUnable to get info of NS\n"},
        {{"--cdw12", "0x000000e5", "--envelope-status", "3"},
         {"info", "-o", "ns", "-i", "1"},
         "\nUnable to get info of NS\n"},
        {{"--cdw12", "0x00ff01e5", "--envelope-status", "1"},
         {"info", "-o", "ns", "-t", "vd"},
         "\nUnable to get info of VD\n"},
        {{"--cdw12", "0x00ff01e5", "--status", "0x0702"},
         {"info", "-o", "ns", "-t", "vd"},
         "Unknown error (Status Code: 0x702)\n\nUnable to get info of VD\n"},
    };
    for (const Case &c : cases) {
        m.krtsim({"fault", "clear"});
        std::vector<std::string> add{"fault", "add", "--opcode", "0xe2"};
        add.insert(add.end(), c.fault.begin(), c.fault.end());
        ASSERT_EQ(m.krtsim(add).status, 0) << testing::PrintToString(add);
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, 0) << testing::PrintToString(c.fault);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.fault);
    }
}

TEST(InfoFaults, ControllerQueryFailsAfterStartUp)
{
    SimMachine m("multi");
    // Start-up reads every controller itself; count those reads so that a
    // harmless first rule lets them pass and catches info's query of the second controller.
    m.krtsim({"log", "clear"});
    m.cli({"version"});
    const int startUpReads = occurrences(m.krtsim({"log"}).out,
                                         "vmhba2 opc=0xe2 nsid=0 cdw10=0x00000000 "
                                         "cdw11=0x00000000 cdw12=0x000000e0");
    ASSERT_GT(startUpReads, 0);
    ASSERT_EQ(m.krtsim({"fault", "add", "--adapter", "1", "--opcode", "0xe2", "--cdw12", "0x000000e0", "--count",
                        std::to_string(startUpReads), "--envelope-status", "0"})
                  .status,
              0);
    ASSERT_EQ(m.krtsim({"fault", "add", "--adapter", "1", "--opcode", "0xe2", "--cdw12", "0x000000e0", "--count", "1",
                        "--bad-sign"})
                  .status,
              0);
    const auto r = m.cli({"info", "-o", "hba"});
    EXPECT_EQ(occurrences(r.out, "NVMe Controller ID:"), 2);
    EXPECT_TRUE(has(r.out, "\nUnable to get info of NVMe Controller 1\n"));
    EXPECT_TRUE(has(r.out, "Total # of HBA:      3\n"));
}

TEST(InfoFaults, OverlongRepliesAreReadWithinTheirBounds)
{
    SimMachine m("degraded");
    ASSERT_EQ(m.krtsim({"fault", "add", "--overlong"}).status, 0);

    // MaxNS 255 and every slot in use: only the 42 records in the reply.
    auto r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "NS ID:"), 42);
    EXPECT_TRUE(has(r.out, "Total # of NS:       42\n"));

    r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Name:                XXXXXXXXXXXXXXXX\n"));
    EXPECT_TRUE(has(r.out, "PD Count:            255\n"));
    EXPECT_TRUE(has(r.out, "PDs:                 0 1 2 ? 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 \n"));

    r = m.cli({"info", "-o", "pd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Model:                           " + std::string(40, 'X') + "\n"));
    EXPECT_TRUE(has(r.out, "Serial:                          " + std::string(20, 'X') + "\n"));
    EXPECT_TRUE(has(r.out, "Firmware version:                XXXXXXXX\n"));
}

}  // namespace
