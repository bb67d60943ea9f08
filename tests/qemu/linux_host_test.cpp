// krt_cli on a Linux host, against an NVMe controller it was not written
// for: QEMU's emulated controller in a small guest, cross-checked field by
// field with the standard Linux NVMe tool on the same device. Prints a
// report of every compared field and the timings of both tools.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"

namespace {

using nlohmann::json;
using Fields = std::map<std::string, std::string>;

// One program's answer in the guest.
struct Section {
    std::string text;
    int status = -1;
};

struct Guest {
    std::string skipped;  // why the guest could not be had
    std::string failed;   // why a guest that could be built did not report
    std::map<std::string, Section> sections;
    // Milliseconds per run of each block of ten, by command.
    std::map<std::string, std::vector<long>> blocks;
};

std::string trim(const std::string &s)
{
    const auto first = s.find_first_not_of(' ');
    return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> words(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

// "@@@ name" opens a section, "@@@ rc N" closes it, "@@@ block name ms"
// is a timing.
void parseResults(const std::string &text, Guest &guest)
{
    std::istringstream lines(text);
    std::string current;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        const std::vector<std::string> w = words(line);
        if (line.rfind("@@@ ", 0) != 0) {
            if (!current.empty())
                guest.sections[current].text += line + "\n";
        } else if (w[1] == "rc" && w.size() == 3) {
            guest.sections[current].status = std::atoi(w[2].c_str());
            current.clear();
        } else if (w[1] == "block" && w.size() == 4) {
            guest.blocks[w[2]].push_back(std::atol(w[3].c_str()));
        } else if (w[1] != "end") {
            current = w[1];
            guest.sections[current];
        }
    }
}

// A program of the PATH by its full path (the runner does not search).
std::string program(const std::string &name)
{
    const char *path = std::getenv("PATH");
    std::istringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string dir; std::getline(dirs, dir, ':');) {
        if (access((dir + "/" + name).c_str(), X_OK) == 0)
            return dir + "/" + name;
    }
    return name;
}

// Builds the guest (once per set of inputs) and boots it once per run.
const Guest &guest()
{
    static Guest g;
    static bool ran = false;
    if (ran)
        return g;
    ran = true;
    const std::string out = KRT_QEMU_OUT;
    krt_test::RunOptions build;
    build.timeoutSeconds = 600;
    const auto built = krt_test::runProcess({KRT_QEMU_SOURCE "/build-guest.sh", out, KRT_CLI_PATH}, build);
    if (built.status != 0) {
        (built.status == 77 ? g.skipped : g.failed) = "building the guest failed:\n" + built.err;
        return g;
    }
    // A fresh disk and fresh result files for every boot.
    krt_test::writeFile(out + "/results.txt", "");
    krt_test::writeFile(out + "/nvme.img", "");
    if (truncate((out + "/nvme.img").c_str(), 64 << 20) != 0) {
        g.failed = "cannot make the guest's disk";
        return g;
    }
    krt_test::RunOptions boot;
    boot.timeoutSeconds = 540;
    boot.cwd = out;
    std::vector<std::string> argv = words(
        "-machine q35,accel=tcg -cpu max -m 512 -nographic -no-reboot -monitor none -kernel vmlinuz "
        "-initrd initramfs.cpio.gz -append _ -drive file=nvme.img,if=none,id=nv0,format=raw,cache=unsafe "
        "-device nvme,serial=KRTQEMU0001,drive=nv0 -serial file:console.log -serial file:results.txt");
    argv.insert(argv.begin(), program("qemu-system-x86_64"));
    *std::find(argv.begin(), argv.end(), "_") = "console=ttyS0 quiet panic=-1";
    const auto run = krt_test::runProcess(argv, boot);
    const std::string results = krt_test::readFile(out + "/results.txt");
    parseResults(results, g);
    if (run.timedOut || run.status != 0 || results.find("@@@ end") == std::string::npos) {
        g.failed = "the guest did not finish (qemu status " + std::to_string(run.status) + "):\n" + run.err +
                   "\nconsole:\n" + krt_test::readFile(out + "/console.log") + "\nresults:\n" + results;
    }
    return g;
}

// "LABEL:   value" lines of krt_cli's displays, by trimmed label.
Fields labelled(const std::string &text)
{
    Fields out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(':');
        if (colon != std::string::npos)
            out[trim(line.substr(0, colon))] = trim(line.substr(colon + 1));
    }
    return out;
}

std::string hex(unsigned long long v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "0x%llx", v);
    return buf;
}

// nvme-cli writes the widest counters as decimal text.
unsigned long long number(const json &v)
{
    return v.is_string() ? std::stoull(v.get<std::string>()) : v.get<unsigned long long>();
}

std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

