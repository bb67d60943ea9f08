// info against simulated machines: every object on RAID and JBOF
// controllers, the option rules, and controllers that fail queries.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::SimMachine;

TEST(InfoOptions, UsageErrorsAndTheirOrder)
{
    SimMachine m("raid");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;  // for the help: how it begins
    };
    const std::string help =
        "Description:For display NVMe Controller(hba), virtual disk(vd), physical disk(pd) or "
        "Namespace(ns) information.\n";
    const Case cases[] = {
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
        {{"info"}, 1, help},
        {{"info", "-h"}, 0, help},
        {{"info", "-o", "vd", "--vd_id", "1"}, 0, help},  // only --vdid is known
        {{"info", "-o"}, 0, help},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(c.out == help ? r.out.substr(0, help.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
    // Nothing reached the controller beyond start-up's own questions.
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000000e1"));
}

const std::string kNoVD = "\nUnable to get info of VD\n";
const std::string kNoPD = "\nUnable to get info of PD\n";
const std::string kNoNS = "\nUnable to get info of NS\n";

TEST(InfoRaid, VirtualDisks)
{
    SimMachine m("raid");
    const auto r = m.cli({"info", "-o", "VD"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "\nVD ID:               0\nName:                data\nStatus:              Functional\n"
              "Importable:          No\nRAID Mode:           RAID5\nsize:                5365 GB\n"
              "PD Count:            4\nPDs:                 0 1 2 3 \nStripe Block Size:   128K\n"
              "Sector Size:         512 bytes\n"
              "\nVD ID:               1\nName:                mirror\nStatus:              Functional\n"
              "Importable:          No\nRAID Mode:           RAID1\nsize:                1788 GB\n"
              "PD Count:            2\nPDs:                 4 5 \nStripe Block Size:   128K\n"
              "Sector Size:         512 bytes\n"
              "\nTotal # of VD:       2\n\n");

    // Each VD's background activity is asked for by its id in CDW14.
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000002e3 cdw13=0x00000000 cdw14=0x00000001"));

    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "5"}).out, kNoVD);
}

TEST(InfoRaid, PhysicalDisks)
{
    SimMachine m("raid");
    auto r = m.cli({"info", "-o", "Pd"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(occurrences(r.out, "PD ID:"), 8);
    EXPECT_EQ(r.out.substr(0, 7), "\nPD ID:");
    EXPECT_TRUE(has(r.out, "\n\nTotal # of PD:          8\n\n"));
    EXPECT_FALSE(has(r.out, "Importable:"));  // a RAID controller does not say

    EXPECT_EQ(m.cli({"info", "-o", "pd", "-i", "9"}).out, kNoPD);
    // 255 is the id of "all".
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "pd", "-i", "255"}).out, "PD ID:"), 8);
}

TEST(InfoRaid, Namespaces)
{
    auto ns = [](const std::string &id, const std::string &size, const std::string &vd) {
        return "NS ID:               " + id + "\nSize:                " + size + " GB\nParent VD ID:        " + vd +
               "\nValid:               Yes\nActive:              Yes\nVD status:           Healthy\n\n";
    };
    const std::string ns1 = ns("1", "2682", "0"), ns3 = ns("3", "1788", "1");
    SimMachine m("raid");
    auto r = m.cli({"info", "-o", "nS"});  // object words ignore case
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, ns1 + ns("2", "2682", "0") + ns3 + "Total # of NS:       3\n\n");

    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "3"}).out, ns3);
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "7"}).out, kNoNS);
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "LD", "--vdid", "1"}).out, ns3 + "Total # of NS:       1\n\n");
    // The controller refuses a VD it does not have.
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd", "-v", "6"}).out, kNoVD);
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd", "-i", "1"}).out, ns1);

    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x00ff01e5"));  // per VD, all of them
}

TEST(InfoRaid, NamespacesFollowTheirVirtualDisk)
{
    SimMachine m("raid");  // NS 1 and 2 on VD 0 (PDs 0-3), NS 3 on VD 1
    const std::string healthy = "VD status:           Healthy\n", unhealthy = "VD status:           Unhealthy\n";
    // PD 0's reset line held: VD 0 goes on without it.
    ASSERT_EQ(m.cli({"reset", "-t", "perstn", "-a", "off", "-i", "0"}).status, 0);
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "0"}).out, "Status:              Degrade\n"));
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"info", "-o", "ns"}, std::vector<std::string>{"info", "-o", "ns", "-t", "vd"}}) {
        const auto r = m.cli(words);
        EXPECT_EQ(occurrences(r.out, unhealthy), 2) << r.out;
        EXPECT_EQ(occurrences(r.out, healthy), 1) << r.out;
    }
    ASSERT_EQ(m.cli({"reset", "-t", "perstn", "-a", "on", "-i", "0"}).status, 0);
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "ns"}).out, healthy), 3);
}

