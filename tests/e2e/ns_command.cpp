// ns against simulated machines: option rules, the namespace table read at
// the start of every run, the JBOF story from a bare SSD to an attached
// shared namespace, virtual functions, and controllers that refuse or lie.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::SimMachine;

const std::string kHelp = "Description:For namespace management\n";

// Log lines of the namespace class's actions and of Namespace Attachment.
bool sentAction(const std::string &log)
{
    return has(log, "02e5 cdw13") || has(log, "03e5 cdw13") || has(log, "04e5 cdw13") || has(log, "opc=0x15");
}

std::string nsBlock(const std::string &id, const std::string &size, const std::string &pd, const std::string &active)
{
    return "NS ID:               " + id + "\nSize:                " + size + " GB\nParent PD ID:        " + pd +
           "\nValid:               Yes\nActive:              " + active + "\n\n";
}

TEST(NsOptions, UsageErrorsAndTheirOrder)
{
    SimMachine m("jbof");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;
    };
    const Case cases[] = {
        {{"ns"}, 1, kHelp},
        {{"ns", "-h"}, 0, kHelp},
        {{"ns", "-a", "format"}, 0, "-a : invalid action 'format'.\n"},
        {{"ns", "-i", "-1"}, 0, "-i: id should be a number\n"},
        {{"ns", "-e", "001e02030405060"}, 0, "-e : invalid EUI64 '001e02030405060'.\n"},
        {{"ns", "-n", "4x"}, 0, "-n: number of namespace should be a number\n"},
        {{"ns", "-l", "1GB"}, 0, "-l: Invalid NS size\n"},
        {{"ns", "-c", "one"}, 0, "-c: controller id should be a number\n"},
        {{"ns", "-c", "65536"}, 0, "invalid controller id '65536'\n"},
        {{"ns", "-s", "maybe"}, 0, "-s : invalid option 'maybe'.\n"},
        {{"ns", "-p", "host"}, 0, "-p : invalid value 'host'\n"},
        {{"ns", "-d", "1,x"}, 0, "-d : controller ids should be a number\n"},
        {{"ns", "-d", "1,70000"}, 0, "invalid controller id '70000'\n"},
        // Parsing stops at the first bad value; duplicates are judged after it.
        {{"ns", "--list", "--list", "-p", "x"}, 0, "-p : invalid value 'x'\n"},
        {{"ns", "--list", "--li"}, 0, "Duplicated option specified.\n"},
        {{"ns", "-a", "attach", "-e", "001e020304050601", "-e", "001e020304050602"},
         0,
         "Duplicated option specified.\n"},
        {{"ns", "-i", "1", "--waiveconfirmation"}, 1, "Error action!\n"},
        {{"ns", "-a", "INIT", "-n", "2"}, 0, "ns: option -i is required\n"},
        {{"ns", "-a", "init", "-i", "0"}, 0, "ns: option -n is required\n"},
        {{"ns", "-a", "share", "-s", "yes"}, 0, "ns: option -i or -e is required\n"},
        {{"ns", "-a", "share", "-i", "1"}, 0, "ns: option -s is required\n"},
        {{"ns", "-a", "share", "-e", "001E020304050601", "-s", "yes"}, 0, "invalid EUI64 id: 001E020304050601\n"},
        {{"ns", "-a", "detach", "-d", "1"}, 0, "ns: option -i or -e is required\n"},
        {{"ns", "-a", "attach", "-i", "1"}, 0, "ns: option -d is required\n"},
        {{"ns", "-a", "attach", "-i", "1", "-d", "1", "-c", "1"}, 0, "ns: option -c is not allowed\n"},
        {{"ns", "-a", "create", "-i", "0", "-l", "1"}, 0, "ns: option -c is required\n"},
        {{"ns", "-a", "create", "-i", "0", "-c", "1"}, 0, "ns: option -l is required\n"},
        // Ids that do not fit the byte they travel in would name another disk
        // or namespace.
        {{"ns", "-a", "init", "-i", "256", "-n", "2"}, 0, "invalid id '256'\n"},
        {{"ns", "-a", "create", "-i", "255", "-c", "1", "-l", "1"}, 0, "invalid id '255'\n"},
        {{"ns", "-a", "create", "-i", "0", "-c", "256", "-l", "1"}, 0, "invalid controller id '256'\n"},
        {{"ns", "-a", "share", "-i", "257", "-s", "no"}, 0, "invalid id '257'\n"},
        {{"ns", "-a", "detach", "-i", "99999999999999999999999999999", "-d", "1"},
         0,
         "invalid id '99999999999999999999999999999'\n"},
    };
    for (const Case &c : cases) {
        const auto r = m.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(c.out == kHelp ? r.out.substr(0, kHelp.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
    EXPECT_FALSE(sentAction(m.krtsim({"log"}).out));
}

// Every run reads the host namespace list and each namespace's Identify data
// first, then the controller's id; --list then shows what info shows.
TEST(NsRaid, ListReadsTheTableFirstAndShowsWhatInfoShows)
{
    SimMachine m("raid");
    m.krtsim({"log", "clear"});
    const auto r = m.cli({"ns", "--list"});
    EXPECT_EQ(r.status, 0);
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_EQ(r.out, m.cli({"info", "-o", "ns"}).out);
    const std::string table = log.substr(log.find("cdw12=0x000000e5"));
    EXPECT_EQ(occurrences(table, "cdw12=0x000000e5"), 2);
    for (const char *nsid :
         {"nsid=1 cdw10=0x00000000", "nsid=2 cdw10=0x00000000", "nsid=3 cdw10=0x00000000", "nsid=0 cdw10=0x00000001"}) {
        EXPECT_TRUE(has(table, "opc=0x06 " + std::string(nsid))) << nsid;
    }
    EXPECT_EQ(occurrences(table, "\n"), 6);

    auto p = m.cli({"ns", "-p", "CTRL"});
    EXPECT_EQ(p.out, "Primary Controller Id is 1\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "opc=0x06 nsid=0 cdw10=0x00000014"));

    // Namespaces come with VDs here: the controller refuses to cut SSDs.
    m.krtsim({"log", "clear"});
    p = m.cli({"ns", "-a", "create", "-i", "6", "-c", "1", "-l", "1"});
    EXPECT_EQ(p.out, "Not supported (Status Code: 0x705)\n\nUnable to create NS\n");
    EXPECT_EQ(p.status, 5);
    // 1 GB of 512-byte sectors, and the PD id plus 1 beside the controller id.
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x010704e5 cdw13=0x00200000 cdw14=0x00000000 cdw15=0x00000000"));
    p = m.cli({"ns", "-a", "init", "-i", "6", "-n", "2"});
    EXPECT_EQ(p.out, "Not supported (Status Code: 0x705)\n\nUnable to initial NS\n");

    // Sharing works on a VD's namespace; "no" names the controller keeping it.
    EXPECT_EQ(m.cli({"ns", "-a", "share", "-i", "3", "-s", "No", "-c", "1"}).out, "\nSet sharing NS successfully\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000303e5 cdw13=0x00000000 cdw14=0x00000100"));
    EXPECT_TRUE(has(m.krtsim({"show"}).out, "NS 3 on VD 1 3750748848 x 512 valid active private to 1\n"));
}

TEST(NsJbof, InitCreateShareDetachAttach)
{
    SimMachine m("jbof");  // four SSDs, one namespace spanning each, all attached
    const std::string eui1 = "001e020304050601";

    auto r = m.cli({"ns", "-a", "init", "-i", "0", "-n", "4"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\nInitial NS successfully\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000002e5 cdw13=0x00000000 cdw14=0x00000004"));
    r = m.cli({"ns", "--list"});
    EXPECT_FALSE(has(r.out, "NS ID:               1\n")) << "PD 0 lost its namespace";
    EXPECT_TRUE(has(r.out, "Total # of NS:       3\n"));

    // -i after "-a create" is a PD id; the size is in 512-byte sectors.
    r = m.cli({"ns", "-a", "create", "-i", "0", "-c", "0", "-l", "100"});
    EXPECT_EQ(r.out, "\nCreate NS successfully\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000104e5 cdw13=0x0c800000 cdw14=0x00000000"));
    EXPECT_EQ(m.cli({"info", "-o", "ns", "-i", "1"}).out, nsBlock("1", "100", "0", "No"));
    r = m.cli({"ns", "-a", "create", "-i", "0", "-c", "0", "-l", "2000"});
    EXPECT_EQ(r.out, "Create namespace cap out of range (Status Code: 0x741)\n\nUnable to create NS\n");

    // Private to controller 0, so not ours to attach until it is shared.
    r = m.cli({"ns", "-a", "attach", "-e", eui1, "-d", "1"});
    EXPECT_EQ(r.out, "Namespace Is Private (Status Code: 0x119)\nAttach namespace failed\n");
    EXPECT_EQ(r.status, 0x19);
    EXPECT_EQ(m.cli({"ns", "-a", "share", "-e", eui1, "-s", "YES"}).out, "\nSet sharing NS successfully\n");
    EXPECT_TRUE(has(m.krtsim({"log"}).out, "cdw12=0x000103e5 cdw13=0x00000000 cdw14=0x00000001"));
    EXPECT_EQ(m.cli({"ns", "-a", "attach", "-i", "1", "-d", "1"}).out, "Attach namespace success\n");
    EXPECT_TRUE(has(m.cli({"ns", "--list"}).out, nsBlock("1", "100", "0", "Yes")));

    // Detach shows the namespace as it was, then takes it from the host.
    r = m.cli({"ns", "-a", "detach", "-e", eui1, "-d", "1"});
    EXPECT_EQ(r.out, nsBlock("1", "100", "0", "Yes") + "Detach namespace success\n");
    r = m.cli({"ns", "-a", "detach", "-i", "1", "-d", "1"});
    EXPECT_EQ(r.out, nsBlock("1", "100", "0", "No") +
                         "Namespace Not Attached (Status Code: 0x11a)\nDetach namespace failed\n");
    EXPECT_EQ(m.cli({"ns", "-a", "attach", "-i", "1", "-d", "1"}).out, "Attach namespace success\n");
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_TRUE(has(log,
                    "opc=0x15 nsid=1 cdw10=0x00000001 cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 "
                    "cdw14=0x00000000 cdw15=0x00000000 dir=to len=4096 status=0x0"));
    // A list naming a controller the subsystem does not have.
    EXPECT_EQ(
        m.cli({"ns", "-a", "detach", "-i", "2", "-d", "1,0"}).out,
        nsBlock("2", "1788", "1", "Yes") + "Controller List Invalid (Status Code: 0x11c)\nDetach namespace failed\n");

    // The created namespace counts against what PD 0 was initialized for.
    EXPECT_EQ(m.cli({"ns", "-a", "init", "-i", "1", "-n", "1"}).status, 0);
    EXPECT_EQ(m.cli({"ns", "-a", "create", "-i", "1", "-c", "1", "-l", "1"}).status, 0);
    r = m.cli({"ns", "-a", "create", "-i", "1", "-c", "1", "-l", "1"});
    EXPECT_EQ(r.out, "Invalid Namespace count (Status Code: 0x74a)\n\nUnable to create NS\n");
}

TEST(NsJbof, DebugShowsTheFlaggedRequestWords)
{
    SimMachine m("jbof");
    const std::string out = m.shell("--debug\nns -a create -i 2 -c 1 -l 1\nns -a share -i 4 -s no -c 3\n");
    EXPECT_TRUE(has(out,
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000000e1\nCDW[14]: 0x00000002\ncmd_status: 0x0\n"
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x010304e5\nCDW[13]: 0x00200000\nCDW[14]: 0x00000000\n"
                    "CDW[15]: 0x00000000\nCreate namespace cap out of range"));
    EXPECT_TRUE(has(out, "CDW[0] : 0x000000e2\nCDW[12]: 0x000403e5\nCDW[14]: 0x00000300\n\nSet sharing NS"));
}

TEST(NsJbof, VirtualFunctionRefusesChangesButAttaches)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("vf.json"), R"({"adapters": [{"raid": false, "pd_count": 2, "cntlid": 2}]})");
    SimMachine m(dir.file("vf.json"));
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{"ns", "-a", "init", "-i", "0", "-n", "2"}, "Init action is not allowed in VF mode\n"},
        {{"ns", "-a", "share", "-i", "1", "-s", "yes"}, "Share action is not allowed in VF mode\n"},
        {{"ns", "-a", "create", "-i", "0", "-c", "2", "-l", "1"}, "Create action is not allowed in VF mode\n"},
    };
    for (const auto &[words, message] : refused) {
        const auto r = m.cli(words);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, message);
    }
    EXPECT_FALSE(sentAction(m.krtsim({"log"}).out));

    EXPECT_EQ(m.cli({"ns", "-a", "detach", "-i", "2", "-d", "2"}).out,
              nsBlock("2", "1788", "1", "Yes") + "Detach namespace success\n");
    EXPECT_EQ(m.cli({"ns", "-a", "attach", "-i", "2", "-d", "2"}).out, "Attach namespace success\n");
    EXPECT_EQ(m.cli({"ns", "-p", "ctrl"}).out, "Primary Controller Id is 2\n");
    EXPECT_TRUE(has(m.cli({"ns", "--list"}).out, "Total # of NS:       2\n"));
}

