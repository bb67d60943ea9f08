// Exit statuses of single commands run by the real binary.
#include <gtest/gtest.h>

#include <string>

#include "machine.h"

namespace {

TEST(DispatchNonShell, ExitStatusIsTheDispatchResult)
{
    krt_test::SimMachine machine("raid");
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;  // expected at the start of standard output
    };
    const Case cases[] = {
        {{"bogus"}, 1, "Invalid command 'bogus'!\n"},
        {{"EX"}, 1, "Invalid command 'ex'!\n"},
        {{"h"}, 1, "Ambiguous command 'h'!\n"},
        {{"mi_passthru"}, 1, "Ambiguous command 'mi_passthru'!\n"},
        {{"0", ""}, 1, "Ambiguous command ''!\n"},
        {{"exit"}, 255, ""},
        {{"QUIT"}, 255, ""},
        {{"he"}, 0, "\n"},
        {{"HELP", "vd"}, 0, "Description:For VD create and delete\n"},
        {{"vpdr"}, 1, "Description:Read VPD via standard MI-Send and MI-Receive\n"},
        {{"gen"}, 1, "Description:Using for generate PRP data"},
    };
    for (const Case &c : cases) {
        const auto r = machine.cli(c.words);
        EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.words);
        EXPECT_EQ(r.out.substr(0, c.out.size()), c.out) << testing::PrintToString(c.words);
    }
}

TEST(DispatchNonShell, FactoryCommandsAreNotAvailable)
{
    krt_test::SimMachine machine("raid");
    for (const char *word : {"vpd", "dumphba", "gpio", "vpdread", "reg", "vm_cmd"}) {
        const auto r = machine.cli({word});
        EXPECT_EQ(r.status, 1) << word;
        EXPECT_NE(r.out.find("reserved for factory and field-service use"), std::string::npos) << word;
        EXPECT_NE(r.out.find("This command is not available in this build.\n"), std::string::npos) << word;
    }
}

}  // namespace
