// Serialises the send/receive pairs of one controller between processes, so
// that one process's receive cannot pick up another's reply.
#pragma once

#include <semaphore.h>

#include <cstddef>

#include "krt/types.h"

struct KRTLock {
    sem_t *m_handle = nullptr;
    char lockName[128] = {};
    // Named but not opened yet: the first lock() opens the semaphore.
    bool m_deferred = false;

    // Opens (or creates) the semaphore of that name. False when neither works.
    bool init(const char *name);
    // Waits at most 5 seconds; after a time-out the caller goes on unlocked.
    // A deferred lock opens its semaphore first.
    void lock();
    void unlock();
    // Releases the semaphore and frees the lock.
    void close();
    // Opens (or creates) the semaphore named lockName.
    bool open();
};

// "krtd" and two characters: '0' plus the high byte and '0' plus the low
// byte of the device index. Writes at most size bytes.
void KRTLock_name(KRT_U16 index, char *out, std::size_t size);
// A lock on the named semaphore for that device index, or null. The
// semaphore is opened at the first lock(): most commands send no paired
// request and never need it.
KRTLock *CreateKRTLockInstance(KRT_U16 index);