TEST(NsFaults, DisksWithoutSectorSizeAndMissingDisks)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"),
                        R"({"adapters": [{"raid": false, "pds": [{}, {"sector_size": 0}], "namespaces": []}]})");
    SimMachine m(dir.file("f.json"));
    EXPECT_EQ(m.cli({"ns", "-a", "create", "-i", "1", "-c", "1", "-l", "1"}).out, "\nInvalid PD ID: 1\n");
    EXPECT_EQ(m.cli({"ns", "-a", "create", "-i", "5", "-c", "1", "-l", "1"}).out, "\nInvalid PD ID: 5\n");
    EXPECT_FALSE(sentAction(m.krtsim({"log"}).out));
    // A size beyond 64 bits of bytes follows the conversion, whatever it gives.
    EXPECT_EQ(m.cli({"ns", "-a", "create", "-i", "0", "-c", "1", "-l", "999999999999999999999999999999"}).status, 0x41);
}

TEST(NsFaults, NamespaceListThatCannotBeRead)
{
    SimMachine m("jbof");
    // Without the list the table is empty: an EUI64 names nothing.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000000e5", "--bad-sign"});
    auto r = m.cli({"ns", "-a", "attach", "-e", "001e020304050601", "-d", "1"});
    EXPECT_EQ(r.out, "invalid EUI64 id: 001e020304050601\n");
    EXPECT_EQ(r.status, 0);

    // A list that claims every slot it can carry: the empty ones have no
    // Identify data, and each says so while the table is built.
    m.krtsim({"fault", "clear"});
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000000e5", "--overlong"});
    r = m.cli({"ns", "-p", "ctrl"});
    EXPECT_EQ(
        occurrences(r.out, "Invalid Namespace or Format (Status Code: 0xb)\n\nFailed to get primary controller.\n"),
        32 - 4)
        << "MaxNS slots, four of them with a namespace";
    EXPECT_TRUE(has(r.out, "controller.\nPrimary Controller Id is 1\n"));
    EXPECT_EQ(r.status, 0);
}

