// --json against simulated machines: every document the suite produces, the
// failures' included, validates against the published schema
// (docs/krt_cli.schema.json), every failure of the end-to-end suite says what
// it is in "result", docs/json.md lists the schema's keys, and the same
// commands without --json print what they always printed.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "machine.h"

namespace {

using krt_test::RunResult;
using krt_test::SimMachine;
using nlohmann::json;

const std::string kSchemaPath = KRT_SOURCE_DIR "/docs/krt_cli.schema.json";

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

// Every document a test produces, checked against the schema in one run of
// the validator when the test ends.
class SchemaCheck {
  public:
    SchemaCheck() = default;
    SchemaCheck(const SchemaCheck &) = delete;
    SchemaCheck &operator=(const SchemaCheck &) = delete;
    ~SchemaCheck() { check(); }

    void add(const std::string &document, const std::string &where)
    {
        for (const std::string &line : lines(document)) {
            documents_ += line + "\n";
            where_.push_back(where);
        }
    }

    // The lines the validator refused (counted from 1), with its reasons.
    // The documents are then taken as checked.
    std::map<std::size_t, std::vector<std::string>> refused()
    {
        std::map<std::size_t, std::vector<std::string>> result;
        krt_test::RunOptions options;
        options.input = std::move(documents_);
        documents_.clear();
        const RunResult run =
            krt_test::runProcess({KRT_TEST_PYTHON, KRT_SOURCE_DIR "/tests/json/validate.py", kSchemaPath}, options);
        EXPECT_TRUE(run.status == 0 || run.status == 1) << "the validator could not run: " << run.err;
        for (const std::string &line : lines(run.out)) {
            const json report = json::parse(line);
            result[report["line"].get<std::size_t>()] = report["errors"].get<std::vector<std::string>>();
        }
        return result;
    }

  private:
    void check()
    {
        if (documents_.empty())
            return;
        const std::vector<std::string> where = std::move(where_);
        where_.clear();
        for (const auto &[line, errors] : refused()) {
            std::string all;
            for (const std::string &error : errors)
                all += "\n  " + error;
            ADD_FAILURE() << where.at(line - 1) << ": the schema refuses the document:" << all;
        }
    }

