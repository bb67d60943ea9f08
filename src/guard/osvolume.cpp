#include "guard/osvolume.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "device/device_management.h"
#include "krt/admin.h"
#include "krt/records.h"
#include "util/log.h"

namespace {

// Identify Controller: number of namespaces. Identify Namespace: NGUID, EUI64.
constexpr int kIdNN = 516;
constexpr int kIdNsNguid = 104;
constexpr int kIdNsEui64 = 120;
// Namespaces looked at per controller when only an identifier is known.
constexpr KRT_U32 kMaxNamespacesProbed = 256;
constexpr int kMaxLinkDepth = 8;
// The mount table of a host is a few kilobytes; a longer one is not read
// past this.
constexpr std::size_t kMaxMountTable = 1 << 20;

std::vector<std::pair<KRT_U16, KRT_U32>> gOsNamespaces;
// The host tree whose scan has not run yet; empty when none is pending.
// Start-up only names it: most commands never ask the guard, and they
// should not pay for a walk of the host's storage.
std::string gPendingRoot;

// The host's files are read with plain system calls: the scan runs in
// every process that asks the guard, and the stream and path libraries
// would cost more to start than the few files take to read.

// Joins a tree and a path inside it.
std::string join(const std::string &dir, std::string_view name)
{
    if (dir.empty() || dir.back() == '/')
        return dir + std::string(name);
    return dir + "/" + std::string(name);
}

std::string parentOf(const std::string &path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string_view lastPart(std::string_view path)
{
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Calls f with every non-empty part of a path, in order.
template <typename F>
void forEachPart(std::string_view path, F f)
{
    while (!path.empty()) {
        const auto slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        if (!part.empty())
            f(part);
        if (slash == std::string_view::npos)
            break;
        path.remove_prefix(slash + 1);
    }
}

bool exists(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isSymlink(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// The path with every link resolved, or empty when some part is missing.
std::string resolved(const std::string &path)
{
    char *real = realpath(path.c_str(), nullptr);
    if (real == nullptr)
        return {};
    std::string out(real);
    std::free(real);
    return out;
}

// At most limit bytes of a file; empty when it cannot be read.
std::string readFile(const std::string &path, std::size_t limit)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    std::string text;
    char chunk[4096];
    while (text.size() < limit) {
        const ssize_t n = read(fd, chunk, std::min(sizeof chunk, limit - text.size()));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        text.append(chunk, static_cast<std::size_t>(n));
    }
    close(fd);
    return text;
}

// A one-line attribute file, without its trailing white space.
std::string readSmallFile(const std::string &path)
{
    std::string text = readFile(path, 256);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    return text;
}

// Hex digits of a text (spaces, dashes and a prefix such as "eui." are
// skipped) into exactly n bytes. False when the count differs or all are zero.
bool parseHexId(std::string_view text, KRT_U8 *out, std::size_t n)
{
    std::string digits;
    for (char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)))
            digits.push_back(c);
    }
    if (digits.size() != n * 2)
        return false;
    bool nonzero = false;
    for (std::size_t i = 0; i < n; ++i) {
        out[i] = static_cast<KRT_U8>(std::strtoul(digits.substr(i * 2, 2).c_str(), nullptr, 16));
        nonzero = nonzero || out[i] != 0;
    }
    return nonzero;
}

// "dddd:bb:dd.f" as the PCI address text of the registry, or empty.
std::string pciAddress(std::string_view component)
{
    unsigned domain = 0, bus = 0, dev = 0, fn = 0;
    char tail = 0;
    if (component.size() != 12)
        return {};
    const std::string text(component);
    if (std::sscanf(text.c_str(), "%4x:%2x:%2x.%1x%c", &domain, &bus, &dev, &fn, &tail) != 4)
        return {};
    char out[32];
    std::snprintf(out, sizeof out, "%02x:%02x.%02x", bus, dev, fn);
    return out;
}

// The device of "/" from mountinfo: "major:minor", or empty.
std::string rootDeviceNumber(const std::string &root)
{
    const std::string table = readFile(join(root, "proc/self/mountinfo"), kMaxMountTable);
    std::string found;
    std::string_view rest = table;
    while (!rest.empty()) {
        const auto eol = rest.find('\n');
        std::string_view line = rest.substr(0, eol);
        rest.remove_prefix(eol == std::string_view::npos ? rest.size() : eol + 1);
        // Mount ID, parent ID, major:minor, root of the mount, mount point.
        std::string_view words[5];
        int count = 0;
        while (count < 5) {
            const auto begin = line.find_first_not_of(" \t");
            if (begin == std::string_view::npos)
                break;
            line.remove_prefix(begin);
            const auto end = line.find_first_of(" \t");
            words[count++] = line.substr(0, end);
            line.remove_prefix(end == std::string_view::npos ? line.size() : end);
        }
        // Later lines mount over earlier ones: the last "/" is the one in use.
        if (count == 5 && words[4] == "/")
            found = words[2];
    }
    return found;
}

// Follows a block device to the NVMe namespace under it: a partition's
// parent, or a mapped device's first underlying device.
void describeBlockDevice(const std::string &dir, OsVolume &vol, std::vector<OsVolume> &out, int depth)
{
    if (depth > kMaxLinkDepth)
        return;
    std::string ns = dir;
    if (exists(join(dir, "partition")))
        ns = parentOf(dir);
    const std::string slaves = join(ns, "slaves");
    if (isDirectory(slaves)) {
        if (DIR *listing = opendir(slaves.c_str())) {
            std::string first;
            while (const dirent *entry = readdir(listing)) {
                if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
                    continue;
                first = resolved(join(slaves, entry->d_name));
                if (!first.empty())
                    break;
            }
            closedir(listing);
            if (!first.empty()) {
                describeBlockDevice(first, vol, out, depth + 1);
                return;
            }
        }
    }
    if (lastPart(ns).rfind("nvme", 0) != 0)
        return;
    const std::string nsid = readSmallFile(join(ns, "nsid"));
    if (!nsid.empty() && std::isdigit(static_cast<unsigned char>(nsid[0]))) {
        vol.nsid = static_cast<KRT_U32>(std::strtoul(nsid.c_str(), nullptr, 10));
    }
    vol.hasEui64 = parseHexId(readSmallFile(join(ns, "eui")), vol.eui64, sizeof vol.eui64);
    vol.hasNguid = parseHexId(readSmallFile(join(ns, "nguid")), vol.nguid, sizeof vol.nguid);
    // The controller's PCI function is the last PCI address on the way down.
    forEachPart(ns, [&](std::string_view part) {
        std::string bdf = pciAddress(part);
        if (!bdf.empty())
            vol.bdf = std::move(bdf);
    });
    if (!vol.bdf.empty() || vol.hasEui64 || vol.hasNguid)
        out.push_back(vol);
}

void findLinux(const std::string &root, std::vector<OsVolume> &out)
{
    const std::string devno = rootDeviceNumber(root);
    if (devno.empty())
        return;
    const std::string dir = resolved(join(join(root, "sys/dev/block"), devno));
    if (dir.empty() || !isDirectory(dir))
        return;
    OsVolume vol;
    describeBlockDevice(dir, vol, out, 0);
}

// The hypervisor host keeps its boot bank as a link into the volume of the boot device;
// when the chain names the device ("eui.<hex>"), that identifies the namespace.
void findBootBank(const std::string &root, std::vector<OsVolume> &out)
{
    std::string link = join(root, "bootbank");
    for (int i = 0; i < kMaxLinkDepth && isSymlink(link); ++i) {
        char buffer[4096];
        const ssize_t n = readlink(link.c_str(), buffer, sizeof buffer);
        if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buffer)
            return;
        const std::string target(buffer, static_cast<std::size_t>(n));
        bool found = false;
        forEachPart(target, [&](std::string_view text) {
            if (found || text.rfind("eui.", 0) != 0)
                return;
            const std::string_view id =
                text.substr(4, text.find(':') == std::string_view::npos ? std::string_view::npos : text.find(':') - 4);
            OsVolume vol;
            vol.hasNguid = parseHexId(id, vol.nguid, sizeof vol.nguid);
            if (!vol.hasNguid)
                vol.hasEui64 = parseHexId(id, vol.eui64, sizeof vol.eui64);
            if (vol.hasNguid || vol.hasEui64) {
                out.push_back(vol);
                found = true;
            }
        });
        if (found)
            return;
        link = target.front() == '/' ? join(root, std::string_view(target).substr(1)) : join(parentOf(link), target);
    }
}

