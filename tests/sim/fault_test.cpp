// krtsim: which requests a fault rule takes, and the tool's own words and
// fixtures. What each effect does to the tool's commands, and the command
// log they send, are seen by the end-to-end tests.
#include <gtest/gtest.h>

#include "sim_client.h"
#include "text.h"

using namespace krt_sim_test;

TEST(SimFault, RulesMatchOnOpcodeCdw12AdapterAndCount)
{
    LibMachine m("multi");
    const auto status = [&](const char *sig) {
        AdminResult r;
        m.query(krt_cdw12(0xE0, 0, 0), 0, &r, sig);
        return r.rc != 0 ? -1 : static_cast<int>(r.compStatus);
    };
    ASSERT_EQ(m.run("fault add --adapter 1 --count 2 --status 0x6").status, 0);
    ASSERT_EQ(m.run("fault add --opcode 0xe2 --cdw12 0x000000e1 --bad-sign").status, 0);
    EXPECT_EQ(status("nvmeMgmt-vmhba1"), 0);
    EXPECT_EQ(status("nvmeMgmt-vmhba2"), 6);
    EXPECT_EQ(status("nvmeMgmt-vmhba2"), 6);
    EXPECT_EQ(status("nvmeMgmt-vmhba2"), 0) << "the counted rule is spent";
    EXPECT_EQ(m.query(krt_cdw12(0xE1, 0, 0))[0], 'B');
    EXPECT_EQ(m.query(krt_cdw12(0xE1, 0, 1))[0], 'K') << "CDW12 must match exactly";

    // A paired reply takes the effect of the rule its send matched.
    ASSERT_EQ(m.run("fault clear").status, 0);
    ASSERT_EQ(m.run("fault add --opcode 0xcb --cdw12 0xe0 --count 1 --bad-sign").status, 0);
    Reply reply{};
    EXPECT_EQ(m.paired({KRT_CLASS_ADAPTER, 0}, {}, reply).status, 0u);
    EXPECT_EQ(reply[0], 'B');
    m.paired({KRT_CLASS_ADAPTER, 0}, {}, reply);
    EXPECT_EQ(reply[0], 'K');

    ASSERT_EQ(m.run("fault vanish 1").status, 0);
    EXPECT_EQ(status("nvmeMgmt-vmhba2"), -1);
    EXPECT_EQ(status("nvmeMgmt-vmhba3"), 0);
    EXPECT_EQ(m.run("fault vanish 3").status, 1) << "no such adapter";
    ASSERT_EQ(m.run("fault list-fail").status, 0);
    nvme_adapter_list list;
    EXPECT_NE(m.list(list), 0);
    ASSERT_EQ(m.run("fault clear").status, 0);
    ASSERT_EQ(m.list(list), 0);
    EXPECT_EQ(list.count, 3u);
    EXPECT_EQ(status("nvmeMgmt-vmhba2"), 0);
}

TEST(SimTool, ExecRunsAgainstThisMachineAndBadWordsAreUsageErrors)
{
    LibMachine m("raid");
    krt_test::RunOptions o;
    o.cwd = "/";
    o.env["KRTSIM_STATE"] = m.machine().statePath();
    auto r = krt_test::runProcess(
        {krt_test::krtsimPath(), "exec", "--", "sh", "-c", "echo $KRTSIM_STATE; echo $LD_LIBRARY_PATH"}, o);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, m.machine().statePath() + "\n" + krt_test::simLibDir() + "\n");
    EXPECT_EQ(krt_test::runProcess({krt_test::krtsimPath(), "exec", "--", "/no/such/program"}, o).status, 127);
    for (const char *line :
         {"fault add", "fault add --status", "fault add --status 0", "fault add --whatever",
          "fault add --status 0x2 --bad-sign", "fault add --count 0 --bad-sign", "fault add --opcode 0x100 --bad-sign",
          "fault add --adapter x --bad-sign", "fault vanish", "fault", "clock advance -5", "clock backwards", "exec",
          "pace -1", "pace 600001", "pace 1 2", "frobnicate", ""})
        EXPECT_EQ(m.run(line).status, 2) << line;
}

TEST(SimTool, ResetReportsBadFixturesAndTakesOddValues)
{
    LibMachine m("raid");
    krt_test::TempDir dir;
    const std::pair<const char *, const char *> cases[] = {
        {R"({"adapters": [{"pd_count": 2, "vds": [{"members": [0, 5]}]}]})", "adapters[0].vds[0].members"},
        {R"({"adapters": [{"count": 65}]})", "adapters"},
        {R"({"machine_format": [1], "adapters": []})", "machine_format: expected [major, minor]"},
        {R"({"adapters": [{"identify_hex": "6b1"}]})", "adapters[0].identify_hex: expected an even number"},
        {R"({"adapters": [{"eui64": "001e02zz"}]})", "not a hexadecimal digit: 'z'"},
        {R"({"adapters": [{"serial": {"hex": 7}}]})", "adapters[0].serial.hex: expected hexadecimal digits"},
        {R"({"adapters": [{"pd_count": 2, "namespaces": [{"pd": 0, "slot": 3}, {"pd": 1, "slot": 3}]}]})",
         "adapters[0].namespaces[1].slot: slot 3 is taken"},
        {R"({"adapters": [{"events": ["a"], "event_ring": {"logged": 1, "entries": []}}]})",
         "give either event_ring or events"},
        {R"({"adapters": [{"fw_slots": ["1.0", "123456789"]}]})", "a slot text has at most 8 characters"},
    };
    for (const auto &[json, message] : cases) {
        krt_test::writeFile(dir.file("f.json"), json);
        auto r = m.run("reset " + dir.file("f.json"));
        EXPECT_EQ(r.status, 1) << json;
        EXPECT_TRUE(krt_test::has(r.err, message)) << json << " -> " << r.err;
    }
    EXPECT_EQ(m.run("reset nosuchfixture").status, 1);
    EXPECT_EQ(m.run("reset " + dir.file("missing.json")).status, 1);

    // Odd values are allowed, so tests can feed the tool bad replies.
    krt_test::writeFile(dir.file("odd.json"), R"({"adapters": [{"max_ns": 60, "pd_count": 2,
        "vds": [{"members": [0, 1], "raid": "raid1", "member_count": 40, "name": "ABCDEFGHIJKLMNOPQRS"}]}]})");
    ASSERT_EQ(m.run("reset " + dir.file("odd.json")).status, 0);
    _NVME_VD_Info vd;
    std::memcpy(&vd, m.query(krt_cdw12(0xE2, 0, 0)).data() + 8, sizeof vd);
    EXPECT_EQ(vd.MemberCount, 40);
    EXPECT_EQ(text(vd.Name, 16), "ABCDEFGHIJKLMNOP");
}

TEST(SimTool, ShowDescribesTheMachine)
{
    LibMachine m("degraded");
    ASSERT_EQ(m.run("fault add --adapter 0 --opcode 0xe2 --count 2 --envelope-status 9").status, 0);
    const std::string shown = m.run("show").out;
    for (const char *part : {"clock: frozen", "fault: envelope-status 0x9 adapter=0 opcode=0xe2 count=2\n",
                             "[0] vmhba1 nvmeMgmt-vmhba1 vid=0x1e6b did=0x7a10 RAID",
                             "  VD 0 'archive' raid=0x06 status=1 members=0,1,2,65535 ", " rebuild paused 40.000%",
                             "  NS 2 on VD 0 3750748848 x 512 valid\n"})
        EXPECT_TRUE(krt_test::has(shown, part)) << part << "\nin:\n" << shown;
}
