// The README's examples, run as a new user would after `make`: every line of
// its simulator block, with the aliases it defines pointing at this build.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

// The lines after the alias line, up to the end of that code block.
std::vector<std::string> exampleLines()
{
    std::istringstream readme(krt_test::readFile(KRT_SOURCE_DIR "/README.md"));
    std::vector<std::string> lines;
    bool inBlock = false;
    for (std::string line; std::getline(readme, line);) {
        if (line.rfind("alias krt_cli=", 0) == 0)
            inBlock = true;
        else if (inBlock && line.rfind("```", 0) == 0)
            break;
        else if (inBlock)
            lines.push_back(line);
    }
    return lines;
}

TEST(Readme, ExamplesRunAsWrittenAgainstTheSimulator)
{
    const auto lines = exampleLines();
    ASSERT_GE(lines.size(), 5u) << "the README's simulator block was not found";
    krt_test::TempDir dir;
    krt_test::RunOptions options;
    options.env["KRTSIM_STATE"] = dir.file("sim.state");
    options.cwd = dir.path();
    const std::string aliases = "shopt -s expand_aliases\nalias krt_cli='" + krt_test::krtsimPath() + " exec -- " +
                                krt_test::cliPath() + "' krtsim='" + krt_test::krtsimPath() + "'\n";
    for (const std::string &line : lines) {
        const auto r = krt_test::runProcess({"/bin/bash", "-c", aliases + line}, options);
        EXPECT_EQ(r.status, 0) << line << "\n" << r.out << r.err;
        EXPECT_EQ(r.err, "") << line;
        EXPECT_FALSE(krt_test::has(r.out, "No NVMe Controller is found.")) << line;
    }
}

// The lines of the fenced block under a heading of the README.
std::vector<std::string> blockAfter(const std::string &heading)
{
    std::istringstream readme(krt_test::readFile(KRT_SOURCE_DIR "/README.md"));
    std::vector<std::string> lines;
    int fences = -1;
    for (std::string line; std::getline(readme, line) && fences < 2;) {
        if (line == heading)
            fences = 0;
        else if (fences >= 0 && line.rfind("```", 0) == 0)
            ++fences;
        else if (fences == 1)
            lines.push_back(line);
    }
    return lines;
}

// What `krtsim show` says of the arrays, settings and firmware: not the
// clock or the download pace, which belong to the simulator, nor the SPI
// log, whose text a capture does not read.
std::string arrays(const krt_test::SimMachine &m)
{
    std::istringstream shown(m.krtsim({"show"}).out);
    std::string out;
    for (std::string line; std::getline(shown, line);) {
        if (line.rfind("clock:", 0) != 0 && line.rfind("firmware download pace:", 0) != 0 &&
            line.rfind("  events:", 0) != 0)
            out += line + "\n";
    }
    return out;
}

// The rehearsal as a user types it: the host is one simulated machine
// (krt_cli), the copy another (krtsim). Rehearsed and run for real, the
// change leaves both machines alike, and the copy's command log is what
// the host received.
TEST(Readme, RehearsalRunsAsWritten)
{
    const auto lines = blockAfter("### Rehearsing a change");
    ASSERT_GE(lines.size(), 4u) << "the README's rehearsal block was not found";
    krt_test::SimMachine host("raid"), copy("empty");
    krt_test::RunOptions options = host.env();
    const std::string cli = krt_test::cliPath();
    options.env["PATH"] = cli.substr(0, cli.rfind('/')) + ":/usr/bin:/bin";
    const std::string aliases = "shopt -s expand_aliases\nalias krt_cli='env KRTSIM_STATE=" + host.statePath() + " " +
                                cli + "' krtsim='env KRTSIM_STATE=" + copy.statePath() + " " + krt_test::krtsimPath() +
                                "'\n";
    host.krtsim({"log", "clear"});
    for (const std::string &line : lines) {
        const auto r = krt_test::runProcess({"/bin/bash", "-c", aliases + line}, options);
        EXPECT_EQ(r.status, 0) << line << "\n" << r.out << r.err;
    }
    EXPECT_EQ(arrays(copy), arrays(host));
    EXPECT_TRUE(krt_test::has(arrays(host), "VD 2 "));
    const std::string rehearsed = copy.krtsim({"log"}).out, real = host.krtsim({"log"}).out;
    ASSERT_FALSE(rehearsed.empty());
    ASSERT_GE(real.size(), rehearsed.size());
    EXPECT_EQ(real.substr(real.size() - rehearsed.size()), rehearsed);
}

// The README's exit-status table: each row with an example is run on the
// machine it names and must end with the status it gives.
TEST(Readme, ExitStatusTableHolds)
{
    std::istringstream readme(krt_test::readFile(KRT_SOURCE_DIR "/README.md"));
    int rows = 0;
    bool inTable = false;
    for (std::string line; std::getline(readme, line);) {
        if (line.rfind("| Outcome | Machine | Example | Exit status |", 0) == 0) {
            inTable = true;
            continue;
        }
        if (!inTable || line.rfind("|---", 0) == 0)
            continue;
        if (line.rfind("|", 0) != 0)
            break;
        std::vector<std::string> cells;
        std::istringstream in(line.substr(1));
        for (std::string cell; std::getline(in, cell, '|');)
            cells.push_back(cell.substr(1, cell.size() - 2));
        ASSERT_EQ(cells.size(), 4u) << line;
        if (cells[2].empty())
            continue;
        ASSERT_EQ(cells[2].rfind("`krt_cli ", 0), 0u) << line;
        std::istringstream words(cells[2].substr(9, cells[2].size() - 10));
        std::vector<std::string> argv;
        for (std::string w; words >> w;)
            argv.push_back(w);
        krt_test::SimMachine machine(cells[1]);
        EXPECT_EQ(machine.cli(argv).status, std::stoi(cells[3])) << line;
        ++rows;
    }
    EXPECT_GE(rows, 15) << "the README's exit-status table was not found";
}

}  // namespace