KRT_U32 identify(Device *dev, KRT_U32 cns, KRT_U32 nsid, KRT_U8 (&data)[NVME_IDENTIFY_SIZE])
{
    std::memset(data, 0, sizeof data);
    return dev->sendCommand(NVME_ADMIN_IDENTIFY, nsid, &cns, 1, nullptr, 0, data, sizeof data);
}

// Namespaces of a controller whose identifiers match the volume's.
void matchByIdentifier(KRT_U16 adapter, Device *dev, const OsVolume &vol)
{
    KRT_U8 data[NVME_IDENTIFY_SIZE];
    if (identify(dev, NVME_CNS_CONTROLLER, 0, data) != 0)
        return;
    KRT_U32 nn = static_cast<KRT_U32>(data[kIdNN]) | (static_cast<KRT_U32>(data[kIdNN + 1]) << 8) |
                 (static_cast<KRT_U32>(data[kIdNN + 2]) << 16) | (static_cast<KRT_U32>(data[kIdNN + 3]) << 24);
    if (nn > kMaxNamespacesProbed)
        nn = kMaxNamespacesProbed;
    for (KRT_U32 nsid = 1; nsid <= nn; ++nsid) {
        if (identify(dev, NVME_CNS_NAMESPACE, nsid, data) != 0)
            continue;
        const bool nguid = vol.hasNguid && std::memcmp(data + kIdNsNguid, vol.nguid, sizeof vol.nguid) == 0;
        const bool eui = vol.hasEui64 && std::memcmp(data + kIdNsEui64, vol.eui64, sizeof vol.eui64) == 0;
        if (nguid || eui)
            gOsNamespaces.emplace_back(adapter, nsid);
    }
}

