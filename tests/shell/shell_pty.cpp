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
        winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
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

    // The window changes size; the program is told with SIGWINCH.
    void resize(unsigned short rows, unsigned short columns)
    {
        winsize size{.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
        ASSERT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
    }

    // Keys sent at once, whoever has the terminal.
    void press(const std::string &keys)
    {
        ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Waits for the process to end; its wait status, or -1 on a timeout.
    int waitStatus()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) != pid_) {
            if (std::chrono::steady_clock::now() >= end)
                return -1;
            readSome(end);
        }
        pid_ = -1;
        return status;
    }

    // Its exit status, or -1 on a timeout or a signal.
    int exitStatus()
    {
        const int status = waitStatus();
        return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

// Each step's keys, then what the shell shows for them up to the next prompt.
TEST(ShellTerminal, PromptLineEditingCompletionAndTheExitWords)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine);
    ASSERT_TRUE(t.say("", "CLI Version: 1.0.0.1041\r\nWelcome to NVMe Command Line Interface.\r\n\r\n> ")) << t.output;
    const struct {
        const char *keys;
        const char *shown;
    } steps[] = {
        {"\r", "Type 'exit' to exit CLI.\r\n> "},
        {"\"unbalanced\r", "Invalid quoted string.\r\n> "},
        {"recallme\r", "Invalid command 'recallme'!\r\n> "},
        {"\x1b[A\r", "Invalid command 'recallme'!\r\n> "},  // the up arrow recalls the line
        {"\x04", "> "},                                     // Ctrl-D: only the prompt again
        // Tab offers public command names, the options of the command typed
        // (never a long name only its help mentions), and command names
        // again after help.
        {"ver\t\r", "Support Firmware Version: 1.0.x.1039 above\r\n> "},
        {"init -\t", "\r\n--action  --help  --vd_id  -a  -h  -i\r\n"},
        {"-v\t9\r", "Invalid LD ID (Status Code: 0x707)\r\ncmd failed.\r\n> "},
        {"info --ob\thba\r", "Total # of HBA:"},
        {"help v\t", "\r\nvd  version  vpd  vpdread\r\n"},
        {"pdr\t\r", "Description"},
        {"ge\t\r", "Description"},  // not the hidden gen: get alone shows its help
    };
    for (const auto &s : steps)
        EXPECT_TRUE(t.say(s.keys, s.shown)) << testing::PrintToString(s.keys) << t.output;
    t.say("EXIT\r", "");
    EXPECT_EQ(t.exitStatus(), 0) << t.output;

    Terminal quit(machine);
    quit.say("", "> ");
    quit.say("Quit\r", "");
    EXPECT_EQ(quit.exitStatus(), 0) << quit.output;
}

// Lines longer than the terminal holds, pasted and edited at both ends, then
// recalled and edited again: the editor never lets a line grow taller than
// the terminal, so nothing it draws can run off the screen.
TEST(ShellTerminal, LinesTallerThanTheTerminalAreRefusedNotDrawn)
{
    krt_test::SimMachine machine("raid");
    const struct {
        unsigned short rows, columns;
        std::size_t pasted;
    } sizes[] = {{24, 80, 2000}, {12, 40, 1000}};
    for (const auto &size : sizes) {
        Terminal t(machine, size.rows, size.columns);
        ASSERT_TRUE(t.say("", "> ")) << t.output;
        // Paste, then at the start delete ten and type three, at the end
        // delete five and type three (the command word is shown lower-cased).
        const std::string keys = std::string(size.pasted, 'a') + "\x01" + std::string(10, '\x04') + "xyz" + "\x05" +
                                 std::string(5, '\x7f') + "END\r";
        EXPECT_TRUE(t.say(keys, "aaaend'!\r\n> ")) << size.columns;
        const std::size_t start = t.output.find("Invalid command 'xyzaaa");
        ASSERT_NE(start, std::string::npos) << t.output;
        const std::size_t kept = t.output.find("'!", start) - start - 17;
        EXPECT_LT(kept + 2, static_cast<std::size_t>(size.rows - 1) * size.columns) << "the line kept a row free";
        EXPECT_NE(t.output.find('\a'), std::string::npos) << "the refused keys rang the bell";

        // The same line from history, edited at both ends again.
        EXPECT_TRUE(t.say("\x1b[A\x01\x04Q\x05\x7f!\r", "aaaen!'!\r\n> ")) << t.output.substr(start);
        EXPECT_NE(t.output.find("Invalid command 'qyzaaa", start + 1), std::string::npos);
        t.say("exit\r", "");
        EXPECT_EQ(t.exitStatus(), 0) << t.output.substr(start);
    }
}

TEST(ShellTerminal, AShrinkingWindowCutsTheLineToFit)
{
    krt_test::SimMachine machine("raid");
    Terminal t(machine, 24, 80);
    ASSERT_TRUE(t.say("", "> ")) << t.output;
    ASSERT_TRUE(t.say(std::string(1500, 'b'), "bbbb"));
    t.resize(12, 40);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_TRUE(t.say("\x01\r", "'!\r\n> ")) << t.output;
    const std::size_t start = t.output.rfind("Invalid command '");
    ASSERT_NE(start, std::string::npos);
    EXPECT_LT(t.output.find("'!", start) - start - 17 + 2, std::size_t{11 * 40}) << t.output.substr(start);
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
    t.press("info -o hba\r");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    t.press("\x03");
    const int status = t.waitStatus();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status << t.output;
}

}  // namespace
