// An in-process platform library and NVMe driver, installed through the
// platform binding's entry-point seam. Tests describe adapters, then read back
// every request the tool made; the fuzz targets answer each one from their input.
#pragma once

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "krt/admin.h"
#include "krt/driver.h"
#include "krt/ids.h"
#include "krt/records.h"
#include "platform/vmkmgmt.h"

namespace fake {

using Page = std::array<KRT_U8, KRT_BUFFER_SIZE>;

struct Adapter {
    std::string name, signature;
    Page identify{};            // Identify Controller data
    Page adapterInfo{};         // reply of the direct adapter-information request
    Page pairReply{};           // reply of the receive half of a pair
    KRT_U32 completionDw3 = 0;  // completion status for every command
    KRT_U32 driverStatus = 0;   // usr_io status for every command
};

struct Request {
    std::string adapter;
    usr_io io;
    std::vector<KRT_U8> sent;  // the data of a host-to-controller request
};

struct Driver {
    std::vector<Adapter> adapters;
    KRT_U32 listCount = ~0u;  // count reported instead of the real one
    std::vector<Request> requests;
    int openHandles = 0;
    // When set, answers every request in place of the adapter's pages and
    // statuses; its result is the driver call's.
    std::function<int(Adapter &, usr_io &)> answer;
};

Driver &driver();

// An adapter of the managed kind (vendor and device ID as the build sets them).
Adapter managedAdapter(const std::string &name, KRT_U16 vid = KRT_PCI_VENDOR_ID, KRT_U16 did = KRT_PCI_DEVICE_ID);

// Registers the adapters afresh in the process-wide registry, then forgets the scan's requests.
void scan(const std::vector<Adapter> &adapters);
// Requests of one wire opcode; words from..to-1 of a request.
std::vector<Request> sent(KRT_U8 opcode);
inline std::vector<KRT_U32> dwords(const usr_io &io, int from, int to)
{
    return {io.cmd + from, io.cmd + to};
}
// Puts a record into a reply page, behind the reply's head.
template <typename T>
void answer(Page &page, const T &record, std::size_t at = 0)
{
    std::memcpy(page.data() + KRT_REPLY_DATA_OFFSET + at, &record, sizeof record);
}

// Installs the fake entry points with an empty driver for its lifetime.
struct Installed {
    Installed();
    ~Installed();
    Installed(const Installed &) = delete;
    Installed &operator=(const Installed &) = delete;
};

}  // namespace fake
