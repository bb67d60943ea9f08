// Pieces shared by the controller's request handlers: the request as a
// handler sees it, its routing tables and small reply helpers.
#pragma once

#include <array>
#include <cstring>
#include <span>

#include "controller.h"
#include "krt/admin.h"

namespace krtsim {

using Buffer = std::array<KRT_U8, kBufferSize>;

// Room for records after the reply envelope's 8-byte head.
constexpr size_t kReplyData = kBufferSize - KRT_REPLY_DATA_OFFSET;

template <typename T>
void put(std::span<KRT_U8> out, size_t offset, const T &value)
{
    if (offset + sizeof(T) <= out.size())
        std::memcpy(out.data() + offset, &value, sizeof(T));
}

// Over-long text: every byte used, no terminator, no blank to trim.
template <size_t N>
void fillText(KRT_U8 (&field)[N])
{
    std::memset(field, 'X', N);
}

// One vendor request as the controller sees it, whichever way it came.
struct Request {
    SimState &state;
    SimAdapter &ad;
    KRT_U8 cls;
    KRT_U8 sub;
    KRT_U16 unit;   // direct: CDW12 bytes 2-3
    KRT_U32 cdw13;  // direct only
    KRT_U32 cdw14;  // direct only
    KRT_U16 param;  // paired: third command word
    std::span<const KRT_U8> in;
    std::span<KRT_U8> out;  // reply data, after the envelope head
    bool overlong;
    KRT_U64 now;    // clock, milliseconds
    KRT_U32 cdw15;  // direct only
};

// A handler answers with the envelope's status byte (VendorStatus).
using Handler = KRT_U8 (*)(Request &);

struct Route {
    KRT_U8 cls;
    KRT_U8 sub;
    Handler handler;
};

// Routing tables: direct requests (opcode 0xE2) and paired class-form
// requests, each split by the part of the controller that answers.
std::span<const Route> infoDirectRoutes();
std::span<const Route> infoPairedRoutes();
std::span<const Route> arrayDirectRoutes();
std::span<const Route> arrayPairedRoutes();
std::span<const Route> logDirectRoutes();
std::span<const Route> maintenanceDirectRoutes();

// Firmware of the controller and of its SSDs.
KRT_U32 adapterFwDownload(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> data);
KRT_U32 adapterFwCommit(SimAdapter &ad, const KRT_U32 (&cmd)[16], KRT_U64 now);
void adapterFwSlotLog(const SimAdapter &ad, std::span<KRT_U8> out);
void pdFwSlotLog(const SimPd &pd, std::span<KRT_U8> out);
// A command forwarded to an SSD with data to it, or none (opcode 0xC3).
KRT_U32 diskCommandToDisk(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> data, KRT_U64 now);

inline bool pdExists(const SimAdapter &ad, KRT_U32 id)
{
    return id < kMaxPds && ad.pds[id].present;
}
// An SSD in its slot that the controller can talk to: powered and out of reset.
inline bool pdOnline(const SimPd &pd)
{
    return pd.present && !pd.powerOff && !pd.resetHeld;
}
inline bool pdOnline(const SimAdapter &ad, KRT_U32 id)
{
    return id < kMaxPds && pdOnline(ad.pds[id]);
}
inline bool vdExists(const SimAdapter &ad, KRT_U32 id)
{
    return id < kMaxVds && ad.vds[id].present;
}

// Appends to the controller's event ring.
void addEvent(SimAdapter &ad, KRT_U64 nowMillis, const char *format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace krtsim