    std::string documents_;
    std::vector<std::string> where_;
};

// One document, nothing else, of the document's shape; the schema checks the
// rest.
json parseDocument(const std::string &out, const std::string &where)
{
    json doc;
    try {
        doc = json::parse(out);
    } catch (const json::exception &e) {
        ADD_FAILURE() << where << ": not one JSON document: " << e.what() << "\n" << out;
        return json::object();
    }
    EXPECT_EQ(out.find('\n'), out.size() - 1) << where << ": one line";
    EXPECT_EQ(doc["json_format_version"], json::array({2, 0})) << where;
    return doc;
}

// A run that failed by its exit status never says it went well.
void expectNoHiddenFailure(const json &doc, const std::string &where)
{
    if (doc["krt_cli"]["exit_status"] != 0) {
        EXPECT_NE(doc["result"]["kind"], "ok") << where;
    }
}

void collectKinds(const json &value, std::set<std::string> &seen)
{
    if (value.is_object()) {
        if (value.contains("record"))
            seen.insert(value["record"].get<std::string>());
        for (const auto &[key, inner] : value.items())
            collectKinds(inner, seen);
    } else if (value.is_array()) {
        for (const json &inner : value)
            collectKinds(inner, seen);
    }
}

const json &schema()
{
    static const json parsed = json::parse(krt_test::readFile(kSchemaPath));
    return parsed;
}

// The record kinds the schema defines, with their keys and which of them are
// always there. A kind of several shapes has the keys of all of them, those
// of every shape always there.
struct KindKeys {
    std::set<std::string> keys;
    std::set<std::string> required;
};
std::map<std::string, KindKeys> schemaKinds()
{
    std::map<std::string, KindKeys> kinds;
    for (const auto &[name, def] : schema()["$defs"].items()) {
        if (name == "result" || name == "record")
            continue;
        const json shapes = def.contains("oneOf") && !def.contains("properties") ? def["oneOf"] : json::array({def});
        KindKeys &kind = kinds[name];
        bool first = true;
        for (const json &shape : shapes) {
            std::set<std::string> required;
            for (const auto &[key, value] : shape["properties"].items())
                kind.keys.insert(key);
            for (const json &key : shape["required"])
                required.insert(key.get<std::string>());
            if (first) {
                kind.required = required;
            } else {
                std::set<std::string> both;
                for (const std::string &key : kind.required)
                    if (required.count(key) != 0)
                        both.insert(key);
                kind.required = both;
            }
            first = false;
        }
        kind.keys.erase("record");
        kind.required.erase("record");
    }
    return kinds;
}

// The text output pinned as it was before there was a JSON output: FNV-1a.
std::uint64_t digest(const std::string &text)
{
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    return hash;
}

struct Case {
    std::vector<std::string> words;
    std::uint64_t raid;  // digest of the text output; 0: not pinned (times of day, addresses)
    std::uint64_t jbof;
};

// Read-only commands first, then the ones that change the machine; both
// machines of a fixture see the same sequence.
const Case kCases[] = {
    {{"?"}, 0xcf23f87f6e16b01eull, 0xcf23f87f6e16b01eull},
    {{"help"}, 0xcf23f87f6e16b01eull, 0xcf23f87f6e16b01eull},
    {{"help", "vd"}, 0x44e49ed1a9b9f909ull, 0x44e49ed1a9b9f909ull},
    {{"version"}, 0x7c91153e7aaf7e41ull, 0x7c91153e7aaf7e41ull},
    {{"adapter", "--list"}, 0x4726961850734675ull, 0x4726961850734675ull},
    {{"info", "-o", "hba"}, 0x558055a3c1f70206ull, 0xd2fe387e3a25b9f8ull},
    {{"info", "-o", "pd"}, 0x6973fa11eceb75a7ull, 0xb6eb2082165a1431ull},
    {{"info", "-o", "pd", "-i", "1"}, 0x466bdae08f65e6e6ull, 0x2f3ee603a9215eb6ull},
    {{"info", "-o", "vd"}, 0x4c830316f28fd7f1ull, 0x981a2f8dd65d4b56ull},
    {{"info", "-o", "ns"}, 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {{"info", "-o", "ns", "-t", "host"}, 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {{"info", "-o", "disk"}, 0xb09e597d37622ccaull, 0xb09e597d37622ccaull},
    {{"event", "-c", "3"}, 0, 0},
    {{"log", "-a", "show"}, 0xafed6541ff46ddffull, 0xafed6541ff46ddffull},
    {{"get", "-o", "hba"}, 0xba9066b0bd80e387ull, 0x803d5d46e7b87710ull},
    {{"smart", "-i", "1"}, 0x797ea3d46192409cull, 0x797ea3d46192409cull},
    {{"smart", "-o", "hba"}, 0x603e8557ed6d9d3aull, 0xf36c490aefc115a9ull},
    {{"smart", "-o", "ns", "-n", "1"}, 0x00dec5f53acea4a5ull, 0x11ca11c91ac4f93eull},
    {{"identify", "-c", "1"}, 0x8009fc3a4e5cba13ull, 0xe148f43403e51b62ull},
    {{"identify", "-c", "0", "-n", "1"}, 0xef5226b989b30533ull, 0xd07a26c08d597849ull},
    {{"identify", "-c", "2"}, 0x70b9de996c5a35f9ull, 0x25bf413397f8c055ull},
    {{"passthru", "-i", "1", "-r", "read", "-o", "0x06", "--cdw10", "1", "-d", "4096"},
     0x1034f8a9797eb832ull,
     0x1034f8a9797eb832ull},
    {{"passthru", "-i", "1", "-r", "read", "-o", "0x02", "--cdw10", "0x7f0002", "-d", "512", "--showcmd"}, 0, 0},
    {{"spi", "-t", "read"}, 0x4b5d412beadcec4full, 0x4b5d412beadcec4full},
    {{"flash", "-o", "hba", "-q", "firmware"}, 0xb53a4038f563e699ull, 0xb53a4038f563e699ull},
    {{"flash", "-o", "pd", "-i", "1", "-q", "firmware"}, 0x91d3f491ec487245ull, 0x91d3f491ec487245ull},
    {{"inverse", "-a", "get"}, 0x972794e95058b00aull, 0x972794e95058b00aull},
    {{"ns", "--list"}, 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {{"ns", "-p", "ctrl"}, 0x53b843c4a17b7463ull, 0x53b843c4a17b7463ull},
    {{"vpd"}, 0x2fbddbdb7bf7a588ull, 0x2fbddbdb7bf7a588ull},
    {{"dumphba"}, 0x775942989faa9b7full, 0x775942989faa9b7full},
    {{"gpio"}, 0x9f046683b3a93531ull, 0x9f046683b3a93531ull},
    {{"vpdread"}, 0xe6ebd059242c6569ull, 0xe6ebd059242c6569ull},
    {{"nosuchcommand"}, 0x36906f5e0412a7a5ull, 0x36906f5e0412a7a5ull},
    {{"debuglv", "-t", "1"}, 0xfda4c7c895c651d0ull, 0xfda4c7c895c651d0ull},
    {{"set", "-o", "hba", "-i", "0", "-a", "off", "-r", "low"}, 0xe1affc5e7830f45full, 0x803d5d46e7b87710ull},
    {{"led", "-o", "rc", "-i", "2", "-a", "qb"}, 0x78b3d6a6f9fe9d02ull, 0x78b3d6a6f9fe9d02ull},
    {{"reset", "-i", "2"}, 0x3f8a6cb93f69248bull, 0x3f8a6cb93f69248bull},
    {{"init", "-i", "1"}, 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {{"info", "-o", "vd"}, 0x9a31db7e00b2d5abull, 0x981a2f8dd65d4b56ull},
    {{"mp", "-i", "0"}, 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {{"rebuild", "-i", "1", "-a", "start", "-d", "7"}, 0x814f7983871bfb71ull, 0xc1595ca4de3f95bbull},
    {{"import", "-l", "1"}, 0x7e24399bd08d1de2ull, 0x2b94a8582371d823ull},
    {{"vd", "-a", "create", "-r", "0", "-d", "7"}, 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {{"ns", "-a", "create", "-i", "1", "-c", "1", "-l", "10"}, 0x04edfc83b01620dbull, 0xf92819fdbbe2a9e1ull},
};

TEST(JsonOutput, EveryCommandGivesOneDocumentOfTheSchema)
{
    SchemaCheck check;
    std::set<std::string> seen;
    for (const char *fixture : {"raid", "jbof"}) {
        const SimMachine text(fixture), machine(fixture);
        for (std::size_t i = 0; i < std::size(kCases); ++i) {
            const Case &c = kCases[i];
            std::string where = std::string(fixture) + ":";
            for (const std::string &word : c.words)
                where += " " + word;
            // The word may stand anywhere among the program's words.
            std::vector<std::string> words = c.words;
            words.insert(words.begin() + static_cast<long>(i % (words.size() + 1)), "--json");

            const RunResult plain = text.cli(c.words);
            const RunResult run = machine.cli(words);
            const std::uint64_t pinned = std::string(fixture) == "raid" ? c.raid : c.jbof;
            if (pinned != 0) {
                EXPECT_EQ(digest(plain.out), pinned) << where << ": the text output changed";
            }
            EXPECT_EQ(run.status, plain.status) << where;
            EXPECT_EQ(run.err, plain.err) << where;

            const json doc = parseDocument(run.out, where);
            check.add(run.out, where);
            expectNoHiddenFailure(doc, where);
            EXPECT_EQ(doc["krt_cli"]["exit_status"], run.status) << where;
            EXPECT_EQ(doc["krt_cli"]["argv"], json(words)) << where;
            collectKinds(doc["records"], seen);
            // The messages are the text's lines outside the records, in order.
            const std::vector<std::string> shown = lines(plain.out);
            auto at = shown.begin();
            for (const json &message : doc["messages"]) {
                at = std::find(at, shown.end(), message.get<std::string>());
                ASSERT_NE(at, shown.end()) << where << ": message not in the text: " << message;
                ++at;
            }
        }
    }
    for (const auto &[kind, keys] : schemaKinds())
        EXPECT_TRUE(seen.count(kind) == 1) << "no command showed a " << kind << " record";
}

TEST(JsonOutput, RecordsAreTypedAndSayWhatTheyDescribe)
{
    SchemaCheck check;
    const auto records = [&check](const SimMachine &m, const std::vector<std::string> &words) {
        std::vector<std::string> all{"--json"};
        all.insert(all.end(), words.begin(), words.end());
        const RunResult run = m.cli(all);
        check.add(run.out, words[0]);
        return parseDocument(run.out, words[0])["records"];
    };

    // A rebuild paused at 40 % beside a degraded RAID6 with a lost member.
    const SimMachine degraded("degraded");
    const json vds = records(degraded, {"info", "-o", "vd"});
    ASSERT_GE(vds.size(), 2u);
    EXPECT_EQ(vds[0]["pd_ids"], json::parse("[0, 1, 2, null]"));
    EXPECT_EQ(vds[0]["status"], "Degrade");
    EXPECT_EQ(vds[0]["status_code"], 1);
    EXPECT_EQ(vds[0]["stripe_size_kib"], 128);
    EXPECT_EQ(vds[0]["sector_size_bytes"], 512);
    EXPECT_EQ(vds[0]["size_bytes"].get<std::uint64_t>() >> 30, vds[0]["size_gb"].get<std::uint64_t>());
    EXPECT_EQ(vds[1], json::parse(R"({"record": "background_activity", "vd_id": 0, "activity": "Rebuilding",
        "activity_code": 3, "percent": 40, "state": "pause", "state_code": 2,
        "bga_progress": "Rebuilding is pause in 40%"})"));

    // Every controller of a machine, named as info -o hba names it, and
    // which one commands address.
    const SimMachine multi("multi");
    const json controllers = records(multi, {"adapter", "--list"});
    const json full = records(multi, {"info", "-o", "hba"});
    ASSERT_EQ(controllers.size(), 4u);
    ASSERT_EQ(full.size(), 4u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(controllers[i]["index"], i);
        EXPECT_EQ(controllers[i]["current"], i == 0);
        EXPECT_EQ(controllers[i]["subnqn"].get<std::string>().rfind("nqn.", 0), 0u);
        for (const auto &[key, value] : controllers[i].items())
            EXPECT_EQ(full[i][key], value) << key;
    }
    EXPECT_EQ(controllers[3],
              json::parse(R"({"record": "summary", "total_of_hba": 3, "current_nvme_controller_id": 0})"));
    EXPECT_EQ(records(multi, {"2", "adapter", "--list"})[2]["current"], true);
    // get -o hba over all controllers reads the addressed one each time, and says so.
    for (const json &settings : records(multi, {"get", "-o", "hba"}))
        EXPECT_EQ(settings["index"], 0);

    const SimMachine raid("raid");
    const json hba = records(raid, {"info", "-o", "hba"});
    EXPECT_EQ(hba[0]["cache"], "On");
    EXPECT_EQ(hba[0]["supported_raid_mode"],
              json::parse(R"(["RAID0", "RAID1", "RAID5", "RAID6", "RAID10", "RAID50", "RAID60", "JBOD"])"));
    EXPECT_EQ(hba[0]["support_stripe_size_kib"], json::parse("[128, 256, 512]"));
    EXPECT_EQ(records(raid, {"info", "-o", "pd", "-i", "1"})[0]["model"], "NVMe SSD 1920GB");
    EXPECT_EQ(records(raid, {"smart", "-i", "3"})[0]["pd_id"], 3);
    EXPECT_EQ(records(raid, {"smart", "-o", "ns", "-n", "2"})[0]["ns_id"], 2);
    EXPECT_EQ(records(raid, {"smart", "-o", "hba"})[0]["subject"], "controller");
    const json event = records(raid, {"event", "-c", "1"});
    EXPECT_TRUE(event[0]["seq"].is_number());
    EXPECT_EQ(event[1], json::parse(R"({"record": "summary", "total_events": 1})"));
    const json spi = records(raid, {"spi", "-t", "read"});
    EXPECT_EQ(spi[0]["data_hex"].get<std::string>().size(), 2 * spi[0]["length_bytes"].get<std::size_t>());
}

TEST(JsonOutput, ShellGivesOneDocumentPerLine)
{
    SchemaCheck check;
    const SimMachine m("raid");
    krt_test::RunOptions options;
    options.input = "info -o pd -i 0\n\n\"open\nget -o hba --json\nnosuchcommand\nexit\n";
    const RunResult run = m.cli({"--json"}, options);
    EXPECT_EQ(run.status, 0);
    const std::vector<std::string> docs = lines(run.out);
    ASSERT_EQ(docs.size(), 7u) << run.out;  // start-up, then one per line
    std::vector<int> statuses;
    for (const std::string &line : docs) {
        const json doc = parseDocument(line + "\n", line);
        check.add(line, "shell: " + line);
        statuses.push_back(doc["krt_cli"]["exit_status"]);
    }
    EXPECT_EQ(statuses, (std::vector<int>{0, 0, 0, 1, 0, 1, 0}));
    EXPECT_EQ(json::parse(docs[0])["messages"][0], "CLI Version: 1.0.0.1041");
    EXPECT_EQ(json::parse(docs[2])["messages"], json::array({"Type 'exit' to exit CLI."}));
    EXPECT_EQ(json::parse(docs[4])["records"][0]["record"], "settings");
    EXPECT_EQ(json::parse(docs[5])["result"], json::parse(R"({"kind": "usage_error",
        "message": "Invalid command 'nosuchcommand'!"})"));
}

TEST(JsonOutput, FailuresAndMissingControllersStillGiveOneDocument)
{
    SchemaCheck check;
    const SimMachine m("raid");
    // A failed request: its status and the decoder's line.
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0x02", "--status", "0x0181"}).status, 0);
    const RunResult plain = m.cli({"smart", "-o", "hba"});
    const RunResult run = m.cli({"smart", "--json", "-o", "hba"});
    check.add(run.out, "failed");
    const json failed = parseDocument(run.out, "failed");
    EXPECT_EQ(failed["status"]["value"], 0x181);
    const std::string line = failed["status"]["text"];
    EXPECT_NE(plain.out.find(line + "\n"), std::string::npos) << plain.out;
    EXPECT_EQ(failed["result"], json({{"kind", "request_failed"}, {"message", line}, {"status", 0x181}}));

    // Every line goes into the document in the -output file, even the ones
    // said on the terminal.
    ASSERT_EQ(m.krtsim({"fault", "clear"}).status, 0);
    const RunResult toFile = m.cli({"event", "-c", "2", "-output", "out.json", "--json"});
    EXPECT_EQ(toFile.out, "");
    const std::string written = krt_test::readFile(m.dir().file("out.json"));
    check.add(written, "-output");
    const json inFile = parseDocument(written, "-output");
    EXPECT_EQ(inFile["records"].size(), 3u);
    EXPECT_EQ(inFile["records"].back(), json::parse(R"({"record": "summary", "total_events": 2})"));

    const RunResult none = krt_test::cliWithoutLibrary({"--json", "info", "-o", "pd"});
    check.add(none.out, "no library");
    const json missing = parseDocument(none.out, "no library");
    EXPECT_TRUE(missing["controller"].is_null());
    EXPECT_EQ(missing["krt_cli"]["exit_status"], none.status);
    EXPECT_NE(missing["messages"].back().get<std::string>().find("No NVMe Controller is found."), std::string::npos);
}

TEST(JsonOutput, HostileDeviceTextsAndCutListingsStayValid)
{
    SchemaCheck check;
    krt_test::TempDir dir;
    const std::string fixture = dir.file("texts.json");
    krt_test::writeFile(fixture,
                        R"({"adapters": [{"pds": [{"model": "\u0001M\u001b[0m\u00e9\"\\", "serial": "S\u0002N"}],
                                     "vds": [{"name": "\t", "raid": "raid0", "members": [0]}]}]})");
    const SimMachine texts(fixture);
    const RunResult shown = texts.cli({"--json", "info", "-o", "pd", "-i", "0"});
    check.add(shown.out, "texts");
    const json pd = parseDocument(shown.out, "texts");
    // Kept as they are but for the padding.
    EXPECT_EQ(pd["records"][0]["model"], "\x01M\x1b[0m\xc3\xa9\"\\");
    EXPECT_EQ(pd["records"][0]["serial"], "S\x02N");

    // Replies that fill every field to its end and overrun every count.
    const SimMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "add", "--overlong"}).status, 0);
    for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
             {"info", "-o", "pd"}, {"info", "-o", "vd"}, {"info", "-o", "ns"}, {"event"}, {"identify", "-c", "1"}}) {
        std::vector<std::string> all = words;
        all.push_back("--json");
        const RunResult run = m.cli(all);
        check.add(run.out, "overlong " + words[0] + " " + words.back());
        parseDocument(run.out, words[0] + " " + words.back());
    }
}

