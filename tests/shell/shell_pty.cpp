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

using Clock = std::chrono::steady_clock;

// krt_cli on the slave side of a pseudo-terminal; everything it writes is
// collected from the master side. Every wait is bounded.
class Terminal {
  public:
    explicit Terminal(const krt_test::SimMachine &machine)
    {
        krt_test::RunOptions options = machine.env();
        options.env["TERM"] = "xterm";
        options.env["HOME"] = machine.dir().path();
        winsize size{};
        size.ws_row = 24;
        size.ws_col = 200;
        pid_ = forkpty(&master_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            for (const auto &[name, value] : options.env)
                setenv(name.c_str(), value.c_str(), 1);
            if (chdir(options.cwd.c_str()) != 0)
                _exit(126);
            const std::string cli = krt_test::cliPath();
            execl(cli.c_str(), cli.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~Terminal()
    {
        if (pid_ > 0 && status_ == -2) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (master_ >= 0)
            close(master_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Types keys once the line editor has the terminal: keys typed while it
    // is still in line mode would be read by the terminal's own line
    // discipline (Ctrl-D as end of file) instead of by the editor.
    void type(const std::string &keys)
    {
        termios mode{};
        for (const auto end = Clock::now() + kTimeout;
             tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0 && Clock::now() < end;)
            readSome();
        ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Waits until `text` appears after the read position and moves past it.
    bool expect(const std::string &text)
    {
        for (const auto end = Clock::now() + kTimeout;;) {
            const std::size_t found = output_.find(text, position_);
            if (found != std::string::npos) {
                position_ = found + text.size();
                return true;
            }
            if (Clock::now() >= end || !readSome())
                return false;
        }
    }

    // Waits for the process to end; its exit status, or -1 on a timeout or a signal.
    int exitStatus()
    {
        for (const auto end = Clock::now() + kTimeout; status_ == -2 && Clock::now() < end; readSome()) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_)
                status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return status_ == -2 ? -1 : status_;
    }

    const std::string &output() const { return output_; }

  private:
    static constexpr auto kTimeout = std::chrono::seconds(20);

    // Reads what arrives within 50 ms. False once the terminal has closed.
    bool readSome()
    {
        pollfd fd{master_, POLLIN, 0};
        if (poll(&fd, 1, 50) <= 0)
            return true;
        char buffer[4096];
        const ssize_t n = read(master_, buffer, sizeof buffer);
        if (n > 0)
            output_.append(buffer, static_cast<std::size_t>(n));
        return n > 0;
    }

    pid_t pid_ = -1;
    int master_ = -1;
    int status_ = -2;  // -2: still running
    std::string output_;
    std::size_t position_ = 0;
};

TEST(ShellTerminal, PromptLineEditingAndTheExitWords)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine);
    ASSERT_TRUE(t.expect("CLI Version: 1.0.0.1041\r\nWelcome to NVMe Command Line Interface.\r\n\r\n> ")) << t.output();
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
    for (const auto &s : steps) {
        SCOPED_TRACE(testing::PrintToString(s.keys));
        t.type(s.keys);
        EXPECT_TRUE(t.expect(std::string(s.shown) + "> ")) << t.output();
    }
    t.type("EXIT\r");
    EXPECT_EQ(t.exitStatus(), 0) << t.output();

    Terminal quit(machine);
    ASSERT_TRUE(quit.expect("> ")) << quit.output();
    quit.type("Quit\r");
    EXPECT_EQ(quit.exitStatus(), 0) << quit.output();
}

}  // namespace
