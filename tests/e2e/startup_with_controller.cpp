// Start-up and the piped shell of the real binary against a simulated controller.
#include <gtest/gtest.h>

#include <filesystem>
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

const std::string kBanner = "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n";

TEST(StartupWithController, ControllerNumberMustBeBelowTheCount)
{
    krt_test::SimMachine machine("raid");  // one controller, numbered from 0
    auto r = machine.cli({"1", "version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Adapter ID 1 is not exist\n");

    // The number wraps to 8 bits: 256 is controller 0.
    r = machine.cli({"256", "version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);

    // An empty first word is controller number 0.
    r = machine.cli({"", "version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("CLI Version: 1.0.0.1041\n"), std::string::npos);

    krt_test::TempDir dir;
    r = machine.cli({"7", "version", "-output", dir.file("out.txt")});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(krt_test::readFile(dir.file("out.txt")), "Adapter ID 7 is not exist\n");
}

TEST(StartupWithController, SecondControllerIsSelectedByNumber)
{
    krt_test::SimMachine machine("multi");
    const auto r = machine.cli({"1"}, withInput("adapter --list\nexit\n"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kBanner, 0), 0u) << r.out;
    EXPECT_NE(r.out.find("Current default NVMe Controller ID for CLI commands: 1\n"), std::string::npos) << r.out;
}

TEST(StartupWithController, MarkedOutputWordReachesTheDispatcher)
{
    krt_test::SimMachine machine("raid");
    const std::string file = machine.dir().file("out.txt");
    const auto r = machine.cli({"-output", file});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(krt_test::readFile(file), "Invalid command '-\x01utput'!\n");
}

TEST(StartupWithController, CommandOutputIsAppendedToTheOutputFile)
{
    krt_test::SimMachine machine("raid");
    const std::string file = machine.dir().file("report.txt");
    krt_test::writeFile(file, "header\n");
    const auto r = machine.cli({"info", "-o", "hba", "-Output", file});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "");
    const std::string report = krt_test::readFile(file);
    EXPECT_EQ(report.rfind("header\n", 0), 0u);
    EXPECT_NE(report.find("Firmware Version:"), std::string::npos) << report;
}

TEST(StartupWithController, VendorIdWords)
{
    krt_test::SimMachine machine("raid");
    // A lone zero vendor ID reaches the dispatcher, which accepts it silently.
    auto r = machine.cli({"--vid=0x0"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    // With a controller number and the managed vendor, only the vendor-ID
    // word is run: "version" is skipped.
    r = machine.cli({"0", "version", "--vid=0x1E6B"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    // Without a controller number a vendor ID starts the shell instead.
    r = machine.cli({"--vid=0x1E6B", "version"}, withInput("exit\n"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kBanner, 0), 0u) << r.out;
    EXPECT_EQ(r.out.find("Support Firmware Version"), std::string::npos);
}

TEST(StartupWithController, PipedShellRunsLinesAndEndsWithItsInput)
{
    krt_test::SimMachine machine("raid");
    const auto r = machine.cli({}, withInput("\nversion\n\"open\nbogus arg\nh\n"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(kBanner, 0), 0u) << r.out;
    const std::string expected[] = {"Type 'exit' to exit CLI.\n", "Support Firmware Version: 1.0.x.1039 above\n",
                                    "Invalid quoted string.\n", "Invalid command 'bogus'!\n",
                                    "Ambiguous command 'h'!\n"};
    std::size_t at = 0;
    for (const std::string &text : expected) {
        const std::size_t found = r.out.find(text, at);
        ASSERT_NE(found, std::string::npos) << text << "\n--- in ---\n" << r.out;
        at = found + text.size();
    }
}

TEST(StartupWithController, TypedOutputWordIsNotSpecial)
{
    krt_test::SimMachine machine("raid");
    const std::string file = machine.dir().file("typed.txt");
    const auto r = machine.cli({}, withInput("help vd -output " + file + "\n"));
    EXPECT_EQ(r.status, 0);
    // help reads the word as an option it does not know and describes itself.
    EXPECT_NE(r.out.find("Description:Get brief help for all commands or detail help for one command.\n"),
              std::string::npos)
        << r.out;
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(StartupWithController, ShellEndsOnExitWordsInAnyCase)
{
    krt_test::SimMachine machine("raid");
    for (const char *word : {"exit", "EXIT", "Quit"}) {
        const auto r = machine.cli({}, withInput(std::string(word) + "\nversion\n"));
        EXPECT_EQ(r.status, 0) << word;
        EXPECT_EQ(r.out.find("Support Firmware Version"), std::string::npos) << word;
    }
}

TEST(StartupWithController, OverlongLineEndsTheShellWithAMessage)
{
    krt_test::SimMachine machine("raid");
    const std::string fits(2047, 'a');
    auto r = machine.cli({}, withInput(fits + "\nexit\n"));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Invalid command '" + fits + "'!\n"), std::string::npos);

    r = machine.cli({}, withInput(std::string(2048, 'a') + "\nversion\n"));
    EXPECT_NE(r.status, 0);
    EXPECT_LT(r.status, 128);  // an orderly end, not a signal
    EXPECT_NE(r.err.find("too long"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("Support Firmware Version"), std::string::npos);
}

}  // namespace
