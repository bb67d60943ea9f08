// Start-up of the real binary on machines without any controller.
#include <gtest/gtest.h>

#include <string>

#include "machine.h"

namespace {

// Standard input for the run, closed after the text.
krt_test::RunOptions withInput(std::string text)
{
    krt_test::RunOptions options;
    options.input = std::move(text);
    options.timeoutSeconds = 20;
    return options;
}

const std::string kNone = "No NVMe Controller is found.\n";
const std::string kBanner = "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n";
const std::string kHelpDescription = "Description:Get brief help for all commands or detail help for one command.\n";

// A machine whose driver lists no adapter at all.
class StartupWithoutController : public testing::Test {
  protected:
    krt_test::RunResult run(const std::vector<std::string> &words, const krt_test::RunOptions &options = {})
    {
        return machine.cli(words, options);
    }
    krt_test::SimMachine machine{"empty"};
};

TEST(StartupWithoutLibrary, HelpStillRuns)
{
    const auto r = krt_test::cliWithoutLibrary({"help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find(kNone), std::string::npos);
    EXPECT_NE(r.out.find("COMMAND   BRIEF DESCRIPTION"), std::string::npos);
}

TEST_F(StartupWithoutController, ShellModeEndsAfterTheBanner)
{
    for (const auto &words :
         std::vector<std::vector<std::string>>{{}, {"0"}, {"2"}, {"--vid=0x1111"}, {"--vid=0x1111", "info"}}) {
        const auto r = run(words, withInput("help\n"));
        EXPECT_EQ(r.status, 0) << testing::PrintToString(words);
        EXPECT_EQ(r.out, kNone + kBanner) << testing::PrintToString(words);
    }
}

TEST_F(StartupWithoutController, OnlyExactHelpAndVersionRun)
{
    auto r = run({"help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kNone, 0), 0u);
    EXPECT_NE(r.out.find("COMMAND   BRIEF DESCRIPTION"), std::string::npos);

    r = run({"version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);

    for (const auto &words : std::vector<std::vector<std::string>>{
             {"Help"}, {"he"}, {"info"}, {"bogus"}, {"exit"}, {"0", "info"}, {"", "info"}, {"--vid=0x0", "help"}}) {
        r = run(words);
        EXPECT_EQ(r.status, 0) << testing::PrintToString(words);
        EXPECT_EQ(r.out, kNone) << testing::PrintToString(words);
    }
}

TEST_F(StartupWithoutController, ControllerNumberThatWrapsNegativeIsRefusedFirst)
{
    const auto r = run({"4294967295", "info"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Adapter ID -1 is not exist\n");
}

TEST_F(StartupWithoutController, OutputFileIsAppendedTo)
{
    krt_test::TempDir dir;
    const std::string file = dir.file("out.txt");
    krt_test::writeFile(file, "earlier\n");
    auto r = run({"help", "vd", "-OUTPUT", file});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    const std::string once = krt_test::readFile(file);
    EXPECT_EQ(once.rfind("earlier\n" + kNone + "Description:For VD create and delete\n", 0), 0u) << once;

    r = run({"version", "-output", file});
    EXPECT_EQ(r.out, "");
    const std::string twice = krt_test::readFile(file);
    EXPECT_EQ(twice.rfind(once, 0), 0u);
    EXPECT_NE(twice.find("CLI Version: 1.0.0.1041\n", once.size()), std::string::npos);
}

TEST_F(StartupWithoutController, UnopenableOutputFileKeepsStandardOutput)
{
    const auto r = run({"version", "-output", "/nonexistent-dir/out.txt"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("/nonexistent-dir/out.txt"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.rfind(kNone, 0), 0u);
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);
}

TEST_F(StartupWithoutController, OutputAsTheLastWordIsAnOrdinaryWord)
{
    // help sees an option it does not know and describes itself.
    const auto r = run({"help", "-output"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kNone + kHelpDescription, 0), 0u) << r.out;
    EXPECT_EQ(r.out.find("COMMAND   BRIEF DESCRIPTION"), std::string::npos);
}

TEST_F(StartupWithoutController, VendorIdWordStaysAmongTheWords)
{
    // No controller number and a zero vendor ID: the words run as they are,
    // and help takes the vendor-ID word for an option it does not know.
    auto r = run({"help", "--VID=0x0"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kNone + kHelpDescription, 0), 0u) << r.out;

    // An empty first word is controller number 0.
    r = run({"", "version"});
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);

    // With a controller number and a vendor ID the first remaining word is
    // skipped, wherever the vendor-ID word stood.
    r = run({"0", "help", "--vid=0x1234"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, kNone);
    r = run({"0", "--vid=0x1234", "help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("COMMAND   BRIEF DESCRIPTION"), std::string::npos);
}

}  // namespace
