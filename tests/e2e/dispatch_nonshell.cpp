// Single commands run by the real binary: which command a word picks, what
// is printed, and the exit status.
#include <gtest/gtest.h>

#include <string>

#include "machine.h"
#include "text.h"

namespace {

TEST(DispatchNonShell, WordsPickCommandsAndSetTheExitStatus)
{
    const std::string unavailable = "This command is not available in this build.\n";
    const std::string factory = "reserved for factory and field-service use";
    const struct {
        std::vector<std::string> words;
        int status;
        std::vector<std::string> parts;  // none: nothing printed
    } cases[] = {
        {{"bogus"}, 1, {"Invalid command 'bogus'!\n"}},
        {{"EX"}, 1, {"Invalid command 'ex'!\n"}},
        {{"h"}, 1, {"Ambiguous command 'h'!\n"}},
        {{"mi_passthru"}, 1, {"Ambiguous command 'mi_passthru'!\n"}},
        {{"0", ""}, 1, {"Ambiguous command ''!\n"}},
        {{"exit"}, 255, {}},
        {{"QUIT"}, 255, {}},
        {{"he"}, 0, {"COMMAND   BRIEF DESCRIPTION"}},
        {{"HELP", "vd"}, 0, {"Description:For VD create and delete\n"}},
        // A whole name wins over the longer names it begins.
        {{"get"}, 1, {"Description:For getting configuration information of NVMe Controller.\n"}},
        {{"geto"}, 1, {"Description:For read OEM data.\n", factory, unavailable}},
        {{"vpd"}, 1, {"Description:For switch VPD access target\n", factory, unavailable}},
        {{"vpdr"}, 1, {"Description:Read VPD via standard MI-Send and MI-Receive\n", unavailable}},
        {{"gen"}, 1, {"Description:Using for generate PRP data", factory, unavailable}},
        {{"dumphba"}, 1, {factory, unavailable}},
        {{"vm_cmd"}, 1, {factory, unavailable}},
        // Vendor-ID words the dispatcher passes over in silence, and one it does not.
        {{"0", "x--vid=0x"}, 0, {}},
        {{"0", "--vid=1111"}, 1, {"Invalid command '--vid=1111'!\n"}},
        {{"--d"}, 0, {"Set debug mode to enable"}},
    };
    krt_test::SimMachine machine("raid");
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const auto r = machine.cli(c.words);
        EXPECT_EQ(r.status, c.status);
        if (c.parts.empty()) {
            EXPECT_EQ(r.out, "");
        }
        for (const std::string &part : c.parts)
            EXPECT_TRUE(krt_test::has(r.out, part)) << r.out;
    }
}

}  // namespace
