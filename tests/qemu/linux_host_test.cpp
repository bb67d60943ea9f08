// krt_cli on a Linux host, against an NVMe controller it was not written
// for: QEMU's emulated controller in a small guest, cross-checked field by
// field with the standard Linux NVMe tool on the same device. Prints a
// report of every compared field and the timings of both tools.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "text.h"

namespace {

using krt_test::words;
using nlohmann::json;

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

// The guest, built (once per set of inputs) and booted once per run, and
// its report: "@@@ name" opens a section, "@@@ rc N" closes it, "@@@ block
// name ms" is a timing.
const Guest &guest()
{
    static const Guest once = [] {
        Guest g;
        krt_test::RunOptions options;
        options.timeoutSeconds = 1200;
        const auto r = krt_test::runProcess({KRT_QEMU_SOURCE "/guest.sh", KRT_QEMU_OUT, KRT_CLI_PATH}, options);
        const std::string results = krt_test::readFile(KRT_QEMU_OUT "/results.txt");
        if (r.status != 0)
            (r.status == 77 ? g.skipped : g.failed) = "the guest did not report:\n" + r.err + "\nresults:\n" + results;
        std::istringstream lines(results);
        Section *current = nullptr;
        for (std::string line; std::getline(lines, line);) {
            const std::vector<std::string> w = words(line);
            if (line.rfind("@@@ ", 0) != 0) {
                if (current != nullptr)
                    current->text += line.substr(0, line.find_last_not_of('\r') + 1) + "\n";
            } else if (w.size() == 3 && w[1] == "rc" && current != nullptr) {
                current->status = std::atoi(w[2].c_str());
                current = nullptr;
            } else if (w.size() == 4 && w[1] == "block") {
                g.blocks[w[2]].push_back(std::atol(w[3].c_str()));
            } else if (w.size() == 2) {
                current = &g.sections[w[1]];
            }
        }
        return g;
    }();
    return once;
}

// A value as the report shows it: a number in decimal (nvme-cli writes the
// widest as decimal text), any other text trimmed.
std::string shown(const json &v)
{
    if (v.is_number_unsigned())
        return std::to_string(v.get<unsigned long long>());
    std::string text = v.is_string() ? v.get<std::string>() : v.dump();
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos)
        return std::to_string(std::stoull(text));
    text.erase(0, std::min(text.size(), text.find_first_not_of(' ')));
    return text.erase(text.find_last_not_of(' ') + 1);
}

// One line of the report per compared field.
void same(const std::string &field, const std::string &ours, const std::string &theirs)
{
    std::printf("  %-32s krt_cli=%-40s nvme=%-40s %s\n", field.c_str(), ("\"" + ours + "\"").c_str(),
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
        const Section &s = guest().sections.count(name) != 0 ? guest().sections.at(name) : none;
        EXPECT_TRUE(normally ? s.status == 0 : s.status >= 0 && s.status < 128) << name << ":\n" << s.text;
        return s;
    }
    // The document a program printed: krt_cli's first record, nvme-cli's
    // document (a firmware log is one object under the device's name), or
    // the file --capture wrote.
    json doc(const std::string &name)
    {
        json j = json::parse(section(name).text, nullptr, false);
        if (j.contains("records") && j["records"].is_array() && !j["records"].empty())
            j = j["records"][0];
        else if (name == "nvme-fw-log" && j.is_object() && !j.empty())
            j = j.begin().value();
        EXPECT_TRUE(j.is_object() && !j.empty()) << name << ":\n" << section(name).text;
        return j.is_object() ? j : json::object();
    }
};

