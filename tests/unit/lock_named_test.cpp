// The per-controller named lock.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "device/lock.h"
#include "guard_temp_tree.h"

namespace {

TEST(KRTLock, SerialisesTwoProcesses)
{
    TempTree dir;
    // A name of this run only, so parallel runs do not share a semaphore.
    const std::string trace = dir.file("trace"), name = "krtd-unit-" + std::to_string(getpid()) + "s";
    // Each process writes "<tag>+" on taking the lock and "<tag>-" before
    // releasing it: serialised, the trace never shows two "+" in a row.
    const auto run = [&](char tag, KRTLock *lock) {
        for (int i = 0; i < 2; ++i) {
            lock->lock();
            std::FILE *f = std::fopen(trace.c_str(), "a");
            std::fprintf(f, "%c+", tag);
            std::fflush(f);
            usleep(100000);
            std::fprintf(f, "%c-", tag);
            std::fclose(f);
            lock->unlock();
        }
        lock->close();
    };
    KRTLock *parent = new KRTLock;  // the semaphore exists before the child opens it
    ASSERT_TRUE(parent->init(name.c_str()));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        KRTLock *own = new KRTLock;
        if (!own->init(name.c_str()))
            _exit(2);
        run('c', own);
        _exit(0);
    }
    run('p', parent);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    sem_unlink(name.c_str());

    std::ifstream in(trace);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    ASSERT_EQ(text.size(), 16u) << text;
    for (std::size_t i = 0; i < text.size(); i += 4)
        EXPECT_EQ(text.substr(i + 1, 3), (std::string{'+', text[i], '-'})) << "interleaved: " << text;
}

// Costs the five seconds of the deadline: nothing else notices a wait that never ends.
TEST(KRTLock, WaitGivesUpAfterTheDeadline)
{
    const std::string name = "krtd-unit-" + std::to_string(getpid()) + "t";
    KRTLock *holder = new KRTLock, *waiter = new KRTLock;
    ASSERT_TRUE(holder->init(name.c_str()));
    ASSERT_TRUE(waiter->init(name.c_str()));
    holder->lock();
    waiter->lock();  // returns at the deadline and goes on without the lock
    int value = -1;
    sem_getvalue(waiter->m_handle, &value);
    EXPECT_EQ(value, 0) << "the holder still has it";
    waiter->close();
    holder->unlock();
    holder->close();
    sem_unlink(name.c_str());
}

}  // namespace
