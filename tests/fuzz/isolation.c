/* Keeps a fuzzing process to itself and quick.
 *
 * The flash command polls the controller once a second. Its polls run on
 * the main thread; here they return at once, so that a run takes as long as
 * its replies and not as many seconds as they keep the poll going. Sleeps of
 * other threads (libFuzzer's own watchdogs) are left as they are.
 *
 * The controller locks are named semaphores shared by every process on the
 * host. A fuzzing process must neither wait on a lock another process holds
 * nor leave one taken when it stops at a fault: no lock can be opened, and
 * the device layer then goes on unlocked, as it does wherever the host
 * offers no named semaphores. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int nanosleep(const struct timespec *duration, struct timespec *remaining)
{
    if (gettid() == getpid())
        return 0;
    return (int)syscall(SYS_nanosleep, duration, remaining);
}

sem_t *sem_open(const char *name, int flags, ...)
{
    (void)name;
    (void)flags;
    errno = EACCES;
    return SEM_FAILED;
}
