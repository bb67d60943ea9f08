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
    bool ran = false;
    std::string skipped;  // why the guest could not be had
    std::string failed;   // why a guest that could be built did not report
    std::map<std::string, Section> sections;
    // Milliseconds per run of each block of ten, by command.
    std::map<std::string, std::vector<long>> blocks;
};

std::string trim(const std::string &s)
{
    const auto first = s.find_first_not_of(' ');
    if (first == std::string::npos)
        return "";
    return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

void parseResults(const std::string &text, Guest &guest)
{
    std::istringstream lines(text);
    std::string current;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.rfind("@@@ ", 0) != 0) {
            if (!current.empty())
                guest.sections[current].text += line + "\n";
            continue;
        }
        std::istringstream words(line.substr(4));
        std::string word;
        words >> word;
        if (word == "rc") {
            words >> guest.sections[current].status;
            current.clear();
        } else if (word == "block") {
            std::string name;
            long ms = 0;
            if (words >> name >> ms)
                guest.blocks[name].push_back(ms);
        } else if (word != "end") {
            current = word;
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
        const std::string candidate = dir + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return name;
}

// Builds the guest (once per set of inputs) and boots it once per run.
const Guest &guest()
{
    static Guest g;
    if (g.ran)
        return g;
    g.ran = true;
    const std::string out = KRT_QEMU_OUT;
    krt_test::RunOptions build;
    build.timeoutSeconds = 600;
    const auto built = krt_test::runProcess({KRT_QEMU_SOURCE "/build-guest.sh", out, KRT_CLI_PATH}, build);
    if (built.status == 77) {
        g.skipped = built.err;
        return g;
    }
    if (built.status != 0) {
        g.failed = "building the guest failed:\n" + built.err;
        return g;
    }

    // A fresh disk and fresh result files for every boot.
    krt_test::writeFile(out + "/results.txt", "");
    const std::string disk = out + "/nvme.img";
    krt_test::writeFile(disk, "");
    if (truncate(disk.c_str(), 64 << 20) != 0) {
        g.failed = "cannot make the guest's disk " + disk;
        return g;
    }
    krt_test::RunOptions boot;
    boot.timeoutSeconds = 540;
    boot.cwd = out;
    const auto run = krt_test::runProcess({program("qemu-system-x86_64"),
                                           "-machine",
                                           "q35,accel=tcg",
                                           "-cpu",
                                           "max",
                                           "-m",
                                           "512",
                                           "-nographic",
                                           "-no-reboot",
                                           "-monitor",
                                           "none",
                                           "-kernel",
                                           "vmlinuz",
                                           "-initrd",
                                           "initramfs.cpio.gz",
                                           "-append",
                                           "console=ttyS0 quiet panic=-1",
                                           "-drive",
                                           "file=nvme.img,if=none,id=nv0,format=raw,cache=unsafe",
                                           "-device",
                                           "nvme,serial=KRTQEMU0001,drive=nv0",
                                           "-serial",
                                           "file:console.log",
                                           "-serial",
                                           "file:results.txt"},
                                          boot);
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
            out[trim(line.substr(0, colon))] = line.substr(colon + 1);
    }
    return out;
}

// The report: every compared field, one line each.
class Report {
  public:
    explicit Report(const char *title) { std::printf("\n%s\n", title); }
    void same(const std::string &field, const std::string &ours, const std::string &theirs)
    {
        const bool ok = ours == theirs;
        std::printf("  %-22s krt_cli=%-40s nvme=%-40s %s\n", field.c_str(), quoted(ours).c_str(),
                    quoted(theirs).c_str(), ok ? "same" : "DIFFERENT");
        EXPECT_EQ(ours, theirs) << field;
    }
    void note(const std::string &field, const std::string &text)
    {
        std::printf("  %-22s %s\n", field.c_str(), text.c_str());
    }

  private:
    static std::string quoted(const std::string &s) { return "\"" + s + "\""; }
};

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

