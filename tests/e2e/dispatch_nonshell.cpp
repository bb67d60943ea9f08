// Single commands run by the real binary against one simulated controller:
// which command the words pick, what is printed, and the exit status.
#include <gtest/gtest.h>

#include <string>

#include "machine.h"
#include "text.h"

namespace {

TEST(DispatchNonShell, WordsPickCommandsAndSetTheExitStatus)
{
    krt_test::SimMachine machine("raid");  // one controller, numbered from 0
    const std::string file = machine.dir().file("out.txt");
    krt_test::writeFile(file, "earlier\n");
    const std::string unavailable = "This command is not available in this build.\n";
    const std::string firmware = "Support Firmware Version: 1.0.x.1039 above\n";
    const struct {
        std::vector<std::string> words;
        int status;
        std::string out;
        bool exact;  // otherwise: printed somewhere in the output
    } cases[] = {
        {{"bogus"}, 1, "Invalid command 'bogus'!\n", true},
        {{"EX"}, 1, "Invalid command 'ex'!\n", true},
        {{"h"}, 1, "Ambiguous command 'h'!\n", true},
        {{"mi_passthru"}, 1, "Ambiguous command 'mi_passthru'!\n", true},
        {{"0", ""}, 1, "Ambiguous command ''!\n", true},
        {{"exit"}, 255, "", true},
        {{"QUIT"}, 255, "", true},
        {{"he"}, 0, "COMMAND   BRIEF DESCRIPTION", false},
        {{"HELP", "vd"}, 0, "Description:For VD create and delete\n", false},
        // A whole name wins over the longer names it begins.
        {{"get"}, 1, "Description:For getting configuration information of NVMe Controller.\n", false},
        {{"geto"}, 1, "Description:For read OEM data.\n", false},
        {{"vpd"}, 1, "Description:For switch VPD access target\n", false},
        {{"vpdr"}, 1, "Description:Read VPD via standard MI-Send and MI-Receive\n", false},
        {{"gen"}, 1, "Description:Using for generate PRP data", false},
        {{"dumphba"}, 1, "reserved for factory and field-service use", false},
        {{"vm_cmd"}, 1, unavailable, false},
        {{"--d"}, 0, "Set debug mode to enable", false},
        // The controller number: below the count, wrapping to 8 bits; an empty word is 0.
        {{"1", "version"}, 0, "Adapter ID 1 is not exist\n", true},
        {{"256", "version"}, 0, firmware, false},
        {{"", "version"}, 0, firmware, false},
        // The marked "-output" word reaches the dispatcher; the file gets everything.
        {{"7", "version", "-output", file}, 0, "", true},
        {{"info", "-o", "hba", "-Output", file}, 0, "", true},
        {{"-output", file}, 1, "", true},
        // Vendor-ID words: the dispatcher passes over any holding "--vid=0x".
        // With a controller number and the managed vendor only the vendor-ID
        // word runs; without a number a vendor ID starts the shell instead.
        {{"--vid=0x0"}, 0, "", true},
        {{"0", "x--vid=0x"}, 0, "", true},
        {{"0", "--vid=1111"}, 1, "Invalid command '--vid=1111'!\n", true},
        {{"0", "version", "--vid=0x1E6B"}, 0, "", true},
        {{"--vid=0x1E6B", "version"}, 0, "CLI Version: 1.0.0.1041\nWelcome to NVMe Command Line Interface.\n\n", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const auto r = machine.cli(c.words);
        EXPECT_EQ(r.status, c.status);
        EXPECT_TRUE(c.exact ? r.out == c.out : krt_test::has(r.out, c.out)) << r.out;
    }
    const std::string text = krt_test::readFile(file);
    EXPECT_EQ(text.rfind("earlier\nAdapter ID 7 is not exist\n", 0), 0u) << text;
    EXPECT_TRUE(krt_test::has(text, "Firmware Version:")) << text;
    EXPECT_TRUE(krt_test::has(text, "Invalid command '-\x01utput'!\n")) << text;
}

}  // namespace
