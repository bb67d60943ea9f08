// vd, init, mp and rebuild against simulated machines: their option rules,
// the request words that reach the controller, the controller's refusals,
// and whole stories from a new array to its deletion and from a degraded
// array back to health.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_test::RunResult;
using krt_test::SimMachine;
using Words = std::vector<std::string>;

// Runs the tool and returns the array and activity requests (classes 0xE2
// and 0xE3) it sent, each as "cdw12 cdw13 cdw14" from the command log.
std::vector<std::string> requestsOf(const SimMachine &m, const Words &words, RunResult *result = nullptr)
{
    m.krtsim({"log", "clear"});
    const RunResult r = m.cli(words);
    if (result != nullptr)
        *result = r;
    auto word = [](const std::string &line, const std::string &name) {
        const std::size_t at = line.find(" " + name + "=0x");
        return at == std::string::npos ? std::string() : line.substr(at + name.size() + 4, 8);
    };
    std::vector<std::string> sent;
    std::istringstream log(m.krtsim({"log"}).out);
    for (std::string line; std::getline(log, line);) {
        const std::string cdw12 = word(line, "cdw12");
        const std::string cls = cdw12.size() == 8 ? cdw12.substr(6) : "";
        if (has(line, " opc=0xe2 ") && (cls == "e2" || cls == "e3"))
            sent.push_back(cdw12 + " " + word(line, "cdw13") + " " + word(line, "cdw14"));
    }
    return sent;
}

struct Case {
    Words words;
    int status;
    std::string out;  // for a help: how it begins
};

// Every case prints what it should, ends as it should and sends nothing.
void expectRefusedLocally(const SimMachine &m, const std::vector<Case> &cases)
{
    for (const Case &c : cases) {
        RunResult r;
        EXPECT_EQ(requestsOf(m, c.words, &r), std::vector<std::string>{}) << testing::PrintToString(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        const bool help = c.out.rfind("Description", 0) == 0;
        EXPECT_EQ(help ? r.out.substr(0, c.out.size()) : r.out, c.out) << testing::PrintToString(c.words);
    }
}

const std::string kSuccess = "cmd success\n";
const std::string kFailed = "cmd failed.\n";

// ---------------------------------------------------------------- vd

TEST(VdOptions, UsageErrorsSendNothing)
{
    SimMachine m("raid");
    const std::string help = "Description:For VD create and delete\n";
    const Words create{"vd", "-a", "create", "-r", "1"};
    auto with = [](Words words, const Words &more) {
        words.insert(words.end(), more.begin(), more.end());
        return words;
    };
    expectRefusedLocally(
        m, {
               {{"vd"}, 1, help},
               {{"vd", "-h"}, 0, help},
               {{"vd", "-a", "make"}, 0, "-a : invalid action 'make'.\n"},
               {{"vd", "-a", "delete", "-i", "1x"}, 0, "-i : invalid vd id '1x'.\n"},
               // Wider than the 16 bits it travels in: it would name another VD.
               {{"vd", "-a", "delete", "-i", "65536"}, 0, "-i : invalid vd id '65536'.\n"},
               {{"vd", "-a", "delete", "-i", std::string(30, '9')},
                0,
                "-i : invalid vd id '" + std::string(30, '9') + "'.\n"},
               {{"vd", "-a", "create", "-r", "7", "-d", "6,7"}, 0, "-r : invalid raid mode 7\n"},
               {with(create, {"-d", "6,7", "-b", "64"}), 0, "-b : invalid stripe block size '64'.\n"},
               // The long forms take their value only after '='.
               {with(create, {"-d", "6,7", "--sbs", "256"}), 0, "-b : invalid stripe block size ''.\n"},
               {with(create, {"-d", "6,7", "--namespace", "2"}), 0, "-n : invalid namespaces ''.\n"},
               {with(create, {"-d", "6,7", "-n", "two"}), 0, "-n : invalid namespaces 'two'.\n"},
               {with(create, {"-d", "32"}), 0, "-d : invalid PD ID '32'\n"},
               {with(create, {"-d", ",1"}), 0, "-d : invalid PD ID ',1'\n"},
               {with(create, {"-d", "6,"}), 0, "-d : invalid PD ID '6,'\n"},
               {with(create, {"-d", "255"}), 0, "-d : invalid PD ID '255'\n"},
               {with(create, {"-b", "128", "-d", "6,7", "-b", "256"}), 1, "Duplicated option specified.\n"},
               {{"VD", "-a", "create", "-a", "delete", "-i", "1"}, 1, "Duplicated option specified.\n"},
               {{"vd", "-a", "create", "-d", "6,7"}, 0, "vd: option -r is required\n"},
               {create, 0, "vd: option -d is required\n"},
               {{"vd", "-a", "Delete"}, 0, "vd: option -i is required\n"},
               // Neither action: the message, and its length as the result.
               {{"vd", "-r", "0", "-d", "0"}, 14, "Error action!\n"},
           });
}

TEST(VdOptions, OneNamespacePerVdOnSkuTwo)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"sku": 2, "max_ns_per_vd": 1, "pd_count": 2}]})");
    SimMachine m(dir.file("f.json"));
    expectRefusedLocally(
        m, {{{"vd", "-a", "create", "-r", "1", "-d", "0,1", "-n", "2"}, 0, "-n : invalid number of namespace '2'.\n"}});
    EXPECT_EQ(m.cli({"vd", "-a", "create", "-r", "1", "-d", "0,1", "-n", "1"}).out, kSuccess);
}

