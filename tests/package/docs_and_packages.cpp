// The manual page and the completion against the command table they are
// written from, and the packages `make package` builds, installed into a
// temporary root.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "shell/shell.h"

using krt_test::readFile;
using krt_test::RunOptions;
using krt_test::RunResult;
using krt_test::TempDir;

namespace {

// Runs a program found on the path, or by its own path.
RunResult run(std::vector<std::string> argv, const RunOptions &options = {})
{
    argv.insert(argv.begin(), "/usr/bin/env");
    return krt_test::runProcess(argv, options);
}

std::set<std::string> publicNames()
{
    std::set<std::string> names;
    for (int i = 0; i < generalCmdTableV1Size(); ++i)
        names.insert(generalCmdTableV1[i].cmd);
    return names;
}

std::set<std::string> hiddenNames()
{
    std::set<std::string> names;
    for (int i = 0; i < hiddenCmdTableV1Size(); ++i)
        names.insert(hiddenCmdTableV1[i].cmd);
    return names;
}

std::set<std::string> words(const std::string &text)
{
    std::set<std::string> out;
    std::istringstream in(text);
    for (std::string w; in >> w;)
        out.insert(w);
    return out;
}

bool onPath(const std::string &program)
{
    return run({"sh", "-c", "command -v " + program}).status == 0;
}

// What the completion offers for a command line whose last word is being
// typed, run in an empty folder so that no file name joins in.
std::set<std::string> complete(const std::vector<std::string> &line)
{
    std::string script = "source '" KRT_COMPLETION "'\nCOMP_WORDS=(";
    for (const std::string &w : line)
        script += "'" + w + "' ";
    script += ")\nCOMP_CWORD=" + std::to_string(line.size() - 1) + "\n_krt_cli\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
    TempDir empty;
    RunOptions options;
    options.cwd = empty.path();
    auto result = run({"bash", "-c", script}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    return words(result.out);
}

TEST(ManualPage, RendersWithoutWarnings)
{
    if (!onPath("groff"))
        GTEST_SKIP() << "groff is not installed; scripts/install-deps.sh package installs it";
    auto groff = run({"groff", "-ww", "-man", "-Tutf8", "-z", KRT_MAN_PAGE});
    EXPECT_EQ(groff.status, 0);
    EXPECT_EQ(groff.err, "");
    if (onPath("man")) {
        RunOptions options;
        options.env["MANWIDTH"] = "80";
        auto man = run({"man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", KRT_MAN_PAGE}, options);
        EXPECT_EQ(man.status, 0);
        EXPECT_EQ(man.err, "");
    }
}

TEST(ManualPage, DescribesExactlyThePublicCommandsWithExamplesRunOnTheSimulator)
{
    std::string page = readFile(KRT_MAN_PAGE);
    std::set<std::string> described;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(".SS ", 0) == 0)
            described.insert(line.substr(4));
    }
    EXPECT_EQ(described, publicNames());
    for (const std::string &hidden : hiddenNames())
        EXPECT_EQ(described.count(hidden), 0u) << hidden;

    // Every option of a help is an entry of its own, and the examples carry
    // what the program printed.
    EXPECT_NE(page.find(".TP\n\\fB\\-o\\fR, \\fB\\-\\-object\\fR \\fI<hba|pd|hd|vd|ld|ns>\\fR\n"), std::string::npos);
    EXPECT_NE(page.find("# \\fBkrt_cli vd \\-a create \\-r 1 \\-d 6,7 \\-n 2\\fR\ncmd success\n"), std::string::npos);
    EXPECT_NE(page.find("\nCLI Version: "), std::string::npos);
}

TEST(Completion, OffersExactlyThePublicCommands)
{
    EXPECT_EQ(complete({"krt_cli", ""}), publicNames());
    EXPECT_EQ(complete({"krt_cli", "1", "-output", "x.txt", ""}), publicNames());
    EXPECT_EQ(complete({"krt_cli", "?"}), std::set<std::string>{"?"});
    EXPECT_EQ(complete({"krt_cli", "ge"}), std::set<std::string>{"get"});
    EXPECT_EQ(complete({"krt_cli", "--"}), (std::set<std::string>{"--vid=0x", "--json", "--debug"}));
}

TEST(Completion, OffersLongOptionsAndFixedValuesFromTheHelps)
{
    EXPECT_EQ(complete({"krt_cli", "info", "-o", ""}), (std::set<std::string>{"hba", "pd", "hd", "vd", "ld", "ns"}));
    EXPECT_EQ(complete({"krt_cli", "1", "vd", "--action", ""}), (std::set<std::string>{"create", "delete"}));
    // Readline splits "--sbs=2" into three words.
    EXPECT_EQ(complete({"krt_cli", "vd", "--sbs", "=", ""}), (std::set<std::string>{"128", "256", "512"}));
    EXPECT_EQ(complete({"krt_cli", "--vid", "=", "0x1e6b", "reset", "-t", "p"}),
              (std::set<std::string>{"perstn", "power"}));
    // Values the usage lines spell out, beside those of the option list.
    EXPECT_EQ(complete({"krt_cli", "ns", "-a", ""}),
              (std::set<std::string>{"init", "create", "share", "attach", "detach"}));
    EXPECT_EQ(complete({"krt_cli", "passthru", "--cd"}),
              (std::set<std::string>{"--cdw2", "--cdw3", "--cdw10", "--cdw11", "--cdw12", "--cdw13"}));
    EXPECT_EQ(complete({"krt_cli", "info", "--"}),
              (std::set<std::string>{"--object", "--id", "--type", "--vd_id", "--help"}));
    // Hidden commands get nothing.
    EXPECT_TRUE(complete({"krt_cli", "gen", "-"}).empty());
}