// One line of the report per compared field.
void same(const std::string &field, const std::string &ours, const std::string &theirs)
{
    std::printf("  %-22s krt_cli=%-40s nvme=%-40s %s\n", field.c_str(), ("\"" + ours + "\"").c_str(),
                ("\"" + theirs + "\"").c_str(), ours == theirs ? "same" : "DIFFERENT");
    EXPECT_EQ(ours, theirs) << field;
}

class LinuxHost : public ::testing::Test {
  protected:
    void SetUp() override
    {
        if (!guest().skipped.empty())
            GTEST_SKIP() << "QEMU guest unavailable: " << guest().skipped;
        ASSERT_TRUE(guest().failed.empty()) << guest().failed;
    }
    // A section of a program that ended normally, or at least without a signal.
    const Section &section(const std::string &name, bool normally = true)
    {
        static const Section none;
        const auto it = guest().sections.find(name);
        const Section &s = it == guest().sections.end() ? none : it->second;
        EXPECT_TRUE(normally ? s.status == 0 : s.status >= 0 && s.status < 128) << name << ":\n" << s.text;
        return s;
    }
    Fields ours(const std::string &name) { return labelled(section(name).text); }
    // nvme-cli's document; a firmware log is one object under the device's name.
    json theirs(const std::string &name)
    {
        const json j = json::parse(section(name).text, nullptr, false);
        EXPECT_TRUE(j.is_object() && !j.empty()) << name << ":\n" << section(name).text;
        return !j.is_object() || j.empty() ? json::object() : name == "nvme-fw-log" ? j.begin().value() : j;
    }
};

TEST_F(LinuxHost, IdentifyMatchesNvmeCli)
{
    Fields k = ours("krt-identify-ctrl");
    json n = theirs("nvme-id-ctrl");
    std::printf("\nidentify -c 1  vs  nvme id-ctrl\n");
    for (const char *field : {"VID", "SSVID", "OACS", "FRMW", "LPA", "SQES", "CQES", "NN", "ONCS"})
        same(field, k[field], hex(number(n[lower(field)])));
    for (const char *field : {"SN", "MN", "FR"})
        same(field, k[field], trim(n[lower(field)].get<std::string>()));
    same("TNVMCAP(Bytes)", k["TNVMCAP(Bytes)"], std::to_string(number(n["tnvmcap"])));
    // The first 60 characters blank-padded, then the 61st byte as a number.
    std::string subnqn = n["subnqn"].get<std::string>();
    subnqn.resize(256, '\0');
    std::replace(subnqn.begin(), subnqn.begin() + 60, '\0', ' ');
    same("SUBNQN", k["SUBNQN"], trim(subnqn.substr(0, 60) + std::to_string(static_cast<unsigned char>(subnqn[60]))));

    const std::string text = section("krt-identify-ns").text;
    k = labelled(text);
    n = theirs("nvme-id-ns");
    std::printf("\nidentify -c 0 -n 1  vs  nvme id-ns -n 1\n");
    for (const char *field : {"NSZE", "NCAP", "NUSE", "nlbaf", "flbas"})
        same(field, k[field], hex(number(n[lower(field)])));
    // The formats: "[LBAF] i", then its MS, DS and RP lines.
    std::vector<std::string> blocks;
    for (std::size_t at = text.find("[LBAF]"); at != std::string::npos; at = text.find("[LBAF]", at + 1))
        blocks.push_back(text.substr(at, text.find("[LBAF]", at + 1) - at));
    same("LBA format count", std::to_string(blocks.size()), std::to_string(number(n["nlbaf"]) + 1));
    for (std::size_t i = 0; i < blocks.size() && i < n["lbafs"].size(); ++i) {
        Fields format = labelled(blocks[i]);
        for (const char *field : {"MS", "DS", "RP"})
            same("LBAF" + std::to_string(i) + " " + field, format[field], hex(number(n["lbafs"][i][lower(field)])));
    }
}

TEST_F(LinuxHost, SmartLogAndFirmwareSlotsMatchNvmeCli)
{
    Fields k = ours("krt-smart");
    json n = theirs("nvme-smart");
    std::printf("\nsmart -o hba  vs  nvme smart-log\n");
    char warning[8];
    std::snprintf(warning, sizeof warning, "0x%02llx", number(n["critical_warning"]));
    same("Critical Warning", k["Critical Warning"], warning);
    same("Temperature", k["Composite Temperature"],
         std::to_string(static_cast<long long>(number(n["temperature"])) - 273) + " Celsius");
    const std::pair<const char *, const char *> percentages[] = {{"Available Spare", "avail_spare"},
                                                                 {"Available Spare Threshold", "spare_thresh"},
                                                                 {"Percentage Used", "percent_used"}};
    for (const auto &[field, key] : percentages)
        same(field, k[field], std::to_string(number(n[key])) + "%");

    k = ours("krt-firmware");
    json slots = theirs("nvme-fw-log");
    std::printf("\nflash -o hba -q firmware  vs  nvme fw-log / id-ctrl\n");
    same("Slot count", k["Slot count"], std::to_string((number(theirs("nvme-id-ctrl")["frmw"]) >> 1) & 7));
    // "Active Slot: 1, Next Active Slot: 0" is one line.
    same("Active Slot", k["Active Slot"].substr(0, k["Active Slot"].find(',')),
         std::to_string(number(slots["Active Firmware Slot (afi)"]) & 7));
}

