// Start-up and the piped shell of the real binary against a simulated controller.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "machine.h"
#include "text.h"

namespace {

const std::string kBanner = "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n";
const std::string kFirmware = "Support Firmware Version: 1.0.x.1039 above\n";

TEST(StartupWithController, ControllerNumberOutputFileAndVendorIdWords)
{
    krt_test::SimMachine machine("raid");  // one controller, numbered from 0
    const std::string file = machine.dir().file("out.txt");
    krt_test::writeFile(file, "earlier\n");
    const struct {
        std::vector<std::string> words;
        int status;
        std::string out;
        bool exact;  // otherwise: printed somewhere in the output
    } cases[] = {
        {{"1", "version"}, 0, "Adapter ID 1 is not exist\n", true},
        {{"256", "version"}, 0, kFirmware, false},  // the number wraps to 8 bits
        {{"", "version"}, 0, kFirmware, false},     // an empty first word is controller 0
        // The marked "-output" word reaches the dispatcher; the file gets everything.
        {{"7", "version", "-output", file}, 0, "", true},
        {{"info", "-o", "hba", "-Output", file}, 0, "", true},
        {{"-output", file}, 1, "", true},
        // A lone zero vendor ID reaches the dispatcher, which accepts it silently.
        {{"--vid=0x0"}, 0, "", true},
        // With a controller number and the managed vendor only the vendor-ID
        // word runs; without a number a vendor ID starts the shell instead.
        {{"0", "version", "--vid=0x1E6B"}, 0, "", true},
        {{"--vid=0x1E6B", "version"}, 0, kBanner, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const auto r = machine.cli(c.words);
        EXPECT_EQ(r.status, c.status);
        EXPECT_TRUE(c.exact ? r.out == c.out : krt_test::has(r.out, c.out)) << r.out;
    }
    // A file that cannot be opened is named on standard error; the output stays.
    const auto unopenable = machine.cli({"version", "-OUTPUT", "/nonexistent-dir/out.txt"});
    EXPECT_TRUE(krt_test::has(unopenable.err, "/nonexistent-dir/out.txt")) << unopenable.err;
    EXPECT_TRUE(krt_test::has(unopenable.out, kFirmware)) << unopenable.out;
    const std::string text = krt_test::readFile(file);
    EXPECT_EQ(text.rfind("earlier\nAdapter ID 7 is not exist\n", 0), 0u) << text;
    EXPECT_TRUE(krt_test::has(text, "Firmware Version:")) << text;
    EXPECT_TRUE(krt_test::has(text, "Invalid command '-\x01utput'!\n")) << text;

    const auto multi = krt_test::SimMachine("multi").cli({"1", "adapter", "--list"});
    EXPECT_TRUE(krt_test::has(multi.out, "Current default NVMe Controller ID for CLI commands: 1\n")) << multi.out;
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
    for (const std::string &text :
         {kBanner, std::string("Type 'exit' to exit CLI.\n"), kFirmware, std::string("Invalid quoted string.\n"),
          std::string("Invalid command 'bogus'!\n"), std::string("Ambiguous command 'h'!\n"),
          std::string("Description:Get brief help for all commands or detail help for one command.\n")}) {
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
