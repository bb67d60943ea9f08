#include "device/lock.h"

#include <fcntl.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "util/log.h"

namespace {

constexpr unsigned kLockMode = 0777;
constexpr unsigned kLockValue = 1;
constexpr int kLockSeconds = 5;

unsigned semValue(sem_t *sem)
{
    int value = 0;
    if (sem == nullptr || sem_getvalue(sem, &value) != 0)
        return 0;
    return static_cast<unsigned>(value);
}

}  // namespace

void KRTLock_name(KRT_U16 index, char *out, std::size_t size)
{
    // Indexes above 9 give characters past '9'; the name stays unique per
    // index, which is all it has to be.
    std::snprintf(out, size, "krtd%c%c", static_cast<char>('0' + (index >> 8)),
                  static_cast<char>('0' + (index & 0xFF)));
}

bool KRTLock::init(const char *name)
{
    std::snprintf(lockName, sizeof lockName, "%s", name);
    return open();
}

bool KRTLock::open()
{
    m_deferred = false;
    m_handle = sem_open(lockName, O_RDWR, kLockMode, kLockValue);
    if (m_handle == SEM_FAILED) {
        // Created exclusively, starting free: of two processes that start at
        // once only one creates it, and the other opens that one rather than
        // setting it free again while the first holds it.
        m_handle = sem_open(lockName, O_RDWR | O_CREAT | O_EXCL, kLockMode, kLockValue);
        if (m_handle == SEM_FAILED && errno == EEXIST)
            m_handle = sem_open(lockName, O_RDWR);
        if (m_handle == SEM_FAILED) {
            m_handle = nullptr;
            add_log("create sem error: %s\n", std::strerror(errno));
            return false;
        }
    }
    add_log("init sem %s value is %u\n", lockName, semValue(m_handle));
    return true;
}

void KRTLock::lock()
{
    if (m_deferred)
        open();
    if (m_handle == nullptr)
        return;
    struct timeval now {};
    gettimeofday(&now, nullptr);
    struct timespec deadline {};
    deadline.tv_sec = now.tv_sec + kLockSeconds;
    deadline.tv_nsec = static_cast<long>(now.tv_usec) * 1000;
    int rc;
    do {
        rc = sem_timedwait(m_handle, &deadline);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0)
        add_log("lock error: %s\n", std::strerror(errno));
    add_log("%s after lock sem value is %u\n", lockName, semValue(m_handle));
}

void KRTLock::unlock()
{
    if (m_handle == nullptr)
        return;
    if (sem_post(m_handle) != 0)
        add_log("lock error: %s\n", std::strerror(errno));
    add_log("%s after unlock sem value is %u\n", lockName, semValue(m_handle));
}

void KRTLock::close()
{
    // The semaphore outlives the process under its name so that the next
    // process finds it; only this process's mapping is released.
    if (m_handle != nullptr && sem_close(m_handle) != 0)
        add_log("endlock error: %s\n", std::strerror(errno));
    delete this;
}

KRTLock *CreateKRTLockInstance(KRT_U16 index)
{
    auto *lock = new (std::nothrow) KRTLock;
    if (lock == nullptr)
        return nullptr;
    KRTLock_name(index, lock->lockName, sizeof lock->lockName);
    lock->m_deferred = true;
    return lock;
}
