// krt_cli --capture: every shipped machine, read into a machine file and
// rebuilt by the simulator, answers every read-only command byte for byte
// as the original did; the capture sends only requests that read; what
// fails is said and nothing half-written is left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>

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
using Words = std::vector<std::string>;

// The numbers that follow a label ("PD ID:", ...) wherever it stands.
Words idsAfter(const std::string &text, const std::string &label)
{
    Words ids;
    for (std::size_t at = text.find(label); at != std::string::npos; at = text.find(label, at + label.size())) {
        const std::size_t from = text.find_first_not_of(' ', at + label.size());
        const std::size_t to = text.find_first_not_of("0123456789", from);
        if (from != std::string::npos && to != from)
            ids.push_back(text.substr(from, to - from));
    }
    return ids;
}

// Every read-only command line of one controller, for each of its objects
// as the original shows them.
Words readOnlyLines(const SimMachine &m, const std::string &c)
{
    Words lines = {
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

// What the lines printed, run in one shell on the controller, then its
// standard error. A blank line after each makes the shell say its hint: one
// hint a line shows that every line ran.
std::string outputs(const SimMachine &m, const std::string &c, const Words &lines)
{
    krt_test::RunOptions options;
    for (const auto &line : lines)
        options.input += line + "\n\n";
    options.timeoutSeconds = 600;
    const RunResult r = m.cli({c}, options);
    EXPECT_EQ(krt_test::occurrences(r.out, "Type 'exit' to exit CLI.\n"), static_cast<int>(lines.size())) << c;
    return r.out + r.err;
}

// An admin command of the log that changes nothing: Identify, Get Log Page,
// the vendor queries and lists (by their class word), reads forwarded to an
// SSD (by the forwarded opcode) and the receive half of a pair.
bool readsOnly(const std::string &line)
{
    const std::string reads =
        "|0x06|0x02|0xce|0xc2 0x00000002|0xc2 0x00000006|0xcb 0xe0,0x0|0xcb 0xe1,0x0|0xcb 0xe2,0x0|0xcb 0xe3,0x1"
        "|0xcb 0xe3,0x2|0xe2 0x000000e0|0xe2 0x000001e0|0xe2 0x00001ae0|0xe2 0x000000e1|0xe2 0x000000e2"
        "|0xe2 0x000002e3|0xe2 0x000000e5|0xe2 0x00ff01e5|0xe2 0x000002fe|0xe2 0x000004fe|";
    const auto field = [&line](const std::string &key) {
        const std::size_t at = line.find(" " + key + "=");
        return at == std::string::npos ? ""
                                       : line.substr(at + key.size() + 2, line.find(' ', at + 1) - at - key.size() - 2);
    };
    const std::string opc = field("opc"), pair = field("pair");
    const std::string word = opc == "0xc2"   ? field("cdw14")
                             : opc == "0xe2" ? field("cdw12")
                             : opc == "0xcb" ? pair.substr(0, pair.find(',', pair.find(',') + 1))
                                             : "";
    return has(reads, "|" + (word.empty() ? opc : opc + " " + word) + "|");
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
    for (const std::string fixture : {"raid", "jbof", "multi", "degraded", "import", "large", "foreign", "wrapped"}) {
        krt_test::TempDir dir;
        krt_test::writeFile(dir.file("wrapped.json"), kWrapped);
        SimMachine original(fixture == "wrapped" ? dir.file("wrapped.json") : fixture), copy;
        const Words count = idsAfter(original.cli({"adapter", "--list"}).out, "Controllers:");
        const int controllers = count.empty() ? 0 : std::stoi(count[0]);
        ASSERT_GT(controllers, 0) << fixture;
        std::vector<Words> lines;
        Words before;
        for (int c = 0; c < controllers; ++c) {
            lines.push_back(readOnlyLines(original, std::to_string(c)));
            before.push_back(outputs(original, std::to_string(c), lines.back()));
        }

        const std::string shown = original.krtsim({"show"}).out, file = dir.file("machine.json");
        original.krtsim({"log", "clear"});
        const RunResult capture = original.cli({"--capture", file});
        ASSERT_EQ(capture.status, 0) << fixture << "\n" << capture.err;
        EXPECT_EQ(capture.out, "") << fixture;
        EXPECT_EQ(krt_test::occurrences(capture.err, "captured controller"), controllers) << capture.err;
        EXPECT_EQ(original.krtsim({"show"}).out, shown) << fixture << ": the capture changed the machine";
        for (const std::string &line : krt_test::lines(original.krtsim({"log"}).out))
            EXPECT_TRUE(readsOnly(line)) << fixture << ": " << line;

        ASSERT_EQ(copy.krtsim({"reset", file}).status, 0) << fixture;
        for (int c = 0; c < controllers; ++c)
            EXPECT_EQ(outputs(copy, std::to_string(c), lines[c]), before[c]) << fixture << " controller " << c;
    }
}

// The rebuilt machine is a simulated one: a change tried on it behaves as
// the simulator's controllers do, and a firmware activation shows. A file
// of a newer major format is refused and the machine kept; a later minor
// only adds fields.
TEST(Capture, CopiesFollowTheModelAndTheFormatVersion)
{
    SimMachine original("degraded"), copy, other("multi");
    krt_test::TempDir dir;
    const std::string file = dir.file("m.json");
    ASSERT_EQ(original.cli({"--capture", file}).status, 0);
    ASSERT_EQ(copy.krtsim({"reset", file}).status, 0);
    EXPECT_TRUE(has(copy.cli({"vd", "-a", "create", "-r", "1", "-d", "3,9", "-n", "2"}).out, "success"));
    EXPECT_EQ(idsAfter(copy.cli({"info", "-o", "ns", "-t", "vd", "-v", "2"}).out, "NS ID:").size(), 2u);
    krt_test::writeFile(dir.file("fw.bin"), "KRTFW:2.2.0.40;" + std::string(4096, 'x'));
    EXPECT_EQ(copy.cli({"flash", "-o", "hba", "-f", dir.file("fw.bin"), "-s", "2", "-c", "3"}).status, 0);
    EXPECT_TRUE(has(copy.cli({"identify", "-c", "1"}).out, "FR:                      2.2.40"));
    EXPECT_TRUE(has(copy.cli({"info", "-o", "hba"}).out, "2.2.0.0040"));

    Json doc = Json::parse(krt_test::readFile(file));
    EXPECT_EQ(doc["machine_format"], Json::array({1, 0}));
    doc["machine_format"] = {2, 0};
    krt_test::writeFile(file, doc.dump());
    const std::string before = other.krtsim({"show"}).out;
    const RunResult r = other.krtsim({"reset", file});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r.err, "version 2.0 is newer than this krtsim reads (1.x)")) << r.err;
    EXPECT_EQ(other.krtsim({"show"}).out, before);
    doc["machine_format"] = {1, 7};
    krt_test::writeFile(file, doc.dump());
    EXPECT_EQ(other.krtsim({"reset", file}).status, 0);
}

