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

namespace krt_test {
namespace {

using Names = std::set<std::string>;

// Runs a program found on the path, or by its own path.
RunResult run(std::vector<std::string> argv, const RunOptions &options = {})
{
    argv.insert(argv.begin(), "/usr/bin/env");
    return runProcess(argv, options);
}

Names words(const std::string &text)
{
    Names out;
    std::istringstream in(text);
    for (std::string w; in >> w;)
        out.insert(w);
    return out;
}

Names publicNames()
{
    Names names;
    for (int i = 0; i < generalCmdTableV1Size(); ++i)
        names.insert(generalCmdTableV1[i].cmd);
    return names;
}

// Every spelling of every option a handler parses: "-i", "--vd_id", ...
Names accepted(const Command_Info &entry)
{
    Names out;
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

// The option names a roff text sets in bold: "\\fB\\-\\-vd_id\\fR" is --vd_id.
Names boldOptions(const std::string &roff)
{
    Names out;
    for (std::size_t at = roff.find("\\fB\\-"); at != std::string::npos; at = roff.find("\\fB\\-", at + 1)) {
        std::string name = roff.substr(at + 3, roff.find("\\fR", at) - at - 3);
        for (std::size_t dash; (dash = name.find("\\-")) != std::string::npos;)
            name.replace(dash, 2, "-");
        out.insert(name);
    }
    return out;
}

TEST(ManualPage, RendersWithoutWarnings)
{
    if (!onPath("groff"))
        GTEST_SKIP() << "groff is not installed; scripts/install-deps.sh package installs it";
    std::vector<std::vector<std::string>> renderers{{"groff", "-ww", "-man", "-Tutf8", "-z", KRT_MAN_PAGE}};
    if (onPath("man"))
        renderers.push_back({"man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", KRT_MAN_PAGE});
    RunOptions options;
    options.env["MANWIDTH"] = "80";
    for (const auto &argv : renderers) {
        const RunResult r = run(argv, options);
        EXPECT_EQ(r.status, 0) << argv[0];
        EXPECT_EQ(r.err, "") << argv[0];
    }
}

TEST(ManualPage, DescribesThePublicCommandsWithTheOptionsTheyAccept)
{
    const std::string page = readFile(KRT_MAN_PAGE);
    std::map<std::string, std::string> sections;  // command name -> its text
    Names described;
    std::string current;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(".SS ", 0) == 0 || line.rfind(".SH ", 0) == 0)
            current = line.rfind(".SS ", 0) == 0 ? *described.insert(line.substr(4)).first : "";
        else if (!current.empty())
            sections[current] += line + "\n";
    }
    EXPECT_EQ(described, publicNames());

