// One controller read into a machine file's adapter entry. Every request
// here reads: Identify, Get Log Page, the vendor information, list and
// status queries, the settings, the GPIO inversion, the event pages and the
// SPI log's state. The requests and record layouts are those the read-only
// commands use, so that the rebuilt machine answers those commands as the
// controller did.
#include "capture/controller_reader.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "api/krt_api.h"
#include "commands/event.h"
#include "commands/info.h"
#include "krt/identify.h"
#include "krt/ids.h"
#include "krt/logs.h"
#include "krt/smart_log.h"

namespace capture {

namespace {

// The status of a request whose driver handle could not be opened: the
// adapter has gone from under the tool.
constexpr KRT_U32 kNoAdapter = static_cast<KRT_U32>(-22);
// A reply without the controller's signature.
constexpr KRT_U32 kBadReply = 1;

// What the machine format holds (docs/machine-format.md).
constexpr KRT_U16 kFormatPds = 32;
constexpr KRT_U16 kFormatVds = 32;
constexpr std::size_t kFormatNsSlots = 64;
constexpr KRT_U32 kFormatMaxNsid = 255;
constexpr std::size_t kFormatEvents = 256;
constexpr std::size_t kFormatEventText = 48;
constexpr std::size_t kFormatNsIdentify = 192;
constexpr int kFormatLbaFormats = 16;

// Bounds on what a controller's answers can make the capture ask.
constexpr int kMaxListRounds = 64;
constexpr std::size_t kMaxActiveNs = 1024;

constexpr KRT_U32 kSmartLogCdw10 = NVME_SMART_LOG_CDW10;
constexpr KRT_U32 kSlotLogCdw10 = 0x007F0003;  // log 3, 128 dwords
constexpr std::size_t kSlotLogSize = 512;
constexpr KRT_U32 kAllNamespaces = 0xFFFFFFFF;
constexpr int kFwSlots = 7;

// The request flags the commands give these requests.
constexpr KRT_U16 kFlagDirect = (1u << 0) | (1u << 12);
constexpr KRT_U16 kFlagRead = (1u << 0) | (1u << 10) | (1u << 12);
constexpr KRT_U16 kFlagDiskIdentify = 0x4403;
constexpr KRT_U16 kFlagDiskLog = 0xC403;
constexpr KRT_U8 kReadSettingsSub = 1;
constexpr KRT_U8 kInverseStateSub = 0x1A;

using Page = std::array<KRT_U8, NVME_IDENTIFY_SIZE>;

// The name of an object a note speaks of: "pd 3", "namespace 5 Identify".
struct Name {
    Name(const char *kind, unsigned long id, const char *part = "")
    {
        std::snprintf(text, sizeof text, "%s %lu%s", kind, id, part);
    }
    char text[48];
};

std::string versionText(const NVME_Version_Info &v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", v.MajorVersion, v.MinorVersion, v.OEMNumber, v.BuildNumber);
    return text;
}

const char *bgaState(KRT_U8 status)
{
    switch (status) {
        case KRT_NVME_BGA_STATUS_RUNNING:
            return "running";
        case KRT_NVME_BGA_STATUS_PAUSE:
            return "paused";
        default:
            return "none";
    }
}

Json bgaOf(const _NVME_BGA_STATUS &bga)
{
    Json b = Json::object();
    put(b, {{"type", bga.BgaType},
            {"state", bgaState(bga.BgaStatus)},
            {"percent", std::min<unsigned>(bga.Percentage, 100)}});
    return b;
}

// Firmware Slot Information: the running slot, the one for the next reset
// and the seven slot texts.
void putSlots(Json &object, const std::array<KRT_U8, kSlotLogSize> &log)
{
    Json texts = Json::array();
    for (int i = 0; i < kFwSlots; ++i)
        texts.push_back(fieldText(log.data() + 8 + 8 * i, 8, Pad::Nuls));
    object["fw_slots"] = texts;
    object["fw_active"] = log[0] & 7;
    object["fw_next"] = (log[0] >> 4) & 7;
}

class Reader {
  public:
    Reader(KRT_U16 index, ControllerCapture &out) : index_(index), out_(out) {}

    void run();