TEST(VdRequests, WordsOfCreateAndDelete)
{
    SimMachine m("raid");  // PDs 0-3 in VD 0 (RAID5), 4-5 in VD 1 (RAID1), 6-7 spare
    struct Sent {
        Words words;
        std::string request;  // cdw12 cdw13 cdw14
        int status;
        std::string out;
    };
    const std::string assigned = "HD is assigned (Status Code: 0x73b)\n" + kFailed;
    const Sent cases[] = {
        // PD 0 is bit 0; a member named twice is taken once; what trails a
        // number up to the next comma is passed over.
        {{"vd", "-a", "create", "-r", "1", "-d", "0,1"}, "010003e2 00000003 00000000", 0x3b, assigned},
        {{"vd", "-a", "create", "-r", "1", "-d", "1,1,2"}, "010003e2 00000006 00000000", 0x3b, assigned},
        {{"vd", "-a", "create", "-r", "0", "-d", "0,255"}, "000003e2 00000001 00000000", 0x3b, assigned},
        {{"vd", "-a", "create", "-r", "1", "-d", "3x,4"}, "010003e2 00000018 00000000", 0x3b, assigned},
        // The namespace count travels in 8 bits; the last -r counts.
        {{"vd", "-a", "create", "-r", "0", "-r", "1", "-d", "1,2", "-n", "258"},
         "010003e2 00000006 00000002",
         0x3b,
         assigned},
        {{"vd", "-a", "create", "-r", "6", "-d", "6,7", "--sbs=256", "--namespace=3"},
         "060103e2 000000c0 00000003",
         0x3d,
         "Invalid HD count (Status Code: 0x73d)\n" + kFailed},
        {{"vd", "-a", "DELETE", "-i", "3"},
         "000304e2 00000000 00000000",
         7,
         "Invalid LD ID (Status Code: 0x707)\n" + kFailed},
        {{"vd", "-a", "create", "-r", "1", "-d", "6,7", "-b", "512"}, "010203e2 000000c0 00000000", 0, kSuccess},
        {{"vd", "--action=delete", "--vd_id=2"}, "000204e2 00000000 00000000", 0, kSuccess},
    };
    for (const Sent &c : cases) {
        RunResult r;
        const auto sent = requestsOf(m, c.words, &r);
        ASSERT_EQ(sent.size(), 1u) << testing::PrintToString(c.words);
        EXPECT_EQ(sent[0], c.request) << testing::PrintToString(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.words);
    }

    const std::string out = m.shell("--debug\nvd -a create -r 1 -d 6,7 -b 256 -n 1\n");
    EXPECT_TRUE(has(out,
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x010103e2\nCDW[13]: 0x000000c0\nCDW[14]: 0x00000001\n"
                    "cmd success\n"));
}