    // Each command's synopsis names exactly what its handler parses, and no
    // option entry names anything else (init's help says --id; it takes --vd_id).
    for (int i = 0; i < generalCmdTableV1Size(); ++i) {
        const Command_Info &entry = generalCmdTableV1[i];
        const std::string &text = sections[entry.cmd];
        const std::size_t synopsis = text.find(".PP\n\\fB");
        ASSERT_NE(synopsis, std::string::npos) << entry.cmd << ":\n" << text;
        EXPECT_EQ(boldOptions(text.substr(synopsis, text.find('\n', synopsis + 4) - synopsis)), accepted(entry))
            << entry.cmd;
        std::string items;
        for (std::size_t at = text.find(".TP\n"); at != std::string::npos; at = text.find(".TP\n", at + 1))
            items += text.substr(at + 4, text.find('\n', at + 4) - at - 4);
        for (const std::string &name : boldOptions(items))
            EXPECT_EQ(accepted(entry).count(name), 1u) << entry.cmd << " " << name;
    }
    for (const char *part : {".TP\n\\fB\\-i\\fR, \\fB\\-\\-vd_id\\fR \\fI<VD ID>\\fR\n",
                             "# \\fBkrt_cli vd \\-a create \\-r 1 \\-d 6,7 \\-n 2\\fR\ncmd success\n",
                             "\nCLI Version: ", ".SH EXIT STATUS\n"})
        EXPECT_NE(page.find(part), std::string::npos) << part;
}

// What the completion offers for a command line whose last word is being
// typed, run in an empty folder so that no file name joins in.
Names complete(const std::vector<std::string> &line)
{
    std::vector<std::string> argv = line;
    argv.insert(argv.begin(), {"bash", "-c",
                               "source '" KRT_COMPLETION "'; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _krt_cli; "
                               "printf '%s\\n' \"${COMPREPLY[@]}\"",
                               "bash"});
    TempDir empty;
    RunOptions options;
    options.cwd = empty.path();
    const RunResult result = run(argv, options);
    EXPECT_EQ(result.status, 0) << result.err;
    return words(result.out);
}

// Public command names, the options each handler parses, and the fixed
// values the helps spell out.
TEST(Completion, OffersWhatTheHandlersAccept)
{
    const std::pair<std::vector<std::string>, Names> cases[] = {
        {{"krt_cli", ""}, publicNames()},
        {{"krt_cli", "1", "-output", "x.txt", ""}, publicNames()},
        {{"krt_cli", "?"}, {"?"}},
        {{"krt_cli", "ge"}, {"get"}},
        {{"krt_cli", "--"}, {"--vid=0x", "--json", "--debug"}},
        {{"krt_cli", "he", "vd", "v"}, {"vd", "version", "vpd", "vpdread"}},
        // An abbreviated command word is the command.
        {{"krt_cli", "ini", "--"}, {"--action", "--vd_id", "--help"}},
        {{"krt_cli", "info", "-o", ""}, {"hba", "pd", "hd", "vd", "ld", "ns"}},
        {{"krt_cli", "1", "vd", "--action", ""}, {"create", "delete"}},
        // Readline splits "--sbs=2" into three words.
        {{"krt_cli", "vd", "--sbs", "=", ""}, {"128", "256", "512"}},
        {{"krt_cli", "--vid", "=", "0x1e6b", "reset", "-t", "p"}, {"perstn", "power"}},
        // Values the usage lines spell out, beside those of the option list.
        {{"krt_cli", "ns", "-a", ""}, {"init", "create", "share", "attach", "detach"}},
        {{"krt_cli", "gen", "-"}, {}},  // hidden commands get nothing
    };
    for (const auto &[line, offered] : cases)
        EXPECT_EQ(complete(line), offered) << testing::PrintToString(line);
    for (int i = 0; i < generalCmdTableV1Size(); ++i) {
        const Command_Info &entry = generalCmdTableV1[i];
        if (entry.cmdHandler != generalCmdTableV1[1].cmdHandler) {  // help and "?" take command names
            EXPECT_EQ(complete({"krt_cli", entry.cmd, "-"}), accepted(entry)) << entry.cmd;
        }
    }
}

// The package of that name, as the PackageBuild test (a fixture of every
// test here) built it, unpacked into root.
std::string unpack(const std::string &name, const TempDir &root)
{
    for (const auto &entry : std::filesystem::directory_iterator(KRT_PACKAGE_DIR)) {
        const std::string file = entry.path().string();
        if (entry.path().filename().string().rfind(name + "_" KRT_VERSION "_", 0) == 0) {
            EXPECT_EQ(run({"dpkg", "-x", file, root.path()}).status, 0) << file;
            return file;
        }
    }
    ADD_FAILURE() << "no package " << name << " in " KRT_PACKAGE_DIR;
    return "";
}

std::string field(const std::string &deb, const std::string &name)
{
    const std::string out = run({"dpkg-deb", "-f", deb, name}).out;
    return out.substr(0, out.find_last_not_of('\n') + 1);
}

TEST(Packages, ToolSimulatorAndMetricsInstallIntoARootAndRun)
{
    const TempDir root;
    const std::string deb = unpack("krt-cli", root);
    EXPECT_EQ(field(deb, "Section"), "admin");
    if (KRT_STATIC_RUNTIME) {
        EXPECT_EQ(field(deb, "Depends").rfind("libc6 ", 0), 0u) << field(deb, "Depends");
        EXPECT_EQ(field(deb, "Depends").find(','), std::string::npos) << field(deb, "Depends");
    }
    for (const char *file : {"/usr/sbin/krt_cli", "/usr/share/man/man8/krt_cli.8.gz",
                             "/usr/share/bash-completion/completions/krt_cli", "/usr/share/doc/krt-cli/copyright",
                             "/usr/share/doc/krt-cli/changelog.gz", "/usr/share/doc/krt-cli/README.md"})
        EXPECT_TRUE(std::filesystem::exists(root.path() + file)) << file;
    EXPECT_FALSE(std::filesystem::exists(root.path() + "/usr/bin/krtsim"));
    // No platform library here: the version is shown all the same.
    const RunResult version = run({root.path() + "/usr/sbin/krt_cli", "version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("CLI Version: "), std::string::npos) << version.out;

    unpack("krt-cli-sim", root);
    RunOptions options;
    options.env["KRTSIM_STATE"] = root.file("state");
    const RunResult info =
        run({root.path() + "/usr/bin/krtsim", "exec", "--", root.path() + "/usr/sbin/krt_cli", "info", "-o", "hba"},
            options);
    EXPECT_EQ(info.status, 0) << info.err;
    EXPECT_EQ(info.out.rfind("NVMe Controller ID:", 0), 0u) << info.out;

    // The metrics package needs the tool of its own version.
    const std::string metrics = unpack("krt-cli-metrics", root);
    EXPECT_EQ(field(metrics, "Architecture"), "all");
    EXPECT_EQ(field(metrics, "Depends"), "krt-cli (= " KRT_VERSION "), python3, python3-prometheus-client");
    EXPECT_TRUE(std::filesystem::exists(root.path() + "/usr/sbin/krt-metrics"));
}

TEST(Packages, EsxiTarballHoldsTheProgramAndItsManualPage)
{
    const RunResult files =
        run({"sh", "-c", "tar -tzf \"$0\" | grep -v '/$'", KRT_PACKAGE_DIR "/krt-cli-" KRT_VERSION "-esxi.tar.gz"});
    EXPECT_EQ(words(files.out),
              (Names{"krt-cli-" KRT_VERSION "-esxi/krt_cli", "krt-cli-" KRT_VERSION "-esxi/krt_cli.8"}))
        << files.err;
}

TEST(Packages, LintianFindsNoError)
{
    if (!onPath("lintian"))
        GTEST_SKIP() << "lintian is not installed; scripts/install-deps.sh package installs it";
    RunOptions options;
    options.timeoutSeconds = 300;
    for (const auto &entry : std::filesystem::directory_iterator(KRT_PACKAGE_DIR)) {
        if (entry.path().extension() != ".deb")
            continue;
        const RunResult r = run({"lintian", "--fail-on", "error", entry.path().string()}, options);
        EXPECT_EQ(r.status, 0) << entry.path().filename() << ":\n" << r.out << r.err;
        std::cout << "lintian " << entry.path().filename().string() << ":\n" << r.out << r.err;
    }
}

}  // namespace
}  // namespace krt_test
