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

// A run, the requests it should send (none for a refusal on the spot), how
// it ends and what it prints (for a help: how it begins).
struct Case {
    Words words;
    int status;
    std::string out;
    std::vector<std::string> sent = {};
};

void expectCases(const SimMachine &m, const std::vector<Case> &cases)
{
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        RunResult r;
        EXPECT_EQ(requestsOf(m, c.words, &r), c.sent);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(c.out.rfind("Description", 0) == 0 ? r.out.substr(0, c.out.size()) : r.out, c.out);
    }
}

const std::string kSuccess = "cmd success\n";
const std::string kFailed = "cmd failed.\n";
const std::string kHasBga = "LD has BGA (Status Code: 0x742)\n" + kFailed;
const std::string kFunctional = "LD is functional (Status Code: 0x736)\n" + kFailed;
const std::string kAssigned = "HD is assigned (Status Code: 0x73b)\n" + kFailed;
const std::string kInvalidLd = "Invalid LD ID (Status Code: 0x707)\n" + kFailed;

// ---------------------------------------------------------------- vd

TEST(VdOptions, UsageErrorsSendNothing)
{
    SimMachine m("raid");
    const std::string help = "Description:For VD create and delete\n";
    auto create = [](const Words &more) {
        Words words{"vd", "-a", "create", "-r", "1"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    };
    expectCases(m, {
                       {{"vd"}, 1, help},
                       {{"vd", "-h"}, 0, help},
                       {{"vd", "-a", "make"}, 0, "-a : invalid action 'make'.\n"},
                       // Wider than the 16 bits it travels in: it would name another VD.
                       {{"vd", "-a", "delete", "-i", "65536"}, 0, "-i : invalid vd id '65536'.\n"},
                       {{"vd", "-a", "delete", "-i", std::string(30, '9')},
                        0,
                        "-i : invalid vd id '" + std::string(30, '9') + "'.\n"},
                       {{"vd", "-a", "create", "-r", "7", "-d", "6,7"}, 0, "-r : invalid raid mode 7\n"},
                       {create({"-d", "6,7", "-b", "64"}), 0, "-b : invalid stripe block size '64'.\n"},
                       // The long forms take their value only after '='.
                       {create({"-d", "6,7", "--sbs", "256"}), 0, "-b : invalid stripe block size ''.\n"},
                       {create({"-d", "6,7", "-n", "two"}), 0, "-n : invalid namespaces 'two'.\n"},
                       {create({"-d", "32"}), 0, "-d : invalid PD ID '32'\n"},
                       {create({"-d", ",1"}), 0, "-d : invalid PD ID ',1'\n"},
                       {create({"-d", "6,"}), 0, "-d : invalid PD ID '6,'\n"},
                       {{"VD", "-a", "create", "-a", "delete", "-i", "1"}, 1, "Duplicated option specified.\n"},
                       {{"vd", "-a", "create", "-d", "6,7"}, 0, "vd: option -r is required\n"},
                       {create({}), 0, "vd: option -d is required\n"},
                       {{"vd", "-a", "Delete"}, 0, "vd: option -i is required\n"},
                       // Neither action: the message, and its length as the result.
                       {{"vd", "-r", "0", "-d", "0"}, 14, "Error action!\n"},
                   });

    // One namespace per VD on a SKU 2 controller.
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"sku": 2, "max_ns_per_vd": 1, "pd_count": 2}]})");
    SimMachine sku2(dir.file("f.json"));
    expectCases(
        sku2,
        {{{"vd", "-a", "create", "-r", "1", "-d", "0,1", "-n", "2"}, 0, "-n : invalid number of namespace '2'.\n"},
         {{"vd", "-a", "create", "-r", "1", "-d", "0,1", "-n", "1"}, 0, kSuccess, {"010003e2 00000003 00000001"}}});
}

