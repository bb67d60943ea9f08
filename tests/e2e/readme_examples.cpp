// The README's examples, run as a new user would after `make`: its simulator
// block, its rehearsal of a change and its exit-status table.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "machine.h"
#include "text.h"

namespace {

using Words = std::vector<std::string>;

// The lines of the README's fenced block that holds `marker` (after it), or
// that follows the line `marker`.
Words block(const std::string &marker, bool inside)
{
    std::istringstream readme(krt_test::readFile(KRT_SOURCE_DIR "/README.md"));
    Words lines;
    bool found = false, collecting = inside;
    for (std::string line; std::getline(readme, line);) {
        if (!found) {
            found = line.rfind(marker, 0) == 0;
        } else if (line.rfind("```", 0) == 0) {
            if (collecting)
                break;
            collecting = true;
        } else if (collecting) {
            lines.push_back(line);
        }
    }
    return lines;
}

// Each line in bash, with krt_cli and krtsim as aliases of this build's; a
// quiet line says nothing on standard error.
void runLines(const Words &lines, const std::string &cli, const std::string &krtsim, krt_test::RunOptions options,
              bool quiet)
{
    const std::string aliases = "shopt -s expand_aliases\nalias krt_cli='" + cli + "' krtsim='" + krtsim + "'\n";
    for (const std::string &line : lines) {
        const auto r = krt_test::runProcess({"/bin/bash", "-c", aliases + line}, options);
        EXPECT_EQ(r.status, 0) << line << "\n" << r.out << r.err;
        EXPECT_FALSE(krt_test::has(r.out, "No NVMe Controller is found.")) << line;
        EXPECT_TRUE(r.err.empty() || !quiet) << line << "\n" << r.err;
    }
}

TEST(Readme, ExamplesRunAsWrittenAgainstTheSimulator)
{
    const Words lines = block("alias krt_cli=", true);
    ASSERT_GE(lines.size(), 5u) << "the README's simulator block was not found";
    krt_test::TempDir dir;
    krt_test::RunOptions options;
    options.env["KRTSIM_STATE"] = dir.file("sim.state");
    options.cwd = dir.path();
    runLines(lines, krt_test::krtsimPath() + " exec -- " + krt_test::cliPath(), krt_test::krtsimPath(), options, true);
}

// What `krtsim show` says of the arrays, settings and firmware: not the
// clock, the download pace or the SPI log, which a capture does not read.
std::string arrays(const krt_test::SimMachine &m)
{
    std::istringstream shown(m.krtsim({"show"}).out);
    std::string out;
    for (std::string line; std::getline(shown, line);)
        if (line.rfind("clock:", 0) != 0 && line.rfind("firmware download pace:", 0) != 0 &&
            line.rfind("  events:", 0) != 0)
            out += line + "\n";
    return out;
}

// The rehearsal as a user types it: the host is one simulated machine
// (krt_cli), the copy another (krtsim). Rehearsed and run for real, the
// change leaves both machines alike, and the copy's command log is what
// the host received.
TEST(Readme, RehearsalRunsAsWritten)
{
    const Words lines = block("### Rehearsing a change", false);
    ASSERT_GE(lines.size(), 4u) << "the README's rehearsal block was not found";
    krt_test::SimMachine host("raid"), copy("empty");
    krt_test::RunOptions options = host.env();
    const std::string cli = krt_test::cliPath();
    options.env["PATH"] = cli.substr(0, cli.rfind('/')) + ":/usr/bin:/bin";
    host.krtsim({"log", "clear"});
    runLines(lines, "env KRTSIM_STATE=" + host.statePath() + " " + cli,
             "env KRTSIM_STATE=" + copy.statePath() + " " + krt_test::krtsimPath(), options, false);
    EXPECT_EQ(arrays(copy), arrays(host));
    EXPECT_TRUE(krt_test::has(arrays(host), "VD 2 "));
    const std::string rehearsed = copy.krtsim({"log"}).out, real = host.krtsim({"log"}).out;
    ASSERT_FALSE(rehearsed.empty());
    ASSERT_GE(real.size(), rehearsed.size());
    EXPECT_EQ(real.substr(real.size() - rehearsed.size()), rehearsed);
}

// Each row of the exit-status table with an example, run on the machine it
// names, ends with the status it gives.
TEST(Readme, ExitStatusTableHolds)
{
    int rows = 0;
    for (const std::string &line : block("| Outcome | Machine | Example | Exit status |", true)) {
        if (line.rfind("|", 0) != 0)
            break;
        std::vector<std::string> cells;
        std::istringstream in(line);
        for (std::string cell; std::getline(in, cell, '|');)
            cells.push_back(cell.size() < 2 ? "" : cell.substr(1, cell.size() - 2));
        if (line.rfind("|---", 0) == 0 || cells.size() != 5 || cells[3].empty())
            continue;
        ASSERT_EQ(cells[3].rfind("`krt_cli ", 0), 0u) << line;
        std::istringstream words(cells[3].substr(9, cells[3].size() - 10));
        EXPECT_EQ(krt_test::SimMachine(cells[2]).cli({std::istream_iterator<std::string>(words), {}}).status,
                  std::stoi(cells[4]))
            << line;
        ++rows;
    }
    EXPECT_GE(rows, 15) << "the README's exit-status table was not found";
}

}  // namespace