TEST(VdFaults, EveryFailureIsShownOnceAndIsTheResult)
{
    SimMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000104e2", "--status", "0x0702"}).status, 0);
    RunResult r = m.cli({"vd", "-a", "delete", "-i", "1"});
    EXPECT_EQ(r.out, "Unknown error (Status Code: 0x702)\n" + kFailed);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "Name:                mirror\n")) << "not executed";

    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x010003e2", "--status", "0x0107"}).status, 0);
    r = m.cli({"vd", "-a", "create", "-r", "1", "-d", "6,7"});
    EXPECT_EQ(r.out, "Invalid Firmware Image (Status Code: 0x107)\n" + kFailed);
}

// ---------------------------------------------------------------- init, mp, rebuild

TEST(BgaOptions, UsageErrorsSendNothing)
{
    SimMachine m("degraded");
    expectRefusedLocally(m,
                         {
                             {{"init"}, 1, "Description:For start or stop VD initialization.\n"},
                             {{"mp", "-h"}, 0, "Description:For start or stop media patrol for a virtual disk.\n"},
                             {{"rebuild"}, 1, "Description:For start or stop VD rebuild.\n"},
                             {{"init", "-a", "go", "-i", "0"}, 0, "-a : invalid action 'go'.\n"},
                             {{"mp", "-i", "x"}, 0, "-i : invalid vd id 'x'.\n"},
                             {{"init", "-i", "65536"}, 0, "-i : invalid vd id '65536'.\n"},
                             {{"rebuild", "-i", "0", "-d", "p1"}, 0, "-d : invalid pd id 'p1'.\n"},
                             {{"rebuild", "-i", "0", "-d", "65536"}, 0, "-d : invalid pd id '65536'.\n"},
                             {{"init", "-a", "stop"}, 0, "init: option -i is required\n"},
                             {{"mp", "-i", "0", "-i", "1"}, 1, "Duplicated option specified.\n"},
                             {{"rebuild", "-a", "start", "-a", "stop", "-i", "0"}, 1, "Duplicated option specified.\n"},
                             {{"rebuild", "-a", "start", "-i", "0"}, 0, "rebuild: option -d is required\n"},
                             // Only --vd_id and --pd_id are long options.
                             {{"init", "--id", "0"}, 0, ""},
                             {{"mp", "--vdid", "0"}, 0, ""},
                             {{"mp", "-i", "0", "-d", "1"}, 0, ""},
                         });
}

