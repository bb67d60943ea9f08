#include "fixture.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "krt/ids.h"
#include "store.h"

namespace krtsim {

// Generated at build time from sim/fixtures/*.json.
struct EmbeddedFixture {
    const char *name;
    const unsigned char *data;
    size_t size;
};
extern const EmbeddedFixture kEmbeddedFixtures[];
extern const size_t kEmbeddedFixtureCount;

std::string_view builtinFixture(std::string_view name)
{
    for (size_t i = 0; i < kEmbeddedFixtureCount; ++i) {
        if (name == kEmbeddedFixtures[i].name)
            return {reinterpret_cast<const char *>(kEmbeddedFixtures[i].data), kEmbeddedFixtures[i].size};
    }
    return {};
}

std::vector<std::string> builtinFixtureNames()
{
    std::vector<std::string> names;
    for (size_t i = 0; i < kEmbeddedFixtureCount; ++i)
        names.emplace_back(kEmbeddedFixtures[i].name);
    return names;
}

KRT_U64 raidCapacity(KRT_U8 raidMode, int members, KRT_U64 memberLba)
{
    if (members <= 0)
        return 0;
    KRT_U64 n = static_cast<KRT_U64>(members);
    switch (raidMode) {
        case KRT_RAID0:
        case KRT_JBOD:
            return n * memberLba;
        case KRT_RAID1:
            return memberLba;
        case KRT_RAID10:
            return n / 2 * memberLba;
        case KRT_RAID5:
            return n > 1 ? (n - 1) * memberLba : 0;
        case KRT_RAID50:
            return n > 2 ? (n - 2) * memberLba : 0;
        case KRT_RAID6:
            return n > 2 ? (n - 2) * memberLba : 0;
        case KRT_RAID60:
            return n > 4 ? (n - 4) * memberLba : 0;
        default:
            return 0;
    }
}

KRT_U8 defaultParity(KRT_U8 raidMode)
{
    switch (raidMode) {
        case KRT_RAID5:
        case KRT_RAID50:
            return 1;
        case KRT_RAID6:
        case KRT_RAID60:
            return 2;
        default:
            return 0;
    }
}

namespace {

using nlohmann::json;

struct FixtureError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(const std::string &where, const std::string &what)
{
    throw FixtureError(where + ": " + what);
}

// Numbers may be written as JSON numbers or as "0x..." / decimal strings.
KRT_U64 number(const json &v, const std::string &where)
{
    if (v.is_number_unsigned())
        return v.get<KRT_U64>();
    if (v.is_number_integer()) {
        long long n = v.get<long long>();
        if (n < 0)
            fail(where, "must not be negative");
        return static_cast<KRT_U64>(n);
    }
    if (v.is_boolean())
        return v.get<bool>() ? 1 : 0;
    if (v.is_string()) {
        const std::string s = v.get<std::string>();
        char *end = nullptr;
        errno = 0;
        unsigned long long n = std::strtoull(s.c_str(), &end, 0);
        if (s.empty() || end == nullptr || *end != '\0' || errno != 0)
            fail(where, "not a number: " + s);
        return n;
    }
    fail(where, "expected a number");
}

KRT_U64 numberOr(const json &obj, const char *key, KRT_U64 fallback, const std::string &where, KRT_U64 max)
{
    auto it = obj.find(key);
    if (it == obj.end())
        return fallback;
    KRT_U64 n = number(*it, where + "." + key);
    if (n > max)
        fail(where + "." + key, "too large (at most " + std::to_string(max) + ")");
    return n;
}

// A SMART counter: 128 bits, so beyond a JSON number it may be written as
// a "0x..." or decimal string of up to that width.
SimU128 counterOr(const json &obj, const char *key, SimU128 fallback, const std::string &where)
{
    auto it = obj.find(key);
    if (it == obj.end())
        return fallback;
    if (!it->is_string())
        return number(*it, where + "." + key);
    const std::string s = it->get<std::string>();
    const bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    const unsigned base = hex ? 16 : 10;
    if (s.empty())
        fail(where + "." + key, "not a number: " + s);
    SimU128 n = 0;
    for (size_t i = hex ? 2 : 0; i < s.size(); ++i) {
        const char c = s[i];
        unsigned digit = base;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (hex && c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (hex && c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        if (digit >= base)
            fail(where + "." + key, "not a number: " + s);
        if (n > (~SimU128{0} - digit) / base)
            fail(where + "." + key, "too large (at most 128 bits)");
        n = n * base + digit;
    }
    return n;
}

bool boolOr(const json &obj, const char *key, bool fallback, const std::string &where)
{
    auto it = obj.find(key);
    if (it == obj.end())
        return fallback;
    if (!it->is_boolean())
        fail(where + "." + key, "expected true or false");
    return it->get<bool>();
}

// Bytes written as hexadecimal digits, two a byte: a device's data as it
// came, where a JSON string would not carry it.
std::string hexBytes(const json &v, const std::string &where, size_t max)
{
    if (!v.is_string())
        fail(where, "expected hexadecimal digits");
    const std::string digits = v.get<std::string>();
    if (digits.size() % 2 != 0 || digits.size() / 2 > max)
        fail(where, "expected an even number of hexadecimal digits, at most " + std::to_string(2 * max));
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    auto nibble = [&](char c) -> unsigned {
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            fail(where, std::string("not a hexadecimal digit: '") + c + "'");
        return c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>(std::tolower(c) - 'a' + 10);
    };
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<char>(nibble(digits[i]) << 4 | nibble(digits[i + 1])));
    return bytes;
}

// A text: a JSON string, or {"hex": "..."} for bytes that are not one
// (a device's field holding NULs or bytes outside printable ASCII).
std::string stringOr(const json &obj, const char *key, const std::string &fallback, const std::string &where)
{
    auto it = obj.find(key);
    if (it == obj.end())
        return fallback;
    if (it->is_object() && it->contains("hex"))
        return hexBytes((*it)["hex"], where + "." + key + ".hex", kIdentifySize);
    if (!it->is_string())
        fail(where + "." + key, "expected a string");
    return it->get<std::string>();
}

// Fixed-width text the controller pads with blanks (NVMe identify strings).
template <size_t N>
void putPadded(char (&field)[N], const std::string &text)
{
    std::memset(field, ' ', N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

// Fixed-width text padded with NULs; a text of the full width keeps no
// terminator, as the controller sends it.
template <size_t N>
void putZeroed(KRT_U8 (&field)[N], const std::string &text)
{
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

template <size_t N>
void putZeroed(char (&field)[N], const std::string &text)
{
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

NVME_Version_Info version(const std::string &text, const std::string &where)
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    char tail = 0;
    if (std::sscanf(text.c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &d, &tail) != 4 || a > 0xFFFF || b > 0xFFFF ||
        c > 0xFFFF || d > 0xFFFF)
        fail(where, "expected a version a.b.c.d, got '" + text + "'");
    return {static_cast<KRT_U16>(a), static_cast<KRT_U16>(b), static_cast<KRT_U16>(c), static_cast<KRT_U16>(d)};
}

KRT_U8 raidModeOf(const json &v, const std::string &where)
{
    if (v.is_string()) {
        std::string s = v.get<std::string>();
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char ch) { return std::tolower(ch); });
        static const std::pair<const char *, KRT_U8> names[] = {
            {"raid0", KRT_RAID0}, {"raid1", KRT_RAID1},   {"raid5", KRT_RAID5},   {"raid6", KRT_RAID6},
            {"jbod", KRT_JBOD},   {"raid10", KRT_RAID10}, {"raid50", KRT_RAID50}, {"raid60", KRT_RAID60},
        };
        for (const auto &[name, mode] : names)
            if (s == name)
                return mode;
        if (s.rfind("0x", 0) != 0)
            fail(where, "unknown RAID mode '" + s + "'");
    }
    KRT_U64 n = number(v, where);
    if (n > 0xFF)
        fail(where, "RAID mode out of range");
    return static_cast<KRT_U8>(n);
}

KRT_U8 vdStateOf(const json &v, const std::string &where)
{
    if (v.is_string()) {
        static const char *names[] = {"functional",     "degrade",           "deleted",    "missing",
                                      "offline",        "partially_optimal", "foreign",    "importable",
                                      "not_importable", "initialization",    "rebuilding", "error_handling"};
        const std::string s = v.get<std::string>();
        for (size_t i = 0; i < std::size(names); ++i)
            if (s == names[i])
                return static_cast<KRT_U8>(i);
        if (s == "degraded")
            return KRT_VD_DEGRADE;
        if (s.rfind("0x", 0) != 0)
            fail(where, "unknown VD state '" + s + "'");
    }
    KRT_U64 n = number(v, where);
    if (n > 0xFF)
        fail(where, "state out of range");
    return static_cast<KRT_U8>(n);
}

KRT_U8 bgaTypeOf(const json &v, const std::string &where)
{
    if (v.is_string()) {
        const std::string s = v.get<std::string>();
        static const std::pair<const char *, KRT_U8> names[] = {
            {"init", KRT_BGA_INIT}, {"init_full", KRT_BGA_INIT_FULL}, {"rebuild", KRT_BGA_REBUILD},
            {"sync", KRT_BGA_SYNC}, {"migrate", KRT_BGA_MIGRATE},     {"media_patrol", KRT_BGA_MEDIA_PATROL},
        };
        for (const auto &[name, type] : names)
            if (s == name)
                return type;
        fail(where, "unknown activity '" + s + "'");
    }
    return static_cast<KRT_U8>(std::min<KRT_U64>(number(v, where), 0xFF));
}

void readBga(const json &obj, SimBga &bga, KRT_U64 now, const std::string &where)
{
    if (!obj.is_object())
        fail(where, "expected an object");
    bga.type = bgaTypeOf(obj.value("type", json("init")), where + ".type");
    const std::string state = stringOr(obj, "state", "running", where);
    if (state == "running")
        bga.status = KRT_NVME_BGA_STATUS_RUNNING;
    else if (state == "paused")
        bga.status = KRT_NVME_BGA_STATUS_PAUSE;
    else if (state == "none")
        bga.status = KRT_NVME_BGA_STATUS_NONE;
    else
        fail(where + ".state", "expected running, paused or none");
    bga.progress = static_cast<KRT_U32>(numberOr(obj, "percent", 0, where, 100) * 1000);
    bga.millisPerPercent = static_cast<KRT_U32>(numberOr(obj, "seconds_per_percent", 1, where, 86400) * 1000);
    bga.target = static_cast<KRT_U8>(numberOr(obj, "target", 0, where, 0xFF));
    bga.lastMillis = now;
}

// An array whose entries may carry "count": N to stand for N copies.
std::vector<json> expand(const json &arr, const std::string &where)
{
    std::vector<json> out;
    if (arr.is_null())
        return out;
    if (!arr.is_array())
        fail(where, "expected an array");
    for (size_t i = 0; i < arr.size(); ++i) {
        const json &e = arr[i];
        if (!e.is_object())
            fail(where + "[" + std::to_string(i) + "]", "expected an object");
        KRT_U64 n = numberOr(e, "count", 1, where + "[" + std::to_string(i) + "]", 4096);
        for (KRT_U64 k = 0; k < n; ++k)
            out.push_back(e);
    }
    return out;
}

constexpr KRT_U64 kDefaultPdLba = 3750748848ull;  // 1.92 TB in 512-byte sectors
constexpr KRT_U16 kNoParent = 0xFFFF;

// An array of at most N numbers into a field of N; the rest stay 0.
template <typename T, size_t N>
void numberList(const json &v, T (&field)[N], KRT_U64 max, const std::string &where)
{
    if (!v.is_array() || v.size() > N)
        fail(where, "expected an array of at most " + std::to_string(N) + " numbers");
    for (size_t i = 0; i < v.size(); ++i) {
        const KRT_U64 n = number(v[i], where);
        if (n > max)
            fail(where, "too large (at most " + std::to_string(max) + ")");
        field[i] = static_cast<T>(n);
    }
}

// Firmware slots: the texts of slots 1-7 in order ("" for an empty one),
// the running slot and the one activated at the next reset (0: none).
void readFwSlots(const json &obj, char (&slots)[kFwSlots][8], KRT_U8 &active, KRT_U8 &next, const std::string &where)
{
    if (obj.contains("fw_slots")) {
        const json &texts = obj["fw_slots"];
        if (!texts.is_array() || texts.size() > kFwSlots)
            fail(where + ".fw_slots", "expected at most 7 texts");
        for (size_t i = 0; i < kFwSlots; ++i) {
            json holder = json::object();
            if (i < texts.size())
                holder["slot"] = texts[i];
            const std::string text = stringOr(holder, "slot", "", where + ".fw_slots");
            if (text.size() > 8)
                fail(where + ".fw_slots", "a slot text has at most 8 characters: '" + text + "'");
            putZeroed(slots[i], text);
        }
    }
    active = static_cast<KRT_U8>(numberOr(obj, "fw_active", active, where, kFwSlots));
    next = static_cast<KRT_U8>(numberOr(obj, "fw_next", next, where, kFwSlots));
}

void buildPd(const json &p, SimPd &pd, int adapterIdx, int id, const std::string &where)
{
    pd.present = 1;
    pd.slot = static_cast<KRT_U16>(numberOr(p, "slot", static_cast<KRT_U64>(id), where, 0xFFFF));
    pd.nsid = static_cast<KRT_U16>(numberOr(p, "nsid", 1, where, 0xFFFF));
    pd.sectorSize = static_cast<KRT_U32>(numberOr(p, "sector_size", 512, where, 0xFFFFFFFF));
    pd.lba = numberOr(p, "sectors", kDefaultPdLba, where, ~0ull);
    char serial[32];
    std::snprintf(serial, sizeof serial, "SSD%02d%04d%06d", adapterIdx + 1, id, 100 + id);
    putPadded(pd.model, stringOr(p, "model", "NVMe SSD 1920GB", where));
    putPadded(pd.serial, stringOr(p, "serial", serial, where));
    putPadded(pd.fw, stringOr(p, "fw", "1.0.3", where));
    // Health figures differ a little from disk to disk, as they would.
    const KRT_U64 n = static_cast<KRT_U64>(id);
    pd.temperature = static_cast<KRT_U16>(numberOr(p, "temperature", 306 + n % 5, where, 0xFFFF));
    pd.criticalWarning = static_cast<KRT_U8>(numberOr(p, "critical_warning", 0, where, 0xFF));
    pd.percentUsed = static_cast<KRT_U8>(numberOr(p, "percent_used", 2 + n % 4, where, 0xFF));
    const auto counter = [&](const char *key, SimU128 fallback, KRT_U64 &low, KRT_U64 &high) {
        const SimU128 value = counterOr(p, key, fallback, where);
        low = static_cast<KRT_U64>(value);
        high = static_cast<KRT_U64>(value >> 64);
    };
    counter("power_on_hours", 1200 + 13 * n, pd.powerOnHours, pd.powerOnHoursHigh);
    counter("power_cycles", 42 + n % 7, pd.powerCycles, pd.powerCyclesHigh);
    counter("unsafe_shutdowns", 2 + n % 3, pd.unsafeShutdowns, pd.unsafeShutdownsHigh);
    counter("media_errors", 0, pd.mediaErrors, pd.mediaErrorsHigh);
    // The figures the model works out from those above, unless the disk's
    // own are given (a capture of a real one).
    const std::pair<const char *, std::pair<KRT_U64 *, SmartOwn>> own128[] = {
        {"host_read_commands", {pd.hostReads, SMART_OWN_HOST_READS}},
        {"host_write_commands", {pd.hostWrites, SMART_OWN_HOST_WRITES}},
        {"controller_busy_time", {pd.busyMinutes, SMART_OWN_BUSY}},
        {"error_log_entries", {pd.errorLogEntries, SMART_OWN_ERROR_ENTRIES}},
    };
    for (const auto &[key, field] : own128) {
        if (!p.contains(key))
            continue;
        counter(key, 0, field.first[0], field.first[1]);
        pd.smartOwn |= field.second;
    }
    if (p.contains("smart_temperature")) {
        pd.smartTemperature = static_cast<KRT_U16>(numberOr(p, "smart_temperature", 0, where, 0xFFFF));
        pd.smartOwn |= SMART_OWN_TEMPERATURE;
    }
    if (p.contains("spare_threshold")) {
        pd.spareThreshold = static_cast<KRT_U8>(numberOr(p, "spare_threshold", 0, where, 0xFF));
        pd.smartOwn |= SMART_OWN_SPARE_THRESHOLD;
    }
    if (p.contains("critical_temp_minutes")) {
        pd.criticalTempMinutes = static_cast<KRT_U32>(numberOr(p, "critical_temp_minutes", 0, where, 0xFFFFFFFF));
        pd.smartOwn |= SMART_OWN_CRITICAL_TEMP;
    }
    if (p.contains("temperature_sensors")) {
        numberList(p["temperature_sensors"], pd.tempSensors, 0xFFFF, where + ".temperature_sensors");
        pd.smartOwn |= SMART_OWN_TEMP_SENSORS;
    }
    if (p.contains("thermal")) {
        numberList(p["thermal"], pd.thermal, 0xFFFFFFFF, where + ".thermal");
        pd.smartOwn |= SMART_OWN_THERMAL;
    }
    pd.warningTempMinutes = static_cast<KRT_U32>(numberOr(p, "warning_temp_minutes", 0, where, 0xFFFFFFFF));
    const SimU128 unitsRead = counterOr(p, "data_units_read", 123456 + 7919 * n, where);
    const SimU128 unitsWritten = counterOr(p, "data_units_written", 654321 + 3571 * n, where);
    pd.dataUnitsRead = static_cast<KRT_U64>(unitsRead);
    pd.dataUnitsReadHigh = static_cast<KRT_U64>(unitsRead >> 64);
    pd.dataUnitsWritten = static_cast<KRT_U64>(unitsWritten);
    pd.dataUnitsWrittenHigh = static_cast<KRT_U64>(unitsWritten >> 64);
    std::string fw = stringOr(p, "fw", "1.0.3", where);
    putZeroed(pd.fwSlots[0], fw);
    pd.activeSlot = 1;
    readFwSlots(p, pd.fwSlots, pd.activeSlot, pd.nextSlot, where);
    // The disk's own Identify data: what its record does not say.
    pd.idFrmw = 0x06;  // three slots
    if (p.contains("identify")) {
        const json &ident = p["identify"];
        const std::string w = where + ".identify";
        if (!ident.is_object())
            fail(w, "expected an object");
        pd.idFrmw = static_cast<KRT_U8>(numberOr(ident, "frmw", pd.idFrmw, w, 0xFF));
        const std::pair<const char *, IdOwn> texts[] = {
            {"serial", ID_OWN_SERIAL}, {"model", ID_OWN_MODEL}, {"fr", ID_OWN_FR}};
        for (const auto &[key, bit] : texts) {
            if (!ident.contains(key))
                continue;
            const std::string text = stringOr(ident, key, "", w);
            if (bit == ID_OWN_SERIAL)
                putPadded(pd.idSerial, text);
            else if (bit == ID_OWN_MODEL)
                putPadded(pd.idModel, text);
            else
                putPadded(pd.idFr, text);
            pd.idOwn |= bit;
        }
        putZeroed(pd.idSubnqn, stringOr(ident, "subnqn", "", w));
    }
    const KRT_U16 vid = static_cast<KRT_U16>(numberOr(p, "vid", KRT_PCI_VENDOR_ID, where, 0xFFFF));
    std::memcpy(pd.vid, &vid, sizeof vid);
    pd.status = 0;
    if (boolOr(p, "failed", false, where))
        pd.status |= KRT_PD_FAILED;
    if (boolOr(p, "importable", false, where))
        pd.status |= KRT_PD_IMPORTABLE;
    if (boolOr(p, "smart_critical", false, where)) {
        pd.status |= KRT_PD_SMART_CRITICAL;
        if (pd.criticalWarning == 0)
            pd.criticalWarning = 0x01;  // spare below threshold
    }
    // A disk warning of its spare has little left (the threshold is 10 %).
    const KRT_U64 spare = (pd.criticalWarning & 0x01) ? 4 : 100;
    pd.availSpare = static_cast<KRT_U8>(numberOr(p, "available_spare", spare, where, 0xFF));
    pd.powerOff = boolOr(p, "power_off", false, where) ? 1 : 0;
    pd.resetHeld = boolOr(p, "reset_held", false, where) ? 1 : 0;
    if (p.contains("bga"))
        readBga(p["bga"], pd.bga, 0, where + ".bga");
    if (pd.bga.type == KRT_BGA_MEDIA_PATROL && pd.bga.status == KRT_NVME_BGA_STATUS_RUNNING)
        pd.status |= KRT_PD_MEDIA_PATROL;
}

int freeNsSlot(SimAdapter &ad)
{
    for (int i = 0; i < kMaxNs; ++i)
        if (ad.ns[i].nsid == 0)
            return i;
    return -1;
}

// Adds a namespace; sizes default to an even share of the parent.
void addNs(SimAdapter &ad, const json &n, KRT_U8 deviceType, KRT_U16 parent, KRT_U64 defaultLba, KRT_U32 sectorSize,
           const std::string &where)
{
    // The slot orders the controller's namespace lists; by default the
    // first free one.
    int slot = freeNsSlot(ad);
    if (n.contains("slot")) {
        slot = static_cast<int>(numberOr(n, "slot", 0, where, kMaxNs - 1));
        if (ad.ns[slot].nsid != 0)
            fail(where + ".slot", "slot " + std::to_string(slot) + " is taken (give every namespace a slot, or none)");
    }
    if (slot < 0)
        fail(where, "more than " + std::to_string(kMaxNs) + " namespaces");
    SimNs &ns = ad.ns[slot];
    KRT_U64 used = 0;
    for (const SimNs &o : ad.ns)
        used = std::max<KRT_U64>(used, o.nsid);
    ns.nsid = static_cast<KRT_U8>(numberOr(n, "nsid", used + 1, where, 0xFF));
    if (ns.nsid == 0)
        fail(where + ".nsid", "namespace id 0 is not allowed");
    ns.deviceType = deviceType;
    ns.parent = parent;
    ns.sectorSize = static_cast<KRT_U32>(numberOr(n, "sector_size", sectorSize, where, 0xFFFFFFFF));
    ns.lbaDataSize = static_cast<KRT_U8>(numberOr(n, "lba_data_size", ns.sectorSize == 4096 ? 12 : 9, where, 0xFF));
    KRT_U64 lba = defaultLba;
    if (n.contains("gb"))
        lba = (numberOr(n, "gb", 0, where, 1ull << 40) << 30) / std::max<KRT_U32>(ns.sectorSize, 1);
    ns.lba = numberOr(n, "sectors", lba, where, ~0ull);
    ns.status = 0;
    if (boolOr(n, "valid", true, where))
        ns.status |= KRT_NS_VALID;
    if (boolOr(n, "active", true, where))
        ns.status |= KRT_NS_ACTIVE;
    // Bits beyond valid and active, as a controller reports them.
    if (n.contains("status"))
        ns.status = static_cast<KRT_U8>(numberOr(n, "status", 0, where, 0xFF));
    ns.shared = boolOr(n, "shared", false, where) ? 1 : 0;
    if (n.contains("identify_hex")) {
        const std::string bytes = hexBytes(n["identify_hex"], where + ".identify_hex", kNsIdentifyKept);
        std::memcpy(ns.identify, bytes.data(), bytes.size());
        ns.identifyLength = static_cast<KRT_U16>(std::max<size_t>(bytes.size(), 1));
    }
}

void buildVd(const json &v, SimAdapter &ad, int id, KRT_U64 now, const std::string &where)
{
    SimVd &vd = ad.vds[id];
    if (vd.present)
        fail(where, "VD id " + std::to_string(id) + " used twice");
    vd.present = 1;
    vd.raidMode = raidModeOf(v.value("raid", json("raid5")), where + ".raid");
    if (!v.contains("members") || !v["members"].is_array())
        fail(where + ".members", "expected an array of PD ids");
    const json &members = v["members"];
    if (members.size() > KRT_VD_MAX_MEMBERS)
        fail(where + ".members", "at most 32 members");
    KRT_U64 minLba = ~0ull;
    int present = 0;
    KRT_U32 sectorSize = 512;
    for (size_t i = 0; i < members.size(); ++i) {
        KRT_U64 pid = number(members[i], where + ".members");
        if (pid > 0xFFFF)
            fail(where + ".members", "PD id out of range");
        vd.members[i] = static_cast<KRT_U16>(pid);
        if (pid == KRT_PD_MISSING)
            continue;
        if (pid >= kMaxPds || !ad.pds[pid].present)
            fail(where + ".members", "no PD " + std::to_string(pid));
        SimPd &pd = ad.pds[pid];
        pd.status |= KRT_PD_ASSIGNED;
        minLba = std::min(minLba, pd.lba);
        sectorSize = pd.sectorSize;
        ++present;
    }
    if (present == 0)
        minLba = kDefaultPdLba;
    for (size_t i = members.size(); i < KRT_VD_MAX_MEMBERS; ++i)
        vd.members[i] = 0;
    vd.memberCount = static_cast<KRT_U8>(numberOr(v, "member_count", members.size(), where, 0xFF));
    vd.numParity = static_cast<KRT_U8>(numberOr(v, "parity", defaultParity(vd.raidMode), where, 0xFF));
    KRT_U64 stripeKb = numberOr(v, "stripe_kb", 128, where, 0xFFFF);
    vd.stripBlocks = static_cast<KRT_U16>(numberOr(v, "stripe_blocks", stripeKb * 2, where, 0xFFFF));
    vd.sectorSize = static_cast<KRT_U32>(numberOr(v, "sector_size", sectorSize, where, 0xFFFFFFFF));
    vd.lba = numberOr(v, "sectors", raidCapacity(vd.raidMode, static_cast<int>(members.size()), minLba), where, ~0ull);
    bool missing = present < static_cast<int>(members.size());
    vd.status = missing ? KRT_VD_DEGRADE : KRT_VD_FUNCTIONAL;
    if (v.contains("status"))
        vd.status = vdStateOf(v["status"], where + ".status");
    vd.importable = boolOr(v, "importable", false, where) ? 1 : 0;
    // Disks that carry a VD from elsewhere say so until it is imported.
    if (vd.status == KRT_VD_FOREIGN || vd.status == KRT_VD_IMPORTABLE || vd.status == KRT_VD_NOT_IMPORTABLE)
        for (size_t i = 0; i < members.size(); ++i)
            if (vd.members[i] < kMaxPds)
                ad.pds[vd.members[i]].status |= KRT_PD_IMPORTABLE;
    char name[17];
    std::snprintf(name, sizeof name, "VD_%d", id);
    putZeroed(vd.name, stringOr(v, "name", name, where));
    if (v.contains("bga"))
        readBga(v["bga"], vd.bga, now, where + ".bga");
    // A rebuild under way, paused or not, has claimed its target disk.
    if (vd.bga.type == KRT_BGA_REBUILD && vd.bga.status != KRT_NVME_BGA_STATUS_NONE && vd.bga.target < kMaxPds &&
        ad.pds[vd.bga.target].present)
        ad.pds[vd.bga.target].status |= KRT_PD_ASSIGNED;

    std::vector<json> nss = expand(v.value("namespaces", json::array()), where + ".namespaces");
    KRT_U64 share = nss.empty() ? 0 : vd.lba / nss.size();
    for (size_t i = 0; i < nss.size(); ++i)
        addNs(ad, nss[i], 1, static_cast<KRT_U16>(id), share, vd.sectorSize,
              where + ".namespaces[" + std::to_string(i) + "]");
}

// The event ring as a controller holds it: its slots in order, each event
// with its own sequence number and time, and how many were ever logged
// (the next one goes to slot `logged` mod 256 with number `logged` + 1).
void readEventRing(const json &ring, SimAdapter &ad, const std::string &where)
{
    if (!ring.is_object() || !ring.contains("entries") || !ring["entries"].is_array())
        fail(where, "expected {\"logged\": N, \"entries\": [...]}");
    const json &entries = ring["entries"];
    if (entries.size() > kMaxEvents)
        fail(where + ".entries", "at most " + std::to_string(kMaxEvents) + " events");
    for (size_t i = 0; i < entries.size(); ++i) {
        const std::string w = where + ".entries[" + std::to_string(i) + "]";
        if (!entries[i].is_object())
            fail(w, "expected {\"seq\", \"time\", \"message\"}");
        SimEvent &e = ad.events[i];
        e.seq = static_cast<KRT_U32>(numberOr(entries[i], "seq", i + 1, w, 0xFFFFFFFF));
        e.time = static_cast<KRT_U32>(numberOr(entries[i], "time", 0, w, 0xFFFFFFFF));
        putZeroed(e.msg, stringOr(entries[i], "message", "", w));
    }
    ad.eventCount = static_cast<KRT_U32>(numberOr(ring, "logged", entries.size(), where, 0xFFFFFFFF));
}

void buildAdapter(const json &a, SimAdapter &ad, int index, KRT_U64 now, const std::string &where)
{
    char name[32];
    std::snprintf(name, sizeof name, "vmhba%d", index + 1);
    std::string nm = stringOr(a, "name", name, where);
    if (nm.size() > 31)
        fail(where + ".name", "at most 31 characters");
    putZeroed(ad.name, nm);
    std::string sig = stringOr(a, "signature", "nvmeMgmt-" + nm, where);
    if (sig.size() > 31)
        fail(where + ".signature", "at most 31 characters");
    putZeroed(ad.signature, sig);
    ad.vanished = boolOr(a, "vanished", false, where) ? 1 : 0;
    ad.raid = boolOr(a, "raid", true, where) ? 1 : 0;

    // Back-end SSDs first: VDs and namespaces refer to them.
    std::vector<json> pds = expand(a.value("pds", json::array()), where + ".pds");
    if (a.contains("pd_count")) {
        KRT_U64 n = numberOr(a, "pd_count", 0, where, kMaxPds);
        pds.assign(n, json::object());
    }
    if (pds.size() > kMaxPds)
        fail(where + ".pds", "at most " + std::to_string(kMaxPds) + " SSDs");
    KRT_U64 totalBytes = 0;
    for (size_t i = 0; i < pds.size(); ++i) {
        const std::string w = where + ".pds[" + std::to_string(i) + "]";
        KRT_U64 id = numberOr(pds[i], "id", i, w, kMaxPds - 1);
        if (ad.pds[id].present)
            fail(w, "PD id " + std::to_string(id) + " used twice");
        buildPd(pds[i], ad.pds[id], index, static_cast<int>(id), w);
        ad.pds[id].bga.lastMillis = now;
        totalBytes += ad.pds[id].lba * ad.pds[id].sectorSize;
    }

    std::vector<json> vds = expand(a.value("vds", json::array()), where + ".vds");
    if (!ad.raid && !vds.empty())
        fail(where + ".vds", "a controller without RAID has no VDs");
    if (vds.size() > kMaxVds)
        fail(where + ".vds", "at most " + std::to_string(kMaxVds) + " VDs");
    for (size_t i = 0; i < vds.size(); ++i) {
        const std::string w = where + ".vds[" + std::to_string(i) + "]";
        KRT_U64 id = numberOr(vds[i], "id", i, w, kMaxVds - 1);
        buildVd(vds[i], ad, static_cast<int>(id), now, w);
    }

    // Namespaces directly on SSDs (a controller without RAID); by default one
    // namespace spanning each SSD.
    std::vector<json> nss = expand(a.value("namespaces", json::array()), where + ".namespaces");
    if (!ad.raid && !a.contains("namespaces")) {
        for (int i = 0; i < kMaxPds; ++i) {
            if (!ad.pds[i].present)
                continue;
            json n = json::object();
            n["pd"] = i;
            // The namespaces of a disk from elsewhere come with its table.
            if (ad.pds[i].status & KRT_PD_IMPORTABLE)
                n["valid"] = n["active"] = false;
            nss.push_back(n);
        }
    }
    for (size_t i = 0; i < nss.size(); ++i) {
        const std::string w = where + ".namespaces[" + std::to_string(i) + "]";
        // "pd": null is a namespace on no SSD of this model: the controller's
        // own, as another maker's controller has them.
        if (nss[i].contains("pd") && nss[i]["pd"].is_null()) {
            addNs(ad, nss[i], 0, kNoParent, 0, 512, w);
            continue;
        }
        KRT_U64 pid = numberOr(nss[i], "pd", 0, w, kMaxPds - 1);
        const SimPd &pd = ad.pds[pid];
        if (!pd.present)
            fail(w + ".pd", "no PD " + std::to_string(pid));
        addNs(ad, nss[i], 0, static_cast<KRT_U16>(pid), pd.lba, pd.sectorSize, w);
    }
    // A disk's status as its controller reported it, over the marks its
    // VDs, activities and imports gave it above.
    for (size_t i = 0; i < pds.size(); ++i) {
        if (!pds[i].contains("status"))
            continue;
        const std::string w = where + ".pds[" + std::to_string(i) + "]";
        ad.pds[numberOr(pds[i], "id", i, w, kMaxPds - 1)].status =
            static_cast<KRT_U8>(numberOr(pds[i], "status", 0, w, 0xFF));
    }
    KRT_U64 allocated = 0;
    for (const SimNs &ns : ad.ns)
        if (ns.nsid != 0)
            allocated += ns.lba * ns.sectorSize;

    // The controller's information record.
    _NVME_Adapter_Info &info = ad.info;
    info.FirmwareVersion = version(stringOr(a, "firmware", "2.1.0.35", where), where + ".firmware");
    info.UEFIVersion = version(stringOr(a, "uefi", "1.0.0.7", where), where + ".uefi");
    info.VID = static_cast<KRT_U16>(numberOr(a, "vid", KRT_PCI_VENDOR_ID, where, 0xFFFF));
    info.SVID = static_cast<KRT_U16>(numberOr(a, "svid", info.VID, where, 0xFFFF));
    info.DID = static_cast<KRT_U16>(numberOr(a, "did", KRT_PCI_DEVICE_ID, where, 0xFFFF));
    info.SDID = static_cast<KRT_U16>(numberOr(a, "sdid", 0x0001, where, 0xFFFF));
    info.RevisionID = static_cast<KRT_U8>(numberOr(a, "revision", 0x11, where, 0xFF));
    info.PortCount = static_cast<KRT_U8>(numberOr(a, "port_count", 8, where, 0xFF));
    info.MaxPDPerVD = static_cast<KRT_U8>(numberOr(a, "max_pd_per_vd", ad.raid ? 32 : 0, where, 0xFF));
    info.MaxVD = static_cast<KRT_U8>(numberOr(a, "max_vd", ad.raid ? 8 : 0, where, 0xFF));
    info.MaxPD = static_cast<KRT_U8>(numberOr(a, "max_pd", kMaxPds, where, 0xFF));
    info.MaxNSPerVD = static_cast<KRT_U8>(numberOr(a, "max_ns_per_vd", 8, where, 0xFF));
    info.MaxNS = static_cast<KRT_U8>(numberOr(a, "max_ns", 32, where, 0xFF));
    info.MaxFlashSize = static_cast<KRT_U32>(numberOr(a, "max_flash_size", 0x800000, where, 0xFFFFFFFF));
    info.MaxBufferSize = static_cast<KRT_U16>(numberOr(a, "max_buffer_size", 4096, where, 0xFFFF));
    info.SupportRAIDMode = static_cast<KRT_U16>(numberOr(a, "raid_modes", ad.raid ? 0xFF : 0, where, 0xFFFF));
    info.Cache = static_cast<KRT_U8>(numberOr(a, "cache", 1, where, 0xFF));
    info.SupportBGAFeature = static_cast<KRT_U8>(numberOr(a, "bga_features", ad.raid ? 0x1F : 0, where, 0xFF));
    info.StripeSizeSupported = static_cast<KRT_U8>(numberOr(a, "stripe_sizes", ad.raid ? 0x07 : 0, where, 0xFF));
    info.SKUID = static_cast<KRT_U8>(numberOr(a, "sku", 0, where, 0xFF));
    KRT_U32 features = ad.raid ? (KRT_FEATURE_RAID | KRT_FEATURE_IMPORT | KRT_FEATURE_NS_MGMT) : KRT_FEATURE_NS_MGMT;
    info.Features = static_cast<KRT_U32>(numberOr(a, "features", features, where, 0xFFFFFFFF));
    info.OEMFeatures = static_cast<KRT_U32>(numberOr(a, "oem_features", 0, where, 0xFFFFFFFF));
    for (auto &link : info.PCIeInfo)
        link = {255, 0, 0, 0};
    json links = a.value("pcie", json::array({json{{"type", 0}, {"id", 0}, {"speed", 3}, {"width", 8}}}));
    if (!links.is_array() || links.size() > KRT_PCIE_INFO_COUNT)
        fail(where + ".pcie", "at most 16 links");
    for (size_t i = 0; i < links.size(); ++i) {
        const std::string w = where + ".pcie[" + std::to_string(i) + "]";
        info.PCIeInfo[i].Type = static_cast<KRT_U8>(numberOr(links[i], "type", 0, w, 0xFF));
        info.PCIeInfo[i].Id = static_cast<KRT_U8>(numberOr(links[i], "id", i, w, 0xFF));
        info.PCIeInfo[i].Speed = static_cast<KRT_U8>(numberOr(links[i], "speed", 3, w, 0xFF));
        info.PCIeInfo[i].LinkWidth = static_cast<KRT_U8>(numberOr(links[i], "width", 8, w, 0xFF));
    }
    putZeroed(info.BuildDate, stringOr(a, "build_date", "2026-10-30", where));
    info.BusNumber = static_cast<KRT_U8>(numberOr(a, "bus", 0x10 + static_cast<KRT_U64>(index), where, 0xFF));
    info.DeviceNumber = static_cast<KRT_U8>(numberOr(a, "device", 0, where, 0xFF));
    info.FunctionNumber = static_cast<KRT_U8>(numberOr(a, "function", 0, where, 0xFF));

    // Identify Controller.
    char serial[32];
    std::snprintf(serial, sizeof serial, "KRT%08d", 1000 + index);
    std::string sn = stringOr(a, "serial", serial, where);
    putPadded(ad.sn, sn);
    putPadded(ad.mn, stringOr(a, "model", "NVMe Controller", where));
    char fr[24];
    std::snprintf(fr, sizeof fr, "%u.%u.%u", info.FirmwareVersion.MajorVersion, info.FirmwareVersion.MinorVersion,
                  info.FirmwareVersion.BuildNumber);
    std::string frText = stringOr(a, "fr", fr, where);
    putPadded(ad.fr, frText);
    ad.ssvid = static_cast<KRT_U16>(numberOr(a, "ssvid", info.SVID, where, 0xFFFF));
    ad.cntlid = static_cast<KRT_U16>(numberOr(a, "cntlid", 1, where, 0xFFFF));
    ad.frmw = static_cast<KRT_U8>(numberOr(a, "frmw", 0x1E, where, 0xFF));  // seven slots, activation without reset
    putZeroed(ad.subnqn, stringOr(a, "subnqn", "nqn.2026-01.io.krt:nvme-controller:serial:" + sn, where));
    if (a.contains("subnqn_828"))
        ad.subnqn[828 - NVME_ID_SUBNQN] = static_cast<KRT_U8>(numberOr(a, "subnqn_828", 0, where, 0xFF));
    for (int i = 0; i < 8; ++i)
        ad.eui64[i] = static_cast<KRT_U8>(i == 0 ? 0x00 : i == 1 ? 0x1E : index * 8 + i);
    ad.tnvmcap = numberOr(a, "tnvmcap", totalBytes, where, ~0ull);
    ad.unvmcap = numberOr(a, "unvmcap", totalBytes > allocated ? totalBytes - allocated : 0, where, ~0ull);
    ad.activeFwSlot = 1;
    std::string frSlot = frText.substr(0, 8);
    putZeroed(ad.fwSlots[0], frSlot);
    readFwSlots(a, ad.fwSlots, ad.activeFwSlot, ad.nextFwSlot, where);
    // The controller's own Identify data (a capture): answered as it came,
    // with the fields above (SN, MN, FR, ...) laid over it.
    if (a.contains("identify_hex")) {
        const std::string bytes = hexBytes(a["identify_hex"], where + ".identify_hex", kIdentifySize);
        std::memcpy(ad.identify, bytes.data(), bytes.size());
        ad.identifyOwn = 1;
    }
    // The first seven bytes of every namespace's EUI64; the last is its NSID.
    if (a.contains("eui64")) {
        const std::string bytes = hexBytes(a["eui64"], where + ".eui64", sizeof ad.eui64);
        std::memset(ad.eui64, 0, sizeof ad.eui64);
        std::memcpy(ad.eui64, bytes.data(), bytes.size());
    }
    ad.gpioInverse = static_cast<KRT_U8>(numberOr(a, "gpio_inverse", 0, where, 0xFF));
    // The controller's own SMART figures, where the model takes the worst
    // of its SSDs.
    if (a.contains("smart")) {
        const json &sm = a["smart"];
        const std::string w = where + ".smart";
        if (!sm.is_object())
            fail(w, "expected an object");
        const auto own = [&](const char *key, AdapterSmartOwn bit, KRT_U64 max) -> KRT_U64 {
            if (!sm.contains(key))
                return 0;
            ad.smartOwn |= bit;
            return numberOr(sm, key, 0, w, max);
        };
        ad.smartCriticalWarning = static_cast<KRT_U8>(own("critical_warning", ADAPTER_SMART_CRITICAL, 0xFF));
        ad.smartTemperature = static_cast<KRT_U16>(own("temperature", ADAPTER_SMART_TEMPERATURE, 0xFFFF));
        ad.smartSpare = static_cast<KRT_U8>(own("available_spare", ADAPTER_SMART_SPARE, 0xFF));
        ad.smartSpareThreshold = static_cast<KRT_U8>(own("spare_threshold", ADAPTER_SMART_SPARE_THRESHOLD, 0xFF));
        ad.smartPercentUsed = static_cast<KRT_U8>(own("percent_used", ADAPTER_SMART_PERCENT_USED, 0xFF));
    }

    ad.config.AutoRebuildOn = 1;
    ad.config.BGARate = 2;  // medium
    if (a.contains("config")) {
        const json &c = a["config"];
        ad.config.AutoRebuildOn = static_cast<KRT_U8>(numberOr(c, "auto_rebuild", 1, where + ".config", 0xFF));
        ad.config.BGARate = static_cast<KRT_U8>(numberOr(c, "bga_rate", 2, where + ".config", 0xFF));
    }

    // The event ring: a short start-up history unless the fixture gives its
    // own messages; "event_fill" adds numbered events (past the ring's size
    // the oldest are overwritten, as on the controller). An event given as
    // {"message", "time"} carries its own time stamp, e.g. seconds since boot
    // from before the host set the controller's clock.
    const KRT_U64 nowSeconds = now / 1000;
    std::vector<std::pair<std::string, KRT_U64>> history = {
        {"Controller started", nowSeconds}, {"Firmware loaded", nowSeconds}, {"All SSDs discovered", nowSeconds}};
    if (a.contains("events")) {
        history.clear();
        const json &events = a["events"];
        if (!events.is_array())
            fail(where + ".events", "expected texts or {\"message\", \"time\"} objects");
        for (const json &e : events) {
            if (e.is_object())
                history.emplace_back(stringOr(e, "message", "", where + ".events"),
                                     numberOr(e, "time", nowSeconds, where + ".events", 0xFFFFFFFF));
            else if (e.is_string())
                history.emplace_back(e.get<std::string>(), nowSeconds);
            else
                fail(where + ".events", "expected texts or {\"message\", \"time\"} objects");
        }
    }
    const KRT_U64 fill = numberOr(a, "event_fill", 0, where, 100000);
    for (KRT_U64 i = 0; i < fill; ++i)
        history.emplace_back("Event " + std::to_string(i + 1), nowSeconds);
    if (a.contains("event_ring")) {
        if (a.contains("events") || fill != 0)
            fail(where + ".event_ring", "give either event_ring or events and event_fill");
        readEventRing(a["event_ring"], ad, where + ".event_ring");
        history.clear();
    }
    for (const auto &[msg, time] : history) {
        SimEvent &e = ad.events[ad.eventCount % kMaxEvents];
        e = SimEvent{};
        e.seq = ad.eventCount + 1;
        e.time = static_cast<KRT_U32>(time);
        putZeroed(e.msg, msg);
        ++ad.eventCount;
    }
    const std::string spiLog =
        stringOr(a, "spi_log", "boot: controller started\nboot: firmware " + frText + "\n", where);
    if (spiLog.size() > kSpiLogSize)
        fail(where + ".spi_log", "at most 4096 bytes");
    std::memcpy(ad.spiLog, spiLog.data(), spiLog.size());
    ad.spiLogLength = static_cast<KRT_U32>(spiLog.size());
    ad.spiLogOn = boolOr(a, "spi_log_on", true, where) ? 1 : 0;
}

// A machine file may name the version of its format, [major, minor]. A
// later minor only adds fields, which this build passes over; a later
// major may give fields another meaning, so it is refused.
void checkMachineFormat(const json &doc)
{
    auto it = doc.find("machine_format");
    if (it == doc.end())
        return;
    if (!it->is_array() || it->size() != 2 || !(*it)[0].is_number_unsigned() || !(*it)[1].is_number_unsigned())
        fail("machine_format", "expected [major, minor]");
    const KRT_U64 major = (*it)[0].get<KRT_U64>();
    const KRT_U64 minor = (*it)[1].get<KRT_U64>();
    if (major > kMachineFormatMajor)
        fail("machine_format", "version " + std::to_string(major) + "." + std::to_string(minor) +
                                   " is newer than this krtsim reads (" + std::to_string(kMachineFormatMajor) +
                                   ".x); use a newer krtsim");
}

}  // namespace

bool buildFixture(std::string_view text, SimState &image, std::string *error)
{
    std::memset(static_cast<void *>(&image), 0, sizeof image);
    std::memcpy(image.magic, kStateMagic, sizeof kStateMagic);
    image.format = kStateFormat;
    image.size = sizeof(SimState);
    try {
        json doc = json::parse(text.begin(), text.end(), nullptr, true, true);
        if (!doc.is_object())
            fail("fixture", "expected an object");
        checkMachineFormat(doc);
        const std::string clock = stringOr(doc, "clock", "frozen", "fixture");
        if (clock != "frozen" && clock != "running")
            fail("fixture.clock", "expected frozen or running");
        // Simulated time starts at the real time of the reset, so event times look current.
        image.clock.baseMillis = realMillis();
        image.clock.realMillis = image.clock.baseMillis;
        image.clock.frozen = clock == "frozen";
        image.listFails = boolOr(doc, "list_fails", false, "fixture") ? 1 : 0;
        image.fwPace = kDefaultFwPace;
        std::vector<json> adapters = expand(doc.value("adapters", json::array()), "adapters");
        if (adapters.size() > kMaxAdapters)
            fail("adapters", "at most 64 controllers");
        image.adapterCount = static_cast<KRT_U32>(adapters.size());
        for (size_t i = 0; i < adapters.size(); ++i)
            buildAdapter(adapters[i], image.adapters[i], static_cast<int>(i), image.clock.baseMillis,
                         "adapters[" + std::to_string(i) + "]");
    } catch (const json::exception &e) {
        *error = std::string("fixture: ") + e.what();
        return false;
    } catch (const FixtureError &e) {
        *error = e.what();
        return false;
    }
    return true;
}

bool buildBuiltin(std::string_view name, SimState &image, std::string *error)
{
    std::string_view text = builtinFixture(name);
    if (text.empty()) {
        *error = "no built-in fixture '" + std::string(name) + "'";
        return false;
    }
    return buildFixture(text, image, error);
}

}  // namespace krtsim
