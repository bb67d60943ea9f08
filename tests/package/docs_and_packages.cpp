// The manual page and the completion against the command table they are
// written from, and the packages `make package` builds, installed into a
// temporary root.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "shell/completion.h"
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

std::set<std::string> words(const std::string &text)
{
    std::set<std::string> out;
    std::istringstream in(text);
    for (std::string w; in >> w;)
        out.insert(w);
    return out;
}

// Every spelling of every option a handler parses: "-i", "--vd_id", ...
std::set<std::string> accepted(const Command_Info &entry)
{
    std::set<std::string> out;
    for (const OptionSpelling &o : optionSpellings(entry)) {
        if (o.shortName != 0)
            out.insert(std::string("-") + o.shortName);
        if (!o.longName.empty())
            out.insert("--" + o.longName);
    }
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

// The option names a roff text sets in bold: "\\fB\\-\\-vd_id\\fR" is --vd_id.
std::set<std::string> boldOptions(const std::string &roff)
{
    std::set<std::string> out;
    for (std::size_t at = roff.find("\\fB\\-"); at != std::string::npos; at = roff.find("\\fB\\-", at + 1)) {
        const std::size_t end = roff.find("\\fR", at);
        std::string name = roff.substr(at + 3, end - at - 3);
        for (std::size_t dash; (dash = name.find("\\-")) != std::string::npos;)
            name.replace(dash, 2, "-");
        out.insert(name);
    }
    return out;
}

TEST(ManualPage, DescribesThePublicCommandsWithTheOptionsTheyAccept)
{
    std::string page = readFile(KRT_MAN_PAGE);
    std::map<std::string, std::string> sections;  // command name -> its text
    std::string current;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(".SS ", 0) == 0 || line.rfind(".SH ", 0) == 0)
            current = line.rfind(".SS ", 0) == 0 ? line.substr(4) : "";
        else if (!current.empty())
            sections[current] += line + "\n";
    }
    std::set<std::string> described;
    for (const auto &[name, text] : sections)
        described.insert(name);
    EXPECT_EQ(described, publicNames());

    // Each command's synopsis names exactly what its handler parses, and no
    // option entry names anything else (init's help says --id; it takes --vd_id).
    for (int i = 0; i < generalCmdTableV1Size(); ++i) {
        const Command_Info &entry = generalCmdTableV1[i];
        SCOPED_TRACE(entry.cmd);
        const std::string &text = sections[entry.cmd];
        const std::size_t synopsis = text.find(".PP\n\\fB");
        ASSERT_NE(synopsis, std::string::npos) << text;
        EXPECT_EQ(boldOptions(text.substr(synopsis, text.find('\n', synopsis + 4) - synopsis)), accepted(entry));
        std::string items;
        for (std::size_t at = text.find(".TP\n"); at != std::string::npos; at = text.find(".TP\n", at + 1))
            items += text.substr(at + 4, text.find('\n', at + 4) - at - 4);
        for (const std::string &name : boldOptions(items))
            EXPECT_EQ(accepted(entry).count(name), 1u) << name;
    }
    EXPECT_NE(sections["init"].find(".TP\n\\fB\\-i\\fR, \\fB\\-\\-vd_id\\fR \\fI<VD ID>\\fR\n"), std::string::npos);
    EXPECT_NE(page.find("# \\fBkrt_cli vd \\-a create \\-r 1 \\-d 6,7 \\-n 2\\fR\ncmd success\n"), std::string::npos);
    EXPECT_NE(page.find("\nCLI Version: "), std::string::npos);
    EXPECT_NE(page.find(".SH EXIT STATUS\n"), std::string::npos);
}

TEST(Completion, OffersThePublicCommandsAndTheOptionsTheirHandlersParse)
{
    EXPECT_EQ(complete({"krt_cli", ""}), publicNames());
    EXPECT_EQ(complete({"krt_cli", "1", "-output", "x.txt", ""}), publicNames());
    EXPECT_EQ(complete({"krt_cli", "?"}), std::set<std::string>{"?"});
    EXPECT_EQ(complete({"krt_cli", "ge"}), std::set<std::string>{"get"});
    EXPECT_EQ(complete({"krt_cli", "--"}), (std::set<std::string>{"--vid=0x", "--json", "--debug"}));
    EXPECT_EQ(complete({"krt_cli", "help", "i"}),
              (std::set<std::string>{"identify", "import", "info", "init", "inverse"}));
    EXPECT_EQ(complete({"krt_cli", "he", "vd", "v"}), (std::set<std::string>{"vd", "version", "vpd", "vpdread"}));
    for (int i = 0; i < generalCmdTableV1Size(); ++i) {
        const Command_Info &entry = generalCmdTableV1[i];
        if (entry.cmdHandler == generalCmdTableV1[1].cmdHandler)
            continue;  // help and "?" take command names
        SCOPED_TRACE(entry.cmd);
        EXPECT_EQ(complete({"krt_cli", entry.cmd, "-"}), accepted(entry));
    }
    // An abbreviated command word is the command.
    EXPECT_EQ(complete({"krt_cli", "ini", "--"}), (std::set<std::string>{"--action", "--vd_id", "--help"}));
}

TEST(Completion, OffersFixedValuesTheHelpsSpellOut)
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
    EXPECT_TRUE(complete({"krt_cli", "gen", "-"}).empty());  // hidden commands get nothing
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
