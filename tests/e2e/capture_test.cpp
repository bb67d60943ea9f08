// krt_cli --capture: every shipped machine, read into a machine file and
// rebuilt by the simulator, answers every read-only command byte for byte
// as the original did; the capture sends only requests that read; what
// fails is noted and nothing half-written is left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::RunResult;
using krt_test::SimMachine;
using Json = nlohmann::json;

// The numbers that follow a label ("PD ID:", ...) wherever it stands.
std::vector<std::string> idsAfter(const std::string &text, const std::string &label)
{
    std::vector<std::string> ids;
    for (std::size_t at = text.find(label); at != std::string::npos; at = text.find(label, at + label.size())) {
        const std::size_t from = text.find_first_not_of(' ', at + label.size());
        const std::size_t to = text.find_first_not_of("0123456789", from);
        if (from != std::string::npos && to != from)
            ids.push_back(text.substr(from, to - from));
    }
    return ids;
}

int controllerCount(const SimMachine &m)
{
    const auto ids = idsAfter(m.cli({"adapter", "--list"}).out, "Controllers:");
    return ids.empty() ? 0 : std::stoi(ids[0]);
}

// Every read-only command line of one controller, for each of its objects
// as the original shows them.
std::vector<std::string> readOnlyLines(const SimMachine &m, int controller)
{
    const std::string c = std::to_string(controller);
    std::vector<std::string> lines = {
        "info -o hba",   "info -o pd", "info -o vd",   "info -o ns",    "info -o ns -t vd",         "ns --list",
        "get -o hba",    "event -c 0", "smart -o hba", "identify -c 1", "flash -o hba -q firmware", "adapter --list",
        "inverse -a get"};
    for (const auto &id : idsAfter(m.cli({c, "info", "-o", "pd"}).out, "PD ID:"))
        lines.insert(lines.end(), {"info -o pd -i " + id, "smart -i " + id, "flash -o pd -q firmware -i " + id});
    for (const auto &id : idsAfter(m.cli({c, "info", "-o", "vd"}).out, "VD ID:"))
        lines.insert(lines.end(), {"info -o vd -i " + id, "info -o ns -t vd -v " + id});
    for (const auto &id : idsAfter(m.cli({c, "info", "-o", "ns"}).out, "NS ID:"))
        lines.insert(lines.end(), {"info -o ns -i " + id, "identify -c 0 -n " + id});
    return lines;
}

// What each line printed, run in one shell on the controller. A blank
// line after each one makes the shell say its hint, which marks where the
// next one's output begins. Standard error comes last.
std::vector<std::string> outputs(const SimMachine &m, int controller, const std::vector<std::string> &lines)
{
    const std::string banner = "Welcome to NVMe Command Line Interface.\n\n", hint = "Type 'exit' to exit CLI.\n";
    std::string input;
    for (const auto &line : lines)
        input += line + "\n\n";
    krt_test::RunOptions options;
    options.input = input + "exit\n";
    options.timeoutSeconds = 600;
    const RunResult r = m.cli({std::to_string(controller)}, options);
    std::vector<std::string> parts;
    std::size_t at = r.out.find(banner);
    at = at == std::string::npos ? r.out.size() : at + banner.size();
    for (std::size_t next; (next = r.out.find(hint, at)) != std::string::npos; at = next + hint.size())
        parts.push_back(r.out.substr(at, next - at));
    parts.push_back(r.out.substr(at));
    parts.push_back(r.err);
    return parts;
}

// One "key=value" of a command log line; empty when it has none.
std::string logField(const std::string &line, const std::string &key)
{
    const std::size_t at = line.find(" " + key + "=");
    if (at == std::string::npos)
        return "";
    const std::size_t from = at + key.size() + 2;
    return line.substr(from, line.find(' ', from) - from);
}

