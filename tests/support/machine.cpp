#include "machine.h"

#include <stdexcept>

namespace krt_test {

std::string cliPath()
{
    return KRT_CLI_PATH;
}
std::string krtsimPath()
{
    return KRTSIM_PATH;
}
std::string simLibDir()
{
    return KRTSIM_LIB_DIR;
}

SimMachine::SimMachine(const std::string &fixture) : state_(dir_.file("sim.state"))
{
    RunResult r = krtsim({"reset", fixture});
    if (r.status != 0)
        throw std::runtime_error("krtsim reset " + fixture + " failed: " + r.err);
}

SimMachine::SimMachine(const SimMachine &other) : state_(dir_.file("sim.state"))
{
    writeFile(state_, readFile(other.state_));
}

RunOptions SimMachine::env(RunOptions options) const
{
    options.env["LD_LIBRARY_PATH"] = simLibDir();
    options.env["KRTSIM_STATE"] = state_;
    if (options.cwd.empty())
        options.cwd = dir_.path();
    return options;
}

RunResult SimMachine::cli(const std::vector<std::string> &words, const RunOptions &options) const
{
    std::vector<std::string> argv{cliPath()};
    argv.insert(argv.end(), words.begin(), words.end());
    return runProcess(argv, env(options));
}

std::string SimMachine::shell(const std::string &lines) const
{
    RunOptions options;
    options.input = lines + "exit\n";
    return cli({}, options).out;
}

RunResult SimMachine::krtsim(const std::vector<std::string> &words) const
{
    std::vector<std::string> argv{krtsimPath()};
    argv.insert(argv.end(), words.begin(), words.end());
    RunResult r = runProcess(argv, env());
    // A reset machine downloads firmware at a person's pace; tests do not wait.
    if (r.status == 0 && !words.empty() && words[0] == "reset")
        runProcess({krtsimPath(), "pace", "0"}, env());
    return r;
}

RunResult cliWithoutLibrary(const std::vector<std::string> &words, const RunOptions &options)
{
    RunOptions o = options;
    TempDir empty;
    o.env["LD_LIBRARY_PATH"] = empty.path();
    o.env["KRTSIM_STATE"] = empty.file("none.state");
    std::vector<std::string> argv{cliPath()};
    argv.insert(argv.end(), words.begin(), words.end());
    return runProcess(argv, o);
}

}  // namespace krt_test