// ---- The verdict ------------------------------------------------------------

struct VerdictCase {
    std::string kind;
    std::string machine;
    std::vector<std::vector<std::string>> setUp;
    std::vector<std::string> words;
    std::string line;
};

// tests/json/verdicts.txt: "kind machine [step ;]... words".
std::vector<VerdictCase> verdictCases(const std::string &path)
{
    std::vector<VerdictCase> cases;
    std::istringstream table(krt_test::readFile(path));
    for (std::string line; std::getline(table, line);) {
        std::istringstream in(line);
        VerdictCase c;
        if (!(in >> c.kind) || c.kind[0] == '#' || !(in >> c.machine))
            continue;
        c.line = line;
        std::vector<std::string> step;
        for (std::string word; in >> word;) {
            if (word == ";") {
                c.setUp.push_back(step);
                step.clear();
            } else {
                step.push_back(word == "\"\"" ? "" : word);
            }
        }
        c.words = step;
        cases.push_back(c);
    }
    return cases;
}

std::string fixturePath(const std::string &machine)
{
    const std::string file = KRT_SOURCE_DIR "/tests/json/fixtures/" + machine + ".json";
    return std::ifstream(file).good() ? file : machine;
}

TEST(JsonVerdict, EveryFailureOfTheSuiteSaysWhatItIs)
{
    SchemaCheck check;
    const std::vector<VerdictCase> cases = verdictCases(KRT_SOURCE_DIR "/tests/json/verdicts.txt");
    ASSERT_GT(cases.size(), 200u);
    std::set<std::string> kinds;
    for (const VerdictCase &c : cases) {
        SCOPED_TRACE(c.line);
        const SimMachine m(fixturePath(c.machine));
        for (const std::vector<std::string> &step : c.setUp) {
            const std::vector<std::string> rest(step.begin() + 1, step.end());
            if (step[0] == "krtsim") {
                ASSERT_EQ(m.krtsim(rest).status, 0);
            } else if (step[0] == "cli") {
                m.cli(rest);
            } else {
                ASSERT_EQ(step[0], "file");
                std::string bytes(std::stoul(rest.at(1)), '\0');
                for (std::size_t i = 0; i < bytes.size(); ++i)
                    bytes[i] = static_cast<char>(i * 7 % 253);
                krt_test::writeFile(m.dir().file(rest.at(0)), bytes);
            }
        }
        std::vector<std::string> words = c.words;
        words.insert(words.begin(), "--json");
        const RunResult run = m.cli(words);
        check.add(run.out, c.line);
        const json doc = parseDocument(run.out, c.line);
        expectNoHiddenFailure(doc, c.line);
        EXPECT_EQ(doc["result"]["kind"], c.kind) << doc["result"] << "\n" << doc["messages"];
        // The message is one the run said, or none.
        const json &message = doc["result"]["message"];
        if (message.is_string()) {
            const json &messages = doc["messages"];
            EXPECT_TRUE(std::find(messages.begin(), messages.end(), message) != messages.end()) << message;
        }
        kinds.insert(c.kind);
    }
    EXPECT_EQ(kinds, (std::set<std::string>{"usage_error", "not_found", "refused", "request_failed"}));
}