class LinuxHost : public ::testing::Test {
  protected:
    void SetUp() override
    {
        const Guest &g = guest();
        if (!g.skipped.empty())
            GTEST_SKIP() << "QEMU guest unavailable: " << g.skipped;
        ASSERT_TRUE(g.failed.empty()) << g.failed;
    }
    const Section &section(const std::string &name)
    {
        static const Section none;
        auto it = guest().sections.find(name);
        EXPECT_NE(it, guest().sections.end()) << "the guest wrote no section " << name;
        return it == guest().sections.end() ? none : it->second;
    }
    // A krt_cli answer that ended normally.
    Fields ours(const std::string &name)
    {
        const Section &s = section(name);
        EXPECT_EQ(s.status, 0) << name << ":\n" << s.text;
        return labelled(s.text);
    }
    json theirs(const std::string &name)
    {
        const Section &s = section(name);
        EXPECT_EQ(s.status, 0) << name << ":\n" << s.text;
        json j = json::parse(s.text, nullptr, false);
        EXPECT_FALSE(j.is_discarded()) << name << ":\n" << s.text;
        return j.is_discarded() ? json::object() : j;
    }
};

TEST_F(LinuxHost, IdentifyControllerMatchesNvmeCli)
{
    Fields k = ours("krt-identify-ctrl");
    const json n = theirs("nvme-id-ctrl");
    ASSERT_TRUE(n.is_object() && n.contains("vid"));
    Report r("identify -c 1  vs  nvme id-ctrl");
    for (const char *field : {"VID", "SSVID", "OACS", "FRMW", "LPA", "SQES", "CQES", "NN", "ONCS"}) {
        std::string key = field;
        for (auto &c : key)
            c = static_cast<char>(std::tolower(c));
        r.same(field, trim(k[field]), hex(number(n[key])));
    }
    for (const char *field : {"SN", "MN", "FR"}) {
        std::string key = field;
        for (auto &c : key)
            c = static_cast<char>(std::tolower(c));
        r.same(field, trim(k[field]), trim(n[key].get<std::string>()));
    }
    r.same("TNVMCAP(Bytes)", trim(k["TNVMCAP(Bytes)"]), std::to_string(number(n["tnvmcap"])));
    // The display shows the first 60 characters blank-padded, then the
    // 61st byte as a number.
    std::string subnqn = n["subnqn"].get<std::string>();
    subnqn.resize(256, '\0');
    std::string rendered;
    for (int i = 0; i < 60; ++i)
        rendered += subnqn[i] == '\0' ? ' ' : subnqn[i];
    rendered += std::to_string(static_cast<unsigned char>(subnqn[60]));
    std::string shown = k["SUBNQN"];
    shown = shown.substr(shown.find_first_not_of(' '));
    r.same("SUBNQN", shown, rendered);
}

TEST_F(LinuxHost, IdentifyNamespaceMatchesNvmeCli)
{
    const Section &s = section("krt-identify-ns");
    EXPECT_EQ(s.status, 0) << s.text;
    Fields k = labelled(s.text);
    const json n = theirs("nvme-id-ns");
    ASSERT_TRUE(n.is_object() && n.contains("lbafs"));
    Report r("identify -c 0 -n 1  vs  nvme id-ns -n 1");
    r.same("NSZE", trim(k["NSZE"]), hex(number(n["nsze"])));
    r.same("NCAP", trim(k["NCAP"]), hex(number(n["ncap"])));
    r.same("NUSE", trim(k["NUSE"]), hex(number(n["nuse"])));
    r.same("NLBAF", trim(k["nlbaf"]), hex(number(n["nlbaf"])));
    r.same("FLBAS", trim(k["flbas"]), hex(number(n["flbas"])));

    // The formats: "[LBAF] i" then its MS, DS and RP lines.
    std::istringstream lines(s.text);
    std::vector<Fields> formats;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("[LBAF]", 0) == 0)
            formats.emplace_back();
        else if (!formats.empty() && line.find(':') != std::string::npos)
            formats.back()[trim(line.substr(0, line.find(':')))] = trim(line.substr(line.find(':') + 1));
    }
    const std::size_t expected = number(n["nlbaf"]) + 1;
    r.same("LBA format count", std::to_string(formats.size()), std::to_string(expected));
    for (std::size_t i = 0; i < formats.size() && i < n["lbafs"].size(); ++i) {
        for (const char *field : {"MS", "DS", "RP"}) {
            std::string key = field;
            for (auto &c : key)
                c = static_cast<char>(std::tolower(c));
            r.same("LBAF" + std::to_string(i) + " " + field, formats[i][field], hex(number(n["lbafs"][i][key])));
        }
    }
}

