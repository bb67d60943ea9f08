#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace krt_test {

namespace {

void closeFd(int &fd)
{
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

}  // namespace

RunResult runProcess(const std::vector<std::string> &argv, const RunOptions &options)
{
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe2(inPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }

    // Build argv and the environment before forking.
    std::vector<char *> args;
    for (const auto &a : argv)
        args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    std::map<std::string, std::string> envMap;
    for (char **e = environ; *e != nullptr; ++e) {
        std::string entry(*e);
        auto eq = entry.find('=');
        if (eq != std::string::npos)
            envMap[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    for (const auto &[k, v] : options.env)
        envMap[k] = v;
    std::vector<std::string> envStrings;
    for (const auto &[k, v] : envMap)
        envStrings.push_back(k + "=" + v);
    std::vector<char *> envp;
    for (auto &s : envStrings)
        envp.push_back(s.data());
    envp.push_back(nullptr);

    pid_t pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        dup2(inPipe[0], 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0)
            _exit(126);
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    int inFd = inPipe[1], outFd = outPipe[0], errFd = errPipe[0];
    signal(SIGPIPE, SIG_IGN);
    fcntl(inFd, F_SETFL, O_NONBLOCK);

    RunResult result;
    std::size_t written = 0;
    if (options.input.empty())
        closeFd(inFd);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
    bool killed = false;
    while (outFd >= 0 || errFd >= 0) {
        pollfd fds[3];
        int n = 0;
        if (outFd >= 0)
            fds[n++] = {outFd, POLLIN, 0};
        if (errFd >= 0)
            fds[n++] = {errFd, POLLIN, 0};
        if (inFd >= 0)
            fds[n++] = {inFd, POLLOUT, 0};
        int ready = poll(fds, n, 100);
        if (ready < 0 && errno != EINTR)
            break;
        if (std::chrono::steady_clock::now() > deadline && !killed) {
            kill(pid, SIGKILL);
            killed = true;
        }
        for (int i = 0; i < n; ++i) {
            if (fds[i].revents == 0)
                continue;
            if (fds[i].fd == inFd) {
                ssize_t w = write(inFd, options.input.data() + written, options.input.size() - written);
                if (w > 0)
                    written += static_cast<std::size_t>(w);
                if (w < 0 || written == options.input.size())
                    closeFd(inFd);
                continue;
            }
            char buf[65536];
            ssize_t r = read(fds[i].fd, buf, sizeof buf);
            std::string &sink = fds[i].fd == outFd ? result.out : result.err;
            if (r > 0) {
                sink.append(buf, static_cast<std::size_t>(r));
            } else {
                closeFd(fds[i].fd == outFd ? outFd : errFd);
            }
        }
    }
    closeFd(inFd);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.timedOut = killed;
    return result;
}

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "krt-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir()
{
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
}

}  // namespace krt_test