// The packages, as the PackageBuild test built them; a run of this program
// on its own builds them when they are not there.
class Packages : public ::testing::Test {
  protected:
    static void SetUpTestSuite()
    {
        dir_ = KRT_PACKAGE_DIR;
        bool present = false;
        if (std::filesystem::is_directory(dir_)) {
            for (const auto &entry : std::filesystem::directory_iterator(dir_))
                present = present || entry.path().extension() == ".deb";
        }
        if (present) {
            built_ = true;
            return;
        }
        RunOptions options;
        options.timeoutSeconds = 600;
        auto result = run({KRT_CPACK, "--config", KRT_BINARY_DIR "/CPackConfig.cmake", "-B", dir_}, options);
        cpackLog_ = result.out + result.err;
        built_ = result.status == 0;
    }
    void SetUp() override { ASSERT_TRUE(built_) << cpackLog_; }
    // The package file whose name begins with `prefix` and ends with `suffix`.
    static std::string find(const std::string &prefix, const std::string &suffix)
    {
        for (const auto &entry : std::filesystem::directory_iterator(dir_)) {
            std::string name = entry.path().filename().string();
            if (name.rfind(prefix, 0) == 0 && name.size() >= prefix.size() + suffix.size() &&
                name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
                return entry.path().string();
        }
        ADD_FAILURE() << "no " << prefix << "*" << suffix << " in:\n" << cpackLog_;
        return "";
    }
    static std::string field(const std::string &deb, const std::string &name)
    {
        auto result = run({"dpkg-deb", "-f", deb, name});
        return result.out.substr(0, result.out.find_last_not_of('\n') + 1);
    }

    static inline std::string dir_;
    static inline bool built_ = false;
    static inline std::string cpackLog_;
};

TEST_F(Packages, ToolPackageInstallsIntoARootAndRuns)
{
    std::string deb = find("krt-cli_", ".deb");
    ASSERT_FALSE(deb.empty());
    EXPECT_EQ(field(deb, "Section"), "admin");
    if (KRT_STATIC_RUNTIME) {
        EXPECT_EQ(field(deb, "Depends").rfind("libc6 ", 0), 0u) << field(deb, "Depends");
        EXPECT_EQ(field(deb, "Depends").find(','), std::string::npos) << field(deb, "Depends");
    }

    TempDir root;
    ASSERT_EQ(run({"dpkg", "-x", deb, root.path()}).status, 0);
    for (const char *file : {"/usr/sbin/krt_cli", "/usr/share/man/man8/krt_cli.8.gz",
                             "/usr/share/bash-completion/completions/krt_cli", "/usr/share/doc/krt-cli/copyright",
                             "/usr/share/doc/krt-cli/changelog.gz", "/usr/share/doc/krt-cli/README.md"}) {
        EXPECT_TRUE(std::filesystem::exists(root.path() + file)) << file;
    }
    EXPECT_FALSE(std::filesystem::exists(root.path() + "/usr/bin/krtsim"));

    auto version = run({root.path() + "/usr/sbin/krt_cli", "version"});
    // No platform library here: the version is shown all the same.
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("CLI Version: "), std::string::npos) << version.out;
}

TEST_F(Packages, SimulatorPackageDrivesTheInstalledTool)
{
    std::string cli = find("krt-cli_", ".deb");
    std::string sim = find("krt-cli-sim_", ".deb");
    ASSERT_FALSE(cli.empty());
    ASSERT_FALSE(sim.empty());
    TempDir root;
    ASSERT_EQ(run({"dpkg", "-x", cli, root.path()}).status, 0);
    ASSERT_EQ(run({"dpkg", "-x", sim, root.path()}).status, 0);
    RunOptions options;
    options.env["KRTSIM_STATE"] = root.file("state");
    auto result =
        run({root.path() + "/usr/bin/krtsim", "exec", "--", root.path() + "/usr/sbin/krt_cli", "info", "-o", "hba"},
            options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("NVMe Controller ID:", 0), 0u) << result.out;
}

TEST_F(Packages, EsxiTarballHoldsTheProgramAndItsManualPage)
{
    std::string tarball = find("krt-cli-", "-esxi.tar.gz");
    auto listing = run({"tar", "-tzf", tarball});
    ASSERT_EQ(listing.status, 0);
    std::set<std::string> files;
    for (const std::string &w : words(listing.out)) {
        if (w.back() != '/')
            files.insert(w);
    }
    EXPECT_EQ(files, (std::set<std::string>{"krt-cli-" KRT_VERSION "-esxi/krt_cli",
                                            "krt-cli-" KRT_VERSION "-esxi/krt_cli.8"}));
}

TEST_F(Packages, LintianFindsNoError)
{
    if (!onPath("lintian"))
        GTEST_SKIP() << "lintian is not installed; scripts/install-deps.sh package installs it";
    for (const auto &entry : std::filesystem::directory_iterator(dir_)) {
        if (entry.path().extension() != ".deb")
            continue;
        RunOptions options;
        options.timeoutSeconds = 300;
        auto result = run({"lintian", "--fail-on", "error", entry.path().string()}, options);
        EXPECT_EQ(result.status, 0) << entry.path().filename() << ":\n" << result.out << result.err;
        std::cout << "lintian " << entry.path().filename().string() << ":\n" << result.out << result.err;
    }
}

}  // namespace
