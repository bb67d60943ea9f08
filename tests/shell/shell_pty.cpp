// The interactive shell driven through a real pseudo-terminal, as a person
// at a terminal would use it.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "machine.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTimeout = std::chrono::seconds(20);

const std::string kBanner = "CLI Version: 1.0.0.1041\r\nWelcome to NVMe Command Line Interface.\r\n\r\n";

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
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (master_ >= 0)
            close(master_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    bool started() const { return pid_ > 0 && master_ >= 0; }

    // Types keys once the line editor has the terminal: keys typed while it
    // is still in line mode would be read by the terminal's own line
    // discipline (Ctrl-D as end of file) instead of by the editor.
    void type(const std::string &keys)
    {
        const auto deadline = Clock::now() + kTimeout;
        termios mode{};
        while (tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0 && Clock::now() < deadline) {
            readSome(Clock::now() + std::chrono::milliseconds(10));
        }
        ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Waits until `text` appears in the output after the read position, and
    // moves the position past it.
    bool expect(const std::string &text)
    {
        const auto deadline = Clock::now() + kTimeout;
        for (;;) {
            const std::size_t found = output_.find(text, position_);
            if (found != std::string::npos) {
                position_ = found + text.size();
                return true;
            }
            if (Clock::now() >= deadline || !readSome(deadline))
                return false;
        }
    }

    // Waits for the process to end; its exit status, or -1 on a timeout or a signal.
    int exitStatus()
    {
        const auto deadline = Clock::now() + kTimeout;
        while (Clock::now() < deadline) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                exited_ = true;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            readSome(Clock::now() + std::chrono::milliseconds(50));
        }
        return -1;
    }

    const std::string &output() const { return output_; }

  private:
    // Reads what is there, waiting at most until the deadline. False when the
    // terminal has closed.
    bool readSome(Clock::time_point deadline)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd fd{master_, POLLIN, 0};
        const int ready = poll(&fd, 1, static_cast<int>(std::max<long>(0, std::min<long>(left.count(), 100))));
        if (ready <= 0)
            return ready == 0 || errno == EINTR;
        char buffer[4096];
        const ssize_t n = read(master_, buffer, sizeof buffer);
        if (n <= 0)
            return false;
        output_.append(buffer, static_cast<std::size_t>(n));
        return true;
    }

    pid_t pid_ = -1;
    int master_ = -1;
    bool exited_ = false;
    std::string output_;
    std::size_t position_ = 0;
};

class ShellTerminal : public testing::Test {
  protected:
    krt_test::SimMachine machine{"raid"};
};

TEST_F(ShellTerminal, BannerPromptEmptyLineAndExit)
{
    Terminal t(machine);
    ASSERT_TRUE(t.started());
    ASSERT_TRUE(t.expect(kBanner + "> ")) << t.output();
    t.type("\r");
    EXPECT_TRUE(t.expect("Type 'exit' to exit CLI.\r\n")) << t.output();
    EXPECT_TRUE(t.expect("> ")) << t.output();
    t.type("\"unbalanced\r");
    EXPECT_TRUE(t.expect("Invalid quoted string.\r\n")) << t.output();
    EXPECT_TRUE(t.expect("> ")) << t.output();
    t.type("EXIT\r");
    EXPECT_EQ(t.exitStatus(), 0) << t.output();
}

TEST_F(ShellTerminal, QuitInMixedCaseEndsTheShell)
{
    Terminal t(machine);
    ASSERT_TRUE(t.expect("> ")) << t.output();
    t.type("Quit\r");
    EXPECT_EQ(t.exitStatus(), 0) << t.output();
}

TEST_F(ShellTerminal, UpArrowRecallsThePreviousLine)
{
    Terminal t(machine);
    ASSERT_TRUE(t.expect("> ")) << t.output();
    t.type("recallme\r");
    ASSERT_TRUE(t.expect("Invalid command 'recallme'!\r\n")) << t.output();
    ASSERT_TRUE(t.expect("> ")) << t.output();
    t.type("\x1b[A\r");
    EXPECT_TRUE(t.expect("Invalid command 'recallme'!\r\n")) << t.output();
    t.type("exit\r");
    EXPECT_EQ(t.exitStatus(), 0) << t.output();
}

TEST_F(ShellTerminal, CtrlDShowsThePromptAgain)
{
    Terminal t(machine);
    ASSERT_TRUE(t.expect("> ")) << t.output();
    t.type("\x04");
    EXPECT_TRUE(t.expect("> ")) << t.output();
    t.type("version\r");
    EXPECT_TRUE(t.expect("Support Firmware Version: 1.0.x.1039 above\r\n")) << t.output();
    t.type("exit\r");
    EXPECT_EQ(t.exitStatus(), 0) << t.output();
}

}  // namespace
