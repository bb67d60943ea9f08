// --json against simulated machines: every public command gives one document
// whose records have the keys docs/json.md lists for their kinds, while the
// same command without --json prints what it always printed.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "machine.h"

namespace {

using krt_test::RunResult;
using krt_test::SimMachine;
using nlohmann::json;

// docs/json.md: per record kind, each key's value kind and whether it may be
// missing. The document is the one source of the keys.
struct KeyRule {
    std::string kind;  // number, string, boolean, or "array of `<record kind>`"
    bool optional;
};
using Schema = std::map<std::string, std::map<std::string, KeyRule>>;

std::string between(const std::string &text, char mark)
{
    const std::size_t first = text.find(mark);
    const std::size_t last = text.find(mark, first + 1);
    return first == std::string::npos || last == std::string::npos ? "" : text.substr(first + 1, last - first - 1);
}

std::string trimmed(const std::string &text)
{
    const std::size_t first = text.find_first_not_of(' ');
    const std::size_t last = text.find_last_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

const Schema &schema()
{
    static const Schema kinds = [] {
        Schema parsed;
        std::istringstream doc(krt_test::readFile(KRT_SOURCE_DIR "/docs/json.md"));
        std::string line, kind;
        while (std::getline(doc, line)) {
            if (line.rfind("### `", 0) == 0) {
                kind = between(line, '`');
                parsed[kind];
            } else if (!kind.empty() && line.rfind("| `", 0) == 0) {
                std::vector<std::string> cells;
                std::istringstream row(line.substr(1));
                for (std::string cell; std::getline(row, cell, '|');)
                    cells.push_back(trimmed(cell));
                if (cells.size() >= 3)
                    parsed[kind][between(cells[0], '`')] = {cells[1], cells[2].rfind("optional", 0) == 0};
            }
        }
        return parsed;
    }();
    return kinds;
}

// Checks one record, and the records listed inside it, against the document.
void checkRecord(const json &record, const std::string &where, std::set<std::string> &seen)
{
    ASSERT_TRUE(record.is_object()) << where;
    ASSERT_TRUE(record.contains("record") && record["record"].is_string()) << where;
    const std::string kind = record["record"];
    seen.insert(kind);
    const auto documentedKind = schema().find(kind);
    ASSERT_NE(documentedKind, schema().end()) << where << ": kind " << kind << " is not documented";
    for (const auto &[key, value] : record.items()) {
        if (key == "record")
            continue;
        const auto documented = documentedKind->second.find(key);
        if (documented == documentedKind->second.end()) {
            ADD_FAILURE() << where << ": " << kind << "." << key << " is not documented";
            continue;
        }
        const std::string &type = documented->second.kind;
        if (type == "number") {
            EXPECT_TRUE(value.is_number()) << where << ": " << kind << "." << key;
        } else if (type == "string") {
            EXPECT_TRUE(value.is_string()) << where << ": " << kind << "." << key;
        } else if (type == "boolean") {
            EXPECT_TRUE(value.is_boolean()) << where << ": " << kind << "." << key;
        } else {
            ASSERT_TRUE(value.is_array()) << where << ": " << kind << "." << key;
            for (const json &inner : value) {
                checkRecord(inner, where, seen);
                EXPECT_EQ(inner.value("record", ""), between(type, '`')) << where;
            }
        }
    }
    for (const auto &[key, keyRule] : documentedKind->second) {
        if (!keyRule.optional) {
            EXPECT_TRUE(record.contains(key)) << where << ": " << kind << " lacks " << key;
        }
    }
}

// One document, nothing else, of the documented shape.
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
    EXPECT_EQ(doc["json_format_version"], json::array({1, 0})) << where;
    EXPECT_TRUE(doc["krt_cli"]["version"].is_string()) << where;
    EXPECT_TRUE(doc["krt_cli"]["argv"].is_array()) << where;
    EXPECT_TRUE(doc["controller"].is_null() || doc["controller"]["number"].is_number()) << where;
    EXPECT_TRUE(doc["records"].is_array()) << where;
    EXPECT_TRUE(doc["messages"].is_array()) << where;
    return doc;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
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
    std::uint64_t raid;  // digest of the text output; 0: not pinned (times of day)
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
    {{"passthru", "-i", "1", "-r", "read", "-o", "0x06", "--cdw10", "1", "-d", "4096"},
     0x1034f8a9797eb832ull,
     0x1034f8a9797eb832ull},
    {{"spi", "-t", "read"}, 0x4b5d412beadcec4full, 0x4b5d412beadcec4full},
    {{"flash", "-o", "hba", "-q", "firmware"}, 0xb53a4038f563e699ull, 0xb53a4038f563e699ull},
    {{"flash", "-o", "pd", "-i", "1", "-q", "firmware"}, 0x91d3f491ec487245ull, 0x91d3f491ec487245ull},
    {{"inverse", "-a", "get"}, 0x972794e95058b00aull, 0x972794e95058b00aull},
    {{"ns", "--list"}, 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
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

TEST(JsonOutput, EveryCommandGivesOneDocumentOfTheDocumentedKeys)
{
    ASSERT_FALSE(schema().empty());
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
            EXPECT_EQ(doc["krt_cli"]["exit_status"], run.status) << where;
            EXPECT_EQ(doc["krt_cli"]["argv"], json(words)) << where;
            for (const json &record : doc["records"])
                checkRecord(record, where, seen);
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
    for (const auto &[kind, keys] : schema())
        EXPECT_TRUE(seen.count(kind) == 1) << "no command showed a " << kind << " record";
}

TEST(JsonOutput, ShellGivesOneDocumentPerLine)
{
    const SimMachine m("raid");
    krt_test::RunOptions options;
    options.input = "info -o pd -i 0\n\n\"open\nget -o hba --json\nnosuchcommand\nexit\n";
    const RunResult run = m.cli({"--json"}, options);
    EXPECT_EQ(run.status, 0);
    const std::vector<std::string> docs = lines(run.out);
    ASSERT_EQ(docs.size(), 7u) << run.out;  // start-up, then one per line
    std::set<std::string> seen;
    std::vector<int> statuses;
    for (const std::string &line : docs) {
        const json doc = parseDocument(line + "\n", line);
        statuses.push_back(doc["krt_cli"]["exit_status"]);
        for (const json &record : doc["records"])
            checkRecord(record, line, seen);
    }
    EXPECT_EQ(statuses, (std::vector<int>{0, 0, 0, 1, 0, 1, 0}));
    EXPECT_EQ(json::parse(docs[0])["messages"][0], "CLI Version: 1.0.0.1041");
    EXPECT_EQ(json::parse(docs[2])["messages"], json::array({"Type 'exit' to exit CLI."}));
    EXPECT_EQ(json::parse(docs[4])["records"][0]["record"], "settings");
}

TEST(JsonOutput, FailuresAndMissingControllersStillGiveOneDocument)
{
    const SimMachine m("raid");
    // A failed request: its status and the decoder's line.
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0x02", "--status", "0x0181"}).status, 0);
    const RunResult plain = m.cli({"smart", "-o", "hba"});
    const json failed = parseDocument(m.cli({"smart", "--json", "-o", "hba"}).out, "failed");
    EXPECT_EQ(failed["status"]["value"], 0x181);
    const std::string line = failed["status"]["text"];
    EXPECT_NE(plain.out.find(line + "\n"), std::string::npos) << plain.out;

    // Every line goes into the document in the -output file, even the ones
    // said on the terminal.
    ASSERT_EQ(m.krtsim({"fault", "clear"}).status, 0);
    const RunResult toFile = m.cli({"event", "-c", "2", "-output", "out.json", "--json"});
    EXPECT_EQ(toFile.out, "");
    const json inFile = parseDocument(krt_test::readFile(m.dir().file("out.json")), "-output");
    EXPECT_EQ(inFile["messages"].back(), "Total events: 2");
    EXPECT_EQ(inFile["records"].size(), 2u);

    const RunResult none = krt_test::cliWithoutLibrary({"--json", "info", "-o", "pd"});
    const json missing = parseDocument(none.out, "no library");
    EXPECT_TRUE(missing["controller"].is_null());
    EXPECT_EQ(missing["krt_cli"]["exit_status"], none.status);
    EXPECT_NE(missing["messages"].back().get<std::string>().find("No NVMe Controller is found."), std::string::npos);
}

TEST(JsonOutput, HostileDeviceTextsAndCutListingsStayValid)
{
    krt_test::TempDir dir;
    const std::string fixture = dir.file("texts.json");
    krt_test::writeFile(fixture,
                        R"({"adapters": [{"pds": [{"model": "\u0001M\u001b[0m\u00e9\"\\", "serial": "S\u0002N"}],
                                     "vds": [{"name": "\t", "raid": "raid0", "members": [0]}]}]})");
    const SimMachine texts(fixture);
    const json pd = parseDocument(texts.cli({"--json", "info", "-o", "pd", "-i", "0"}).out, "texts");
    // Blank padding follows the texts.
    EXPECT_EQ(pd["records"][0]["model"].get<std::string>().rfind("\x01M\x1b[0m\xc3\xa9\"\\ ", 0), 0u);
    EXPECT_EQ(pd["records"][0]["serial"].get<std::string>().rfind("S\x02N ", 0), 0u);

    // Replies that fill every field to its end and overrun every count.
    const SimMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "add", "--overlong"}).status, 0);
    std::set<std::string> seen;
    for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
             {"info", "-o", "pd"}, {"info", "-o", "vd"}, {"info", "-o", "ns"}, {"event"}, {"identify", "-c", "1"}}) {
        std::vector<std::string> all = words;
        all.push_back("--json");
        const json doc = parseDocument(m.cli(all).out, words[0] + " " + words.back());
        for (const json &record : doc["records"])
            checkRecord(record, words.back(), seen);
    }
}

}  // namespace