  private:
    // Notes a request that failed, naming what it read; true when it
    // did. A controller whose handle can no longer be opened has vanished:
    // nothing more is asked.
    bool failed(KRT_U32 status, const char *object, ...) __attribute__((format(printf, 3, 4)))
    {
        if (status == 0)
            return false;
        if (status == kNoAdapter)
            out_.vanished = true;
        char text[64];
        va_list args;
        va_start(args, object);
        std::vsnprintf(text, sizeof text, object, args);
        va_end(args);
        out_.notes.push_back({text, "not read", status});
        return true;
    }
    // Notes what the file holds otherwise than the controller does.
    void cut(const char *object, const char *what, ...) __attribute__((format(printf, 3, 4)))
    {
        char text[128];
        va_list args;
        va_start(args, what);
        std::vsnprintf(text, sizeof text, what, args);
        va_end(args);
        out_.notes.push_back({object, text, 0});
    }
    bool gone() const { return out_.vanished; }

    KRT_U32 send(krt_admin_command_format &cmd, void *reply, KRT_U16 length)
    {
        return KRT_Adapter_PassthruAdmin_no_status_code(index_, &cmd, nullptr, 0, reply, length);
    }
    // A standard admin command reading `length` bytes.
    KRT_U32 admin(KRT_U8 opcode, KRT_U32 nsid, KRT_U32 cdw10, void *reply, KRT_U16 length)
    {
        krt_admin_command_format cmd{};
        cmd.CDW[0] = opcode;
        cmd.CDW[1] = nsid;
        cmd.CDW[10] = cdw10;
        cmd.cdw_flag = (1u << 0) | (1u << 1) | (1u << 10);
        return send(cmd, reply, length);
    }
    // A direct vendor request: the transport's status, else 1 for a reply
    // without the signature, else the reply's own status.
    KRT_U32 direct(krt_admin_command_format &cmd, _NVMEReceiveData &reply)
    {
        std::memset(&reply, 0, sizeof reply);
        const KRT_U32 status = send(cmd, &reply, sizeof reply);
        if (status != 0)
            return status;
        if (std::memcmp(reply.sign, KRT_SIGN, sizeof KRT_SIGN) != 0)
            return kBadReply;
        return reply.cmd_status;
    }
    KRT_U32 query(KRT_U8 cls, KRT_U8 sub, KRT_U16 unit, _NVMEReceiveData &reply)
    {
        krt_admin_command_format cmd{};
        cmd.CDW[0] = KRT_VENDOR_OPCODE;
        cmd.CDW[12] = krt_cdw12(cls, sub, unit);
        cmd.cdw_flag = kFlagDirect;
        return direct(cmd, reply);
    }
    // A command forwarded to back-end disk `pd`.
    KRT_U32 disk(KRT_U16 pd, KRT_U8 forwarded, KRT_U32 cdw10, KRT_U16 flag, void *reply, KRT_U16 length)
    {
        krt_admin_command_format cmd{};
        cmd.CDW[0] = KRT_PD_CMD_FROM_DISK;
        cmd.CDW[1] = pd;
        cmd.CDW[10] = cdw10;
        cmd.CDW[14] = forwarded;
        if (forwarded == NVME_ADMIN_GET_LOG_PAGE)
            cmd.CDW[15] = kAllNamespaces;
        cmd.cdw_flag = flag;
        return send(cmd, reply, length);
    }
    // A class-form list (PDs, VDs, activities), asked for in rounds from
    // each reply's next start. False when a round failed (noted).
    template <typename Record>
    bool list(KRT_U32 (*request)(KRT_U16, void *), const char *object, std::vector<Record> &records);

    void readIdentify();
    void readRecord();
    void readSettings();
    void readHealth();
    void readEvents();
    void readDisks();
    void readArrays();
    void readNamespaces();
    void readForeignNamespaces();
    Json namespaceEntry(const _NVME_NS_Info &ns, std::size_t slot);
    void writeHead();

    KRT_U16 index_;
    ControllerCapture &out_;
    Json &ad() { return out_.adapter; }

    Page identify_{};
    bool haveIdentify_ = false;
    _NVME_Adapter_Info info_{};
    bool haveInfo_ = false;
    bool raid_ = false;