TEST(BgaRequests, StartWordsAndTheControllersRefusals)
{
    SimMachine m("raid");  // VD 0 RAID5, VD 1 RAID1, both idle
    struct Sent {
        Words words;
        std::string request;  // cdw12 cdw13 cdw14
        int status;
        std::string out;
    };
    const Sent cases[] = {
        {{"init", "-i", "0"}, "000006e3 00000000 00020000", 0, kSuccess},
        {{"init", "-a", "START", "-i", "0"},
         "000006e3 00000000 00020000",
         0x42,
         "LD has BGA (Status Code: 0x742)\n" + kFailed},
        {{"mp", "--vd_id=1"}, "00000ae3 00000000 00000001", 0, kSuccess},
        {{"mp", "-i", "0"}, "00000ae3 00000000 00000000", 0x42, "LD has BGA (Status Code: 0x742)\n" + kFailed},
        {{"init", "-i", "9"}, "000006e3 00000000 00020009", 7, "Invalid LD ID (Status Code: 0x707)\n" + kFailed},
        // Without -a a rebuild goes onto PD 0 unless -d names another; a
        // repeated -d is taken, the last one wins.
        {{"rebuild", "-i", "1"},
         "000007e3 00000000 00000001",
         0x36,
         "LD is functional (Status Code: 0x736)\n" + kFailed},
        {{"rebuild", "-i", "2", "-d", "4", "-d", "5"},
         "000007e3 00000000 00050002",
         7,
         "Invalid LD ID (Status Code: 0x707)\n" + kFailed},
        {{"rebuild", "-a", "start", "--vd_id", "1", "--pd_id", "7"},
         "000007e3 00000000 00070001",
         0x36,
         "LD is functional (Status Code: 0x736)\n" + kFailed},
    };
    for (const Sent &c : cases) {
        RunResult r;
        EXPECT_EQ(requestsOf(m, c.words, &r), std::vector<std::string>{c.request}) << testing::PrintToString(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out, c.out) << testing::PrintToString(c.words);
    }
    EXPECT_TRUE(
        has(m.cli({"info", "-o", "vd", "-i", "0"}).out, "BGA progress:        Initializing is running in 0%\n"));
    EXPECT_TRUE(
        has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "BGA progress:        Media Patrol is running in 0%\n"));

    const std::string out = m.shell("--debug\nrebuild -i 1 -d 6\n");
    EXPECT_TRUE(has(out,
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e3\nCDW[14]: 0x00060001\n"
                    "LD is functional (Status Code: 0x736)\ncmd failed.\n"));
}

TEST(BgaRequests, ControllersWithoutTheFeature)
{
    // A JBOF controller runs no activities and makes no VDs.
    SimMachine jbof("jbof");
    const std::string unsupported = "Not supported (Status Code: 0x705)\n" + kFailed;
    for (const Words &words : {Words{"init", "-i", "0"}, Words{"mp", "-i", "0"}, Words{"rebuild", "-i", "0", "-d", "1"},
                               Words{"vd", "-a", "create", "-r", "1", "-d", "0,1"}}) {
        const RunResult r = jbof.cli(words);
        EXPECT_EQ(r.out, unsupported) << testing::PrintToString(words);
        EXPECT_EQ(r.status, 5);
    }

    // One that initialises but neither patrols nor rebuilds, with one stripe size.
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pd_count": 4, "bga_features": 1, "stripe_sizes": 1,
        "vds": [{"raid": "raid1", "members": [0, 1]}]}]})");
    SimMachine m(dir.file("f.json"));
    EXPECT_EQ(m.cli({"init", "-i", "0"}).out, kSuccess);
    EXPECT_EQ(m.cli({"mp", "-i", "0"}).out, unsupported);
    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "2"}).out, unsupported);
    EXPECT_EQ(m.cli({"vd", "-a", "create", "-r", "1", "-d", "2,3", "-b", "256"}).out,
              "Invalid SBS (Status Code: 0x73e)\n" + kFailed);
    EXPECT_EQ(m.cli({"vd", "-a", "create", "-r", "1", "-d", "2,3", "-b", "128"}).out, kSuccess);
}

