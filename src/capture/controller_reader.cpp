// One controller read into a machine file's adapter entry. Every request
// here reads: Identify, Get Log Page, the vendor information, list and
// status queries, the settings, the GPIO inversion, the event pages and the
// SPI log's state. The requests and record layouts are those the read-only
// commands use, so that the rebuilt machine answers those commands as the
// controller did.
#include "capture/controller_reader.h"

#include <algorithm>
#include <array>
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

// A field of a packed record, copied out: JSON values are made from
// references, which a packed field cannot give.
template <typename T>
constexpr T val(T v)
{
    return v;
}

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
    b["type"] = val(bga.BgaType);
    b["state"] = bgaState(bga.BgaStatus);
    b["percent"] = std::min<int>(bga.Percentage, 100);
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
    // Notes a request that failed; true when it did. A controller whose
    // handle can no longer be opened has vanished: nothing more is asked.
    bool failed(KRT_U32 status, const std::string &object)
    {
        if (status == 0)
            return false;
        if (status == kNoAdapter)
            out_.vanished = true;
        out_.notes.push_back({object, "not read", status});
        return true;
    }
    void cut(const std::string &object, const std::string &what) { out_.notes.push_back({object, what, 0}); }
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
        if (failed(request(index_, buffer.data()), object))
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
    cut(object, "more rounds than " + std::to_string(kMaxListRounds) + "; the rest is left out");
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
        a["vid"] = val(i.VID);
        a["svid"] = val(i.SVID);
        a["did"] = val(i.DID);
        a["sdid"] = val(i.SDID);
        a["revision"] = val(i.RevisionID);
        a["sku"] = val(i.SKUID);
        a["port_count"] = val(i.PortCount);
        a["max_pd"] = val(i.MaxPD);
        a["max_vd"] = val(i.MaxVD);
        a["max_ns"] = val(i.MaxNS);
        a["max_pd_per_vd"] = val(i.MaxPDPerVD);
        a["max_ns_per_vd"] = val(i.MaxNSPerVD);
        a["max_flash_size"] = val(i.MaxFlashSize);
        a["max_buffer_size"] = val(i.MaxBufferSize);
        a["raid_modes"] = val(i.SupportRAIDMode);
        a["bga_features"] = val(i.SupportBGAFeature);
        a["stripe_sizes"] = val(i.StripeSizeSupported);
        a["cache"] = val(i.Cache);
        a["features"] = val(i.Features);
        a["oem_features"] = val(i.OEMFeatures);
        Json links = Json::array();
        for (const NVME_PCIe_Info &link : i.PCIeInfo) {
            if (link.Type == 255)
                break;
            links.push_back({{"type", val(link.Type)},
                             {"id", val(link.Id)},
                             {"speed", val(link.Speed)},
                             {"width", val(link.LinkWidth)}});
        }
        a["pcie"] = links;
        a["build_date"] = fieldText(i.BuildDate, sizeof i.BuildDate, Pad::Nuls);
        a["bus"] = val(i.BusNumber);
        a["device"] = val(i.DeviceNumber);
        a["function"] = val(i.FunctionNumber);
    }
    if (haveIdentify_) {
        _krt_id_ctrl id;
        std::memcpy(&id, identify_.data(), sizeof id);
        if (!haveInfo_)
            a["vid"] = val(id.vid);
        a["serial"] = fieldText(id.sn, sizeof id.sn, Pad::Blanks);
        a["model"] = fieldText(id.mn, sizeof id.mn, Pad::Blanks);
        a["fr"] = fieldText(id.fr, sizeof id.fr, Pad::Blanks);
        a["ssvid"] = val(id.ssvid);
        a["cntlid"] = val(id.cntlid);
        a["frmw"] = val(id.frmw);
        a["tnvmcap"] = val(id.tnvmcap[0]);
        a["unvmcap"] = val(id.unvmcap[0]);
        a["subnqn"] = fieldText(id.subnqn, sizeof id.subnqn, Pad::Nuls);
        a["identify_hex"] = hexOf(identify_.data(), identify_.size(), true);
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
            ad()["config"] = {{"auto_rebuild", val(config.AutoRebuildOn)}, {"bga_rate", val(config.BGARate)}};
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
        ad()["gpio_inverse"] = reinterpret_cast<const KRT_U8 *>(reply.get())[0];
}

