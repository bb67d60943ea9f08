// krtsim: creates, shows and resets the simulated machine, injects faults,
// shows the command log, drives the clock and runs a program against it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/controller.h"
#include "core/fixture.h"
#include "core/show.h"
#include "core/store.h"

namespace {

using namespace krtsim;

const char kUsage[] =
    "usage: krtsim COMMAND ...   (state: $KRTSIM_STATE, default /tmp/krtsim-<uid>/state)\n"
    "  reset [raid|jbof|multi|foreign|import|empty|large|degraded|<machine.json>]   start over (default raid);\n"
    "                                   a machine file, hand-written or from krt_cli --capture\n"
    "  show                             print the machine\n"
    "  log                              print the command log\n"
    "  log clear                        empty the command log\n"
    "  fault clear                      remove every fault\n"
    "  fault add [--adapter N] [--opcode 0xNN] [--cdw12 0xNNNNNNNN] [--count K] EFFECT\n"
    "      EFFECT: --status 0xSCTSC | --bad-sign | --envelope-status N | --overlong | --delay MS\n"
    "  fault vanish N                   adapter N stays listed but cannot be opened\n"
    "  fault list-fail                  the driver refuses the adapter list\n"
    "  clock freeze | clock run | clock advance SECONDS\n"
    "  pace [MS]                        firmware downloads take MS milliseconds per MiB (0: no wait;\n"
    "                                   a new machine: 1500); without MS, print the pace\n"
    "  reboot                           shut the host down and boot it again (committed firmware runs)\n"
    "  exec -- CMD [ARGS...]            run CMD against this machine\n";

int usage()
{
    std::fputs(kUsage, stderr);
    return 2;
}

int failWith(const std::string &message)
{
    std::fprintf(stderr, "krtsim: %s\n", message.c_str());
    return 1;
}

bool parseNumber(const std::string &text, unsigned long long max, unsigned long long *out)
{
    if (text.empty() || text[0] == '-')
        return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long n = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || end == nullptr || *end != '\0' || n > max)
        return false;
    *out = n;
    return true;
}

std::unique_ptr<StateFile> openState()
{
    std::string error;
    auto file = StateFile::open(defaultStatePath(), &error);
    if (!file)
        std::fprintf(stderr, "krtsim: %s\n", error.c_str());
    return file;
}

int doReset(const std::vector<std::string> &args)
{
    if (args.size() > 1)
        return usage();
    const std::string which = args.empty() ? "raid" : args[0];
    auto image = std::make_unique<SimState>();
    std::string error;
    bool ok;
    if (!builtinFixture(which).empty()) {
        ok = buildBuiltin(which, *image, &error);
    } else if (which.find('/') != std::string::npos || which.ends_with(".json")) {
        std::ifstream in(which, std::ios::binary);
        if (!in)
            return failWith("cannot read fixture " + which + ": " + std::strerror(errno));
        std::stringstream text;
        text << in.rdbuf();
        ok = buildFixture(text.str(), *image, &error);
    } else {
        std::string names;
        for (const auto &n : builtinFixtureNames())
            names += " " + n;
        return failWith("no fixture '" + which + "' (built in:" + names + ", or a path to a .json file)");
    }
    if (!ok)
        return failWith(error);
    const std::string path = defaultStatePath();
    if (!StateFile::write(path, *image, &error))
        return failWith(error);
    // A fresh machine starts with an empty command log.
    int fd = ::open(logPathFor(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd >= 0)
        ::close(fd);
    return 0;
}

int doShow(const std::vector<std::string> &args)
{
    if (!args.empty())
        return usage();
    auto file = openState();
    if (!file)
        return 1;
    StateFile::Lock lock(*file);
    std::fputs(showState(file->state()).c_str(), stdout);
    return 0;
}

int doLog(const std::vector<std::string> &args)
{
    const std::string path = logPathFor(defaultStatePath());
    if (args.size() == 1 && args[0] == "clear") {
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0)
            return failWith("cannot clear " + path + ": " + std::strerror(errno));
        ::close(fd);
        return 0;
    }
    if (!args.empty())
        return usage();
    std::ifstream in(path, std::ios::binary);
    if (in)
        std::fputs(std::string(std::istreambuf_iterator<char>(in), {}).c_str(), stdout);
    return 0;
}

int doFaultAdd(const std::vector<std::string> &args)
{
    SimFault f{};
    f.adapter = -1;
    f.remaining = -1;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        auto value = [&](unsigned long long max, unsigned long long *out) {
            return i + 1 < args.size() && parseNumber(args[++i], max, out);
        };
        unsigned long long n = 0;
        if (a == "--adapter") {
            if (!value(kMaxAdapters - 1, &n))
                return usage();
            f.adapter = static_cast<KRT_S32>(n);
        } else if (a == "--opcode") {
            if (!value(0xFF, &n))
                return usage();
            f.matchOpcode = 1;
            f.opcode = static_cast<KRT_U8>(n);
        } else if (a == "--cdw12") {
            if (!value(0xFFFFFFFF, &n))
                return usage();
            f.matchCdw12 = 1;
            f.cdw12 = static_cast<KRT_U32>(n);
        } else if (a == "--count") {
            if (!value(INT_MAX, &n) || n == 0)
                return usage();
            f.remaining = static_cast<KRT_S32>(n);
        } else if (a == "--status") {
            if (!value(0x7FF, &n) || n == 0 || f.effect != FAULT_NONE)
                return usage();
            f.effect = FAULT_STATUS;
            f.value = static_cast<KRT_U32>(n);
        } else if (a == "--envelope-status") {
            if (!value(0xFF, &n) || f.effect != FAULT_NONE)
                return usage();
            f.effect = FAULT_ENVELOPE_STATUS;
            f.value = static_cast<KRT_U32>(n);
        } else if (a == "--delay") {
            if (!value(600000, &n) || n == 0 || f.effect != FAULT_NONE)
                return usage();
            f.effect = FAULT_DELAY;
            f.value = static_cast<KRT_U32>(n);
        } else if (a == "--bad-sign" && f.effect == FAULT_NONE) {
            f.effect = FAULT_BAD_SIGN;
        } else if (a == "--overlong" && f.effect == FAULT_NONE) {
            f.effect = FAULT_OVERLONG;
        } else {
            return usage();
        }
    }
    if (f.effect == FAULT_NONE)
        return usage();
    auto file = openState();
    if (!file)
        return 1;
    StateFile::Lock lock(*file);
    for (SimFault &slot : file->state().faults) {
        if (slot.effect != FAULT_NONE)
            continue;
        slot = f;
        return 0;
    }
    return failWith("too many fault rules (at most " + std::to_string(kMaxFaults) + ")");
}

