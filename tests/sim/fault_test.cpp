// Fault rules injected with krtsim, and the command log that tests read.
#include <gtest/gtest.h>

#include "krt/records.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

namespace {

const char *const kSig = "nvmeMgmt-vmhba1";

struct Seen {
    krt_sim_test::AdminResult result;
    std::array<KRT_U8, 4096> reply{};
};

Seen adapterQuery(LibMachine &m, const char *sig = kSig)
{
    Seen s;
    s.result = m.client().direct(sig, krt_cdw12(0xE0, 0, 0), 0, s.reply);
    return s;
}

bool signOk(const Seen &s)
{
    return s.reply[0] == 'K' && s.reply[1] == 'R' && s.reply[2] == 'T';
}

}  // namespace

TEST(SimFault, EachEffectOnTheAdapterQuery)
{
    struct Case {
        std::vector<std::string> effect;
        KRT_U32 compStatus;
        bool sign;
        KRT_U8 envelope;
        KRT_U8 maxNs;
    } cases[] = {
        {{"--status", "0x0107"}, 0x107, false, 0, 0},
        {{"--status", "0x2"}, 0x2, false, 0, 0},
        {{"--bad-sign"}, 0, false, 0, 32},
        {{"--envelope-status", "9"}, 0, true, 9, 32},
        {{"--overlong"}, 0, true, 0, 255},
    };
    for (const Case &c : cases) {
        LibMachine m("raid");
        std::vector<std::string> words{"fault", "add", "--opcode", "0xe2", "--cdw12", "0xe0"};
        words.insert(words.end(), c.effect.begin(), c.effect.end());
        ASSERT_EQ(m.krtsim(words).status, 0) << c.effect[0];
        Seen s = adapterQuery(m);
        EXPECT_EQ(s.result.rc, 0);
        EXPECT_EQ(s.result.compStatus, c.compStatus) << c.effect[0];
        EXPECT_EQ(s.result.status != 0, c.compStatus != 0) << c.effect[0];
        if (c.compStatus != 0) {
            EXPECT_FALSE(signOk(s)) << "a failed command moves no data";
            continue;
        }
        EXPECT_EQ(signOk(s), c.sign) << c.effect[0];
        EXPECT_EQ(s.reply[4], c.envelope) << c.effect[0];
        EXPECT_EQ(s.reply[8 + offsetof(_NVME_Adapter_Info, MaxNS)], c.maxNs) << c.effect[0];
    }
}

TEST(SimFault, RulesMatchOnOpcodeCdw12AndAdapterAndCount)
{
    LibMachine m("multi");
    ASSERT_EQ(m.krtsim({"fault", "add", "--adapter", "1", "--count", "2", "--status", "0x6"}).status, 0);
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xe2", "--cdw12", "0x000000e1", "--bad-sign"}).status, 0);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba1").result.compStatus, 0u);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba2").result.compStatus, 6u);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba2").result.compStatus, 6u);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba2").result.compStatus, 0u) << "the counted rule is spent";

    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE1, 0, 0), 0, reply);
    EXPECT_EQ(reply[0], 'B');
    m.client().direct(kSig, krt_cdw12(0xE1, 0, 1), 0, reply);
    EXPECT_EQ(reply[0], 'K') << "CDW12 must match exactly";

    ASSERT_EQ(m.krtsim({"fault", "clear"}).status, 0);
    m.client().direct(kSig, krt_cdw12(0xE1, 0, 0), 0, reply);
    EXPECT_EQ(reply[0], 'K');
}

TEST(SimFault, PairedRepliesTakeEffectsFromTheSend)
{
    LibMachine m("raid");
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xcb", "--cdw12", "0xe0", "--count", "1", "--bad-sign"}).status,
              0);
    std::array<KRT_U8, 4096> reply{};
    auto r = m.client().paired(kSig, {KRT_CLASS_ADAPTER, 0}, {}, reply);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(reply[0], 'B');
    m.client().paired(kSig, {KRT_CLASS_ADAPTER, 0}, {}, reply);
    EXPECT_EQ(reply[0], 'K');

    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0xcb", "--overlong"}).status, 0);
    _RequestHeader h{};
    h.numRequested = 1;
    std::vector<KRT_U8> in(reinterpret_cast<KRT_U8 *>(&h), reinterpret_cast<KRT_U8 *>(&h) + sizeof h);
    m.client().paired(kSig, {KRT_CLASS_VD, 0}, in, reply);
    EXPECT_EQ(reply[8 + offsetof(_RequestHeader, numReturned)], 255);
    _NVME_VD_Info vd;
    std::memcpy(&vd, reply.data() + 8 + 16, sizeof vd);
    EXPECT_EQ(vd.MemberCount, 255);
    EXPECT_EQ(std::memchr(vd.Name, 0, sizeof vd.Name), nullptr);
}