// What main says before and around the commands. Its notes come with the
// start-up's calls of json_output::noteResult.
TEST(JsonVerdict, StartUpAndShellLines)
{
    SchemaCheck check;
    const auto kindOf = [&check](const RunResult &run, const std::string &where) {
        check.add(run.out, where);
        return json::parse(lines(run.out).at(0))["result"]["kind"].get<std::string>();
    };
    EXPECT_EQ(kindOf(krt_test::cliWithoutLibrary({"--json", "info", "-o", "pd"}), "no library"), "no_controller");
    const SimMachine empty("empty");
    EXPECT_EQ(kindOf(empty.cli({"--json", "info", "-o", "hba"}), "empty"), "no_controller");
    const SimMachine raid("raid");
    EXPECT_EQ(kindOf(raid.cli({"--json", "7", "version"}), "7 version"), "not_found");
    krt_test::RunOptions options;
    options.input = "\"open\n" + std::string(3000, 'x') + "\n";
    const std::vector<std::string> docs = lines(raid.cli({"--json"}, options).out);
    ASSERT_EQ(docs.size(), 3u);
    for (std::size_t i = 1; i < docs.size(); ++i) {
        check.add(docs[i], "shell");
        EXPECT_EQ(json::parse(docs[i])["result"]["kind"], "usage_error") << docs[i];
    }
}

