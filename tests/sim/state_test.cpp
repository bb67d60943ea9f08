// The shared state file: seen by every process, safe when processes run at
// once, protected against foreign files; and the clock that drives
// background activities.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/store.h"
#include "sim_client.h"
#include "text.h"

using namespace krt_sim_test;

TEST(SimState, ProcessesRunningAtOnceKeepTheStateAndLogWhole)
{
    LibMachine m("multi");
    constexpr int kChildren = 4;
    constexpr int kCommands = 150;
    std::vector<pid_t> pids;
    for (int child = 0; child < kChildren; ++child) {
        if (pid_t pid = fork(); pid != 0) {
            pids.push_back(pid);
            continue;
        }
        const std::string sig = "nvmeMgmt-vmhba" + std::to_string(child % 3 + 1);
        for (int i = 0; i < kCommands; ++i) {
            AdminResult r;
            Reply reply = m.query(krt_cdw12(0xE1, 0, 0), static_cast<KRT_U32>(i % 4), &r, sig.c_str());
            if (r.rc != 0 || r.status != 0 || reply[4] != 0 || reply[8] != i % 4)
                _exit(1);
        }
        _exit(0);
    }
    for (pid_t pid : pids) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const std::string log = m.log();
    EXPECT_EQ(krt_test::occurrences(log, "\n"), kChildren * kCommands);
    EXPECT_EQ(krt_test::occurrences(log, " opc=0xe2 "), kChildren * kCommands);
    EXPECT_EQ(krt_test::occurrences(log, " status=0x0\n"), kChildren * kCommands);
}

TEST(SimState, MissingStaleAndForeignFiles)
{
    LibMachine m("multi");
    nvme_adapter_list list;
    const std::string &path = m.machine().statePath();
    // A file of another simulator build (same magic, other format) is rebuilt from raid.
    std::string text = krt_test::readFile(path);
    text[8] = static_cast<char>(text[8] + 1);
    krt_test::writeFile(path, text.substr(0, 4096));
    ASSERT_EQ(m.list(list), 0);
    EXPECT_EQ(list.count, 1u);

    krt_test::writeFile(path, "my notes, not a state file\n");
    EXPECT_NE(m.list(list), 0);
    EXPECT_EQ(krt_test::readFile(path), "my notes, not a state file\n");
    auto shown = m.run("show");
    EXPECT_EQ(shown.status, 1);
    EXPECT_TRUE(krt_test::has(shown.err, "not a simulator state"));
    EXPECT_EQ(m.run("reset multi").status, 0);
    ASSERT_EQ(m.list(list), 0);
    EXPECT_EQ(list.count, 3u);

    // A missing file is created from raid, with firmware downloads paced
    // for a person (a reset machine is paced alike).
    krt_test::RunOptions fresh;
    fresh.env["KRTSIM_STATE"] = m.machine().dir().file("fresh");
    setenv("KRTSIM_STATE", fresh.env["KRTSIM_STATE"].c_str(), 1);
    ASSERT_EQ(m.list(list), 0);
    EXPECT_EQ(list.count, 1u);
    EXPECT_EQ(krt_test::runProcess({krt_test::krtsimPath(), "pace"}, fresh).out, "1500\n");
    ASSERT_EQ(krt_test::runProcess({krt_test::krtsimPath(), "reset", "jbof"}, fresh).status, 0);
    EXPECT_TRUE(krt_test::has(krt_test::runProcess({krt_test::krtsimPath(), "show"}, fresh).out,
                              "firmware download pace: 1500 ms per MiB\n"));
    EXPECT_EQ(m.run("pace").out, "0\n") << "the test machine takes images at once";
}

// A paused activity stays; a running one moves only with the clock, not
// while it is frozen, and a finished one leaves its VD idle.
TEST(SimClock, ActivitiesAdvanceOnlyWithTheClock)
{
    LibMachine m("degraded");  // VD 0 rebuild paused at 40; VD 1 init running at 10, 6 s per percent
    const auto state = [&](KRT_U32 vd) {
        const auto bga = record<_NVME_BGA_STATUS>(m.query(krt_cdw12(0xE3, 2, 0), vd));
        return std::vector<int>{bga.Percentage, bga.BgaStatus, bga.BgaType, m.query(krt_cdw12(0xE2, 0, 0), vd)[8 + 2]};
    };
    const std::vector<int> running = {20, KRT_NVME_BGA_STATUS_RUNNING, KRT_BGA_INIT, KRT_VD_INITIALIZATION};
    EXPECT_EQ(state(1)[0], 10);
    ASSERT_EQ(m.run("clock advance 60").status, 0);
    EXPECT_EQ(state(1), running);
    EXPECT_EQ(state(0)[0], 40);
    ASSERT_EQ(m.run("clock freeze").status, 0);
    EXPECT_EQ(state(1), running);
    ASSERT_EQ(m.run("clock advance 3600").status, 0);
    const std::vector<int> finished = state(1);
    EXPECT_EQ(std::vector<int>(finished.begin() + 1, finished.end()),
              (std::vector<int>{KRT_NVME_BGA_STATUS_NONE, 0, KRT_VD_FUNCTIONAL}));
    EXPECT_EQ(m.run("clock run").status, 0);
    EXPECT_TRUE(krt_test::has(m.run("show").out, "clock: running"));
}

TEST(SimState, FileCutShortByAnotherProcessIsRebuiltUnderTheLock)
{
    LibMachine m("multi");
    const std::string &path = m.machine().statePath();
    std::string error;
    auto file = krtsim::StateFile::open(path, &error);
    ASSERT_NE(file, nullptr) << error;
    // Cut behind the simulator's back, after the file was mapped: the
    // mapping past the new end would raise SIGBUS.
    ASSERT_EQ(truncate(path.c_str(), 4096), 0);
    {
        krtsim::StateFile::Lock lock(*file);
        const krtsim::SimState &state = file->state();
        EXPECT_TRUE(krtsim::validImage(state));
        EXPECT_EQ(state.adapterCount, 1u) << "rebuilt from raid";
        const auto *bytes = reinterpret_cast<const volatile char *>(&state);
        EXPECT_EQ(bytes[sizeof state - 1], 0) << "the far end of the state is readable";
    }
    nvme_adapter_list list;
    ASSERT_EQ(m.list(list), 0);
    EXPECT_EQ(list.count, 1u);
}