TEST(VdRequests, WordsOfCreateAndDelete)
{
    SimMachine m("raid");  // PDs 0-3 in VD 0 (RAID5), 4-5 in VD 1 (RAID1), 6-7 spare
    expectCases(
        m,
        {
            // PD 0 is bit 0; a member named twice is taken once; what trails a
            // number up to the next comma is passed over.
            {{"vd", "-a", "create", "-r", "1", "-d", "1,1,2"}, 0x3b, kAssigned, {"010003e2 00000006 00000000"}},
            {{"vd", "-a", "create", "-r", "0", "-d", "0,255"}, 0x3b, kAssigned, {"000003e2 00000001 00000000"}},
            {{"vd", "-a", "create", "-r", "1", "-d", "3x,4"}, 0x3b, kAssigned, {"010003e2 00000018 00000000"}},
            // The namespace count travels in 8 bits; the last -r counts.
            {{"vd", "-a", "create", "-r", "0", "-r", "1", "-d", "1,2", "-n", "258"},
             0x3b,
             kAssigned,
             {"010003e2 00000006 00000002"}},
            {{"vd", "-a", "create", "-r", "6", "-d", "6,7", "--sbs=256", "--namespace=3"},
             0x3d,
             "Invalid HD count (Status Code: 0x73d)\n" + kFailed,
             {"060103e2 000000c0 00000003"}},
            {{"vd", "-a", "DELETE", "-i", "3"}, 7, kInvalidLd, {"000304e2 00000000 00000000"}},
            {{"vd", "-a", "create", "-r", "1", "-d", "6,7", "-b", "512"}, 0, kSuccess, {"010203e2 000000c0 00000000"}},
            {{"vd", "--action=delete", "--vd_id=2"}, 0, kSuccess, {"000204e2 00000000 00000000"}},
        });

    EXPECT_TRUE(has(m.shell("--debug\nvd -a create -r 1 -d 6,7 -b 256 -n 1\n"),
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x010103e2\nCDW[13]: 0x000000c0\nCDW[14]: 0x00000001\n"
                    "cmd success\n"));

    // A failure is shown once and is the result; the VD stays.
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000104e2", "--status", "0x0702"}).status, 0);
    expectCases(m, {{{"vd", "-a", "delete", "-i", "1"},
                     2,
                     "Unknown error (Status Code: 0x702)\n" + kFailed,
                     {"000104e2 00000000 00000000"}}});
    EXPECT_TRUE(has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "Name:                mirror\n"));
}

// ---------------------------------------------------------------- init, mp, rebuild

TEST(BgaOptions, UsageErrorsSendNothing)
{
    SimMachine m("degraded");
    expectCases(m, {
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
                       {{"rebuild", "-a", "start", "-i", "0"}, 0, "rebuild: option -d is required\n"},
                       // Only --vd_id and --pd_id are long options.
                       {{"init", "--id", "0"}, 0, ""},
                       {{"mp", "-i", "0", "-d", "1"}, 0, ""},
                   });
}

TEST(BgaRequests, StartWordsAndTheControllersRefusals)
{
    SimMachine m("raid");  // VD 0 RAID5, VD 1 RAID1, both idle
    expectCases(m, {
                       {{"init", "-i", "0"}, 0, kSuccess, {"000006e3 00000000 00020000"}},
                       {{"init", "-a", "START", "-i", "0"}, 0x42, kHasBga, {"000006e3 00000000 00020000"}},
                       {{"mp", "--vd_id=1"}, 0, kSuccess, {"00000ae3 00000000 00000001"}},
                       {{"init", "-i", "9"}, 7, kInvalidLd, {"000006e3 00000000 00020009"}},
                       // Without -a a rebuild goes onto PD 0 unless -d names another; a
                       // repeated -d is taken, the last one wins.
                       {{"rebuild", "-i", "1"}, 0x36, kFunctional, {"000007e3 00000000 00000001"}},
                       {{"rebuild", "-i", "2", "-d", "4", "-d", "5"}, 7, kInvalidLd, {"000007e3 00000000 00050002"}},
                       {{"rebuild", "-a", "start", "--vd_id", "1", "--pd_id", "7"},
                        0x36,
                        kFunctional,
                        {"000007e3 00000000 00070001"}},
                   });
    EXPECT_TRUE(
        has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "BGA progress:        Media Patrol is running in 0%\n"));
    EXPECT_TRUE(has(m.shell("--debug\nrebuild -i 1 -d 6\n"),
                    "CDW[0] : 0x000000e2\nCDW[12]: 0x000007e3\nCDW[14]: 0x00060001\n" + kFunctional));
}