TEST(InfoRaid, Controller)
{
    SimMachine m("raid");
    const auto r = m.cli({"info", "-o", "HBA"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "NVMe Controller ID:                  0\nBus Device Fun:                      10:00.00\n"
              "Device:                              vmhba1\n"
              "SUBNQN:                              nqn.2026-01.io.krt:nvme-controller:serial:KRT00001000       0\n"
              "Firmware Version:                    2.1.0.0035\nVID:                                 0x1e6b\n"
              "SVID:                                0x1e6b\nDID:                                 0x7a10\n"
              "SDID:                                0x1\nRevisionID:                          A1V\n"
              "Port Count:                          8\nMax PD of Per VD:                    32\n"
              "Max VD:                              8\nMax PD:                              32\n"
              "Max NS of Per VD:                    8\nMax NS:                              32\n"
              "Host ID:                             1\n"
              "Supported RAID Mode:                 RAID0 RAID1 RAID5 RAID6 RAID10 RAID50 RAID60 JBOD \n"
              "Cache:                               On \n"
              "Supported BGA Features:              Initialization Rebuild Sync Migrate MediaPatrol \n"
              "Support Stripe Size:                 128KB 256KB 512KB \n"
              "Supported Features:                  Import RAID Namespace \n"
              "End Point:                           0\n  Link width:                        8x\n"
              "  Max PCIe speed:                    8Gb/s\n\nTotal # of HBA:      1\n\n");
}

TEST(InfoMulti, EveryControllerAndTheBoundOne)
{
    SimMachine m("multi");
    auto r = m.cli({"info", "-o", "hba"});
    EXPECT_TRUE(has(r.out, "NVMe Controller ID:                  2\nBus Device Fun:                      12:00.00\n"));
    EXPECT_TRUE(has(r.out, "Total # of HBA:      3\n\n"));
    // Every block takes the layout of the addressed controller (RAID here),
    // the JBOF one included.
    EXPECT_EQ(occurrences(r.out, "Max VD:"), 3);

    // Bound to a controller by the leading number: that one, no total.
    r = m.cli({"2", "info", "-o", "hba"});
    EXPECT_EQ(occurrences(r.out, "NVMe Controller ID:"), 1);
    EXPECT_TRUE(has(r.out, "Supported RAID Mode:                 Not Support\n"));
    EXPECT_FALSE(has(r.out, "Total # of HBA:"));

    // The leading number addresses the other objects too.
    EXPECT_TRUE(has(m.cli({"1", "info", "-o", "vd"}).out, "Name:                fast\n"));
}

TEST(InfoJbof, EveryObject)
{
    SimMachine m("jbof");
    EXPECT_EQ(m.cli({"info", "-o", "hd", "-i", "0"}).out,  // one disk: no total
              "PD ID:                           0\n"
              "Model:                           NVMe SSD 1920GB                         \n"
              "Serial:                          SSD010000000100     \n"
              "Sector Size:                     512 bytes\nLBA:                             3750748848\n"
              "Size:                            1788 GB\nSSD backend RC/Slot ID:          0\n"
              "SSD backend Namespace ID:        1\nFirmware version:                1.0.3   \n"
              "Status:                          Idle\nAssigned:                        No\n"
              "Importable:                      No\nSMART Critical Warning:          No\n");
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd"}).out, "Total # of PD:          4\n"));

    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "2"}).out,
              "NS ID:               2\nSize:                1788 GB\nParent PD ID:        1\n"
              "Valid:               Yes\nActive:              Yes\n\n");
    auto r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(occurrences(r.out, "Parent PD ID:"), 4);
    EXPECT_FALSE(has(r.out, "VD status:"));
    EXPECT_TRUE(has(r.out, "Total # of NS:       4\n"));

    EXPECT_EQ(m.cli({"info", "-o", "vd"}).out, "\nNo virtual disk is found.\n");
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-t", "vd"}).out, "No Namespace Info Exist.\n");

    r = m.cli({"info", "-o", "hba"});
    EXPECT_EQ(r.out.substr(r.out.find("Port Count:")),
              "Port Count:                          8\nMax PD:                              32\n"
              "Max NS of Per PD:                    8\nMax NS:                              32\n"
              "Host ID:                             1\nSupported RAID Mode:                 Not Support\n"
              "Cache:                               On \nSupported Features:                  JBOF Namespace \n"
              "End Point:                           0\n  Link width:                        8x\n"
              "  Max PCIe speed:                    8Gb/s\n\nTotal # of HBA:      1\n\n");
}

