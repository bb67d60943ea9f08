// A simulated machine used from inside the test process: krtsim resets its
// state, and the platform library (loaded as the tool loads it) is pointed
// at it through KRTSIM_STATE.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "machine.h"
#include "sim_client.h"

namespace krt_sim_test {

inline std::string libraryPath()
{
    return krt_test::simLibDir() + "/libvmkmgmt.so";
}

class LibMachine {
  public:
    explicit LibMachine(const std::string &fixture) : machine_(fixture), client_(libraryPath())
    {
        setenv("KRTSIM_STATE", machine_.statePath().c_str(), 1);
    }
    ~LibMachine() { unsetenv("KRTSIM_STATE"); }

    SimClient &client() { return client_; }
    const krt_test::SimMachine &machine() const { return machine_; }
    krt_test::RunResult krtsim(const std::vector<std::string> &words) const { return machine_.krtsim(words); }
    std::string log() const { return machine_.krtsim({"log"}).out; }

  private:
    krt_test::SimMachine machine_;
    SimClient client_;
};

}  // namespace krt_sim_test