    std::vector<_NVME_PD_Info> pds_;
    std::vector<_NVME_VD_Info> vdRecords_;
    std::map<KRT_U16, _NVME_BGA_STATUS> pdBga_, vdBga_;
    std::map<KRT_U16, Json> pdEntries_;
    struct Ns {
        _NVME_NS_Info record;
        std::size_t slot;
    };
    std::vector<Ns> namespaces_;
    Json eui64_;
};

template <typename Record>
bool Reader::list(KRT_U32 (*request)(KRT_U16, void *), const char *object, std::vector<Record> &records)
{
    constexpr std::size_t kRoom = (KRT_BUFFER_SIZE - KRT_REPLY_DATA_OFFSET - sizeof(_RequestHeader)) / sizeof(Record);
    constexpr std::size_t kAsk = std::min<std::size_t>(kRoom, 255);
    std::vector<KRT_U8> buffer(sizeof(_RequestHeader) + kAsk * sizeof(Record));
    KRT_U16 start = 0;
    for (int round = 0; round < kMaxListRounds; ++round) {
        _RequestHeader head{};
        head.size = sizeof head;
        head.start = start;
        head.numRequested = static_cast<KRT_U8>(kAsk);
        std::fill(buffer.begin(), buffer.end(), KRT_U8{0});
        std::memcpy(buffer.data(), &head, sizeof head);
        if (failed(request(index_, buffer.data()), "%s", object))
            return false;
        std::memcpy(&head, buffer.data(), sizeof head);
        const std::size_t n = std::min<std::size_t>(head.numReturned, kAsk);
        for (std::size_t i = 0; i < n; ++i) {
            Record r;
            std::memcpy(&r, buffer.data() + sizeof head + i * sizeof r, sizeof r);
            records.push_back(r);
        }
        // The next start must move on, or the controller has nothing more.
        if (head.nextStart == 0xFFFF || head.nextStart <= start || n == 0)
            return true;
        start = head.nextStart;
    }
    cut(object, "more rounds than %d; the rest is left out", kMaxListRounds);
    return true;
}

void Reader::readIdentify()
{
    const KRT_U32 status = admin(NVME_ADMIN_IDENTIFY, 0, NVME_CNS_CONTROLLER, identify_.data(), identify_.size());
    if (failed(status, "Identify Controller"))
        return;
    haveIdentify_ = true;
    _krt_id_ctrl id;
    std::memcpy(&id, identify_.data(), sizeof id);
    out_.foreign = id.vid != KRT_PCI_VENDOR_ID;
}

void Reader::readRecord()
{
    auto reply = std::make_unique<_NVMEReceiveData>();
    if (failed(query(KRT_CLASS_ADAPTER, 0, 0, *reply), "controller record"))
        return;
    std::memcpy(&info_, reply->data, sizeof info_);
    haveInfo_ = true;
    raid_ = (info_.Features & KRT_FEATURE_RAID) != 0;
}

// The controller record's fields and those of its Identify data.
void Reader::writeHead()
{
    Json &a = ad();
    a["raid"] = raid_;
    if (haveInfo_) {
        const _NVME_Adapter_Info &i = info_;
        a["firmware"] = versionText(i.FirmwareVersion);
        a["uefi"] = versionText(i.UEFIVersion);
        put(a, {{"vid", i.VID},
                {"svid", i.SVID},
                {"did", i.DID},
                {"sdid", i.SDID},
                {"revision", i.RevisionID},
                {"sku", i.SKUID},
                {"port_count", i.PortCount},
                {"max_pd", i.MaxPD},
                {"max_vd", i.MaxVD},
                {"max_ns", i.MaxNS},
                {"max_pd_per_vd", i.MaxPDPerVD},
                {"max_ns_per_vd", i.MaxNSPerVD},
                {"max_flash_size", i.MaxFlashSize},
                {"max_buffer_size", i.MaxBufferSize},
                {"raid_modes", i.SupportRAIDMode},
                {"bga_features", i.SupportBGAFeature},
                {"stripe_sizes", i.StripeSizeSupported},
                {"cache", i.Cache},
                {"features", i.Features},
                {"oem_features", i.OEMFeatures}});
        Json &links = a["pcie"] = Json::array();
        for (const NVME_PCIe_Info &link : i.PCIeInfo) {
            if (link.Type == 255)
                break;
            put(links.emplace_back(Json::object()),
                {{"type", link.Type}, {"id", link.Id}, {"speed", link.Speed}, {"width", link.LinkWidth}});
        }
        put(a, {text("build_date", i.BuildDate, Pad::Nuls),
                {"bus", i.BusNumber},
                {"device", i.DeviceNumber},
                {"function", i.FunctionNumber}});
    }
    if (haveIdentify_) {
        _krt_id_ctrl id;
        std::memcpy(&id, identify_.data(), sizeof id);
        if (!haveInfo_)
            put(a, {{"vid", id.vid}});
        put(a, {text("serial", id.sn, Pad::Blanks),
                text("model", id.mn, Pad::Blanks),
                text("fr", id.fr, Pad::Blanks),
                {"ssvid", id.ssvid},
                {"cntlid", id.cntlid},
                {"frmw", id.frmw},
                {"tnvmcap", id.tnvmcap[0]},
                {"unvmcap", id.unvmcap[0]},
                text("subnqn", id.subnqn, Pad::Nuls),
                hex("identify_hex", identify_.data(), identify_.size(), true)});
    }
}

void Reader::readSettings()
{
    auto reply = std::make_unique<_NVMEReceiveData>();
    // A JBOF controller has none: the commands never ask it.
    if (raid_) {
        krt_admin_command_format cmd{};
        cmd.CDW[0] = KRT_VENDOR_OPCODE;
        cmd.CDW[10] = KRT_BUFFER_SIZE / 4 - 1;
        cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kReadSettingsSub, 0);
        cmd.cdw_flag = kFlagRead;
        if (!failed(direct(cmd, *reply), "settings")) {
            _NVME_Adapter_Config config;
            std::memcpy(&config, reply->data, sizeof config);
            put(ad()["config"], {{"auto_rebuild", config.AutoRebuildOn}, {"bga_rate", config.BGARate}});
        }
    }
    if (gone())
        return;
    // The inversion state comes back bare, in byte 0.
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kInverseStateSub, 0);
    cmd.cdw_flag = kFlagDirect;
    std::memset(reply.get(), 0, sizeof *reply);
    if (!failed(send(cmd, reply.get(), sizeof *reply), "GPIO inversion"))
        put(ad(), {{"gpio_inverse", reinterpret_cast<const KRT_U8 *>(reply.get())[0]}});
}