// Sends a class-form request to the adapter's paired device.
KRT_U32 pairRequest(KRT_U16 index, KRT_U32 cls, KRT_U32 sub, void *buffer, KRT_U16 inLen, KRT_U16 outLen)
{
    const KRT_U32 words[2] = {cls, sub};
    return GetDeviceManagementInstance()->getDevice(index)->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, buffer,
                                                                        inLen, buffer, outLen);
}

constexpr int kVdPerRequest =
    (KRT_BUFFER_SIZE - KRT_REPLY_DATA_OFFSET - sizeof(_RequestHeader)) / sizeof(_NVME_VD_Info);

struct VdList {
    _RequestHeader head;
    _NVME_VD_Info vds[kVdPerRequest];
};

// The controller's virtual disks; the request's status.
KRT_U32 readVds(KRT_U16 index, VdList &list, int &count)
{
    std::memset(&list, 0, sizeof list);
    list.head.size = sizeof list.head;
    list.head.numRequested = kVdPerRequest;
    count = 0;
    KRT_U32 rc = pairRequest(index, KRT_CLASS_VD, 0, &list, sizeof list.head, sizeof list);
    if (rc != 0)
        return rc;
    count = list.head.numReturned > kVdPerRequest ? kVdPerRequest : list.head.numReturned;
    return 0;
}

const char kOnlyOneVd[] =
    "\nNamespace attachment only support VD count is 1. Please reboot your system to update namespace status.\n";

// Attaches (select 0) or detaches (select 1) the namespaces of the
// controller's only VD to the controller itself, so that the host sees the
// change without a reboot.
int attachOnlyVd(KRT_U16 index, KRT_U32 select)
{
    VdList list;
    int count = 0;
    KRT_U32 rc = readVds(index, list, count);
    if (rc != 0)
        return static_cast<int>(rc);
    if (count != 1) {
        add_log("%s", kOnlyOneVd);
        return 0;
    }
    Device *dev = GetDeviceManagementInstance()->getDevice(index)->getNVMEDevice();
    KRT_U8 data[NVME_IDENTIFY_SIZE];
    rc = identify(dev, NVME_CNS_CONTROLLER, 0, data);
    if (rc != 0)
        return static_cast<int>(rc);
    KRT_U8 ctrlList[KRT_BUFFER_SIZE] = {};
    ctrlList[0] = 1;
    ctrlList[2] = data[NVME_ID_CNTLID];
    ctrlList[3] = data[NVME_ID_CNTLID + 1];
    for (KRT_U8 nsid : list.vds[0].NSIDs) {
        if (nsid == 0)
            continue;
        rc = dev->sendCommand(NVME_ADMIN_NS_ATTACH, nsid, &select, 1, ctrlList, sizeof ctrlList, nullptr, 0);
        if (rc != 0)
            return static_cast<int>(rc);
    }
    return 0;
}

