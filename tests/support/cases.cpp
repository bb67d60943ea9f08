#include "cases.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "text.h"

namespace krt_test {

namespace {

using nlohmann::json;

struct Case {
    Words words;
    int status = 0;
    // How the output is checked: '=' whole, '^' its beginning, '~' a part of it.
    char printed = '=';
    std::string out;
    std::string kind = "ok";  // the verdict of the --json document
    // Fragments of the command-log lines of the requests sent; not checked when absent.
    std::optional<Words> sent;
    std::string machine;
    std::vector<Words> setup;  // {"krtsim"|"cli", words...} or {"file", name, size}
    std::string source;        // file:line, for the failure reports
};

std::string fixture(const std::string &machine)
{
    const std::string file = KRT_SOURCE_DIR "/tests/json/fixtures/" + machine + ".json";
    return std::ifstream(file).good() ? file : machine;
}

// A fresh machine with the case's steps done. Each fixture is built once;
// later machines start from a copy of its state.
std::unique_ptr<SimMachine> prepared(const Case &c)
{
    static std::map<std::string, std::unique_ptr<SimMachine>> built;
    auto &original = built[c.machine];
    if (!original)
        original = std::make_unique<SimMachine>(fixture(c.machine));
    auto m = std::make_unique<SimMachine>(*original);
    for (const Words &step : c.setup) {
        const Words rest(step.begin() + 1, step.end());
        if (step[0] == "krtsim") {
            EXPECT_EQ(m->krtsim(rest).status, 0) << testing::PrintToString(step);
        } else if (step[0] == "cli") {
            m->cli(rest);
        } else {
            EXPECT_EQ(step[0], "file");
            writeFile(m->dir().file(rest.at(0)), pattern(std::stoul(rest.at(1))));
        }
    }
    if (!c.setup.empty())
        m->krtsim({"log", "clear"});
    return m;
}

// How many command-log lines start-up writes on each machine: the command's
// own requests follow them.
std::size_t startupRequests(const std::string &machine)
{
    static std::map<std::string, std::size_t> counts;
    if (counts.count(machine) == 0) {
        const SimMachine m(fixture(machine));
        m.krtsim({"log", "clear"});
        m.cli({"version"});
        counts[machine] = lines(m.krtsim({"log"}).out).size();
    }
    return counts[machine];
}

}  // namespace

SchemaCheck::~SchemaCheck()
{
    if (documents_.empty())
        return;
    RunOptions options;
    options.input = documents_;
    const RunResult run = runProcess(
        {KRT_TEST_PYTHON, KRT_SOURCE_DIR "/tests/json/validate.py", KRT_SOURCE_DIR "/docs/krt_cli.schema.json"},
        options);
    EXPECT_TRUE(run.status == 0 || run.status == 1) << "the validator could not run: " << run.err;
    for (const std::string &line : lines(run.out)) {
        const json report = json::parse(line);
        std::string all;
        for (const json &error : report["errors"])
            all += "\n  " + error.get<std::string>();
        ADD_FAILURE() << where_.at(report["line"].get<std::size_t>() - 1)
                      << ": the schema refuses the document:" << all;
    }
}

void SchemaCheck::add(const std::string &documents, const std::string &where)
{
    for (const std::string &line : lines(documents)) {
        documents_ += line + "\n";
        where_.push_back(where);
    }
}

namespace {

// Blank-separated words; "" is an empty word.
Words splitWords(const std::string &text)
{
    Words result;
    std::istringstream in(text);
    for (std::string word; in >> word;)
        result.push_back(word == "\"\"" ? std::string() : word);
    return result;
}

// The columns of a table line, split at " | " ("\|" is a pipe inside one).
std::vector<std::string> columns(const std::string &line)
{
    std::vector<std::string> out(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line.compare(i, 3, " | ") == 0) {
            out.emplace_back();
            i += 2;
        } else if (line.compare(i, 2, "\\|") == 0) {
            out.back() += "\\|";
            ++i;
        } else {
            out.back() += line[i];
        }
    }
    return out;
}

std::string trimmed(const std::string &text)
{
    const std::size_t start = text.find_first_not_of(' ');
    return start == std::string::npos ? std::string() : text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

// \n, \t, \\ and \| as the characters they stand for.
std::string unescaped(const std::string &text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        out += next == 'n' ? '\n' : next == 't' ? '\t' : next;
    }
    return out;
}

std::vector<Case> readCases(const std::string &name)
{
    const std::string path = KRT_SOURCE_DIR "/tests/cases/" + name;
    std::istringstream file(readFile(path));
    std::vector<Case> cases;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line[0] == '#')
            continue;
        const std::vector<std::string> cells = columns(line);
        Case c;
        c.source = "tests/cases/" + name + ":" + std::to_string(number);
        if (cells.size() != 5) {
            ADD_FAILURE() << c.source << ": " << cells.size() << " columns, not 5";
            continue;
        }
        std::string machine = cells[0];
        for (std::size_t plus; (plus = machine.rfind(" + ")) != std::string::npos; machine.erase(plus))
            c.setup.insert(c.setup.begin(), splitWords(machine.substr(plus + 3)));
        c.machine = trimmed(machine);
        c.words = splitWords(cells[1]);
        std::istringstream verdict(cells[2]);
        verdict >> c.status;
        if (!(verdict >> c.kind))
            c.kind = "ok";
        const std::string out = trimmed(cells[3]);
        if (out == "*") {
            c.printed = '~';
        } else if (out != "\"\"") {
            const bool marked = out[0] == '^' || out[0] == '~';
            c.printed = marked ? out[0] : '=';
            c.out = unescaped(out.substr(marked ? 1 : 0));
        }
        const std::string sent = trimmed(cells[4]);
        if (sent != "*") {
            c.sent = Words{};
            for (std::size_t at = 0; sent != "none" && at < sent.size();) {
                const std::size_t end = std::min(sent.find(" ; ", at), sent.size());
                c.sent->push_back(sent.substr(at, end - at));
                at = end + 3;
            }
        }
        cases.push_back(c);
    }
    return cases;
}

}  // namespace

