// A scratch directory tree for tests that read files: removed with its
// contents when the object goes away.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class TempTree {
  public:
    TempTree()
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "krt-unit-XXXXXX").string();
        if (mkdtemp(tmpl.data()) != nullptr)
            path_ = tmpl;
    }
    ~TempTree()
    {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
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
        const std::filesystem::path p = file(name);
        std::filesystem::create_directories(p.parent_path());
        std::filesystem::create_symlink(target, p);
    }

  private:
    std::string path_;
};