void Reader::readHealth()
{
    _krt_smart_log log{};
    if (!failed(admin(NVME_ADMIN_GET_LOG_PAGE, kAllNamespaces, kSmartLogCdw10, &log, sizeof log),
                "controller SMART log")) {
        put(ad()["smart"], {{"critical_warning", log.critical_warning},
                            {"temperature", log.temperature},
                            {"available_spare", log.avail_spare},
                            {"spare_threshold", log.spare_thresh},
                            {"percent_used", log.percent_used}});
    }
    if (gone())
        return;
    std::array<KRT_U8, kSlotLogSize> slots{};
    if (!failed(admin(NVME_ADMIN_GET_LOG_PAGE, kAllNamespaces, kSlotLogCdw10, slots.data(), slots.size()),
                "controller firmware slots"))
        putSlots(ad(), slots);
}

void Reader::readEvents()
{
    std::vector<_NVME_SA_Evt_Item> events;
    auto page = std::make_unique<_NVME_Event_Page>();
    for (int i = 0; i < KRT_EVENT_PAGES && !gone(); ++i) {
        krt_admin_command_format cmd = eventPageRequest(static_cast<KRT_U32>(i) * KRT_EVENT_PAGE_SIZE);
        *page = _NVME_Event_Page{};
        if (failed(send(cmd, page.get(), sizeof *page), "event page %d", i))
            continue;
        readEventPage(*page, events);
    }
    // The ring in the order its slots hold the events. One that holds more
    // than the format keeps its newest, oldest first.
    std::vector<std::size_t> slots(events.size());
    for (std::size_t i = 0; i < slots.size(); ++i)
        slots[i] = i;
    if (events.size() > kFormatEvents) {
        slots = eventShowOrder(events, static_cast<int>(kFormatEvents));
        std::reverse(slots.begin(), slots.end());
        cut("event log", "holds %zu events; the newest %zu are kept", events.size(), kFormatEvents);
    }
    Json entries = Json::array();
    KRT_U64 logged = 0;
    for (std::size_t i : slots) {
        const _NVME_SA_Evt_Item &e = events[i];
        char *end = nullptr;
        const unsigned long long seq = std::strtoull(e.seq, &end, 10);
        if (e.seq[0] == '\0' || end == nullptr || *end != '\0' || seq > 0xFFFFFFFFull) {
            char object[sizeof e.seq + 8];
            std::snprintf(object, sizeof object, "event %s", e.seq);
            cut(object, "its sequence number is not a 32-bit number; written as 0");
        }
        const KRT_U64 number = end != nullptr && *end == '\0' && seq <= 0xFFFFFFFFull ? seq : 0;
        logged = std::max<KRT_U64>(logged, number);
        const std::size_t length = strnlen(e.msg, sizeof e.msg);
        if (length > kFormatEventText)
            cut(Name("event", number).text, "message cut to %zu bytes", kFormatEventText);
        Json &entry = entries.emplace_back(Json::object());
        put(entry, {{"seq", number}, {"time", e.time}});
        entry["message"] = freeText(std::string(e.msg, std::min(length, kFormatEventText)));
    }
    out_.events = static_cast<int>(entries.size());
    Json &ring = ad()["event_ring"];
    put(ring, {{"logged", std::max<KRT_U64>(logged, entries.size())}});
    ring["entries"] = std::move(entries);
    if (gone())
        return;

    // The SPI log's state. Its text is not read: each read moves the
    // controller's read-out position, which an administrator's own read-out
    // may be using.
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[10] = KRT_LOG_READ_DWORDS;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_DUMP, KRT_LOG_SPI_STATE, 0);
    cmd.cdw_flag = kFlagRead;
    auto reply = std::make_unique<_NVMEReceiveData>();
    if (!failed(direct(cmd, *reply), "SPI log state"))
        put(ad(), {{"spi_log_on", reply->data[0] != 0}, {"spi_log", ""}});
}