TEST_F(LinuxHost, SmartLogMatchesNvmeCli)
{
    Fields k = ours("krt-smart");
    const json n = theirs("nvme-smart");
    ASSERT_TRUE(n.is_object() && n.contains("temperature"));
    Report r("smart -o hba  vs  nvme smart-log");
    char warning[8];
    std::snprintf(warning, sizeof warning, "0x%02llx", number(n["critical_warning"]));
    r.same("Critical Warning", trim(k["Critical Warning"]), warning);
    r.same("Temperature", trim(k["Composite Temperature"]),
           std::to_string(static_cast<long long>(number(n["temperature"])) - 273) + " Celsius");
    r.same("Available Spare", trim(k["Available Spare"]), std::to_string(number(n["avail_spare"])) + "%");
    r.same("Spare Threshold", trim(k["Available Spare Threshold"]), std::to_string(number(n["spare_thresh"])) + "%");
    r.same("Percentage Used", trim(k["Percentage Used"]), std::to_string(number(n["percent_used"])) + "%");
    // The controller's own display stops at the wear figures; the counters
    // are listed for the record.
    for (const char *key : {"data_units_read", "data_units_written", "host_read_commands", "host_write_commands",
                            "power_cycles", "power_on_hours", "unsafe_shutdowns"}) {
        EXPECT_EQ(k.count(key), 0u);
        r.note(key, "nvme=" + std::to_string(number(n[key])) + " (not part of 'smart -o hba')");
    }
}

TEST_F(LinuxHost, FirmwareSlotsMatchNvmeCli)
{
    Fields k = ours("krt-firmware");
    const json ctrl = theirs("nvme-id-ctrl");
    const json log = theirs("nvme-fw-log");
    ASSERT_TRUE(ctrl.contains("frmw") && log.is_object() && !log.empty());
    Report r("flash -o hba -q firmware  vs  nvme fw-log / id-ctrl");
    r.same("Slot count", trim(k["Slot count"]), std::to_string((number(ctrl["frmw"]) >> 1) & 7));
    // "Active Slot: 1, Next Active Slot: 0" is one line.
    std::string active = k["Active Slot"];
    active = trim(active.substr(0, active.find(',')));
    const json &slots = log.begin().value();
    ASSERT_TRUE(slots.contains("Active Firmware Slot (afi)")) << log.dump();
    r.same("Active Slot", active, std::to_string(number(slots["Active Firmware Slot (afi)"]) & 7));
}

