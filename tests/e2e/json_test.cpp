// --json against simulated machines: every document of a command validates
// against the published schema (docs/krt_cli.schema.json) and says what the
// run did, the text of the same commands stays as it always was, the schema
// refuses what it should and docs/json.md lists its keys.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "cases.h"
#include "machine.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::lines;
using krt_test::RunResult;
using krt_test::SchemaCheck;
using krt_test::SimMachine;
using nlohmann::json;
using Words = std::vector<std::string>;

const std::string kSchemaPath = KRT_SOURCE_DIR "/docs/krt_cli.schema.json";

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

// The record kinds the schema defines: their keys, and those always there
// (in every shape of a kind of several).
std::map<std::string, std::pair<std::set<std::string>, std::set<std::string>>> schemaKinds()
{
    std::map<std::string, std::pair<std::set<std::string>, std::set<std::string>>> kinds;
    const json schema = json::parse(krt_test::readFile(kSchemaPath));
    for (const auto &[name, def] : schema["$defs"].items()) {
        if (name == "result" || name == "record")
            continue;
        auto &[keys, required] = kinds[name];
        std::map<std::string, std::size_t> shapesRequiring;
        const json shapes = def.contains("oneOf") && !def.contains("properties") ? def["oneOf"] : json::array({def});
        for (const json &shape : shapes) {
            for (const auto &[key, value] : shape["properties"].items())
                keys.insert(key);
            for (const json &key : shape["required"])
                if (++shapesRequiring[key] == shapes.size())
                    required.insert(key);
        }
        keys.erase("record");
        required.erase("record");
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
    const char *words;
    std::uint64_t raid;  // digest of the text output; 0: not pinned (times of day, addresses)
    std::uint64_t jbof;
};

// Read-only commands first, then the ones that change the machine; both
// machines of a fixture see the same sequence.
const Case kCases[] = {
    {"?", 0xcf23f87f6e16b01eull, 0xcf23f87f6e16b01eull},
    {"help", 0xcf23f87f6e16b01eull, 0xcf23f87f6e16b01eull},
    {"help vd", 0x44e49ed1a9b9f909ull, 0x44e49ed1a9b9f909ull},
    {"version", 0x7c91153e7aaf7e41ull, 0x7c91153e7aaf7e41ull},
    {"adapter --list", 0x4726961850734675ull, 0x4726961850734675ull},
    {"info -o hba", 0x558055a3c1f70206ull, 0xd2fe387e3a25b9f8ull},
    {"info -o pd", 0x6973fa11eceb75a7ull, 0xb6eb2082165a1431ull},
    {"info -o pd -i 1", 0x466bdae08f65e6e6ull, 0x2f3ee603a9215eb6ull},
    {"info -o vd", 0x4c830316f28fd7f1ull, 0x981a2f8dd65d4b56ull},
    {"info -o ns", 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {"info -o ns -t host", 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {"info -o disk", 0xb09e597d37622ccaull, 0xb09e597d37622ccaull},
    {"event -c 3", 0, 0},
    {"log -a show", 0xafed6541ff46ddffull, 0xafed6541ff46ddffull},
    {"get -o hba", 0xba9066b0bd80e387ull, 0x803d5d46e7b87710ull},
    {"smart -i 1", 0x797ea3d46192409cull, 0x797ea3d46192409cull},
    {"smart -o hba", 0x603e8557ed6d9d3aull, 0xf36c490aefc115a9ull},
    {"smart -o ns -n 1", 0x00dec5f53acea4a5ull, 0x11ca11c91ac4f93eull},
    {"identify -c 1", 0x8009fc3a4e5cba13ull, 0xe148f43403e51b62ull},
    {"identify -c 0 -n 1", 0xef5226b989b30533ull, 0xd07a26c08d597849ull},
    {"identify -c 2", 0x70b9de996c5a35f9ull, 0x25bf413397f8c055ull},
    {"passthru -i 1 -r read -o 0x06 --cdw10 1 -d 4096", 0x1034f8a9797eb832ull, 0x1034f8a9797eb832ull},
    {"passthru -i 1 -r read -o 0x02 --cdw10 0x7f0002 -d 512 --showcmd", 0, 0},
    {"spi -t read", 0x4b5d412beadcec4full, 0x4b5d412beadcec4full},
    {"flash -o hba -q firmware", 0xb53a4038f563e699ull, 0xb53a4038f563e699ull},
    {"flash -o pd -i 1 -q firmware", 0x91d3f491ec487245ull, 0x91d3f491ec487245ull},
    {"inverse -a get", 0x972794e95058b00aull, 0x972794e95058b00aull},
    {"ns --list", 0x2f381fbee8e05264ull, 0x1d0ad322abae1062ull},
    {"ns -p ctrl", 0x53b843c4a17b7463ull, 0x53b843c4a17b7463ull},
    {"vpd", 0x2fbddbdb7bf7a588ull, 0x2fbddbdb7bf7a588ull},
    {"dumphba", 0x775942989faa9b7full, 0x775942989faa9b7full},
    {"gpio", 0x9f046683b3a93531ull, 0x9f046683b3a93531ull},
    {"vpdread", 0xe6ebd059242c6569ull, 0xe6ebd059242c6569ull},
    {"nosuchcommand", 0x36906f5e0412a7a5ull, 0x36906f5e0412a7a5ull},
    {"debuglv -t 1", 0xfda4c7c895c651d0ull, 0xfda4c7c895c651d0ull},
    {"set -o hba -i 0 -a off -r low", 0xe1affc5e7830f45full, 0x803d5d46e7b87710ull},
    {"led -o rc -i 2 -a qb", 0x78b3d6a6f9fe9d02ull, 0x78b3d6a6f9fe9d02ull},
    {"reset -i 2", 0x3f8a6cb93f69248bull, 0x3f8a6cb93f69248bull},
    {"init -i 1", 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {"info -o vd", 0x9a31db7e00b2d5abull, 0x981a2f8dd65d4b56ull},
    {"mp -i 0", 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {"rebuild -i 1 -a start -d 7", 0x814f7983871bfb71ull, 0xc1595ca4de3f95bbull},
    {"import -l 1", 0x7e24399bd08d1de2ull, 0x2b94a8582371d823ull},
    {"vd -a create -r 0 -d 7", 0xbbb5eeb4be3ac85aull, 0xc1595ca4de3f95bbull},
    {"ns -a create -i 1 -c 1 -l 10", 0x04edfc83b01620dbull, 0xf92819fdbbe2a9e1ull},
};

TEST(JsonOutput, EveryCommandGivesOneDocumentOfTheSchemaAndKeepsItsText)
{
    SchemaCheck check;
    std::string records;
    for (const std::string fixture : {"raid", "jbof"}) {
        const SimMachine text(fixture), machine(fixture);
        for (std::size_t i = 0; i < std::size(kCases); ++i) {
            const Case &c = kCases[i];
            const std::string where = fixture + ": " + c.words;
            const Words typed = krt_test::words(c.words);
            // The word may stand anywhere among the program's words.
            Words words = typed;
            words.insert(words.begin() + static_cast<long>(i % (words.size() + 1)), "--json");
            const RunResult plain = text.cli(typed), run = machine.cli(words);
            const std::uint64_t pinned = fixture == "raid" ? c.raid : c.jbof;
            if (pinned != 0) {
                EXPECT_EQ(digest(plain.out), pinned) << where << ": the text output changed";
            }
            EXPECT_EQ(std::tie(run.status, run.err), std::tie(plain.status, plain.err)) << where;
            check.add(run.out, where);
            const json doc = parseDocument(run.out, where);
            // A run that failed by its exit status never says it went well.
            EXPECT_TRUE(doc["krt_cli"]["exit_status"] == 0 || doc["result"]["kind"] != "ok") << where;
            EXPECT_EQ(doc["krt_cli"]["exit_status"], run.status) << where;
            EXPECT_EQ(doc["krt_cli"]["argv"], json(words)) << where;
            records += doc["records"].dump();
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
        EXPECT_TRUE(has(records, "\"record\":\"" + kind + "\"")) << "no command showed a " << kind << " record";
}

// What records say, failed requests, device texts and overlong replies.
TEST(JsonOutput, Cases)
{
    krt_test::runCaseFile("json.cases");
}

// One document per typed line after the start-up's own; a line too long ends
// the shell with one more. Without the platform library there is still one.
TEST(JsonOutput, ShellLinesAndStartUpGiveTheirDocuments)
{
    SchemaCheck check;
    krt_test::RunOptions options;
    options.input = "info -o pd -i 0\n\n\"open\nget -o hba --json\nnosuchcommand\n" + std::string(3000, 'x') + "\n";
    const std::vector<std::string> docs = lines(SimMachine("raid").cli({"--json"}, options).out);
    ASSERT_EQ(docs.size(), 7u);
    std::string verdicts;
    for (const std::string &line : docs) {
        check.add(line, "shell: " + line.substr(0, 40));
        const json doc = parseDocument(line + "\n", line.substr(0, 40));
        verdicts += doc["result"]["kind"].get<std::string>() + doc["krt_cli"]["exit_status"].dump() + " ";
    }
    EXPECT_EQ(verdicts, "ok0 ok0 ok0 usage_error1 ok0 usage_error1 usage_error1 ");
    EXPECT_EQ(json::parse(docs[0])["messages"][0], "CLI Version: 1.0.0.1041");
    EXPECT_EQ(json::parse(docs[2])["messages"], json::array({"Type 'exit' to exit CLI."}));
    EXPECT_EQ(json::parse(docs[4])["records"][0]["record"], "settings");
    EXPECT_EQ(json::parse(docs[5])["result"]["message"], "Invalid command 'nosuchcommand'!");

    const RunResult none = krt_test::cliWithoutLibrary({"--json", "info", "-o", "pd"});
    check.add(none.out, "no library");
    const json missing = parseDocument(none.out, "no library");
    EXPECT_TRUE(missing["controller"].is_null());
    EXPECT_EQ(missing["result"]["kind"], "no_controller");
    EXPECT_EQ(missing["krt_cli"]["exit_status"], none.status);
}

// The -output file gets the document, with every line of the run.
TEST(JsonOutput, OutputFileGetsTheDocument)
{
    const SimMachine m("raid");
    EXPECT_EQ(m.cli({"event", "-c", "2", "-output", "out.json", "--json"}).out, "");
    const std::string written = krt_test::readFile(m.dir().file("out.json"));
    SchemaCheck check;
    check.add(written, "-output");
    const json events = parseDocument(written, "-output")["records"];
    EXPECT_EQ(events.size(), 3u);
    EXPECT_EQ(events.back(), json::parse(R"({"record": "summary", "total_events": 2})"));
}

// ---- The schema --------------------------------------------------------------

// The schema is no formality: it refuses a wrong type, an unknown kind, key
// or verdict, and a missing verdict, also deep in a listed record.
TEST(JsonSchema, RefusesWrongTypesUnknownKindsAndKeys)
{
    const json good = json::parse(SimMachine("raid").cli({"--json", "info", "-o", "hba"}).out);
    ASSERT_EQ(good["records"][0]["record"], "controller");
    const std::pair<const char *, const char *> broken[] = {
        {"/records/0/vid", "\"0x1e6b\""},
        {"/records/2", R"({"record": "mystery"})"},
        {"/records/0/colour", "\"blue\""},
        {"/result/kind", "\"fine\""},
        {"/records/0/pcie_links/0/link_width_code", "\"8\""},
    };
    std::string documents = good.dump() + "\n";
    for (const auto &[pointer, value] : broken) {
        json doc = good;
        doc[json::json_pointer(pointer)] = json::parse(value);
        documents += doc.dump() + "\n";
    }
    json noResult = good;
    noResult.erase("result");
    documents += noResult.dump() + "\n";

    krt_test::RunOptions options;
    options.input = documents;
    const RunResult run =
        krt_test::runProcess({KRT_TEST_PYTHON, KRT_SOURCE_DIR "/tests/json/validate.py", kSchemaPath}, options);
    EXPECT_EQ(run.status, 1) << run.err;
    std::vector<std::size_t> refused;
    for (const std::string &line : lines(run.out))
        refused.push_back(json::parse(line)["line"]);
    EXPECT_EQ(refused, (std::vector<std::size_t>{2, 3, 4, 5, 6, 7})) << run.out;
}

// docs/json.md has a table per record kind: the keys of the schema, and
// "optional" exactly on the keys that are not always there.
TEST(JsonSchema, TheDocumentationListsEveryKeyOfEveryKind)
{
    std::map<std::string, std::pair<std::set<std::string>, std::set<std::string>>> documented;
    std::istringstream doc(krt_test::readFile(KRT_SOURCE_DIR "/docs/json.md"));
    const auto between = [](const std::string &text) {
        const std::size_t first = text.find('`');
        return text.substr(first + 1, text.find('`', first + 1) - first - 1);
    };
    std::string kind;
    bool inKinds = false;
    for (std::string line; std::getline(doc, line);) {
        inKinds = inKinds || line == "## Record kinds";
        if (inKinds && line.rfind("### `", 0) == 0) {
            kind = between(line);
            documented[kind];
        } else if (inKinds && !kind.empty() && line.rfind("| `", 0) == 0) {
            const std::size_t third = line.find('|', line.find('|', 1) + 1);
            ASSERT_NE(third, std::string::npos) << line;
            documented[kind].first.insert(between(line));
            if (line.find("optional", third) == std::string::npos)
                documented[kind].second.insert(between(line));
        }
    }
    const auto kinds = schemaKinds();
    ASSERT_FALSE(kinds.empty());
    EXPECT_EQ(documented, kinds);
}

}  // namespace