void Reader::readDisks()
{
    if (!list(KRT_PD_GetInfo, "physical disk list", pds_) || gone())
        return;
    std::vector<_NVME_BGA_STATUS> activities;
    if (list(KRT_PD_GetBGAStatus, "physical disk activities", activities))
        for (const _NVME_BGA_STATUS &b : activities)
            pdBga_[b.ID] = b;

    for (const _NVME_PD_Info &pd : pds_) {
        if (gone())
            return;
        const Name name("pd", pd.ID);
        if (pd.ID >= kFormatPds) {
            cut(name.text, "past the %u disks the format holds; left out", kFormatPds);
            continue;
        }
        Json &p = pdEntries_[pd.ID] = Json::object();
        put(p, {{"id", pd.ID},
                text("model", pd.Model, Pad::Blanks),
                text("serial", pd.SerialNo, Pad::Blanks),
                text("fw", pd.FWVersion, Pad::Blanks),
                {"sectors", pd.LBA},
                {"sector_size", pd.SectorSize},
                {"slot", pd.SSDAdapterID},
                {"nsid", pd.SSDNSID},
                {"temperature", pd.Temperature},
                {"status", pd.Status}});

        Page identify{};
        if (!failed(disk(pd.ID, NVME_ADMIN_IDENTIFY, NVME_CNS_CONTROLLER, kFlagDiskIdentify, identify.data(),
                         identify.size()),
                    "%s Identify", name.text)) {
            _krt_id_ctrl id;
            std::memcpy(&id, identify.data(), sizeof id);
            put(p, {{"vid", id.vid}});
            Json &own = p["identify"] = Json::object();
            put(own, {{"frmw", id.frmw}});
            // The disk's own texts only where its record says otherwise.
            if (std::memcmp(id.sn, pd.SerialNo, sizeof id.sn) != 0)
                put(own, {text("serial", id.sn, Pad::Blanks)});
            if (std::memcmp(id.mn, pd.Model, sizeof id.mn) != 0)
                put(own, {text("model", id.mn, Pad::Blanks)});
            if (std::memcmp(id.fr, pd.FWVersion, sizeof id.fr) != 0)
                put(own, {text("fr", id.fr, Pad::Blanks)});
            put(own, {text("subnqn", id.subnqn, Pad::Nuls)});
        }
        _krt_smart_log log{};
        if (!gone() && !failed(disk(pd.ID, NVME_ADMIN_GET_LOG_PAGE, kSmartLogCdw10, kFlagDiskLog, &log, sizeof log),
                               "%s SMART log", name.text)) {
            const KRT_U16 temperature = log.temperature;
            put(p, {{"critical_warning", log.critical_warning}});
            if (temperature != pd.Temperature)
                put(p, {{"smart_temperature", temperature}});
            put(p, {{"available_spare", log.avail_spare},
                    {"spare_threshold", log.spare_thresh},
                    {"percent_used", log.percent_used},
                    counter("data_units_read", log.data_units_read),
                    counter("data_units_written", log.data_units_written),
                    counter("host_read_commands", log.host_reads),
                    counter("host_write_commands", log.host_writes),
                    counter("controller_busy_time", log.ctrl_busy_time),
                    counter("power_cycles", log.power_cycles),
                    counter("power_on_hours", log.power_on_hours),
                    counter("unsafe_shutdowns", log.unsafe_shutdowns),
                    counter("media_errors", log.media_errors),
                    counter("error_log_entries", log.num_err_log_entries),
                    {"warning_temp_minutes", log.warning_temp_time}});
            if (log.critical_comp_time != 0)
                put(p, {{"critical_temp_minutes", log.critical_comp_time}});
            KRT_U16 sensors[8];
            std::memcpy(sensors, log.temp_sensor, sizeof sensors);
            // Sensors other than the composite alone, and thermal figures.
            if (sensors[0] != temperature || std::any_of(sensors + 1, sensors + 8, [](KRT_U16 t) { return t != 0; }))
                p["temperature_sensors"] = sensors;
            const KRT_U32 thermal[4] = {log.tmt1tc, log.tmt2tc, log.ttftmt1, log.ttftmt2};
            if (std::any_of(thermal, thermal + 4, [](KRT_U32 t) { return t != 0; }))
                p["thermal"] = thermal;
        }
        std::array<KRT_U8, kSlotLogSize> slots{};
        if (!gone() &&
            !failed(disk(pd.ID, NVME_ADMIN_GET_LOG_PAGE, kSlotLogCdw10, kFlagDiskLog, slots.data(), slots.size()),
                    "%s firmware slots", name.text))
            putSlots(p, slots);
        if (auto b = pdBga_.find(pd.ID); b != pdBga_.end() && b->second.BgaStatus != KRT_NVME_BGA_STATUS_NONE)
            p["bga"] = bgaOf(b->second);
    }
}

