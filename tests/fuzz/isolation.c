/* Keeps a fuzzing process to itself and quick. The flash command's polls
 * of the controller, once a second on the main thread, return at once: a
 * run takes as long as its replies, not as many seconds as they keep the
 * poll going (libFuzzer's own threads still sleep). No controller lock (a
 * named semaphore shared by every process on the host) can be opened, so
 * a fuzzing process neither waits on another's nor leaves one taken when
 * it stops at a fault: the device layer goes on unlocked, as it does
 * wherever the host offers no named semaphores. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int nanosleep(const struct timespec *duration, struct timespec *remaining)
{
    return gettid() == getpid() ? 0 : (int)syscall(SYS_nanosleep, duration, remaining);
}

sem_t *sem_open(const char *name, int flags, ...)
{
    (void)name;
    (void)flags;
    errno = EACCES;
    return SEM_FAILED;
}