void Reader::readHealth()
{
    _krt_smart_log log{};
    if (!failed(admin(NVME_ADMIN_GET_LOG_PAGE, kAllNamespaces, kSmartLogCdw10, &log, sizeof log),
                "controller SMART log")) {
        ad()["smart"] = {{"critical_warning", val(log.critical_warning)},
                         {"temperature", val(log.temperature)},
                         {"available_spare", val(log.avail_spare)},
                         {"spare_threshold", val(log.spare_thresh)},
                         {"percent_used", val(log.percent_used)}};
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
        if (failed(send(cmd, page.get(), sizeof *page), "event page " + std::to_string(i)))
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
        cut("event log", "holds " + std::to_string(events.size()) + " events; the newest " +
                             std::to_string(kFormatEvents) + " are kept");
    }
    Json entries = Json::array();
    KRT_U64 logged = 0;
    for (std::size_t i : slots) {
        const _NVME_SA_Evt_Item &e = events[i];
        char *end = nullptr;
        const unsigned long long seq = std::strtoull(e.seq, &end, 10);
        if (e.seq[0] == '\0' || end == nullptr || *end != '\0' || seq > 0xFFFFFFFFull)
            cut("event " + std::string(e.seq), "its sequence number is not a 32-bit number; written as 0");
        const KRT_U64 number = end != nullptr && *end == '\0' && seq <= 0xFFFFFFFFull ? seq : 0;
        logged = std::max<KRT_U64>(logged, number);
        std::string message = e.msg;
        if (message.size() > kFormatEventText) {
            cut("event " + std::to_string(number), "message cut to " + std::to_string(kFormatEventText) + " bytes");
            message.resize(kFormatEventText);
        }
        entries.push_back({{"seq", number}, {"time", val(e.time)}, {"message", freeText(message)}});
    }
    out_.events = static_cast<int>(entries.size());
    ad()["event_ring"] = {{"logged", std::max<KRT_U64>(logged, entries.size())}, {"entries", entries}};
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
    if (!failed(direct(cmd, *reply), "SPI log state")) {
        ad()["spi_log_on"] = reply->data[0] != 0;
        ad()["spi_log"] = "";
    }
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
        const std::string name = "pd " + std::to_string(pd.ID);
        if (pd.ID >= kFormatPds) {
            cut(name, "past the " + std::to_string(kFormatPds) + " disks the format holds; left out");
            continue;
        }
        Json p = Json::object();
        p["id"] = val(pd.ID);
        p["model"] = fieldText(pd.Model, sizeof pd.Model, Pad::Blanks);
        p["serial"] = fieldText(pd.SerialNo, sizeof pd.SerialNo, Pad::Blanks);
        p["fw"] = fieldText(pd.FWVersion, sizeof pd.FWVersion, Pad::Blanks);
        p["sectors"] = val(pd.LBA);
        p["sector_size"] = val(pd.SectorSize);
        p["slot"] = val(pd.SSDAdapterID);
        p["nsid"] = val(pd.SSDNSID);
        p["temperature"] = val(pd.Temperature);
        p["status"] = val(pd.Status);

        Page identify{};
        if (!failed(disk(pd.ID, NVME_ADMIN_IDENTIFY, NVME_CNS_CONTROLLER, kFlagDiskIdentify, identify.data(),
                         identify.size()),
                    name + " Identify")) {
            _krt_id_ctrl id;
            std::memcpy(&id, identify.data(), sizeof id);
            p["vid"] = val(id.vid);
            Json own = Json::object();
            own["frmw"] = val(id.frmw);
            // The disk's own texts only where its record says otherwise.
            if (std::memcmp(id.sn, pd.SerialNo, sizeof id.sn) != 0)
                own["serial"] = fieldText(id.sn, sizeof id.sn, Pad::Blanks);
            if (std::memcmp(id.mn, pd.Model, sizeof id.mn) != 0)
                own["model"] = fieldText(id.mn, sizeof id.mn, Pad::Blanks);
            if (std::memcmp(id.fr, pd.FWVersion, sizeof id.fr) != 0)
                own["fr"] = fieldText(id.fr, sizeof id.fr, Pad::Blanks);
            own["subnqn"] = fieldText(id.subnqn, sizeof id.subnqn, Pad::Nuls);
            p["identify"] = own;
        }
        _krt_smart_log log{};
        if (!gone() && !failed(disk(pd.ID, NVME_ADMIN_GET_LOG_PAGE, kSmartLogCdw10, kFlagDiskLog, &log, sizeof log),
                               name + " SMART log")) {
            const KRT_U16 temperature = log.temperature;
            p["critical_warning"] = val(log.critical_warning);
            if (temperature != pd.Temperature)
                p["smart_temperature"] = temperature;
            p["available_spare"] = val(log.avail_spare);
            p["spare_threshold"] = val(log.spare_thresh);
            p["percent_used"] = val(log.percent_used);
            p["data_units_read"] = counter128(log.data_units_read);
            p["data_units_written"] = counter128(log.data_units_written);
            p["host_read_commands"] = counter128(log.host_reads);
            p["host_write_commands"] = counter128(log.host_writes);
            p["controller_busy_time"] = counter128(log.ctrl_busy_time);
            p["power_cycles"] = counter128(log.power_cycles);
            p["power_on_hours"] = counter128(log.power_on_hours);
            p["unsafe_shutdowns"] = counter128(log.unsafe_shutdowns);
            p["media_errors"] = counter128(log.media_errors);
            p["error_log_entries"] = counter128(log.num_err_log_entries);
            p["warning_temp_minutes"] = static_cast<KRT_U32>(log.warning_temp_time);
            if (log.critical_comp_time != 0)
                p["critical_temp_minutes"] = static_cast<KRT_U32>(log.critical_comp_time);
            KRT_U16 sensors[8];
            std::memcpy(sensors, log.temp_sensor, sizeof sensors);
            // Sensors other than the composite alone, and thermal figures.
            if (sensors[0] != temperature || std::any_of(sensors + 1, sensors + 8, [](KRT_U16 t) { return t != 0; }))
                p["temperature_sensors"] = Json(std::vector<KRT_U16>(sensors, sensors + 8));
            const KRT_U32 thermal[4] = {log.tmt1tc, log.tmt2tc, log.ttftmt1, log.ttftmt2};
            if (std::any_of(thermal, thermal + 4, [](KRT_U32 t) { return t != 0; }))
                p["thermal"] = Json(std::vector<KRT_U32>(thermal, thermal + 4));
        }
        std::array<KRT_U8, kSlotLogSize> slots{};
        if (!gone() &&
            !failed(disk(pd.ID, NVME_ADMIN_GET_LOG_PAGE, kSlotLogCdw10, kFlagDiskLog, slots.data(), slots.size()),
                    name + " firmware slots"))
            putSlots(p, slots);
        if (auto b = pdBga_.find(pd.ID); b != pdBga_.end() && b->second.BgaStatus != KRT_NVME_BGA_STATUS_NONE)
            p["bga"] = bgaOf(b->second);
        pdEntries_[pd.ID] = p;
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
    n["nsid"] = val(ns.NSID);
    n["slot"] = slot;
    n["sectors"] = val(ns.LBA);
    n["sector_size"] = val(ns.SectorSize);
    n["lba_data_size"] = val(ns.LBADataSize);
    n["valid"] = (ns.Status & KRT_NS_VALID) != 0;
    n["active"] = (ns.Status & KRT_NS_ACTIVE) != 0;
    if ((ns.Status & ~(KRT_NS_VALID | KRT_NS_ACTIVE)) != 0)
        n["status"] = val(ns.Status);
    Page identify{};
    const std::string name = "namespace " + std::to_string(ns.NSID);
    if (gone() || failed(admin(NVME_ADMIN_IDENTIFY, ns.NSID, NVME_CNS_NAMESPACE, identify.data(), identify.size()),
                         name + " Identify"))
        return n;
    _krt_id_ns id;
    std::memcpy(&id, identify.data(), sizeof id);
    n["shared"] = (id.nmic & 1) != 0;
    if (id.nlbaf >= kFormatLbaFormats)
        cut(name + " Identify", "LBA formats past the " + std::to_string(kFormatLbaFormats) + " the format holds");
    n["identify_hex"] = hexOf(identify.data(), kFormatNsIdentify, true);
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
                cut("namespace " + std::to_string(ns.NSID), "past the 64 slots the format holds; left out");
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
            cut("namespace " + std::to_string(nsid), "past what the format holds; left out");
            continue;
        }
        Page identify{};
        if (failed(admin(NVME_ADMIN_IDENTIFY, nsid, NVME_CNS_NAMESPACE, identify.data(), identify.size()),
                   "namespace " + std::to_string(nsid) + " Identify"))
            continue;
        _krt_id_ns id;
        std::memcpy(&id, identify.data(), sizeof id);
        const KRT_U8 ds = id.lbaf[id.flbas & 0x0F].ds;
        Json n = Json::object();
        n["nsid"] = nsid;
        n["pd"] = nullptr;
        n["slot"] = list.size();
        n["sectors"] = val(id.nsze);
        n["sector_size"] = ds < 32 ? (1ull << ds) : 0;
        n["lba_data_size"] = ds;
        n["shared"] = (id.nmic & 1) != 0;
        n["identify_hex"] = hexOf(identify.data(), kFormatNsIdentify, true);
        if (eui64_.is_null() && std::any_of(id.eui64, id.eui64 + 7, [](KRT_U8 b) { return b != 0; }))
            eui64_ = hexOf(id.eui64, 7, false);
        list.push_back(n);
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
        const std::string name = "vd " + std::to_string(vd.ID);
        const KRT_U16 *const end = vd.PDIDs + std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
        const KRT_U16 *const unread = std::find_if(
            vd.PDIDs, end, [this](KRT_U16 id) { return id != KRT_PD_MISSING && pdEntries_.count(id) == 0; });
        if (vd.ID >= kFormatVds) {
            cut(name, "past the " + std::to_string(kFormatVds) + " virtual disks the format holds; left out");
        } else if (vdIds.count(vd.ID) != 0) {
            cut(name, "listed twice; the first kept");
        } else if (unread != end) {
            cut(name, "its member PD " + std::to_string(*unread) + " was not read; left out");
        } else {
            vdIds.insert(vd.ID);
            keptVds.push_back(&vd);
        }
    }

    std::map<KRT_U16, Json> vdNamespaces;
    Json diskNamespaces = Json::array();
    for (const Ns &ns : namespaces_) {
        const std::string name = "namespace " + std::to_string(ns.record.NSID);
        if (ns.record.device_type == 1 && vdIds.count(ns.record.ID) == 0) {
            cut(name, "its virtual disk " + std::to_string(ns.record.ID) + " was not read; left out");
            continue;
        }
        if (ns.record.device_type != 1 && pdEntries_.count(ns.record.ID) == 0) {
            cut(name, "its PD " + std::to_string(ns.record.ID) + " was not read; left out");
            continue;
        }
        Json n = namespaceEntry(ns.record, ns.slot);
        if (ns.record.device_type == 1) {
            vdNamespaces[ns.record.ID].push_back(n);
        } else {
            n["pd"] = val(ns.record.ID);
            diskNamespaces.push_back(n);
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
        Json v = Json::object();
        v["id"] = val(vd.ID);
        v["name"] = fieldText(vd.Name, sizeof vd.Name, Pad::Nuls);
        v["raid"] = val(vd.RaidMode);
        v["status"] = val(vd.Status);
        v["importable"] = vd.Importable != 0;
        const int count = std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
        v["members"] = Json(std::vector<KRT_U16>(vd.PDIDs, vd.PDIDs + count));
        v["member_count"] = val(vd.MemberCount);
        v["parity"] = val(vd.NumParityDisk);
        v["stripe_blocks"] = val(vd.StripBlockSize);
        v["sector_size"] = val(vd.SectorSize);
        v["sectors"] = val(vd.LBA);
        if (auto b = vdBga_.find(vd.ID); b != vdBga_.end() && b->second.BgaStatus != KRT_NVME_BGA_STATUS_NONE) {
            Json bga = bgaOf(b->second);
            if (b->second.BgaType == KRT_BGA_REBUILD && !targets.empty()) {
                bga["target"] = targets.front();
                targets.erase(targets.begin());
            }
            v["bga"] = bga;
        } else if (vd.BGAIndex != 0) {
            // The kind of activity last run, which the record keeps.
            v["bga"] = {{"type", val(vd.BGAIndex)}, {"state", "none"}};
        }
        v["namespaces"] = vdNamespaces.count(vd.ID) ? vdNamespaces[vd.ID] : Json::array();
        vds.push_back(v);
        ++out_.vds;
    }
    if (!eui64_.is_null())
        ad()["eui64"] = eui64_;
    Json pds = Json::array();
    for (auto &[id, p] : pdEntries_)
        pds.push_back(p);
    out_.pds = static_cast<int>(pds.size());
    ad()["pds"] = pds;
    ad()["vds"] = vds;
    ad()["namespaces"] = diskNamespaces;
}

}  // namespace

ControllerCapture readController(KRT_U16 index)
{
    ControllerCapture out;
    Reader(index, out).run();
    return out;
}

}  // namespace capture
