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
