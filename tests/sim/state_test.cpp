// The shared state file: protected against foreign files, and rebuilt when
// another process cuts it short; the stamp of an event the clock makes.
// Processes running at once are the load test's, the clock's other effects
// show in the end-to-end tables, and settings, resets, imports and commits
// the tool would refuse itself never reach the simulator.
#include <gtest/gtest.h>
#include <unistd.h>

#include "core/store.h"
#include "sim_client.h"
#include "text.h"

using namespace krt_sim_test;

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

// The event of a finished activity is stamped when it reached 100 %, not
// when the clock was next looked at.
TEST(SimHealth, FinishedActivityIsStampedWhenItFinished)
{
    LibMachine m("degraded");  // VD 1 initialises from 10 % at 6 s per percent
    ASSERT_EQ(m.run("clock advance 1000").status, 0);
    const Reply page = m.query(krt_cdw12(0xFE, 4, 0), 4096);
    const std::string events(reinterpret_cast<const char *>(page.data() + 40));
    const unsigned long start = std::stoul(events.substr(events.find("[TIME]") + 6));
    EXPECT_TRUE(
        krt_test::has(events, "[SEQ]4[TIME]" + std::to_string(start + 540) + "[MSG]VD 1 initialization completed\n"))
        << events;
}