// ---- The schema --------------------------------------------------------------

TEST(JsonSchema, RefusesWrongTypesUnknownKindsAndKeys)
{
    const SimMachine m("raid");
    const std::string good = m.cli({"--json", "info", "-o", "hba"}).out;
    json doc = json::parse(good);
    ASSERT_EQ(doc["records"][0]["record"], "controller");

    std::vector<std::pair<std::string, json>> broken;
    json typed = doc;
    typed["records"][0]["vid"] = "0x1e6b";
    broken.emplace_back("a number as text", typed);
    json unknown = doc;
    unknown["records"].push_back({{"record", "mystery"}});
    broken.emplace_back("an unknown record kind", unknown);
    json extraKey = doc;
    extraKey["records"][0]["colour"] = "blue";
    broken.emplace_back("an unknown key", extraKey);
    json verdict = doc;
    verdict["result"]["kind"] = "fine";
    broken.emplace_back("an unknown result", verdict);
    json noResult = doc;
    noResult.erase("result");
    broken.emplace_back("no result", noResult);
    json nested = doc;
    nested["records"][0]["pcie_links"][0]["link_width_code"] = "8";
    broken.emplace_back("a wrong type in a listed record", nested);

    SchemaCheck check;
    check.add(good, "good");
    for (const auto &[what, document] : broken)
        check.add(document.dump(), what);
    const auto refused = check.refused();
    EXPECT_EQ(refused.count(1), 0u) << "the good document";
    for (std::size_t i = 0; i < broken.size(); ++i)
        EXPECT_EQ(refused.count(i + 2), 1u) << broken[i].first;
    // The validator names the field.
    ASSERT_EQ(refused.count(2), 1u);
    EXPECT_EQ(refused.at(2), std::vector<std::string>{"/records/0/vid: '0x1e6b' is not of type 'integer'"});
}

