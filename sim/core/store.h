// The state file: where it lives, how it is created, mapped and locked, and
// the simulated clock kept inside it.
#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>

#include "layout.h"

namespace krtsim {

// $KRTSIM_STATE, or /tmp/krtsim-<uid>/state.
std::string defaultStatePath();
// The command log beside a state file.
std::string logPathFor(const std::string &statePath);

// Real time in milliseconds, shared by every process on the host.
KRT_U64 realMillis();
// The simulated clock's current reading.
KRT_U64 clockMillis(const SimClock &clock);
void clockFreeze(SimClock &clock);
void clockRun(SimClock &clock);
void clockAdvance(SimClock &clock, KRT_U64 millis);

// One mapped state file. Every reader or writer of the state holds the lock
// (an flock on the file plus a mutex for threads of one process).
class StateFile {
  public:
    // Opens the file, creating it from the `raid` fixture (clock running)
    // when it is missing or empty, or was written by another build of the
    // simulator. A non-empty file that is not a simulator state is left
    // alone and reported. Null on failure, with the reason in *error.
    static std::unique_ptr<StateFile> open(const std::string &path, std::string *error);
    // Replaces the whole state (used by reset). The file is rewritten in place
    // so that processes holding a mapping see the new machine.
    static bool write(const std::string &path, const SimState &image, std::string *error);

    ~StateFile();
    StateFile(const StateFile &) = delete;
    StateFile &operator=(const StateFile &) = delete;

    class Lock {
      public:
        explicit Lock(StateFile &file);
        ~Lock();
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

      private:
        StateFile &file_;
        std::unique_lock<std::mutex> guard_;
    };

    // Only while a Lock is held.
    SimState &state() { return *state_; }
    // Still the same file as the path names (not removed or replaced).
    bool sameFile(const std::string &path) const;
    const std::string &path() const { return path_; }
    // The command log beside the state, opened for appending on first use
    // and kept open (krtsim clears it by truncating in place); -1 when it
    // cannot be opened.
    int logFd();

  private:
    StateFile(std::string path, int fd, SimState *state, dev_t dev, ino_t ino);

    std::string path_;
    int fd_;
    SimState *state_;
    dev_t dev_;
    ino_t ino_;
    int logFd_ = -1;
    std::mutex mutex_;
};

// Does an image carry this build's head?
bool validImage(const SimState &state);

}  // namespace krtsim