TEST(SimFault, VanishedAdaptersAndAFailingList)
{
    LibMachine m("multi");
    ASSERT_EQ(m.krtsim({"fault", "vanish", "1"}).status, 0);
    nvme_adapter_list list;
    ASSERT_EQ(m.client().list(list), 0);
    EXPECT_EQ(list.count, 3u);
    EXPECT_NE(adapterQuery(m, "nvmeMgmt-vmhba2").result.rc, 0);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba3").result.rc, 0);
    EXPECT_EQ(m.krtsim({"fault", "vanish", "3"}).status, 1);

    ASSERT_EQ(m.krtsim({"fault", "list-fail"}).status, 0);
    EXPECT_NE(m.client().list(list), 0);
    ASSERT_EQ(m.krtsim({"fault", "clear"}).status, 0);
    EXPECT_EQ(m.client().list(list), 0);
    EXPECT_EQ(adapterQuery(m, "nvmeMgmt-vmhba2").result.rc, 0);
}

TEST(SimFault, BadRulesAreUsageErrors)
{
    LibMachine m("raid");
    const std::vector<std::vector<std::string>> bad = {
        {"fault", "add"},
        {"fault", "add", "--status"},
        {"fault", "add", "--status", "0"},
        {"fault", "add", "--status", "0x2", "--bad-sign"},
        {"fault", "add", "--count", "0", "--bad-sign"},
        {"fault", "add", "--opcode", "0x100", "--bad-sign"},
        {"fault", "add", "--adapter", "x", "--bad-sign"},
        {"fault", "add", "--whatever"},
        {"fault", "vanish"},
        {"fault"},
    };
    for (const auto &words : bad)
        EXPECT_EQ(m.krtsim(words).status, 2) << words.back();
}

TEST(SimLog, OneLinePerCommandWithItsWords)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE1, 0, 0), 3, reply);
    _RequestHeader h{};
    h.numRequested = 8;
    std::vector<KRT_U8> in(reinterpret_cast<KRT_U8 *>(&h), reinterpret_cast<KRT_U8 *>(&h) + sizeof h);
    m.client().paired(kSig, {KRT_CLASS_PD, 0, 7}, in, reply);
    ASSERT_EQ(m.krtsim({"fault", "add", "--opcode", "0x06", "--status", "0x0107"}).status, 0);
    std::array<KRT_U32, 16> identify{};
    identify[0] = NVME_ADMIN_IDENTIFY;
    identify[10] = 1;
    m.client().admin(kSig, identify, XFER_FROM_DEV, reply.data(), 4096);

    const std::string log = m.log();
    const char *expected[] = {
        "vmhba1 opc=0xe2 nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x000000e1 cdw13=0x00000000 "
        "cdw14=0x00000003 cdw15=0x00000000 dir=from len=4096 status=0x0\n",
        "vmhba1 opc=0xcb nsid=0 cdw10=0x00000400 cdw11=0x544c4f5a cdw12=0x000000e1 cdw13=0x00000000 "
        "cdw14=0x00000000 cdw15=0x0054524b dir=to len=4096 pair=0xe1,0x0,0x7,0x0 words=3 data=16 status=0x0\n",
        "vmhba1 opc=0xce nsid=0 cdw10=0x00000000 cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 "
        "cdw14=0x00000000 cdw15=0x0054524b dir=from len=4096 status=0x0\n",
        "vmhba1 opc=0x06 nsid=0 cdw10=0x00000001 cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 "
        "cdw14=0x00000000 cdw15=0x00000000 dir=from len=4096 status=0x107\n",
    };
    size_t at = 0;
    for (const char *line : expected) {
        size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing, in order: " << line << "in:\n" << log;
        at = found + std::strlen(line);
    }
    EXPECT_EQ(at, log.size());

    EXPECT_EQ(m.krtsim({"log", "clear"}).status, 0);
    EXPECT_EQ(m.log(), "");
    // Commands to a vanished adapter never reach a controller.
    m.krtsim({"fault", "vanish", "0"});
    adapterQuery(m);
    EXPECT_EQ(m.log(), "");
}