TEST(BgaStop, MeasuredAgainstTheActivityTheControllerRuns)
{
    // VD 0: rebuild paused at 40 %; VD 1: initialisation running.
    SimMachine m("degraded");
    const std::string query = "000002e3 00000000 00000000";
    struct Stop {
        Words words;
        std::vector<std::string> sent;
        std::string out;
    };
    const Stop refused[] = {
        // The status request names no VD: VD 1's own initialisation is not
        // what the controller reports.
        {{"init", "-a", "stop", "-i", "1"}, {query}, "BGA is rebuilding, it's not allowed to stop VD initialization\n"},
        {{"mp", "-a", "stop", "-i", "0"}, {query}, "BGA is rebuilding, it's not allowed to stop media patrol\n"},
    };
    for (const Stop &s : refused) {
        RunResult r;
        EXPECT_EQ(requestsOf(m, s.words, &r), s.sent) << testing::PrintToString(s.words);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, s.out);
    }

    // A status request that fails refuses the stop without a word.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000002e3", "--count", "1", "--envelope-status", "1"});
    RunResult r;
    EXPECT_EQ(requestsOf(m, {"rebuild", "-a", "stop", "-i", "0"}, &r), std::vector<std::string>{query});
    EXPECT_EQ(r.out, "");
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000002e3", "--count", "1", "--status", "0x0006"});
    EXPECT_EQ(requestsOf(m, {"rebuild", "-a", "stop", "-i", "0"}, &r), std::vector<std::string>{query});
    EXPECT_EQ(r.out, "Internal Error (Status Code: 0x6)\n");

    // The check passed, but the controller refuses the stop.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000004e3", "--count", "1", "--status", "0x0002"});
    r = m.cli({"rebuild", "-a", "stop", "-i", "0"});
    EXPECT_EQ(r.out, "Invalid Field in Command (Status Code: 0x2)\n" + kFailed);
    EXPECT_EQ(r.status, 2);

    // The stop request is one for all three; it carries the VD id.
    EXPECT_EQ(requestsOf(m, {"rebuild", "-a", "stop", "-i", "0"}, &r),
              (std::vector<std::string>{query, "000004e3 00000000 00030000"}));
    EXPECT_EQ(r.out, kSuccess);
    EXPECT_EQ(r.status, 0);

    // Nothing runs on VD 0 now: every stop is refused without a word, and the
    // debug lines are those of the status request alone.
    for (const char *command : {"init", "mp", "rebuild"}) {
        EXPECT_EQ(requestsOf(m, {command, "-a", "stop", "-i", "1"}, &r), std::vector<std::string>{query});
        EXPECT_EQ(r.out, "");
    }
    const std::string out = m.shell("--debug\nmp -a stop -i 0\n");
    EXPECT_EQ(out.substr(out.find("Set debug")),
              "Set debug mode to enable\nCDW[0] : 0x000000e2\nCDW[12]: 0x000002e3\ncmd_status: 0x0\n");
}

// ---------------------------------------------------------------- stories

TEST(VdStory, Raid5WithTwoNamespacesFromCreationToDeletion)
{
    SimMachine m("raid");
    // The mirror gives its disks back; with the spare PD 6 they make a RAID5.
    ASSERT_EQ(m.cli({"vd", "-a", "delete", "-i", "1"}).out, kSuccess);
    RunResult r = m.cli({"vd", "-a", "create", "-r", "5", "-d", "4,5,6", "-n", "2"});
    EXPECT_EQ(r.out, kSuccess);
    EXPECT_EQ(r.status, 0);

    const std::string block =
        "VD ID:               1\nName:                VD_1\nStatus:              %s\n"
        "Importable:          No\nRAID Mode:           RAID5\nsize:                3576 GB\n"
        "PD Count:            3\nPDs:                 4 5 6 \nStripe Block Size:   128K\n"
        "Sector Size:         512 bytes\n";
    auto vd1 = [&](const std::string &status, const std::string &progress) {
        std::string text = block;
        text.replace(text.find("%s"), 2, status);
        return text + progress;
    };
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "1"}).out,
              vd1("Initialization", "BGA progress:        Initializing is running in 0%\n"));

    // Two namespaces share the array's size; they are not attached yet.
    r = m.cli({"info", "-o", "ns"});
    for (const char *nsid : {"3", "4"})
        EXPECT_TRUE(has(r.out, std::string("NS ID:               ") + nsid +
                                   "\nSize:                1788 GB\nParent VD ID:        1\n"
                                   "Valid:               Yes\nActive:              No\n"))
            << r.out;
    EXPECT_TRUE(has(r.out, "Total # of NS:       4\n"));
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "ns", "-t", "vd", "-v", "1"}).out, "Parent VD ID:        1\n"), 2);

    ASSERT_EQ(m.krtsim({"clock", "advance", "40"}).status, 0);
    EXPECT_TRUE(
        has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "BGA progress:        Initializing is running in 40%\n"));
    EXPECT_EQ(m.cli({"init", "-i", "1"}).out, "LD has BGA (Status Code: 0x742)\n" + kFailed);
    ASSERT_EQ(m.krtsim({"clock", "advance", "60"}).status, 0);
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "1"}).out, vd1("Functional", ""));

    ASSERT_EQ(m.cli({"vd", "-a", "delete", "-i", "1"}).out, kSuccess);
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "1"}).out, "\nUnable to get info of VD\n");
    r = m.cli({"info", "-o", "ns"});
    EXPECT_FALSE(has(r.out, "Parent VD ID:        1\n"));
    EXPECT_TRUE(has(r.out, "Total # of NS:       2\n"));
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "5"}).out, "Assigned:                        No\n"));
}

