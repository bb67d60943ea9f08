// ns against simulated machines: the table tests/cases/ns.cases, and a host
// list that claims more namespaces than the controller has slots.
#include <gtest/gtest.h>

#include "cases.h"
#include "text.h"

TEST(Ns, Cases)
{
    krt_test::runCaseFile("ns.cases");
}

TEST(Ns, OverfullHostListIsReadUpToMaxNs)
{
    // Every slot of the reply claimed: of the MaxNS (32) slots read, the 28
    // without a namespace have no Identify data, and each says so.
    const krt_test::SimMachine m("jbof");
    m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000000e5", "--overlong"});
    const krt_test::RunResult r = m.cli({"ns", "-p", "ctrl"});
    EXPECT_EQ(krt_test::occurrences(
                  r.out, "Invalid Namespace or Format (Status Code: 0xb)\n\nFailed to get primary controller.\n"),
              28);
    EXPECT_TRUE(krt_test::has(r.out, "controller.\nPrimary Controller Id is 1\n"));
}