// docs/json.md has a table per record kind: the keys of the schema, and
// "optional" exactly on the keys that are not always there.
TEST(JsonSchema, TheDocumentationListsEveryKeyOfEveryKind)
{
    std::map<std::string, KindKeys> documented;
    std::istringstream doc(krt_test::readFile(KRT_SOURCE_DIR "/docs/json.md"));
    std::string line, kind;
    bool inKinds = false;
    const auto between = [](const std::string &text) {
        const std::size_t first = text.find('`');
        return text.substr(first + 1, text.find('`', first + 1) - first - 1);
    };
    while (std::getline(doc, line)) {
        if (line == "## Record kinds")
            inKinds = true;
        if (!inKinds)
            continue;
        if (line.rfind("### `", 0) == 0) {
            kind = between(line);
            documented[kind];
        } else if (!kind.empty() && line.rfind("| `", 0) == 0) {
            std::vector<std::string> cells;
            std::istringstream row(line.substr(1));
            for (std::string cell; std::getline(row, cell, '|');)
                cells.push_back(cell);
            ASSERT_GE(cells.size(), 3u) << line;
            const std::string key = between(cells[0]);
            documented[kind].keys.insert(key);
            if (cells[2].find("optional") == std::string::npos)
                documented[kind].required.insert(key);
        }
    }
    const std::map<std::string, KindKeys> kinds = schemaKinds();
    ASSERT_FALSE(kinds.empty());
    for (const auto &[name, keys] : kinds) {
        ASSERT_EQ(documented.count(name), 1u) << name << " is not documented";
        EXPECT_EQ(documented[name].keys, keys.keys) << name;
        EXPECT_EQ(documented[name].required, keys.required) << name;
    }
    EXPECT_EQ(documented.size(), kinds.size());
}

}  // namespace