TEST(BgaRequests, ControllersWithoutTheFeature)
{
    // A JBOF controller runs no activities and makes no VDs.
    const std::string unsupported = "Not supported (Status Code: 0x705)\n" + kFailed;
    SimMachine jbof("jbof");
    for (const Words &words : {Words{"mp", "-i", "0"}, Words{"vd", "-a", "create", "-r", "1", "-d", "0,1"}}) {
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
}

TEST(BgaStop, MeasuredAgainstTheActivityTheControllerRuns)
{
    // VD 0: rebuild paused at 40 %; VD 1: initialisation running.
    SimMachine m("degraded");
    const std::string query = "000002e3 00000000 00000000";
    expectCases(
        m,
        {
            // The status request names no VD: the controller reports VD 0's
            // paused rebuild, not VD 1's initialisation.
            {{"init", "-a", "stop", "-i", "1"},
             0,
             "BGA is rebuilding, it's not allowed to stop VD initialization\n",
             {query}},
            {{"mp", "-a", "stop", "-i", "0"}, 0, "BGA is rebuilding, it's not allowed to stop media patrol\n", {query}},
        });

    // A status request that fails refuses the stop, silently or with its status.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000002e3", "--count", "1", "--envelope-status", "1"});
    expectCases(m, {{{"rebuild", "-a", "stop", "-i", "0"}, 0, "", {query}}});
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000002e3", "--count", "1", "--status", "0x0006"});
    expectCases(m, {{{"rebuild", "-a", "stop", "-i", "0"}, 0, "Internal Error (Status Code: 0x6)\n", {query}}});

    // The check passed, but the controller refuses the stop.
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000004e3", "--count", "1", "--status", "0x0002"});
    const std::string stop = "000004e3 00000000 00030000";  // one for all three; it carries the VD id
    expectCases(m, {
                       {{"rebuild", "-a", "stop", "-i", "0"},
                        2,
                        "Invalid Field in Command (Status Code: 0x2)\n" + kFailed,
                        {query, stop}},
                       {{"rebuild", "-a", "stop", "-i", "0"}, 0, kSuccess, {query, stop}},
                       // VD 1's initialisation is what runs now.
                       {{"mp", "-a", "stop", "-i", "1"},
                        0,
                        "BGA is doing VD initialization, it's not allowed to stop media patrol\n",
                        {query}},
                       {{"init", "-a", "stop", "-i", "1"}, 0, kSuccess, {query, "000004e3 00000000 00030001"}},
                       // Nothing runs now: every stop is refused without a word.
                       {{"init", "-a", "stop", "-i", "1"}, 0, "", {query}},
                       {{"mp", "-a", "stop", "-i", "1"}, 0, "", {query}},
                       {{"rebuild", "-a", "stop", "-i", "1"}, 0, "", {query}},
                   });
    const std::string out = m.shell("--debug\nmp -a stop -i 0\n");
    EXPECT_EQ(out.substr(out.find("Set debug")),
              "Set debug mode to enable\nCDW[0] : 0x000000e2\nCDW[12]: 0x000002e3\ncmd_status: 0x0\n");
}

TEST(BgaStop, EachKindOnAVirtualDiskOtherThanZero)
{
    // VD 0 idle; VD 1 initialising, VD 2 rebuilding onto PD 7.
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pd_count": 8, "vds": [
        {"raid": "raid1", "members": [0, 1]},
        {"raid": "raid5", "members": [2, 3, 4], "status": "initialization", "bga": {"type": "init", "percent": 30}},
        {"raid": "raid5", "members": [5, 6, 65535], "status": "rebuilding",
         "bga": {"type": "rebuild", "percent": 60, "target": 7}}]}]})");
    SimMachine m(dir.file("f.json"));
    // VD 0's own line stays as it is: it runs nothing.
    EXPECT_FALSE(has(m.cli({"info", "-o", "vd", "-i", "0"}).out, "BGA progress:"));
    const std::string query = "000002e3 00000000 00000000";
    auto stop = [](const char *vd) { return std::string("000004e3 00000000 0003000") + vd; };
    expectCases(m, {
                       // The controller names the activity of the lowest VD that has one.
                       {{"rebuild", "-a", "stop", "-i", "2"},
                        0,
                        "BGA is doing VD initialization, it's not allowed to stop VD rebuild\n",
                        {query}},
                       {{"init", "-a", "stop", "-i", "1"}, 0, kSuccess, {query, stop("1")}},
                       {{"rebuild", "-a", "stop", "-i", "2"}, 0, kSuccess, {query, stop("2")}},
                       {{"mp", "-i", "1"}, 0, kSuccess, {"00000ae3 00000000 00000001"}},
                       {{"init", "-a", "stop", "-i", "1"},
                        0,
                        "BGA is doing media patrol, it's not allowed to stop VD initialization\n",
                        {query}},
                       {{"mp", "-a", "stop", "-i", "1"}, 0, kSuccess, {query, stop("1")}},
                       {{"mp", "-a", "stop", "-i", "1"}, 0, "", {query}},
                       // Without a VD 0 at all.
                       {{"vd", "-a", "delete", "-i", "0"}, 0, kSuccess, {"000004e2 00000000 00000000"}},
                       {{"mp", "-i", "1"}, 0, kSuccess, {"00000ae3 00000000 00000001"}},
                       {{"mp", "-a", "stop", "-i", "1"}, 0, kSuccess, {query, stop("1")}},
                   });
    const RunResult r = m.cli({"info", "-o", "vd"});
    EXPECT_FALSE(has(r.out, "BGA progress:"));
    EXPECT_EQ(occurrences(r.out, "Status:              Functional\n"), 1);
    EXPECT_EQ(occurrences(r.out, "Status:              Degrade\n"), 1);
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

    const std::string vd1 =
        "VD ID:               1\nName:                VD_1\nStatus:              %s\n"
        "Importable:          No\nRAID Mode:           RAID5\nsize:                3576 GB\n"
        "PD Count:            3\nPDs:                 4 5 6 \nStripe Block Size:   128K\n"
        "Sector Size:         512 bytes\n";
    const auto shown = [&](const std::string &status) {
        return vd1.substr(0, vd1.find("%s")) + status + vd1.substr(vd1.find("%s") + 2);
    };
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "1"}).out,
              shown("Initialization") + "BGA progress:        Initializing is running in 0%\n");

    // Two namespaces share the array's size; they are not attached yet.
    r = m.cli({"info", "-o", "ns"});
    for (const char *nsid : {"3", "4"})
        EXPECT_TRUE(has(r.out, std::string("NS ID:               ") + nsid +
                                   "\nSize:                1788 GB\nParent VD ID:        1\n"
                                   "Valid:               Yes\nActive:              No\n"))
            << r.out;
    EXPECT_TRUE(has(r.out, "Total # of NS:       4\n"));

    ASSERT_EQ(m.krtsim({"clock", "advance", "40"}).status, 0);
    EXPECT_TRUE(
        has(m.cli({"info", "-o", "vd", "-i", "1"}).out, "BGA progress:        Initializing is running in 40%\n"));
    EXPECT_EQ(m.cli({"init", "-i", "1"}).out, kHasBga);
    ASSERT_EQ(m.krtsim({"clock", "advance", "60"}).status, 0);
    EXPECT_EQ(m.cli({"info", "-o", "vd", "-i", "1"}).out, shown("Functional"));

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
    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "9"}).out, kHasBga) << "the paused rebuild holds the VD";
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
    EXPECT_EQ(m.cli({"rebuild", "-i", "0", "-d", "5"}).out, kAssigned);
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