TEST(Capture, FailuresAreSaidAndLeaveNoHalfWrittenFile)
{
    // FILE and FIFO stand for paths in the machine's folder; a note is what
    // the written file's notes hold, none when nothing may be written.
    const struct {
        const char *fault, *words, *message, *note;
    } cases[] = {
        {"add --opcode 0xc2 --count 1 --status 0x0107", "--capture FILE", "1 part not read", "pd 0 Identify"},
        {"add --cdw12 0x000004fe --count 2 --status 0x0002", "--capture FILE", "2 parts not read", "event page 1"},
        {"list-fail", "--capture FILE", "no NVMe Controller is found", nullptr},
        {"vanish 0", "--capture FILE", "no NVMe Controller is found", nullptr},
        {"", "3 --capture FILE", "NVMe Controller 3 does not exist", nullptr},
        {"", "--capture /proc/no/such/folder.json", "cannot write /proc/no", nullptr},
        {"", "--capture /tmp", "(it is a folder)", nullptr},
        // Renamed over, a device or fifo would be replaced, not written to.
        {"", "--capture FIFO", "(it is not a regular file)", nullptr},
        {"", "--capture", "--capture needs the name", nullptr},
        {"", "info -o pd --capture FILE", "'info' cannot be used", nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words + std::string(" after ") + c.fault);
        SimMachine m("raid");
        Words rule = krt_test::words(c.fault), words = krt_test::words(c.words);
        rule.insert(rule.begin(), "fault");
        if (rule.size() > 1) {
            ASSERT_EQ(m.krtsim(rule).status, 0);
        }
        const std::string file = m.dir().file("machine.json"), fifo = m.dir().file("fifo");
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        for (auto &w : words)
            w = w == "FILE" ? file : w == "FIFO" ? fifo : w;
        const RunResult r = m.cli(words);
        EXPECT_EQ(r.status, 1);
        EXPECT_TRUE(has(r.err, c.message)) << r.err;
        EXPECT_EQ(std::filesystem::exists(file), c.note != nullptr);
        for (const auto &entry : std::filesystem::directory_iterator(m.dir().path()))
            EXPECT_FALSE(has(entry.path().string(), ".tmp.")) << entry.path();
        if (c.note == nullptr)
            continue;
        const Json doc = Json::parse(krt_test::readFile(file));
        EXPECT_TRUE(has(doc["notes"].dump(), c.note)) << doc["notes"].dump();
        // What could be read is there, and the simulator takes the file.
        EXPECT_EQ(doc["adapters"].size(), 1u);
        EXPECT_EQ(SimMachine().krtsim({"reset", file}).status, 0);
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
    const RunResult r = krt_test::runProcess(
        {"/bin/bash", "-c", "\"$0\" --capture \"$1\" & sleep 2; " + krt_test::krtsimPath() + " fault vanish 0; wait $!",
         krt_test::cliPath(), file},
        m.env());
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_TRUE(has(r.err, "controller 0 (vmhba1): vanished while it was read")) << r.err;
    const Json doc = Json::parse(krt_test::readFile(file));
    ASSERT_EQ(doc["adapters"].size(), 2u);
    EXPECT_EQ(doc["adapters"][0]["name"], "vmhba2");
    EXPECT_EQ(doc["notes"][0]["object"], "controller");
}

// Another maker's controller (taken with --vid) is asked nothing beyond what
// any NVMe controller answers: Identify and Get Log Page. Its namespaces are
// its own, on no SSD.
TEST(Capture, AnotherMakersControllerGivesItsStandardData)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("other.json"), R"({"adapters": [{"vid": "0x144D", "did": "0xA80A",
        "model": "Other NVMe SSD", "raid": false, "pd_count": 0, "namespaces": [{"pd": null, "sectors": 2000000},
        {"pd": null, "sectors": 4000000, "sector_size": 4096, "shared": true}]}]})");
    SimMachine m(dir.file("other.json"));
    const Words vid = {"0", "--vid=0x144d"};
    const auto run = [&vid](const SimMachine &on, Words words) {
        words.insert(words.begin(), vid.begin(), vid.end());
        return on.cli(words);
    };
    const auto vendorRequests = [&m] {
        int n = 0;
        for (const std::string &line : krt_test::lines(m.krtsim({"log"}).out))
            n += !has(line, "opc=0x06 ") && !has(line, "opc=0x02 ");
        m.krtsim({"log", "clear"});
        return n;
    };
    run(m, {"adapter", "--list"});
    const int startUp = vendorRequests();
    const std::string file = m.dir().file("machine.json");
    const RunResult r = run(m, {"--capture", file});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.err, "2 namespaces, 0 events; another maker's controller")) << r.err;
    EXPECT_LE(vendorRequests(), startUp);
    const Json doc = Json::parse(krt_test::readFile(file));
    ASSERT_EQ(doc["adapters"].size(), 1u);
    const Json &a = doc["adapters"][0];
    EXPECT_EQ(a["vid"], 0x144D);
    EXPECT_TRUE(a.contains("identify_hex") && a.contains("smart") && a.contains("fw_slots"));
    SimMachine copy;
    ASSERT_EQ(copy.krtsim({"reset", file}).status, 0);
    for (const Words &words : {Words{"identify", "-c", "1"}, Words{"identify", "-c", "0", "-n", "2"},
                               Words{"smart", "-o", "hba"}, Words{"flash", "-o", "hba", "-q", "firmware"}})
        EXPECT_EQ(run(copy, words).out, run(m, words).out) << words[0];
}