void Reader::readArrays()
{
    if (!raid_ || !list(KRT_VD_GetInfo, "virtual disk list", vdRecords_) || gone())
        return;
    std::vector<_NVME_BGA_STATUS> activities;
    if (list(KRT_VD_GetBGAStatus, "virtual disk activities", activities))
        for (const _NVME_BGA_STATUS &b : activities)
            vdBga_[b.ID] = b;
}

Json Reader::namespaceEntry(const _NVME_NS_Info &ns, std::size_t slot)
{
    Json n = Json::object();
    put(n, {{"nsid", ns.NSID},
            {"slot", slot},
            {"sectors", ns.LBA},
            {"sector_size", ns.SectorSize},
            {"lba_data_size", ns.LBADataSize},
            {"valid", (ns.Status & KRT_NS_VALID) != 0},
            {"active", (ns.Status & KRT_NS_ACTIVE) != 0}});
    if ((ns.Status & ~(KRT_NS_VALID | KRT_NS_ACTIVE)) != 0)
        put(n, {{"status", ns.Status}});
    Page identify{};
    const Name name("namespace", ns.NSID);
    if (gone() || failed(admin(NVME_ADMIN_IDENTIFY, ns.NSID, NVME_CNS_NAMESPACE, identify.data(), identify.size()),
                         "%s Identify", name.text))
        return n;
    _krt_id_ns id;
    std::memcpy(&id, identify.data(), sizeof id);
    if (id.nlbaf >= kFormatLbaFormats)
        cut(Name("namespace", ns.NSID, " Identify").text, "LBA formats past the %d the format holds",
            kFormatLbaFormats);
    put(n, {{"shared", (id.nmic & 1) != 0}, hex("identify_hex", identify.data(), kFormatNsIdentify, true)});
    if (eui64_.is_null() && std::any_of(id.eui64, id.eui64 + 7, [](KRT_U8 b) { return b != 0; }))
        eui64_ = hexOf(id.eui64, 7, false);
    return n;
}