// An admin command of the log that changes nothing: Identify, Get Log
// Page, the vendor queries and lists, reads forwarded to an SSD and the
// receive half of a pair.
bool readsOnly(const std::string &line)
{
    static const std::vector<std::string> queries = {"0x000000e0", "0x000001e0", "0x00001ae0", "0x000000e1",
                                                     "0x000000e2", "0x000002e3", "0x000000e5", "0x00ff01e5",
                                                     "0x000002fe", "0x000004fe"};
    static const std::vector<std::string> lists = {"0xe0,0x0", "0xe1,0x0", "0xe2,0x0", "0xe3,0x1", "0xe3,0x2"};
    const auto among = [](const std::vector<std::string> &set, const std::string &v) {
        return std::find(set.begin(), set.end(), v) != set.end();
    };
    const std::string opc = logField(line, "opc");
    if (opc == "0x06" || opc == "0x02" || opc == "0xce")
        return true;
    if (opc == "0xc2")
        return among({"0x00000002", "0x00000006"}, logField(line, "cdw14"));
    if (opc == "0xe2")
        return among(queries, logField(line, "cdw12"));
    const std::string pair = logField(line, "pair");
    return opc == "0xcb" && among(lists, pair.substr(0, pair.find(',', pair.find(',') + 1)));
}

// A ring that has wrapped, SSD figures no shipped machine has, a shared
// namespace, and device texts that are not plain text.
const char kWrapped[] = R"({"adapters": [{"event_fill": 300,
    "pds": [{"critical_warning": 2, "smart_temperature": 330, "temperature_sensors": [330, 320],
             "thermal": [1, 2, 3, 4], "media_errors": "0x10000000000000001"}, {"model": {"hex": "4e564d65ff00"}}, {},
            {"fw_slots": ["1.0.3", "1.1.0"], "fw_next": 2}],
    "vds": [{"raid": "raid10", "members": [0, 1, 2, 3], "name": {"hex": "6461746100ff"},
             "namespaces": [{"shared": true}, {"active": false}]}]}]})";

TEST(Capture, RebuiltMachinesAnswerEveryReadOnlyCommandAsTheOriginal)
{
    int compared = 0, identical = 0;
    for (const std::string fixture : {"raid", "jbof", "multi", "degraded", "import", "large", "foreign", "wrapped"}) {
        krt_test::TempDir dir;
        const std::string source = fixture == "wrapped" ? dir.file("wrapped.json") : fixture;
        if (fixture == "wrapped")
            krt_test::writeFile(source, kWrapped);
        SimMachine original(source), copy;
        const int controllers = controllerCount(original);
        ASSERT_GT(controllers, 0) << fixture;
        std::vector<std::vector<std::string>> lines, before;
        for (int c = 0; c < controllers; ++c) {
            lines.push_back(readOnlyLines(original, c));
            before.push_back(outputs(original, c, lines.back()));
        }

        const std::string shown = original.krtsim({"show"}).out;
        original.krtsim({"log", "clear"});
        const std::string file = dir.file("machine.json");
        const RunResult capture = original.cli({"--capture", file});
        ASSERT_EQ(capture.status, 0) << fixture << "\n" << capture.err;
        EXPECT_EQ(capture.out, "") << fixture;
        EXPECT_EQ(krt_test::occurrences(capture.err, "captured controller"), controllers) << capture.err;
        EXPECT_EQ(original.krtsim({"show"}).out, shown) << fixture << ": the capture changed the machine";
        std::istringstream log(original.krtsim({"log"}).out);
        for (std::string line; std::getline(log, line);)
            EXPECT_TRUE(readsOnly(line)) << fixture << ": " << line;

        ASSERT_EQ(copy.krtsim({"reset", file}).status, 0) << fixture;
        int machineCompared = 0, machineIdentical = 0;
        for (int c = 0; c < controllers; ++c) {
            const auto after = outputs(copy, c, lines[c]);
            ASSERT_EQ(before[c].size(), lines[c].size() + 2) << fixture << " controller " << c;
            ASSERT_EQ(after.size(), before[c].size()) << fixture << " controller " << c;
            for (std::size_t i = 0; i < lines[c].size(); ++i) {
                ++machineCompared;
                machineIdentical += before[c][i] == after[i];
                EXPECT_EQ(after[i], before[c][i]) << fixture << " controller " << c << ": " << lines[c][i];
            }
            EXPECT_EQ(after.back(), before[c].back()) << fixture << " controller " << c << ": standard error";
        }
        std::printf("%-9s %2d controllers: %5d commands compared, %5d identical; capture %zu bytes\n", fixture.c_str(),
                    controllers, machineCompared, machineIdentical,
                    static_cast<std::size_t>(std::filesystem::file_size(file)));
        compared += machineCompared;
        identical += machineIdentical;
    }
    std::printf("all machines: %d commands compared, %d identical\n", compared, identical);
    EXPECT_EQ(identical, compared);
}

