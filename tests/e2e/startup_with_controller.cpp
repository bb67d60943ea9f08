// Start-up and the piped shell of the real binary against a simulated controller.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "machine.h"
#include "text.h"

namespace {

const char *const kBanner = "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n";
const char *const kFirmware = "Support Firmware Version: 1.0.x.1039 above\n";

TEST(StartupWithController, OtherControllerAndUnopenableOutputFile)
{
    krt_test::SimMachine machine("multi");
    auto r = machine.cli({"1", "adapter", "--list"});
    EXPECT_TRUE(krt_test::has(r.out, "Current default NVMe Controller ID for CLI commands: 1\n")) << r.out;

    // A file that cannot be opened is named on standard error; the output stays.
    r = machine.cli({"version", "-OUTPUT", "/nonexistent-dir/out.txt"});
    EXPECT_TRUE(krt_test::has(r.err, "/nonexistent-dir/out.txt")) << r.err;
    EXPECT_TRUE(krt_test::has(r.out, kFirmware)) << r.out;
}

TEST(StartupWithController, PipedShellRunsLinesAndEndsWithItsInput)
{
    krt_test::SimMachine machine("raid");
    const std::string file = machine.dir().file("typed.txt");
    krt_test::RunOptions piped;
    // A typed "-output" is an ordinary word: help describes itself.
    piped.input = "\nversion\n\"open\nbogus arg\nh\nhelp vd -output " + file + "\n";
    auto r = machine.cli({}, piped);
    EXPECT_EQ(r.status, 0);
    std::size_t at = 0;
    for (const std::string text : {kBanner, "Type 'exit' to exit CLI.\n", kFirmware, "Invalid quoted string.\n",
                                   "Invalid command 'bogus'!\n", "Ambiguous command 'h'!\n",
                                   "Description:Get brief help for all commands or detail help for one command.\n"}) {
        at = r.out.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\n--- in ---\n" << r.out;
        at += text.size();
    }
    EXPECT_FALSE(std::filesystem::exists(file));

    // A line of 2048 characters or more ends the shell with a message.
    const std::string fits(2047, 'a');
    EXPECT_TRUE(krt_test::has(machine.shell(fits + "\n"), "Invalid command '" + fits + "'!\n"));
    piped.input = fits + "a\nversion\n";
    r = machine.cli({}, piped);
    EXPECT_NE(r.status, 0);
    EXPECT_LT(r.status, 128);  // an orderly end, not a signal
    EXPECT_TRUE(krt_test::has(r.err, "too long")) << r.err;
    EXPECT_FALSE(krt_test::has(r.out, kFirmware));
}

}  // namespace