// The records krt_cli decodes from the controller's own data, and the file
// --capture writes from the standard requests, field by field against
// nvme-cli's: the path of both, or krt_cli's=nvme-cli's.
TEST_F(LinuxHost, RecordsAndCaptureMatchNvmeCli)
{
    const char *const docs[][3] = {
        {"krt-identify-ctrl", "nvme-id-ctrl",
         "vid ssvid sn mn fr oacs frmw lpa sqes cqes nn oncs tnvmcap_bytes=tnvmcap"},
        {"krt-identify-ns", "nvme-id-ns", "nsze ncap nuse nlbaf flbas"},
        {"krt-smart", "nvme-smart",
         "critical_warning available_spare_percent=avail_spare available_spare_threshold_percent=spare_thresh "
         "percentage_used_percent=percent_used"},
        {"krt-capture-file", "nvme-id-ctrl",
         "adapters/0/vid=vid adapters/0/serial=sn adapters/0/model=mn adapters/0/fr=fr adapters/0/frmw=frmw"},
        {"krt-capture-file", "nvme-id-ns", "adapters/0/namespaces/0/sectors=nsze"},
        {"krt-capture-file", "nvme-smart",
         "adapters/0/smart/temperature=temperature adapters/0/smart/available_spare=avail_spare"},
    };
    for (const auto &[oursName, theirsName, keys] : docs) {
        json ours = doc(oursName), theirs = doc(theirsName);
        std::printf("\n%s  vs  %s\n", oursName, theirsName);
        for (const std::string &key : words(keys)) {
            const std::size_t equals = key.find('=');
            same(key, shown(ours[json::json_pointer("/" + key.substr(0, equals))]),
                 shown(theirs[json::json_pointer("/" + key.substr(equals == std::string::npos ? 0 : equals + 1))]));
        }
    }

    std::printf("\nfields krt_cli shows in its own way\n");
    // The SUBNQN: the first 60 characters blank-padded, then the 61st byte as a number.
    json ctrl = doc("nvme-id-ctrl");
    std::string subnqn = ctrl["subnqn"].is_string() ? ctrl["subnqn"].get<std::string>() : "";
    subnqn.resize(256, '\0');
    std::replace(subnqn.begin(), subnqn.begin() + 60, '\0', ' ');
    same("subnqn", shown(doc("krt-identify-ctrl")["subnqn"]),
         subnqn.substr(0, 60) + std::to_string(static_cast<unsigned char>(subnqn[60])));
    json ns = doc("krt-identify-ns"), theirNs = doc("nvme-id-ns");
    same("lba format count", std::to_string(ns["lba_formats"].size()),
         std::to_string(std::stoull(shown(theirNs["nlbaf"])) + 1));
    for (std::size_t i = 0; i < ns["lba_formats"].size() && i < theirNs["lbafs"].size(); ++i) {
        for (const char *key : {"ms", "ds", "rp"})
            same("lbaf" + std::to_string(i) + " " + key, shown(ns["lba_formats"][i][key]),
                 shown(theirNs["lbafs"][i][key]));
    }
    same("temperature", shown(doc("krt-smart")["composite_temperature_celsius"]),
         std::to_string(std::stoull(shown(doc("nvme-smart")["temperature"])) - 273));
    same("slot_count", shown(doc("krt-firmware")["slot_count"]),
         std::to_string((std::stoull(shown(ctrl["frmw"])) >> 1) & 7));
    const std::string afi = std::to_string(std::stoull(shown(doc("nvme-fw-log")["Active Firmware Slot (afi)"])) & 7);
    same("active_slot", shown(doc("krt-firmware")["active_slot"]), afi);
    json capture = doc("krt-capture-file");
    same("capture fw_active", shown(capture["adapters"][0]["fw_active"]), afi);
    // The raw Identify data starts with the VID, little-endian.
    const json hex = capture["adapters"][0]["identify_hex"];
    const std::string raw = (hex.is_string() ? hex.get<std::string>() : "") + "0000";
    same("capture identify_hex vid", std::to_string(std::stoul(raw.substr(2, 2) + raw.substr(0, 2), nullptr, 16)),
         shown(ctrl["vid"]));
}

// --capture on another maker's controller asks only the standard requests
// and ends cleanly; the requests QEMU does not know are reported, not
// crashed on.
TEST_F(LinuxHost, OnlyStandardRequestsAndRefusalsReported)
{
    EXPECT_NE(section("krt-capture").text.find("another maker's controller: the standard requests only"),
              std::string::npos);
    json file = doc("krt-capture-file");
    EXPECT_EQ(file["machine_format"], json::array({1, 0}));
    EXPECT_TRUE(file["notes"].empty()) << file["notes"].dump();
    ASSERT_EQ(file["adapters"].size(), 1u);
    const json &a = file["adapters"][0];
    EXPECT_EQ(a["namespaces"].size(), 1u) << a.dump();
    EXPECT_FALSE(a.contains("pds") || a.contains("vds") || a.contains("event_ring")) << a.dump();

    std::printf("\ncontroller requests QEMU does not know\n");
    for (const char *name : {"krt-info", "krt-vendor"}) {
        const Section &s = section(name, false);
        EXPECT_NE(s.text.find("Invalid Command Opcode (Status Code: 0x1)"), std::string::npos) << s.text;
        std::printf("  %-22s status %d: %s\n", name, s.status, s.text.substr(0, s.text.find('\n')).c_str());
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
    const auto median = [&](const std::string &name) {
        std::vector<long> v = guest().blocks.count(name) != 0 ? guest().blocks.at(name) : std::vector<long>{};
        EXPECT_EQ(v.size(), 8u) << name;
        std::sort(v.begin(), v.end());
        return v.empty() ? 0.0 : (v[(v.size() - 1) / 2] + v[v.size() / 2]) / 2.0;
    };
    for (const std::string request : {"identify", "smart", "version"}) {
        const double ours = median("krt-" + request), theirs = median("nvme-" + request);
        std::printf("  %-20s %8.1f %8.1f %7.2f\n", request.c_str(), ours, theirs, theirs > 0 ? ours / theirs : 0.0);
    }
    std::printf("  (/bin/true: %.1f)\n", median("true"));
}

}  // namespace