void runCaseFile(const std::string &name)
{
    const std::vector<Case> cases = readCases(name);
    EXPECT_FALSE(cases.empty()) << name;
    SchemaCheck schema;
    for (const Case &c : cases) {
        const std::string where = c.source + " " + c.machine + ": " + testing::PrintToString(c.words);
        SCOPED_TRACE(where);
        {
            const auto m = prepared(c);
            const RunResult r = m->cli(c.words);
            EXPECT_EQ(r.status, c.status);
            const std::size_t at = r.out.find(c.out);
            EXPECT_TRUE(c.printed == '='   ? r.out == c.out
                        : c.printed == '^' ? at == 0
                                           : at != std::string::npos)
                << "printed " << c.printed << "\n"
                << c.out << "\n--- not so in ---\n"
                << r.out;
            if (c.sent) {
                std::vector<std::string> own = lines(m->krtsim({"log"}).out);
                own.erase(own.begin(),
                          own.begin() + static_cast<long>(std::min(own.size(), startupRequests(c.machine))));
                ASSERT_EQ(own.size(), c.sent->size()) << testing::PrintToString(own);
                for (std::size_t i = 0; i < own.size(); ++i)
                    EXPECT_NE(own[i].find((*c.sent)[i]), std::string::npos) << own[i];
            }
        }
        // The same run with --json, on a machine in the same state.
        const auto m = prepared(c);
        Words words = c.words;
        words.insert(words.begin(), "--json");
        const RunResult r = m->cli(words);
        schema.add(r.out, where);
        json doc;
        try {
            doc = json::parse(r.out);
        } catch (const json::exception &e) {
            ADD_FAILURE() << "not one JSON document: " << e.what() << "\n" << r.out;
            continue;
        }
        EXPECT_EQ(doc["result"]["kind"], c.kind) << doc["result"] << "\n" << doc["messages"];
        EXPECT_EQ(doc["krt_cli"]["exit_status"], c.status);
        // The verdict's message is one the run said, or none.
        const json &message = doc["result"]["message"];
        if (message.is_string()) {
            const json &said = doc["messages"];
            EXPECT_NE(std::find(said.begin(), said.end(), message), said.end()) << message;
        }
    }
}

}  // namespace krt_test
