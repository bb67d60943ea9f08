// What the unit tests share: a scratch folder tree, what the code under test
// prints on the output stream, and a command line run through the dispatcher.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "shell/shell.h"
#include "util/state.h"

// A scratch directory tree, removed with its contents when the object goes away.
class TempTree {
  public:
    TempTree()
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "krt-unit-XXXXXX").string();
        if (mkdtemp(tmpl.data()) != nullptr)
            path_ = tmpl;
    }
    ~TempTree() { std::filesystem::remove_all(path_, ec_); }
    TempTree(const TempTree &) = delete;
    TempTree &operator=(const TempTree &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes text (empty: makes a folder) or a symbolic link under the tree, creating its folders.
    void write(const std::string &name, const std::string &text) const
    {
        const std::filesystem::path p = file(name);
        std::filesystem::create_directories(text.empty() ? p : p.parent_path());
        if (!text.empty())
            std::ofstream(p) << text;
    }
    void symlink(const std::string &target, const std::string &name) const
    {
        std::filesystem::create_directories(std::filesystem::path(file(name)).parent_path());
        std::filesystem::create_symlink(target, file(name));
    }

  private:
    std::string path_;
    std::error_code ec_;
};

namespace krt_unit {

// Collects what is printed on the output stream while it lives.
class StreamCapture {
  public:
    StreamCapture() : saved_(stream), file_(open_memstream(&buffer_, &size_)) { stream = file_; }
    ~StreamCapture()
    {
        std::fclose(file_);
        std::free(buffer_);
        stream = saved_;
    }
    StreamCapture(const StreamCapture &) = delete;
    StreamCapture &operator=(const StreamCapture &) = delete;
    std::string text()
    {
        std::fflush(file_);
        return std::string(buffer_, size_);
    }

  private:
    FILE *saved_;
    char *buffer_ = nullptr;
    std::size_t size_ = 0;
    FILE *file_;
};

// What `print` writes on the output stream.
template <class Print>
std::string printed(Print print)
{
    StreamCapture out;
    print();
    return out.text();
}

// A line's words (split at blanks) through the dispatcher of the public table:
// what it returned and printed.
inline std::pair<int, std::string> runLine(const std::string &line)
{
    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();
    std::istringstream in(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    StreamCapture out;
    const int result = cmdDispatcher(static_cast<int>(words.size()), argv.data());
    return {result, out.text()};
}

}  // namespace krt_unit