// The rebuilt machine is a simulated one: a change tried on it behaves as
// the simulator's controllers do, and a firmware activation shows.
TEST(Capture, ChangesOnTheCopyFollowTheModel)
{
    SimMachine original("degraded"), copy;
    krt_test::TempDir dir;
    ASSERT_EQ(original.cli({"--capture", dir.file("m.json")}).status, 0);
    ASSERT_EQ(copy.krtsim({"reset", dir.file("m.json")}).status, 0);
    EXPECT_TRUE(has(copy.cli({"vd", "-a", "create", "-r", "1", "-d", "3,9", "-n", "2"}).out, "success"));
    EXPECT_EQ(idsAfter(copy.cli({"info", "-o", "ns", "-t", "vd", "-v", "2"}).out, "NS ID:").size(), 2u);
    krt_test::writeFile(dir.file("fw.bin"), "KRTFW:2.2.0.40;" + std::string(4096, 'x'));
    EXPECT_EQ(copy.cli({"flash", "-o", "hba", "-f", dir.file("fw.bin"), "-s", "2", "-c", "3"}).status, 0);
    EXPECT_TRUE(has(copy.cli({"identify", "-c", "1"}).out, "FR:                      2.2.40"));
    EXPECT_TRUE(has(copy.cli({"info", "-o", "hba"}).out, "2.2.0.0040"));
}

struct FailureCase {
    const char *name;
    std::vector<std::vector<std::string>> krtsim;  // set-up on the machine
    std::vector<std::string> words;                // FILE stands for the file's path
    int status;
    const char *message;  // on standard error
    bool written;
    const char *note;  // in the file's notes, when written
};

TEST(Capture, FailuresAreSaidAndLeaveNoHalfWrittenFile)
{
    const FailureCase cases[] = {
        {"failed request",
         {{"fault", "add", "--opcode", "0xc2", "--count", "1", "--status", "0x0107"}},
         {"--capture", "FILE"},
         1,
         "1 part not read",
         true,
         "pd 0 Identify"},
        {"failed event page",
         {{"fault", "add", "--cdw12", "0x000004fe", "--count", "2", "--status", "0x0002"}},
         {"--capture", "FILE"},
         1,
         "2 parts not read",
         true,
         "event page 1"},
        {"adapter list", {{"fault", "list-fail"}}, {"--capture", "FILE"}, 1, "no NVMe Controller is found", false, ""},
        {"vanished before",
         {{"fault", "vanish", "0"}},
         {"--capture", "FILE"},
         1,
         "no NVMe Controller is found",
         false,
         ""},
        {"no such controller", {}, {"3", "--capture", "FILE"}, 1, "NVMe Controller 3 does not exist", false, ""},
        {"unwritable folder", {}, {"--capture", "/proc/no/such/folder.json"}, 1, "cannot write /proc/no", false, ""},
        {"a folder", {}, {"--capture", "/tmp"}, 1, "(it is a folder)", false, ""},
        // Renamed over, a device or fifo would be replaced, not written to.
        {"a fifo", {}, {"--capture", "FIFO"}, 1, "(it is not a regular file)", false, ""},
        {"no file name", {}, {"--capture"}, 1, "--capture needs the name", false, ""},
        {"with a command", {}, {"info", "-o", "pd", "--capture", "FILE"}, 1, "'info' cannot be used", false, ""},
    };
    for (const FailureCase &c : cases) {
        SimMachine m("raid");
        for (const auto &words : c.krtsim)
            ASSERT_EQ(m.krtsim(words).status, 0) << c.name;
        const std::string file = m.dir().file("machine.json");
        std::vector<std::string> words = c.words;
        const std::string fifo = m.dir().file("fifo");
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        for (auto &w : words)
            w = w == "FILE" ? file : w == "FIFO" ? fifo : w;
        const RunResult r = m.cli(words);
        EXPECT_EQ(r.status, c.status) << c.name;
        EXPECT_TRUE(has(r.err, c.message)) << c.name << "\n" << r.err;
        EXPECT_EQ(std::filesystem::exists(file), c.written) << c.name;
        for (const auto &entry : std::filesystem::directory_iterator(m.dir().path()))
            EXPECT_FALSE(has(entry.path().string(), ".tmp.")) << c.name << ": " << entry.path();
        if (!c.written)
            continue;
        const Json doc = Json::parse(krt_test::readFile(file));
        EXPECT_TRUE(has(doc["notes"].dump(), c.note)) << c.name << "\n" << doc["notes"].dump();
        // What could be read is there, and the simulator takes the file.
        EXPECT_EQ(doc["adapters"].size(), 1u) << c.name;
        EXPECT_EQ(SimMachine().krtsim({"reset", file}).status, 0) << c.name;
    }
}

