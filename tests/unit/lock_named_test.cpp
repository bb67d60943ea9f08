// The per-controller named lock.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "device/lock.h"
#include "guard_temp_tree.h"

namespace {

TEST(KRTLockName, TwoCharactersFromTheIndex)
{
    char name[16];
    const struct {
        KRT_U16 index;
        const char *text;
    } cases[] = {{0, "krtd00"}, {9, "krtd09"}, {10, "krtd0:"}, {0x0102, "krtd12"}};
    for (const auto &c : cases) {
        KRTLock_name(c.index, name, sizeof name);
        EXPECT_STREQ(name, c.text);
    }
}

// A name of this test run only, so parallel runs do not share a semaphore.
std::string uniqueName()
{
    return "krtd-unit-" + std::to_string(getpid());
}

TEST(KRTLock, SerialisesTwoProcesses)
{
    TempTree dir;
    const std::string trace = dir.file("trace");
    const std::string name = uniqueName();
    KRTLock *lock = new KRTLock;
    ASSERT_TRUE(lock->init(name.c_str()));

    // Each process appends "<tag>+" on taking the lock and "<tag>-" before
    // releasing it, holding it for a while in between. Serialised, the
    // trace never shows two "+" in a row.
    auto critical = [&](char tag) {
        lock->lock();
        FILE *f = std::fopen(trace.c_str(), "a");
        if (f == nullptr)
            return;
        std::fprintf(f, "%c+", tag);
        std::fflush(f);
        usleep(200000);
        std::fprintf(f, "%c-", tag);
        std::fclose(f);
        lock->unlock();
    };
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        KRTLock *own = new KRTLock;
        if (!own->init(name.c_str()))
            _exit(2);
        lock = own;
        for (int i = 0; i < 3; ++i)
            critical('c');
        _exit(0);
    }
    for (int i = 0; i < 3; ++i)
        critical('p');
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    std::string text;
    if (FILE *f = std::fopen(trace.c_str(), "r")) {
        char buf[256] = {};
        text.assign(buf, std::fread(buf, 1, sizeof buf, f));
        std::fclose(f);
    }
    ASSERT_EQ(text.size(), 24u) << text;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        EXPECT_EQ(text[i], text[i + 2]) << "interleaved: " << text;
        EXPECT_EQ(text[i + 1], '+');
        EXPECT_EQ(text[i + 3], '-');
    }
    lock->close();
    sem_unlink(name.c_str());
}

TEST(KRTLock, WaitGivesUpAfterTheDeadline)
{
    const std::string name = uniqueName() + "-t";
    KRTLock *holder = new KRTLock;
    ASSERT_TRUE(holder->init(name.c_str()));
    holder->lock();
    KRTLock *waiter = new KRTLock;
    ASSERT_TRUE(waiter->init(name.c_str()));
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