// --capture on another maker's controller asks only the standard requests,
// ends cleanly and writes what they gave.
TEST_F(LinuxHost, CaptureHoldsWhatTheStandardRequestsGave)
{
    const Section &run = section("krt-capture");
    EXPECT_EQ(run.status, 0) << run.text;
    EXPECT_NE(run.text.find("another maker's controller: the standard requests only"), std::string::npos) << run.text;
    const Section &file = section("krt-capture-file");
    const json doc = json::parse(file.text, nullptr, false);
    ASSERT_FALSE(doc.is_discarded()) << file.text;
    EXPECT_EQ(doc["machine_format"], json::array({1, 0}));
    EXPECT_TRUE(doc["notes"].empty()) << doc["notes"].dump();
    ASSERT_EQ(doc["adapters"].size(), 1u);
    const json &a = doc["adapters"][0];
    const json ctrl = theirs("nvme-id-ctrl"), ns = theirs("nvme-id-ns"), smart = theirs("nvme-smart");
    const json fw = theirs("nvme-fw-log");
    Report r("--capture  vs  nvme id-ctrl / id-ns / smart-log / fw-log");
    r.same("vid", hex(number(a["vid"])), hex(number(ctrl["vid"])));
    for (const char *field : {"sn", "mn", "fr"}) {
        const char *key = field[0] == 's' ? "serial" : field[0] == 'm' ? "model" : "fr";
        r.same(key, a[key].is_string() ? a[key].get<std::string>() : a[key].dump(),
               trim(ctrl[field].get<std::string>()));
    }
    r.same("frmw", std::to_string(number(a["frmw"])), std::to_string(number(ctrl["frmw"])));
    // The raw Identify data starts with the VID, little-endian.
    const std::string raw = a["identify_hex"].get<std::string>();
    ASSERT_GE(raw.size(), 4u);
    r.same("identify_hex VID",
           hex(std::stoul(raw.substr(0, 2), nullptr, 16) | std::stoul(raw.substr(2, 2), nullptr, 16) << 8),
           hex(number(ctrl["vid"])));
    ASSERT_EQ(a["namespaces"].size(), 1u) << a.dump();
    r.same("namespace 1 sectors", std::to_string(number(a["namespaces"][0]["sectors"])),
           std::to_string(number(ns["nsze"])));
    r.same("temperature", std::to_string(number(a["smart"]["temperature"])),
           std::to_string(number(smart["temperature"])));
    r.same("available_spare", std::to_string(number(a["smart"]["available_spare"])),
           std::to_string(number(smart["avail_spare"])));
    const json &slots = fw.begin().value();
    r.same("fw_active", std::to_string(number(a["fw_active"])),
           std::to_string(number(slots["Active Firmware Slot (afi)"]) & 7));
    EXPECT_FALSE(a.contains("pds") || a.contains("vds") || a.contains("event_ring")) << a.dump();
}

TEST_F(LinuxHost, RequestsTheControllerRefusesAreReportedNotCrashedOn)
{
    Report r("controller requests QEMU does not know");
    const Section &info = section("krt-info");
    EXPECT_LT(info.status, 128) << info.text;
    EXPECT_NE(info.text.find("Invalid Command Opcode (Status Code: 0x1)"), std::string::npos) << info.text;
    r.note("info -o hba",
           "status " + std::to_string(info.status) + ": " + trim(info.text.substr(0, info.text.find('\n'))));
    const Section &vendor = section("krt-vendor");
    EXPECT_LT(vendor.status, 128) << vendor.text;
    EXPECT_NE(vendor.text.find("Invalid Command Opcode (Status Code: 0x1)"), std::string::npos) << vendor.text;
    r.note("smart -o ns -n 1",
           "status " + std::to_string(vendor.status) + ": " + trim(vendor.text.substr(0, vendor.text.find('\n'))));
}

double median(std::vector<long> v)
{
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n == 0 ? 0.0 : n % 2 == 1 ? static_cast<double>(v[n / 2]) : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

// Printed for the record, never judged: the guest runs under emulation on
// a shared machine.
TEST_F(LinuxHost, TimingsAgainstNvmeCli)
{
    const auto &blocks = guest().blocks;
    const struct {
        const char *request, *ours, *theirs;
    } rows[] = {
        {"identify controller", "krt-identify", "nvme-identify"},
        {"SMART log", "krt-smart", "nvme-smart"},
        {"version", "krt-version", "nvme-version"},
    };
    for (const auto &row : rows) {
        for (const char *name : {row.ours, row.theirs}) {
            ASSERT_EQ(blocks.count(name), 1u) << name;
            EXPECT_EQ(blocks.at(name).size(), 8u) << name;
        }
    }
    std::printf(
        "\nTimings in the guest (TCG): milliseconds per whole process, median of 8 blocks of ten runs,\n"
        "the two tools in turn:\n");
    std::printf("  %-20s %8s %8s %7s\n", "request", "krt_cli", "nvme", "ratio");
    for (const auto &row : rows) {
        const double ours = median(blocks.at(row.ours)), theirs = median(blocks.at(row.theirs));
        std::printf("  %-20s %8.1f %8.1f %7.2f\n", row.request, ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
    if (blocks.count("true") != 0)
        std::printf("  (/bin/true: %.1f)\n", median(blocks.at("true")));
}

}  // namespace
