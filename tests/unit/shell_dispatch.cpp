#include <gtest/gtest.h>

#include "shell/shell.h"
#include "util/state.h"

namespace {

// A whole hidden name after an abbreviation of a public one runs the public
// entry at the hidden entry's position. No pair of shipped names reaches
// this, so a made-up public table stands in.
TEST(ShellDispatch, WholeHiddenNameAfterPublicAbbreviationUsesThePublicPosition)
{
    const Command_Info table[] = {
        {"genuine", 8, nullptr, "", ":first"},
        {"other", 6, nullptr, "", ":second"},
    };
    pCmdTable = table;
    cmdTableSize = 2;
    int matches = 0;
    EXPECT_EQ(lookupCommand("gen", &matches), &table[1]);  // "gen" is hidden entry 1
    EXPECT_EQ(lookupCommand("ge", &matches), nullptr);     // genuine, gen, getoemdata
    EXPECT_EQ(matches, 3);
    EXPECT_EQ(lookupCommand("genu", &matches), &table[0]);
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
}

}  // namespace