// A controller that goes away half-way is left out whole; the others are
// kept. The first event page of controller 0 is held back while it vanishes.
TEST(Capture, ControllerVanishingWhileReadIsLeftOut)
{
    SimMachine m("multi");
    ASSERT_EQ(
        m.krtsim({"fault", "add", "--adapter", "0", "--cdw12", "0x000004fe", "--count", "1", "--delay", "5000"}).status,
        0);
    const std::string file = m.dir().file("machine.json");
    krt_test::RunOptions options;
    const std::string vanish = krt_test::krtsimPath() + " fault vanish 0";
    const RunResult r = krt_test::runProcess(
        {"/bin/bash", "-c", "\"$0\" --capture \"$1\" & sleep 2; " + vanish + "; wait $!", krt_test::cliPath(), file},
        m.env(options));
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_TRUE(has(r.err, "controller 0 (vmhba1): vanished while it was read")) << r.err;
    const Json doc = Json::parse(krt_test::readFile(file));
    ASSERT_EQ(doc["adapters"].size(), 2u);
    EXPECT_EQ(doc["adapters"][0]["name"], "vmhba2");
    EXPECT_EQ(doc["notes"][0]["object"], "controller");
}

// Another maker's controller (taken with --vid) is asked only what any NVMe
// controller answers.
TEST(Capture, AnotherMakersControllerGivesItsStandardData)
{
    SimMachine m("foreign");
    // Beyond what taking the controller at start-up asks, nothing but
    // Identify and Get Log Page goes to it.
    const auto vendorRequests = [&m] {
        int n = 0;
        std::istringstream log(m.krtsim({"log"}).out);
        for (std::string line; std::getline(log, line);)
            n += has(line, "vmhba1 ") && !has(line, "opc=0x06 ") && !has(line, "opc=0x02 ");
        m.krtsim({"log", "clear"});
        return n;
    };
    m.cli({"0", "--vid=0x144d", "adapter", "--list"});
    const int startUp = vendorRequests();
    const std::string file = m.dir().file("machine.json");
    const RunResult r = m.cli({"0", "--vid=0x144d", "--capture", file});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.err, "another maker's controller")) << r.err;
    EXPECT_LE(vendorRequests(), startUp);
    const Json doc = Json::parse(krt_test::readFile(file));
    ASSERT_EQ(doc["adapters"].size(), 1u);
    const Json &a = doc["adapters"][0];
    EXPECT_EQ(a["vid"], 0x144D);
    EXPECT_EQ(a["model"], "Other NVMe SSD");
    EXPECT_TRUE(a.contains("identify_hex") && a.contains("smart") && a.contains("fw_slots"));
    SimMachine copy;
    ASSERT_EQ(copy.krtsim({"reset", file}).status, 0);
    EXPECT_EQ(copy.cli({"0", "--vid=0x144d", "identify", "-c", "1"}).out,
              m.cli({"0", "--vid=0x144d", "identify", "-c", "1"}).out);
}

TEST(Capture, NewerFormatIsRefusedAndTheMachineKept)
{
    SimMachine m("jbof");
    const std::string file = m.dir().file("machine.json");
    ASSERT_EQ(m.cli({"--capture", file}).status, 0);
    Json doc = Json::parse(krt_test::readFile(file));
    EXPECT_EQ(doc["machine_format"], Json::array({1, 0}));
    doc["machine_format"] = {2, 0};
    krt_test::writeFile(file, doc.dump());
    SimMachine other("multi");
    const std::string before = other.krtsim({"show"}).out;
    const RunResult r = other.krtsim({"reset", file});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "version 2.0 is newer than this krtsim reads (1.x)")) << r.err;
    EXPECT_EQ(other.krtsim({"show"}).out, before);
    doc["machine_format"] = {1, 7};  // a later minor only adds fields
    krt_test::writeFile(file, doc.dump());
    EXPECT_EQ(other.krtsim({"reset", file}).status, 0);
}

}  // namespace