TEST(SimTool, ExecRunsAgainstThisMachineFromAnyFolder)
{
    LibMachine m("raid");
    krt_test::RunOptions o;
    o.cwd = "/";
    o.env["KRTSIM_STATE"] = m.machine().statePath();
    auto r = krt_test::runProcess(
        {krt_test::krtsimPath(), "exec", "--", "sh", "-c", "echo $KRTSIM_STATE; echo $LD_LIBRARY_PATH"}, o);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, m.machine().statePath() + "\n" + krt_test::simLibDir() + "\n");
    r = krt_test::runProcess({krt_test::krtsimPath(), "exec", "--", "/no/such/program"}, o);
    EXPECT_EQ(r.status, 127);
    EXPECT_EQ(m.krtsim({"exec"}).status, 2);
    EXPECT_EQ(m.krtsim({"frobnicate"}).status, 2);
    EXPECT_EQ(m.krtsim({}).status, 2);
}

TEST(SimTool, ResetReportsBadFixtures)
{
    LibMachine m("raid");
    krt_test::TempDir dir;
    struct Case {
        const char *json;
        const char *message;
    } cases[] = {
        {"{", "fixture"},
        {R"({"adapters": [{"pd_count": 2, "vds": [{"members": [0, 5]}]}]})", "adapters[0].vds[0].members"},
        {R"({"adapters": [{"raid": false, "pd_count": 1, "vds": [{"members": [0]}]}]})", "adapters[0].vds"},
        {R"({"adapters": [{"firmware": "1.2"}]})", "adapters[0].firmware"},
        {R"({"adapters": [{"count": 65}]})", "adapters"},
        {R"({"adapters": [{"max_ns": 256}]})", "adapters[0].max_ns"},
    };
    for (const Case &c : cases) {
        krt_test::writeFile(dir.file("f.json"), c.json);
        auto r = m.krtsim({"reset", dir.file("f.json")});
        EXPECT_EQ(r.status, 1) << c.json;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.json << " -> " << r.err;
    }
    EXPECT_EQ(m.krtsim({"reset", "nosuchfixture"}).status, 1);
    EXPECT_EQ(m.krtsim({"reset", dir.file("missing.json")}).status, 1);

    // Odd values are allowed, so tests can feed the tool bad replies.
    krt_test::writeFile(dir.file("odd.json"), R"({"adapters": [{"max_ns": 60, "pd_count": 2,
        "vds": [{"members": [0, 1], "raid": "raid1", "member_count": 40, "name": "ABCDEFGHIJKLMNOPQRS"}]}]})");
    ASSERT_EQ(m.krtsim({"reset", dir.file("odd.json")}).status, 0);
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE2, 0, 0), 0, reply);
    _NVME_VD_Info vd;
    std::memcpy(&vd, reply.data() + 8, sizeof vd);
    EXPECT_EQ(vd.MemberCount, 40);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(vd.Name), 16), "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(vd.NSIDs[0], 0);
}

TEST(SimTool, ShowDescribesTheMachine)
{
    LibMachine m("degraded");
    ASSERT_EQ(m.krtsim({"fault", "add", "--adapter", "0", "--opcode", "0xe2", "--count", "2", "--envelope-status", "9"})
                  .status,
              0);
    const std::string shown = m.krtsim({"show"}).out;
    const char *expected[] = {
        "clock: frozen",
        "fault: envelope-status 0x9 adapter=0 opcode=0xe2 count=2\n",
        "adapters: 1\n",
        "[0] vmhba1 nvmeMgmt-vmhba1 vid=0x1e6b did=0x7a10 RAID",
        "  PD 4 slot=4 ",
        "status=0x10",
        "  VD 0 'archive' raid=0x06 status=1 members=0,1,2,65535 ",
        " rebuild paused 40.000%",
        " init running 10.000%",
        "  NS 2 on VD 0 3750748848 x 512 valid\n",
    };
    for (const char *text : expected)
        EXPECT_NE(shown.find(text), std::string::npos) << text << "\nin:\n" << shown;
}