// The scan start-up left for the first question, if it has not run yet.
void runPendingScan()
{
    if (gPendingRoot.empty())
        return;
    const std::string root = std::move(gPendingRoot);
    os_vol_scan(root.c_str());
}

}  // namespace

std::vector<OsVolume> os_vol_find(const std::string &root)
{
    std::vector<OsVolume> out;
    const std::string base = root.empty() ? "/" : root;
    findLinux(base, out);
    if (out.empty())
        findBootBank(base, out);
    return out;
}

void os_vol_scan(const char *root)
{
    gPendingRoot.clear();
    gOsNamespaces.clear();
    const std::vector<OsVolume> volumes = os_vol_find(root == nullptr ? "/" : root);
    if (volumes.empty())
        return;
    DeviceManagement *registry = GetDeviceManagementInstance();
    for (KRT_U16 i = 0; i < registry->getDeviceCount(); ++i) {
        Device *dev = registry->getDevice(i);
        for (const OsVolume &vol : volumes) {
            if (!vol.bdf.empty()) {
                // The PCI address settles it: no need to ask any controller.
                if (vol.nsid != 0 && vol.bdf == dev->bus_dev_fun)
                    gOsNamespaces.emplace_back(i, vol.nsid);
            } else if (vol.hasEui64 || vol.hasNguid) {
                matchByIdentifier(i, dev->getNVMEDevice(), vol);
            }
        }
    }
}

void os_vol_scan_on_demand(const char *root)
{
    gOsNamespaces.clear();
    gPendingRoot = root == nullptr || root[0] == '\0' ? "/" : root;
}

void sysdisk_final()
{
    gPendingRoot.clear();
    gOsNamespaces.clear();
}

bool os_vol_on_namespace(KRT_U16 adapter, KRT_U32 nsid)
{
    runPendingScan();
    for (const auto &[a, n] : gOsNamespaces) {
        if (a == adapter && n == nsid)
            return true;
    }
    return false;
}

int KRT_VD_Has_OS(KRT_U16 adapter, KRT_U16 vd, KRT_U8 MaxNS)
{
    runPendingScan();
    bool any = false;
    for (const auto &entry : gOsNamespaces)
        any = any || entry.first == adapter;
    // Nothing of the system lives on this controller: no need to ask it.
    if (!any)
        return 0;

    constexpr int kMaxRecords = (KRT_BUFFER_SIZE - KRT_REPLY_DATA_OFFSET) / sizeof(_NVME_NS_Info);
    const int wanted = MaxNS == 0 ? kMaxRecords : (MaxNS > kMaxRecords ? kMaxRecords : MaxNS);
    _NVME_NS_Info records[kMaxRecords] = {};
    const KRT_U32 words[3] = {KRT_CLASS_NS, 1, vd};
    const KRT_U32 rc = GetDeviceManagementInstance()->getDevice(adapter)->sendCommand(
        KRT_PAIR_REQUEST_OPCODE, 0, words, 3, nullptr, 0, records,
        static_cast<KRT_U16>(wanted * sizeof(_NVME_NS_Info)));
    if (rc != 0)
        return 0;
    for (int i = 0; i < wanted; ++i) {
        const _NVME_NS_Info &ns = records[i];
        if ((ns.Status & KRT_NS_VALID) == 0 || ns.ID != vd)
            continue;
        if (os_vol_on_namespace(adapter, ns.NSID))
            return KRT_VD_HAS_OS;
    }
    return 0;
}

int before_create_vd(KRT_U16)
{
    return 0;
}
int after_create_vd(KRT_U16 index)
{
    return attachOnlyVd(index, 0);
}
int before_delete_vd(KRT_U16 index, KRT_U16 /*vd*/)
{
    return attachOnlyVd(index, 1);
}
int after_delete_vd(KRT_U16)
{
    return 0;
}
int after_import_vd(KRT_U16)
{
    return 0;
}
