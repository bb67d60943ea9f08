#include "store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fixture.h"

namespace krtsim {

std::string defaultStatePath()
{
    const char *env = std::getenv("KRTSIM_STATE");
    if (env != nullptr && env[0] != '\0')
        return env;
    return "/tmp/krtsim-" + std::to_string(getuid()) + "/state";
}

std::string logPathFor(const std::string &statePath)
{
    return statePath + ".log";
}

KRT_U64 realMillis()
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<KRT_U64>(ts.tv_sec) * 1000 + static_cast<KRT_U64>(ts.tv_nsec) / 1000000;
}

KRT_U64 clockMillis(const SimClock &clock)
{
    if (clock.frozen)
        return clock.baseMillis;
    KRT_U64 real = realMillis();
    // A clock set back on the host must not move simulated time backwards.
    return clock.baseMillis + (real > clock.realMillis ? real - clock.realMillis : 0);
}

void clockFreeze(SimClock &clock)
{
    clock.baseMillis = clockMillis(clock);
    clock.frozen = 1;
}

void clockRun(SimClock &clock)
{
    clock.baseMillis = clockMillis(clock);
    clock.realMillis = realMillis();
    clock.frozen = 0;
}

void clockAdvance(SimClock &clock, KRT_U64 millis)
{
    clock.baseMillis = clockMillis(clock) + millis;
    clock.realMillis = realMillis();
}

bool validImage(const SimState &state)
{
    return std::memcmp(state.magic, kStateMagic, sizeof kStateMagic) == 0 && state.format == kStateFormat &&
           state.size == sizeof(SimState);
}

namespace {

std::string errnoText(const std::string &what, const std::string &path)
{
    return what + " " + path + ": " + std::strerror(errno);
}

// The default folder under /tmp belongs to the user; make it on first use.
void makeParent(const std::string &path)
{
    auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return;
    std::string dir = path.substr(0, slash);
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
        return;
}

bool writeAll(int fd, const void *data, size_t size)
{
    const char *p = static_cast<const char *>(data);
    size_t done = 0;
    while (done < size) {
        ssize_t n = pwrite(fd, p + done, size - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool writeImage(int fd, const SimState &image)
{
    return ftruncate(fd, sizeof(SimState)) == 0 && writeAll(fd, &image, sizeof(SimState));
}

// What the head of an existing file says.
enum class Head { Empty, Ours, Stale, Foreign };

Head readHead(int fd)
{
    struct stat st {};
    if (fstat(fd, &st) != 0 || st.st_size == 0)
        return Head::Empty;
    // Only the head is read: the whole state is megabytes, and every
    // process that loads the library comes through here.
    struct {
        char magic[sizeof SimState::magic];
        KRT_U32 format;
        KRT_U32 size;
    } head{};
    static_assert(sizeof head == offsetof(SimState, adapterCount));
    static_assert(offsetof(decltype(head), format) == offsetof(SimState, format));
    static_assert(offsetof(decltype(head), size) == offsetof(SimState, size));
    if (pread(fd, &head, sizeof head, 0) != static_cast<ssize_t>(sizeof head))
        return Head::Foreign;
    if (std::memcmp(head.magic, kStateMagic, sizeof kStateMagic) != 0)
        return Head::Foreign;
    if (head.format != kStateFormat || head.size != sizeof(SimState) ||
        st.st_size != static_cast<off_t>(sizeof(SimState)))
        return Head::Stale;
    return Head::Ours;
}

}  // namespace

std::unique_ptr<StateFile> StateFile::open(const std::string &path, std::string *error)
{
    makeParent(path);
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        *error = errnoText("cannot open state", path);
        return nullptr;
    }
    if (flock(fd, LOCK_EX) != 0) {
        *error = errnoText("cannot lock state", path);
        close(fd);
        return nullptr;
    }
    Head head = readHead(fd);
    if (head == Head::Foreign) {
        *error = "state " + path + " is not a simulator state file; remove it or run 'krtsim reset'";
        flock(fd, LOCK_UN);
        close(fd);
        return nullptr;
    }
    if (head != Head::Ours) {
        auto image = std::make_unique<SimState>();
        if (!buildBuiltin("raid", *image, error)) {
            flock(fd, LOCK_UN);
            close(fd);
            return nullptr;
        }
        // A person trying the tool sees activities advance in real time.
        clockRun(image->clock);
        if (!writeImage(fd, *image)) {
            *error = errnoText("cannot write state", path);
            flock(fd, LOCK_UN);
            close(fd);
            return nullptr;
        }
    }
    flock(fd, LOCK_UN);
    void *map = mmap(nullptr, sizeof(SimState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) {
        *error = errnoText("cannot map state", path);
        close(fd);
        return nullptr;
    }
    struct stat st {};
    fstat(fd, &st);
    return std::unique_ptr<StateFile>(new StateFile(path, fd, static_cast<SimState *>(map), st.st_dev, st.st_ino));
}

bool StateFile::write(const std::string &path, const SimState &image, std::string *error)
{
    makeParent(path);
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        *error = errnoText("cannot open state", path);
        return false;
    }
    bool ok = flock(fd, LOCK_EX) == 0 && writeImage(fd, image);
    if (!ok)
        *error = errnoText("cannot write state", path);
    close(fd);
    return ok;
}

StateFile::StateFile(std::string path, int fd, SimState *state, dev_t dev, ino_t ino)
    : path_(std::move(path)), fd_(fd), state_(state), dev_(dev), ino_(ino)
{
}

StateFile::~StateFile()
{
    munmap(state_, sizeof(SimState));
    close(fd_);
    if (logFd_ >= 0)
        close(logFd_);
}

int StateFile::logFd()
{
    if (logFd_ < 0)
        logFd_ = ::open(logPathFor(path_).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    return logFd_;
}

bool StateFile::sameFile(const std::string &path) const
{
    struct stat st {};
    return path == path_ && stat(path.c_str(), &st) == 0 && st.st_dev == dev_ && st.st_ino == ino_ &&
           st.st_size == static_cast<off_t>(sizeof(SimState));
}

StateFile::Lock::Lock(StateFile &file) : file_(file), guard_(file.mutex_)
{
    while (flock(file_.fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
    // Something that ignores the lock (a person, a script) cut the file
    // short: touching the mapping past its end would kill the process with
    // SIGBUS. The machine is rebuilt from `raid`, as for a stale file.
    struct stat st {};
    if (fstat(file_.fd_, &st) == 0 && st.st_size < static_cast<off_t>(sizeof(SimState))) {
        auto image = std::make_unique<SimState>();
        std::string error;
        if (buildBuiltin("raid", *image, &error)) {
            clockRun(image->clock);
            writeImage(file_.fd_, *image);
        }
    }
}

StateFile::Lock::~Lock()
{
    flock(file_.fd_, LOCK_UN);
}

}  // namespace krtsim