TEST(NsFaults, MoreNamespacesThanOneReplyHolds)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"),
                        R"({"adapters": [{"raid": false, "pd_count": 1, "max_ns": 60,
                            "namespaces": [{"pd": 0, "sectors": 1000, "count": 45}]}]})");
    SimMachine m(dir.file("f.json"));
    m.krtsim({"log", "clear"});
    // Namespace 42 sits in the last record that fits; 43 is beyond the reply.
    EXPECT_EQ(m.cli({"ns", "-a", "share", "-e", "001e02030405062a", "-s", "yes"}).out,
              "\nSet sharing NS successfully\n");
    EXPECT_EQ(m.cli({"ns", "-a", "share", "-e", "001e02030405062b", "-s", "yes"}).out,
              "invalid EUI64 id: 001e02030405062b\n");
    const std::string log = m.krtsim({"log"}).out;
    EXPECT_EQ(occurrences(log, "opc=0x06 nsid=42 "), 2);
    EXPECT_FALSE(has(log, "opc=0x06 nsid=43 "));
}

TEST(NsFaults, ControllersWithoutNamespaceSupport)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"raid": false, "pd_count": 1, "features": 0,
                                                "max_ns": 0}]})");
    SimMachine m(dir.file("f.json"));
    m.krtsim({"log", "clear"});
    EXPECT_EQ(m.cli({"ns", "-a", "attach", "-i", "1", "-d", "1"}).out,
              "Namespace management and attachment is not support.\n");
    EXPECT_EQ(m.cli({"ns", "-a", "share", "-e", "001e020304050601", "-s", "yes"}).out,
              "Get MaxNS from adapter info fail.\ninvalid EUI64 id: 001e020304050601\n");
    EXPECT_EQ(m.cli({"ns", "--list"}).out, "Get MaxNS from adapter info fail.\n");
    EXPECT_FALSE(has(m.krtsim({"log"}).out, "cdw12=0x000000e5"));
}

}  // namespace
