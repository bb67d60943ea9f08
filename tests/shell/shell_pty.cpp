// The interactive shell driven through a real pseudo-terminal, as a person
// at a terminal would use it.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "machine.h"

namespace {

// krt_cli on the slave side of a pseudo-terminal; everything it writes is
// collected from the master side. Every wait is bounded.
class Terminal {
  public:
    explicit Terminal(const krt_test::SimMachine &machine, unsigned short rows = 24, unsigned short columns = 200)
    {
        krt_test::RunOptions options = machine.env();
        options.env["TERM"] = "xterm";
        options.env["HOME"] = machine.dir().path();
        const std::string cli = krt_test::cliPath();
        winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
        pid_ = forkpty(&master_, nullptr, nullptr, &size);
        if (pid_ == 0) {
            for (const auto &[name, value] : options.env)
                setenv(name.c_str(), value.c_str(), 1);
            if (chdir(options.cwd.c_str()) == 0)
                execl(cli.c_str(), cli.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~Terminal()
    {
        if (pid_ > 0 && kill(pid_, SIGKILL) == 0)
            waitpid(pid_, nullptr, 0);
        close(master_);
    }

    // Types the keys once the line editor has the terminal (in line mode the
    // line discipline would take them, Ctrl-D as end of file), then waits
    // until `reply` appears after what was seen before.
    bool say(const std::string &keys, const std::string &reply)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (termios mode{}; tcgetattr(master_, &mode) == 0 && (mode.c_lflag & ICANON) != 0 && readSome(end);) {
        }
        if (!press(keys))
            return false;
        while (output.find(reply, position_) == std::string::npos) {
            if (!readSome(end))
                return false;
        }
        position_ = output.find(reply, position_) + reply.size();
        return true;
    }

    // Keys sent at once, whoever has the terminal.
    bool press(const std::string &keys)
    {
        return write(master_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
    }

    // The window changes size; the program is told with SIGWINCH.
    void resize(unsigned short rows, unsigned short columns)
    {
        winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
        ASSERT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
    }

    // The process's wait status once it ended (0: exit status 0), -1 on a timeout.
    int waitStatus()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (int status = 0; std::chrono::steady_clock::now() < end; readSome(end)) {
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return status;
            }
        }
        return -1;
    }

    std::string output;

  private:
    // Reads what arrives within 50 ms; false past the deadline or at hang-up.
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

// Each step's keys, then what the shell shows for them up to the next prompt.
TEST(ShellTerminal, PromptLineEditingCompletionAndExit)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine);
    ASSERT_TRUE(t.say("", "CLI Version: 1.0.0.1041\r\nWelcome to NVMe Command Line Interface.\r\n\r\n> ")) << t.output;
    const std::pair<const char *, const char *> steps[] = {
        {"recallme\r", "Invalid command 'recallme'!\r\n> "},
        {"\x1b[A\r", "Invalid command 'recallme'!\r\n> "},    // the up arrow recalls the line
        {"ab\x1b[A\x1b[B\r", "Invalid command 'ab'!\r\n> "},  // and the down arrow the new one
        {"\x04", "> "},                                       // Ctrl-D: only the prompt again
        // Tab completes one candidate and lists several: command names, the
        // options of the command typed (never a long name only its help
        // mentions), command names after help.
        {"ver\t\r", "Support Firmware Version: 1.0.x.1039 above\r\n> "},
        {"init -\t", "\r\n--action  --help  --vd_id  -a  -h  -i\r\n"},
        {"-v\t9\r", "Invalid LD ID (Status Code: 0x707)\r\ncmd failed.\r\n> "},
        {"info --ob\thba\r", "Total # of HBA:"},
        {"help v\t", "\r\nvd  version  vpd  vpdread\r\n"},
        {"pdr\t\r", "Description"},
    };
    for (const auto &[keys, shown] : steps)
        EXPECT_TRUE(t.say(keys, shown)) << testing::PrintToString(keys) << t.output;
    t.say("EXIT\r", "");
    EXPECT_EQ(t.waitStatus(), 0) << t.output;
}

// Lines longer than the terminal holds, pasted (or left so by a window
// that shrank) and edited at both ends, then recalled and edited again: the
// editor never lets a line grow taller than the terminal, so nothing it
// draws can run off the screen.
TEST(ShellTerminal, LinesTallerThanTheTerminalAreRefusedNotDrawn)
{
    krt_test::SimMachine machine("raid");
    const struct {
        unsigned short rows, columns;
        std::size_t pasted;
        unsigned short shrunkRows = 0, shrunkColumns = 0;
    } cases[] = {{24, 80, 2000}, {12, 40, 1000}, {24, 80, 1500, 12, 40}};
    for (const auto &c : cases) {
        Terminal t(machine, c.rows, c.columns);
        ASSERT_TRUE(t.say("", "> ")) << t.output;
        ASSERT_TRUE(t.say(std::string(c.pasted, 'a'), "aaaa")) << t.output;
        const bool overflows = c.pasted > static_cast<std::size_t>(c.rows - 1) * c.columns;  // a row kept free
        std::size_t fits = static_cast<std::size_t>(c.rows - 1) * c.columns;
        if (c.shrunkRows != 0) {
            t.resize(c.shrunkRows, c.shrunkColumns);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            fits = static_cast<std::size_t>(c.shrunkRows - 1) * c.shrunkColumns;
        }
        // At the start delete ten and type three, at the end delete five and
        // type three (the command word is shown lower-cased).
        EXPECT_TRUE(
            t.say("\x01" + std::string(10, '\x04') + "xyz\x05" + std::string(5, '\x7f') + "END\r", "aaaend'!\r\n> "))
            << c.columns;
        EXPECT_TRUE(!overflows || t.output.find('\a') != std::string::npos) << "the refused keys ring the bell";
        const std::size_t start = t.output.find("Invalid command 'xyzaaa");
        ASSERT_NE(start, std::string::npos) << t.output;
        EXPECT_LT(t.output.find("'!", start) - start - 17 + 2, fits) << t.output.substr(start);

        // The same line from history, edited at both ends again.
        EXPECT_TRUE(t.say("\x1b[A\x01\x04Q\x05\x7f!\r", "aaaen!'!\r\n> ")) << t.output.substr(start);
        EXPECT_NE(t.output.find("Invalid command 'qyzaaa", start + 1), std::string::npos);
        t.say("exit\r", "");
        EXPECT_EQ(t.waitStatus(), 0) << t.output.substr(start);
    }
}

TEST(ShellTerminal, CtrlCAbandonsTheLineButEndsARunningCommand)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine);
    ASSERT_TRUE(t.say("", "> ")) << t.output;
    EXPECT_TRUE(t.say("versio\x03", "\r\n> ")) << t.output;
    EXPECT_TRUE(t.say("zz\r", "Invalid command 'zz'!\r\n> ")) << t.output;  // "versio" was dropped
    EXPECT_TRUE(t.say("\x03", "\r\n> ")) << t.output;
    EXPECT_TRUE(t.say("\x1b[A\r", "Invalid command 'zz'!\r\n> ")) << "the abandoned lines are not in the history";

    // A slow controller keeps the command running long enough to stop it.
    machine.krtsim({"fault", "add", "--opcode", "0xe2", "--delay", "5000"});
    ASSERT_TRUE(t.press("info -o hba\r"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(t.press("\x03"));
    const int status = t.waitStatus();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status << t.output;
}

}  // namespace