int doFault(const std::vector<std::string> &args)
{
    if (args.empty())
        return usage();
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    if (args[0] == "add")
        return doFaultAdd(rest);
    unsigned long long n = 0;
    if (args[0] == "clear" && rest.empty()) {
        auto file = openState();
        if (!file)
            return 1;
        StateFile::Lock lock(*file);
        SimState &st = file->state();
        for (SimFault &f : st.faults)
            f = SimFault{};
        st.listFails = 0;
        for (SimAdapter &ad : st.adapters)
            ad.vanished = 0;
        return 0;
    }
    if (args[0] == "vanish" && rest.size() == 1 && parseNumber(rest[0], kMaxAdapters - 1, &n)) {
        auto file = openState();
        if (!file)
            return 1;
        StateFile::Lock lock(*file);
        if (n >= file->state().adapterCount)
            return failWith("no adapter " + rest[0]);
        file->state().adapters[n].vanished = 1;
        return 0;
    }
    if (args[0] == "list-fail" && rest.empty()) {
        auto file = openState();
        if (!file)
            return 1;
        StateFile::Lock lock(*file);
        file->state().listFails = 1;
        return 0;
    }
    return usage();
}

int doClock(const std::vector<std::string> &args)
{
    unsigned long long seconds = 0;
    bool ok = (args.size() == 1 && (args[0] == "freeze" || args[0] == "run")) ||
              (args.size() == 2 && args[0] == "advance" && parseNumber(args[1], 100ull * 365 * 86400, &seconds));
    if (!ok)
        return usage();
    auto file = openState();
    if (!file)
        return 1;
    StateFile::Lock lock(*file);
    SimClock &clock = file->state().clock;
    if (args[0] == "freeze")
        clockFreeze(clock);
    else if (args[0] == "run")
        clockRun(clock);
    else
        clockAdvance(clock, seconds * 1000);
    return 0;
}

int doPace(const std::vector<std::string> &args)
{
    unsigned long long pace = 0;
    if (args.size() > 1 || (args.size() == 1 && !parseNumber(args[0], kMaxFwPace, &pace)))
        return usage();
    auto file = openState();
    if (!file)
        return 1;
    StateFile::Lock lock(*file);
    SimState &st = file->state();
    if (args.empty())
        std::printf("%u\n", st.fwPace);
    else
        st.fwPace = static_cast<KRT_U32>(pace);
    return 0;
}

int doReboot(const std::vector<std::string> &args)
{
    if (!args.empty())
        return usage();
    auto file = openState();
    if (!file)
        return 1;
    StateFile::Lock lock(*file);
    rebootMachine(file->state(), clockMillis(file->state().clock));
    return 0;
}

// The folder of this program; the platform library sits in its lib/.
std::string selfDir()
{
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0)
        return ".";
    buf[n] = '\0';
    std::string path(buf);
    auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

int doExec(const std::vector<std::string> &args)
{
    size_t first = (!args.empty() && args[0] == "--") ? 1 : 0;
    if (first >= args.size())
        return usage();
    std::string state = defaultStatePath();
    if (state[0] != '/') {
        char cwd[PATH_MAX];
        if (getcwd(cwd, sizeof cwd) != nullptr)
            state = std::string(cwd) + "/" + state;
    }
    setenv("KRTSIM_STATE", state.c_str(), 1);
    // Create the machine now, so the program finds it on first use.
    if (!openState())
        return 1;
    std::string libs = selfDir() + "/lib";
    const char *old = std::getenv("LD_LIBRARY_PATH");
    if (old != nullptr && old[0] != '\0')
        libs += std::string(":") + old;
    setenv("LD_LIBRARY_PATH", libs.c_str(), 1);
    std::vector<char *> argv;
    for (size_t i = first; i < args.size(); ++i)
        argv.push_back(const_cast<char *>(args[i].c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    std::fprintf(stderr, "krtsim: cannot run %s: %s\n", argv[0], std::strerror(errno));
    return 127;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return usage();
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "reset")
        return doReset(args);
    if (command == "show")
        return doShow(args);
    if (command == "log")
        return doLog(args);
    if (command == "fault")
        return doFault(args);
    if (command == "clock")
        return doClock(args);
    if (command == "exec")
        return doExec(args);
    if (command == "reboot")
        return doReboot(args);
    if (command == "pace")
        return doPace(args);
    return usage();
}
