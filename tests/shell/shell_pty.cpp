// The interactive shell driven through a real pseudo-terminal, as a person
// at a terminal would use it.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "machine.h"

namespace {

// krt_cli on the slave side of a pseudo-terminal; everything it writes is
// collected from the master side. Every wait is bounded.
class Terminal {
  public:
    explicit Terminal(const krt_test::SimMachine &machine)
    {
        krt_test::RunOptions options = machine.env();
        options.env["TERM"] = "xterm";
        options.env["HOME"] = machine.dir().path();
        winsize size{.ws_row = 24, .ws_col = 200, .ws_xpixel = 0, .ws_ypixel = 0};
        pid_ = forkpty(&master_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            for (const auto &[name, value] : options.env)
                setenv(name.c_str(), value.c_str(), 1);
            const std::string cli = krt_test::cliPath();
            if (chdir(options.cwd.c_str()) == 0)
                execl(cli.c_str(), cli.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~Terminal()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(master_);
    }

    // Types the keys, then waits until `reply` appears after what was seen
    // before. Keys go only once the line editor has the terminal: typed in
    // line mode, the terminal's own line discipline would take them (Ctrl-D
    // as end of file).
    bool say(const std::string &keys, const std::string &reply)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (termios mode{}; tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0 && readSome(end);) {
        }
        if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
            return false;
        while (output.find(reply, position_) == std::string::npos) {
            if (!readSome(end))
                return false;
        }
        position_ = output.find(reply, position_) + reply.size();
        return true;
    }

    // Waits for the process to end; its exit status, or -1 on a timeout or a signal.
    int exitStatus()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) != pid_) {
            if (std::chrono::steady_clock::now() >= end)
                return -1;
            readSome(end);
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string output;

  private:
    // Reads what arrives within 50 ms. False once past the deadline or the
    // terminal has closed.
    bool readSome(std::chrono::steady_clock::time_point end)
    {
        pollfd fd{master_, POLLIN, 0};
        char buffer[4096];
        const ssize_t n = poll(&fd, 1, 50) > 0 ? read(master_, buffer, sizeof buffer) : 0;
        if (n > 0)
            output.append(buffer, static_cast<std::size_t>(n));
        return std::chrono::steady_clock::now() < end && (n > 0 || fd.revents == 0);
    }

    pid_t pid_ = -1;
    int master_ = -1;
    std::size_t position_ = 0;
};

TEST(ShellTerminal, PromptLineEditingAndTheExitWords)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine);
    ASSERT_TRUE(t.say("", "CLI Version: 1.0.0.1041\r\nWelcome to NVMe Command Line Interface.\r\n\r\n> ")) << t.output;
    const struct {
        const char *keys;
        const char *shown;
    } steps[] = {
        {"\r", "Type 'exit' to exit CLI.\r\n"},
        {"\"unbalanced\r", "Invalid quoted string.\r\n"},
        {"recallme\r", "Invalid command 'recallme'!\r\n"},
        {"\x1b[A\r", "Invalid command 'recallme'!\r\n"},  // the up arrow recalls the line
        {"\x04", ""},                                     // Ctrl-D: only the prompt again
        {"version\r", "Support Firmware Version: 1.0.x.1039 above\r\n"},
    };
    for (const auto &s : steps)
        EXPECT_TRUE(t.say(s.keys, std::string(s.shown) + "> ")) << testing::PrintToString(s.keys) << t.output;
    t.say("EXIT\r", "");
    EXPECT_EQ(t.exitStatus(), 0) << t.output;

    Terminal quit(machine);
    quit.say("", "> ");
    quit.say("Quit\r", "");
    EXPECT_EQ(quit.exitStatus(), 0) << quit.output;
}

}  // namespace