// Every kind of reading request fails in turn, or answers without our
// signature, with a failed envelope or past its length: the capture ends by
// itself and what it wrote is a machine the simulator takes.
TEST(Capture, EachReadFailingOrHostileLeavesAMachineFile)
{
    // Every kind the capture of `degraded` sends (a JBOF asks no VD lists):
    // opcode, and the class word of a vendor request or of the send of a pair.
    const char *const reads[][2] = {{"0x02", ""},           {"0x06", ""},           {"0xc2", ""},
                                    {"0xce", ""},           {"0xcb", "0x000000e1"}, {"0xcb", "0x000000e2"},
                                    {"0xcb", "0x000100e3"}, {"0xcb", "0x000200e3"}, {"0xe2", "0x000000e0"},
                                    {"0xe2", "0x000001e0"}, {"0xe2", "0x00001ae0"}, {"0xe2", "0x000000e5"},
                                    {"0xe2", "0x00ff01e5"}, {"0xe2", "0x000002fe"}, {"0xe2", "0x000004fe"}};
    for (const std::string fixture : {"degraded", "import", "jbof"}) {
        const SimMachine original(fixture);
        for (const auto &[opcode, cdw12] : reads) {
            for (const char *effect : {"--status 0x0002", "--bad-sign", "--overlong", "--envelope-status 1"}) {
                SimMachine m(original);
                ASSERT_EQ(
                    m.krtsim(krt_test::words("fault add --opcode " + std::string(opcode) +
                                             (*cdw12 != '\0' ? " --cdw12 " + std::string(cdw12) : "") + " " + effect))
                        .status,
                    0);
                const std::string file = m.dir().file("m.json");
                const RunResult r = m.cli({"--capture", file});
                SCOPED_TRACE(fixture + " " + opcode + " " + cdw12 + " " + effect + "\n" + r.err);
                // A failed request makes exit status 1 (not every machine sends every kind); a
                // garbled reply may.
                const bool failed = has(m.krtsim({"log"}).out, " status=0x2\n");
                EXPECT_TRUE(std::string(effect) == "--status 0x0002" ? r.status == (failed ? 1 : 0) : r.status <= 1);
                if (std::filesystem::exists(file)) {
                    EXPECT_EQ(SimMachine().krtsim({"reset", file}).status, 0);
                }
            }
        }
    }
}

}  // namespace