TEST(RebuildStory, DegradedArrayBackToHealth)
{
    SimMachine m("degraded");  // VD 0 RAID6 0 1 2 ?, rebuild onto PD 8 paused; PD 9 spare
    const std::string hasBga = "LD has BGA (Status Code: 0x742)\n" + kFailed;
    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "9"}).out, hasBga) << "the paused rebuild holds the VD";
    ASSERT_EQ(m.cli({"rebuild", "-a", "stop", "-i", "0"}).out, kSuccess);
    RunResult r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Status:              Degrade\n"));
    EXPECT_FALSE(has(r.out, "BGA progress:"));
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "8"}).out, "Assigned:                        No\n"));
    // Neither initialisation nor patrol while a member is missing.
    const std::string notFunctional = "LD is not functional (Status Code: 0x735)\n" + kFailed;
    EXPECT_EQ(m.cli({"init", "-i", "0"}).out, notFunctional);
    EXPECT_EQ(m.cli({"mp", "-i", "0"}).out, notFunctional);

    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "4"}).out, "Invalid HD ID (Status Code: 0x706)\n" + kFailed)
        << "PD 4 has failed";
    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "5"}).out, "HD is assigned (Status Code: 0x73b)\n" + kFailed);
    EXPECT_EQ(m.cli({"rebuild", "-i", "1", "-d", "9"}).out, "LD is functional (Status Code: 0x736)\n" + kFailed);
    ASSERT_EQ(m.cli({"rebuild", "-a", "start", "-i", "0", "-d", "9"}).out, kSuccess);
    r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Status:              Rebuilding\n"));
    EXPECT_TRUE(has(r.out, "BGA progress:        Rebuilding is running in 0%\n"));

    ASSERT_EQ(m.krtsim({"clock", "advance", "50"}).status, 0);
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "0"}).out, "BGA progress:        Rebuilding is running in 50%\n"));
    ASSERT_EQ(m.krtsim({"clock", "advance", "50"}).status, 0);
    r = m.cli({"info", "-o", "vd", "-i", "0"});
    EXPECT_TRUE(has(r.out, "Status:              Functional\n"));
    EXPECT_TRUE(has(r.out, "PDs:                 0 1 2 9 \n"));
    EXPECT_FALSE(has(r.out, "BGA progress:"));
    EXPECT_TRUE(has(m.cli({"info", "-o", "pd", "-i", "9"}).out, "Assigned:                        Yes\n"));
    EXPECT_EQ(occurrences(m.cli({"info", "-o", "ns", "-t", "vd", "-v", "0"}).out, "VD status:           Healthy\n"), 2);

    // Whole again, the array can be patrolled.
    EXPECT_EQ(m.cli({"mp", "-i", "0"}).out, kSuccess);
    EXPECT_EQ(m.cli({"mp", "-a", "stop", "-i", "0"}).out, kSuccess);
}

}  // namespace
