// Runs a program as a child process, feeding standard input and capturing
// standard output, standard error and the exit status.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace krt_test {

struct RunResult {
    int status = -1;        // exit status, or 128 + signal number
    int signal = 0;         // the signal that ended the child, 0 when it exited
    bool timedOut = false;  // killed because it outlived timeoutSeconds
    std::string out;
    std::string err;
};

struct RunOptions {
    std::string input;                       // written to standard input, then closed
    std::map<std::string, std::string> env;  // added to (or replacing) the environment
    std::string cwd;                         // working directory, empty: unchanged
    int timeoutSeconds = 60;                 // the child is killed after this
};

RunResult runProcess(const std::vector<std::string> &argv, const RunOptions &options = {});

// A fresh empty directory under the system's temporary directory, removed
// with its contents when the object goes away.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &text);

}  // namespace krt_test