void Reader::readNamespaces()
{
    if (!haveInfo_)
        return;
    // The host's list, one record per slot: the order every namespace
    // listing keeps.
    auto reply = newReply();
    if (!failed(query(KRT_CLASS_NS, 0, 0, *reply), "host namespace list")) {
        for (std::size_t i = 0; i < nsRecordCount(info_.MaxNS); ++i) {
            const _NVME_NS_Info ns = nsRecordAt(*reply, i);
            if (ns.NSID != 0)
                namespaces_.push_back({ns, i});
        }
    }
    if (gone())
        return;
    // Those of the VDs: the ones the host's list has no slot for follow it.
    std::size_t next = nsRecordCount(info_.MaxNS);
    if (raid_ && !failed(query(KRT_CLASS_NS, 1, 0xFF, *reply), "virtual disk namespace list")) {
        for (std::size_t i = 0; i < KRT_NS_RECORDS_PER_REPLY; ++i) {
            const _NVME_NS_Info ns = nsRecordAt(*reply, i);
            const bool known = std::any_of(namespaces_.begin(), namespaces_.end(),
                                           [&](const Ns &n) { return n.record.NSID == ns.NSID; });
            if (ns.NSID == 0 || known)
                continue;
            if (next >= kFormatNsSlots) {
                cut(Name("namespace", ns.NSID).text, "past the %zu slots the format holds; left out", kFormatNsSlots);
                continue;
            }
            namespaces_.push_back({ns, next++});
        }
    }
}

// Another maker's controller answers only the standard requests: its
// attached namespaces come from Identify.
void Reader::readForeignNamespaces()
{
    Page active{};
    if (failed(admin(NVME_ADMIN_IDENTIFY, 0, NVME_CNS_ACTIVE_NS_LIST, active.data(), active.size()),
               "active namespace list"))
        return;
    Json list = Json::array();
    for (std::size_t i = 0; i < kMaxActiveNs && !gone(); ++i) {
        KRT_U32 nsid = 0;
        std::memcpy(&nsid, active.data() + 4 * i, sizeof nsid);
        if (nsid == 0)
            break;
        if (nsid > kFormatMaxNsid || list.size() >= kFormatNsSlots) {
            cut(Name("namespace", nsid).text, "past what the format holds; left out");
            continue;
        }
        Page identify{};
        if (failed(admin(NVME_ADMIN_IDENTIFY, nsid, NVME_CNS_NAMESPACE, identify.data(), identify.size()),
                   "namespace %u Identify", nsid))
            continue;
        _krt_id_ns id;
        std::memcpy(&id, identify.data(), sizeof id);
        const KRT_U8 ds = id.lbaf[id.flbas & 0x0F].ds;
        Json &n = list.emplace_back(Json::object());
        put(n, {{"nsid", nsid}});
        n["pd"] = nullptr;
        put(n, {{"slot", list.size() - 1},
                {"sectors", id.nsze},
                {"sector_size", ds < 32 ? (1ull << ds) : 0ull},
                {"lba_data_size", ds},
                {"shared", (id.nmic & 1) != 0},
                hex("identify_hex", identify.data(), kFormatNsIdentify, true)});
        if (eui64_.is_null() && std::any_of(id.eui64, id.eui64 + 7, [](KRT_U8 b) { return b != 0; }))
            eui64_ = hexOf(id.eui64, 7, false);
    }
    out_.namespaces = static_cast<int>(list.size());
    ad()["namespaces"] = list;
}

