// Start-up of the real binary on machines without any controller.
#include <gtest/gtest.h>

#include <string>

#include "machine.h"
#include "text.h"

namespace {

const std::string kNone = "No NVMe Controller is found.\n";
const std::string kVersion = "CLI Version: 1.0.0.1041\n";
const std::string kListing = "COMMAND   BRIEF DESCRIPTION";
const std::string kHelpDescription = "Description:Get brief help for all commands or detail help for one command.\n";

TEST(StartupWithoutController, WhatRunsAndWhatIsPrinted)
{
    const struct {
        std::vector<std::string> words;
        std::string out;
        bool exact;  // otherwise: printed somewhere in the output
    } cases[] = {
        // Shell mode ends right after the banner, reading nothing.
        {{}, kNone + kVersion + "Welcome to NVMe Command Line Interface.\n\n", true},
        {{"2"}, kNone + kVersion + "Welcome to NVMe Command Line Interface.\n\n", true},
        {{"--vid=0x1111", "info"}, kNone + kVersion + "Welcome to NVMe Command Line Interface.\n\n", true},
        // Only exactly "help" and "version" run.
        {{"help"}, kListing, false},
        {{"version"}, kVersion, false},
        {{"Help"}, kNone, true},
        {{"he"}, kNone, true},
        {{"exit"}, kNone, true},
        {{"0", "info"}, kNone, true},
        {{"--vid=0x0", "help"}, kNone, true},
        // The number is range-checked as a signed 32-bit value before any scan.
        {{"4294967295", "info"}, "Adapter ID -1 is not exist\n", true},
        // "-output" as the last word, and a zero vendor-ID word without a
        // controller number, are words help takes for options it does not know.
        {{"help", "-output"}, kNone + kHelpDescription, false},
        {{"help", "--VID=0x0"}, kNone + kHelpDescription, false},
        // With a controller number and a vendor ID the first remaining word
        // is skipped, wherever the vendor-ID word stood.
        {{"0", "help", "--vid=0x1234"}, kNone, true},
        {{"0", "--vid=0x1234", "help"}, kListing, false},
    };
    krt_test::SimMachine machine("empty");
    krt_test::RunOptions typed;
    typed.input = "help\n";
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const auto r = machine.cli(c.words, typed);
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(c.exact ? r.out == c.out : krt_test::has(r.out, c.out)) << r.out;
    }
}

}  // namespace
