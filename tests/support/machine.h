// A simulated machine for end-to-end tests: its own simulator state file,
// reset from a fixture, and the real krt_cli binary run against it.
#pragma once

#include <string>
#include <vector>

#include "process.h"

namespace krt_test {

// Paths of the built programs (set by CMake).
std::string cliPath();     // the krt_cli binary
std::string krtsimPath();  // the krtsim tool
std::string simLibDir();   // the folder holding the simulated libvmkmgmt.so

class SimMachine {
  public:
    // Creates the state from a fixture: raid, jbof, multi, foreign, empty,
    // large, or a path to a JSON fixture.
    explicit SimMachine(const std::string &fixture = "raid");
    // A second machine in the state this one is in now (its command log
    // starts empty).
    SimMachine(const SimMachine &other);
    SimMachine &operator=(const SimMachine &) = delete;

    // krt_cli with the given words, against this machine.
    RunResult cli(const std::vector<std::string> &words, const RunOptions &options = {}) const;
    // Typed lines run in the shell (an "exit" line is added); what it printed.
    std::string shell(const std::string &lines) const;
    // krtsim with the given words, against this machine. A reset also sets
    // the firmware download pace to 0 (no wait).
    RunResult krtsim(const std::vector<std::string> &words) const;
    // The environment that points the platform library at this machine.
    RunOptions env(RunOptions options = {}) const;

    const std::string &statePath() const { return state_; }
    const TempDir &dir() const { return dir_; }

  private:
    TempDir dir_;
    std::string state_;
};

// A machine with no platform library at all: the loader finds nothing.
RunResult cliWithoutLibrary(const std::vector<std::string> &words, const RunOptions &options = {});

}  // namespace krt_test
