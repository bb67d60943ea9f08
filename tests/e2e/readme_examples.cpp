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

}  // namespace
