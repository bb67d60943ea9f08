// The shared state file: seen by every process, safe when processes run at
// once, protected against foreign files; and the clock that drives
// background activities.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include "krt/records.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

namespace {

const char *const kSig = "nvmeMgmt-vmhba1";

_NVME_BGA_STATUS vdActivity(LibMachine &m, KRT_U32 vd)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE3, 2, 0), vd, reply);
    _NVME_BGA_STATUS bga;
    std::memcpy(&bga, reply.data() + 8, sizeof bga);
    return bga;
}

KRT_U8 vdStatus(LibMachine &m, KRT_U32 vd)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE2, 0, 0), vd, reply);
    return reply[8 + 2];
}

// Runs body in n child processes at once; true when all exit 0.
template <typename Body>
bool inChildren(int n, Body body)
{
    std::vector<pid_t> pids;
    for (int i = 0; i < n; ++i) {
        pid_t pid = fork();
        if (pid == 0)
            _exit(body(i) ? 0 : 1);
        pids.push_back(pid);
    }
    bool ok = true;
    for (pid_t pid : pids) {
        int status = 0;
        waitpid(pid, &status, 0);
        ok = ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    return ok;
}

}  // namespace

TEST(SimState, ChangesAreSeenByOtherProcesses)
{
    LibMachine m("raid");
    ASSERT_TRUE(inChildren(1, [&](int) {
        std::array<KRT_U8, 4096> reply{};
        _NVME_Adapter_Config cfg{};
        cfg.BGARate = 91;
        std::vector<KRT_U8> in(reinterpret_cast<KRT_U8 *>(&cfg), reinterpret_cast<KRT_U8 *>(&cfg) + sizeof cfg);
        return m.client().paired(kSig, {KRT_CLASS_ADAPTER, 2}, in, reply).status == 0 && reply[4] == 0;
    }));
    std::array<KRT_U8, 4096> reply{};
    m.client().paired(kSig, {KRT_CLASS_ADAPTER, 1}, {}, reply);
    EXPECT_EQ(reply[9], 91);
}

TEST(SimState, ProcessesRunningAtOnceKeepTheStateAndLogWhole)
{
    LibMachine m("multi");
    constexpr int kChildren = 4;
    constexpr int kCommands = 150;
    ASSERT_TRUE(inChildren(kChildren, [&](int child) {
        const std::string sig = "nvmeMgmt-vmhba" + std::to_string(child % 3 + 1);
        std::array<KRT_U8, 4096> reply{};
        for (int i = 0; i < kCommands; ++i) {
            auto r = m.client().direct(sig.c_str(), krt_cdw12(0xE1, 0, 0), static_cast<KRT_U32>(i % 4), reply);
            if (r.rc != 0 || r.status != 0 || reply[4] != 0 || reply[8] != i % 4)
                return false;
        }
        return true;
    }));
    std::istringstream log(m.log());
    std::string line;
    int lines = 0;
    while (std::getline(log, line)) {
        ++lines;
        ASSERT_EQ(line.rfind("vmhba", 0), 0u) << line;
        ASSERT_NE(line.find(" opc=0xe2 "), std::string::npos) << line;
        ASSERT_EQ(line.substr(line.size() - 11), " status=0x0") << line;
    }
    EXPECT_EQ(lines, kChildren * kCommands);
}

TEST(SimState, StaleFilesAreRebuiltAndForeignFilesRefused)
{
    LibMachine m("multi");
    nvme_adapter_list list;
    ASSERT_EQ(m.client().list(list), 0);
    EXPECT_EQ(list.count, 3u);

    // A file of another simulator build: same magic, other format.
    std::string text = krt_test::readFile(m.machine().statePath());
    text[8] = static_cast<char>(text[8] + 1);
    krt_test::writeFile(m.machine().statePath(), text.substr(0, 4096));
    ASSERT_EQ(m.client().list(list), 0);
    EXPECT_EQ(list.count, 1u);  // rebuilt from raid

    krt_test::writeFile(m.machine().statePath(), "my notes, not a state file\n");
    EXPECT_NE(m.client().list(list), 0);
    EXPECT_EQ(krt_test::readFile(m.machine().statePath()), "my notes, not a state file\n");
    auto shown = m.krtsim({"show"});
    EXPECT_EQ(shown.status, 1);
    EXPECT_NE(shown.err.find("not a simulator state"), std::string::npos);
    EXPECT_EQ(m.krtsim({"reset", "jbof"}).status, 0);
    ASSERT_EQ(m.client().list(list), 0);
    EXPECT_EQ(list.count, 1u);
}

TEST(SimState, MissingStateIsCreatedFromRaid)
{
    krt_test::TempDir dir;
    const std::string path = dir.file("sub/state");
    mkdir(dir.file("sub").c_str(), 0700);
    setenv("KRTSIM_STATE", path.c_str(), 1);
    krt_sim_test::SimClient client(krt_sim_test::libraryPath());
    nvme_adapter_list list;
    ASSERT_EQ(client.list(list), 0);
    EXPECT_EQ(list.count, 1u);
    unsetenv("KRTSIM_STATE");
}

TEST(SimClock, ActivitiesAdvanceOnlyWithTheClock)
{
    LibMachine m("degraded");  // VD 0 rebuild paused at 40; VD 1 init running at 10, 6 s per percent
    EXPECT_EQ(vdActivity(m, 1).Percentage, 10);
    EXPECT_EQ(m.krtsim({"clock", "advance", "60"}).status, 0);
    auto init = vdActivity(m, 1);
    EXPECT_EQ(init.Percentage, 20);
    EXPECT_EQ(init.BgaStatus, KRT_NVME_BGA_STATUS_RUNNING);
    EXPECT_EQ(init.BgaType, KRT_BGA_INIT);
    auto rebuild = vdActivity(m, 0);
    EXPECT_EQ(rebuild.Percentage, 40);
    EXPECT_EQ(rebuild.BgaStatus, KRT_NVME_BGA_STATUS_PAUSE);
    EXPECT_EQ(vdStatus(m, 1), KRT_VD_INITIALIZATION);

    // Frozen, nothing moves however long we wait between queries.
    EXPECT_EQ(m.krtsim({"clock", "freeze"}).status, 0);
    EXPECT_EQ(vdActivity(m, 1).Percentage, 20);

    EXPECT_EQ(m.krtsim({"clock", "advance", "3600"}).status, 0);
    init = vdActivity(m, 1);
    EXPECT_EQ(init.BgaStatus, KRT_NVME_BGA_STATUS_NONE);
    EXPECT_EQ(init.BgaType, 0) << "a finished activity leaves the VD idle";
    EXPECT_EQ(init.Percentage, 0);
    EXPECT_EQ(vdStatus(m, 1), KRT_VD_FUNCTIONAL);
    EXPECT_EQ(vdActivity(m, 0).Percentage, 40);

    EXPECT_EQ(m.krtsim({"clock", "run"}).status, 0);
    EXPECT_NE(m.krtsim({"show"}).out.find("clock: running"), std::string::npos);
    EXPECT_EQ(m.krtsim({"clock", "advance", "-5"}).status, 2);
    EXPECT_EQ(m.krtsim({"clock", "backwards"}).status, 2);
}