// --capture on another maker's controller asks only the standard requests,
// ends cleanly and writes what they gave.
TEST_F(LinuxHost, CaptureHoldsWhatTheStandardRequestsGave)
{
    EXPECT_NE(section("krt-capture").text.find("another maker's controller: the standard requests only"),
              std::string::npos);
    json doc = theirs("krt-capture-file");
    EXPECT_EQ(doc["machine_format"], json::array({1, 0}));
    EXPECT_TRUE(doc["notes"].empty()) << doc["notes"].dump();
    ASSERT_EQ(doc["adapters"].size(), 1u);
    json a = doc["adapters"][0];
    ASSERT_EQ(a["namespaces"].size(), 1u) << a.dump();
    json ctrl = theirs("nvme-id-ctrl"), smart = theirs("nvme-smart");
    std::printf("\n--capture  vs  nvme id-ctrl / id-ns / smart-log / fw-log\n");
    same("vid", hex(number(a["vid"])), hex(number(ctrl["vid"])));
    same("serial", a["serial"].get<std::string>(), trim(ctrl["sn"].get<std::string>()));
    same("model", a["model"].get<std::string>(), trim(ctrl["mn"].get<std::string>()));
    same("fr", a["fr"].get<std::string>(), trim(ctrl["fr"].get<std::string>()));
    same("frmw", std::to_string(number(a["frmw"])), std::to_string(number(ctrl["frmw"])));
    // The raw Identify data starts with the VID, little-endian.
    const std::string raw = a["identify_hex"].get<std::string>() + "0000";
    same("identify_hex VID", hex(std::stoul(raw.substr(2, 2) + raw.substr(0, 2), nullptr, 16)),
         hex(number(ctrl["vid"])));
    same("namespace 1 sectors", std::to_string(number(a["namespaces"][0]["sectors"])),
         std::to_string(number(theirs("nvme-id-ns")["nsze"])));
    same("temperature", std::to_string(number(a["smart"]["temperature"])),
         std::to_string(number(smart["temperature"])));
    same("available_spare", std::to_string(number(a["smart"]["available_spare"])),
         std::to_string(number(smart["avail_spare"])));
    same("fw_active", std::to_string(number(a["fw_active"])),
         std::to_string(number(theirs("nvme-fw-log")["Active Firmware Slot (afi)"]) & 7));
    EXPECT_FALSE(a.contains("pds") || a.contains("vds") || a.contains("event_ring")) << a.dump();
}

TEST_F(LinuxHost, RequestsTheControllerRefusesAreReportedNotCrashedOn)
{
    std::printf("\ncontroller requests QEMU does not know\n");
    for (const char *name : {"krt-info", "krt-vendor"}) {
        const Section &s = section(name, false);
        EXPECT_NE(s.text.find("Invalid Command Opcode (Status Code: 0x1)"), std::string::npos) << s.text;
        std::printf("  %-22s status %d: %s\n", name, s.status, trim(s.text.substr(0, s.text.find('\n'))).c_str());
    }
}

// Printed for the record, never judged: the guest runs under emulation on
// a shared machine.
TEST_F(LinuxHost, TimingsAgainstNvmeCli)
{
    std::printf(
        "\nTimings in the guest (TCG): milliseconds per whole process, median of 8 blocks of ten runs,\n"
        "the two tools in turn:\n  %-20s %8s %8s %7s\n",
        "request", "krt_cli", "nvme", "ratio");
    const auto median = [&](const char *name) {
        std::vector<long> v = guest().blocks.count(name) != 0 ? guest().blocks.at(name) : std::vector<long>{};
        EXPECT_EQ(v.size(), 8u) << name;
        std::sort(v.begin(), v.end());
        return v.empty() ? 0.0 : (v[(v.size() - 1) / 2] + v[v.size() / 2]) / 2.0;
    };
    for (const char *request : {"identify", "smart", "version"}) {
        const double ours = median(("krt-" + std::string(request)).c_str());
        const double theirs = median(("nvme-" + std::string(request)).c_str());
        std::printf("  %-20s %8.1f %8.1f %7.2f\n", request, ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
    std::printf("  (/bin/true: %.1f)\n", median("true"));
}

}  // namespace