TEST(InfoDegraded, MissingMemberParityAndActivities)
{
    SimMachine m("degraded");
    EXPECT_EQ(m.cli({"info", "-o", "ld", "-i", "0"}).out,
              "VD ID:               0\nName:                archive\nStatus:              Degrade\n"
              "Importable:          No\nRAID Mode:           RAID6\nsize:                3576 GB\n"
              "PD Count:            4\nPDs:                 0 1 2 ? \nParity Disk Number:  2\n"
              "Stripe Block Size:   128K\nSector Size:         512 bytes\n"
              "BGA progress:        Rebuilding is pause in 40%\n");
    auto r = m.cli({"info", "-o", "vd", "-i", "1"});
    EXPECT_TRUE(has(r.out, "RAID Mode:           RAID5\n"));
    EXPECT_FALSE(has(r.out, "Parity Disk Number:"));

    r = m.cli({"info", "-o", "ns"});
    EXPECT_EQ(occurrences(r.out, "VD status:           Unhealthy\n"), 2);  // degraded parent
    EXPECT_TRUE(has(r.out,
                    "NS ID:               2\nSize:                1788 GB\nParent VD ID:        0\n"
                    "Valid:               Yes\nActive:              No\n"));

    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "7"}).out, "SMART Critical Warning:          Yes\n"));
}

TEST(InfoFaults, RepliesThatFail)
{
    SimMachine m("raid");
    struct Case {
        const char *cdw12;
        std::vector<std::string> effect, words;
        std::string out;
    };
    const std::vector<std::string> nsOfVDs{"info", "-o", "ns", "-t", "vd"}, pd0{"info", "-o", "pd", "-i", "0"};
    const Case cases[] = {
        {"0x000000e2", {"--bad-sign"}, {"info", "-o", "vd", "-i", "0"}, kNoVD},
        {"0x000000e2", {"--envelope-status", "3"}, {"info", "-o", "vd"}, "\nNo virtual disk is found.\n"},
        {"0x000000e1", {"--envelope-status", "3"}, pd0, kNoPD},
        {"0x000000e1", {"--status", "0x0107"}, pd0, "Invalid Firmware Image (Status Code: 0x107)\n" + kNoPD},
        {"0x000000e5", {"--bad-sign"}, {"info", "-o", "ns"}, kNoNS},
        {"0x00ff01e5", {"--envelope-status", "1"}, nsOfVDs, kNoVD},
        {"0x00ff01e5", {"--status", "0x0702"}, nsOfVDs, "Unknown error (Status Code: 0x702)\n" + kNoVD},
    };
    for (const Case &c : cases) {
        m.krtsim({"fault", "clear"});
        std::vector<std::string> add{"fault", "add", "--opcode", "0xe2", "--cdw12", c.cdw12};
        add.insert(add.end(), c.effect.begin(), c.effect.end());
        ASSERT_EQ(m.krtsim(add).status, 0) << testing::PrintToString(add);
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, 0) << testing::PrintToString(add);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(add);
    }
}

TEST(InfoFaults, ControllerQueryFailsAfterStartUp)
{
    SimMachine m("multi");
    // Start-up reads every controller itself; a harmless first rule lets those
    // reads pass, the second catches info's query of the second controller.
    m.krtsim({"log", "clear"});
    m.cli({"version"});
    const int startUpReads = occurrences(m.krtsim({"log"}).out,
                                         "vmhba2 opc=0xe2 nsid=0 cdw10=0x00000000 "
                                         "cdw11=0x00000000 cdw12=0x000000e0");
    ASSERT_GT(startUpReads, 0);
    for (const std::vector<std::string> &effect :
         {std::vector<std::string>{"--count", std::to_string(startUpReads), "--envelope-status", "0"},
          std::vector<std::string>{"--count", "1", "--bad-sign"}}) {
        std::vector<std::string> add{"fault", "add", "--adapter", "1", "--opcode", "0xe2", "--cdw12", "0x000000e0"};
        add.insert(add.end(), effect.begin(), effect.end());
        ASSERT_EQ(m.krtsim(add).status, 0);
    }
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

    // A name without terminator, and no more than 32 members.
    r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Name:                XXXXXXXXXXXXXXXX\nStatus:"));
    EXPECT_TRUE(has(r.out,
                    "PD Count:            255\n"
                    "PDs:                 0 1 2 ? 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 \n"));

    r = m.cli({"info", "-o", "pd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Model:                           " + std::string(40, 'X') +
                               "\n"
                               "Serial:                          " +
                               std::string(20, 'X') + "\n"));
    EXPECT_TRUE(has(r.out, "Firmware version:                XXXXXXXX\n"));
}

}  // namespace