void Reader::run()
{
    ad()["name"] = KRT_Adapter_GetDevicePath(index_);
    readIdentify();
    if (out_.foreign) {
        writeHead();
        if (!gone())
            readHealth();
        if (!gone())
            readForeignNamespaces();
        if (!eui64_.is_null())
            ad()["eui64"] = eui64_;
        return;
    }
    if (!gone())
        readRecord();
    writeHead();
    const auto step = [this](void (Reader::*read)()) {
        if (!gone())
            (this->*read)();
    };
    step(&Reader::readSettings);
    step(&Reader::readHealth);
    step(&Reader::readEvents);
    step(&Reader::readDisks);
    step(&Reader::readArrays);
    step(&Reader::readNamespaces);
    if (gone())
        return;

    // Namespaces read now, in slot order, each to its VD or its disk.
    std::sort(namespaces_.begin(), namespaces_.end(), [](const Ns &a, const Ns &b) { return a.slot < b.slot; });
    // The virtual disks the file can hold: each once, within the format,
    // on disks that were read (a machine file names only disks it has).
    std::vector<const _NVME_VD_Info *> keptVds;
    std::set<KRT_U16> vdIds;
    for (const _NVME_VD_Info &vd : vdRecords_) {
        const Name name("vd", vd.ID);
        const KRT_U16 *const end = vd.PDIDs + std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
        const KRT_U16 *const unread = std::find_if(
            vd.PDIDs, end, [this](KRT_U16 id) { return id != KRT_PD_MISSING && pdEntries_.count(id) == 0; });
        if (vd.ID >= kFormatVds) {
            cut(name.text, "past the %u virtual disks the format holds; left out", kFormatVds);
        } else if (vdIds.count(vd.ID) != 0) {
            cut(name.text, "listed twice; the first kept");
        } else if (unread != end) {
            cut(name.text, "its member PD %u was not read; left out", *unread);
        } else {
            vdIds.insert(vd.ID);
            keptVds.push_back(&vd);
        }
    }

    std::map<KRT_U16, Json> vdNamespaces;
    Json diskNamespaces = Json::array();
    for (const Ns &ns : namespaces_) {
        const bool onVd = ns.record.device_type == 1;
        if (onVd ? vdIds.count(ns.record.ID) == 0 : pdEntries_.count(ns.record.ID) == 0) {
            cut(Name("namespace", ns.record.NSID).text, "its %s %u was not read; left out",
                onVd ? "virtual disk" : "PD", ns.record.ID);
            continue;
        }
        Json n = namespaceEntry(ns.record, ns.slot);
        if (onVd) {
            vdNamespaces[ns.record.ID].push_back(std::move(n));
        } else {
            put(n, {{"pd", ns.record.ID}});
            diskNamespaces.push_back(std::move(n));
        }
        ++out_.namespaces;
    }
    if (gone())
        return;

    // The disk a rebuild runs onto: claimed (assigned) but in no VD.
    std::set<KRT_U16> members;
    for (const _NVME_VD_Info &vd : vdRecords_)
        for (int m = 0; m < std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS); ++m)
            members.insert(vd.PDIDs[m]);
    std::vector<KRT_U16> targets;
    for (const _NVME_PD_Info &pd : pds_)
        if ((pd.Status & KRT_PD_ASSIGNED) && members.count(pd.ID) == 0)
            targets.push_back(pd.ID);

    Json vds = Json::array();
    for (const _NVME_VD_Info *kept : keptVds) {
        const _NVME_VD_Info &vd = *kept;
        Json &v = vds.emplace_back(Json::object());
        put(v, {{"id", vd.ID},
                text("name", vd.Name, Pad::Nuls),
                {"raid", vd.RaidMode},
                {"status", vd.Status},
                {"importable", vd.Importable != 0}});
        const int count = std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
        v["members"] = std::vector<KRT_U16>(vd.PDIDs, vd.PDIDs + count);
        put(v, {{"member_count", vd.MemberCount},
                {"parity", vd.NumParityDisk},
                {"stripe_blocks", vd.StripBlockSize},
                {"sector_size", vd.SectorSize},
                {"sectors", vd.LBA}});
        if (auto b = vdBga_.find(vd.ID); b != vdBga_.end() && b->second.BgaStatus != KRT_NVME_BGA_STATUS_NONE) {
            Json bga = bgaOf(b->second);
            if (b->second.BgaType == KRT_BGA_REBUILD && !targets.empty()) {
                put(bga, {{"target", targets.front()}});
                targets.erase(targets.begin());
            }
            v["bga"] = std::move(bga);
        } else if (vd.BGAIndex != 0) {
            // The kind of activity last run, which the record keeps.
            put(v["bga"], {{"type", vd.BGAIndex}, {"state", "none"}});
        }
        v["namespaces"] = vdNamespaces.count(vd.ID) ? std::move(vdNamespaces[vd.ID]) : Json::array();
        ++out_.vds;
    }
    if (!eui64_.is_null())
        ad()["eui64"] = eui64_;
    Json &pds = ad()["pds"] = Json::array();
    for (auto &[id, p] : pdEntries_)
        pds.push_back(std::move(p));
    out_.pds = static_cast<int>(pds.size());
    ad()["vds"] = std::move(vds);
    ad()["namespaces"] = std::move(diskNamespaces);
}

}  // namespace

ControllerCapture readController(KRT_U16 index)
{
    ControllerCapture out;
    Reader(index, out).run();
    return out;
}

}  // namespace capture
