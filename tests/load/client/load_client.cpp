// One of several processes sending paired requests to the same controller at
// once. Each request is one whose reply names what was asked (a PD or VD list
// starting at a given id, the adapter record, the settings record), so a reply
// handed to the wrong process shows up as a mismatch.
//
//   krt_load_client <process number> <pairs>
//
// Prints "pairs=N ok=N mismatched=N failed=N slowest_ms=F total_ms=F" and
// exits 0 when every pair came back whole and its own.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "api/krt_api.h"

namespace {

template <typename Record>
struct List {
    _RequestHeader header;
    Record record;
};

KRT_U32 listOne(KRT_U16 start, List<_NVME_PD_Info> &list)
{
    std::memset(&list, 0, sizeof list);
    list.header.start = start;
    list.header.numRequested = 1;
    return KRT_PD_GetInfo(0, &list);
}

KRT_U32 listOne(KRT_U16 start, List<_NVME_VD_Info> &list)
{
    std::memset(&list, 0, sizeof list);
    list.header.start = start;
    list.header.numRequested = 1;
    return KRT_VD_GetInfo(0, &list);
}

// The ids a list from 0 walks through.
template <typename Record>
std::vector<KRT_U16> existingIds()
{
    std::vector<KRT_U16> ids;
    List<Record> list{};
    KRT_U16 start = 0;
    while (ids.size() < 256 && listOne(start, list) == 0 && list.header.numReturned == 1) {
        ids.push_back(list.record.ID);
        if (list.header.nextStart == 0xFFFF || list.header.nextStart <= start)
            break;
        start = list.header.nextStart;
    }
    return ids;
}

// One listed record, chosen by `pick`, and whether it is the one asked for.
template <typename Record>
bool sameRecord(const std::vector<KRT_U16> &ids, unsigned pick, KRT_U32 &rc)
{
    List<Record> list;
    const KRT_U16 id = ids[pick / 4 % ids.size()];
    rc = listOne(id, list);
    return list.header.numReturned == 1 && list.record.ID == id;
}

// The controller's record, and whether it is the one read at the start.
bool sameInfo(const _NVME_Adapter_Info &reference, KRT_U32 &rc)
{
    _NVME_Adapter_Info info{};
    rc = KRT_Adapter_GetInfo(0, &info);
    return std::memcmp(&info, &reference, sizeof info) == 0;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: krt_load_client <process number> <pairs>\n");
        return 2;
    }
    const unsigned self = static_cast<unsigned>(std::atoi(argv[1]));
    const int pairs = std::atoi(argv[2]);

    KRT_Init();
    if (KRT_Adapter_GetCount() == 0) {
        std::fprintf(stderr, "no controller\n");
        KRT_Final();
        return 2;
    }
    _NVME_Adapter_Info adapterRef{};
    _NVME_Adapter_Config configRef{};
    const std::vector<KRT_U16> pds = existingIds<_NVME_PD_Info>();
    const std::vector<KRT_U16> vds = existingIds<_NVME_VD_Info>();
    if (KRT_Adapter_GetInfo(0, &adapterRef) != 0 || KRT_Adapter_GetConfig(0, &configRef) != 0 || pds.empty()) {
        std::fprintf(stderr, "the controller does not answer\n");
        KRT_Final();
        return 2;
    }

    using Clock = std::chrono::steady_clock;
    int ok = 0, mismatched = 0, failed = 0;
    double slowestMs = 0;
    const auto begin = Clock::now();
    for (int i = 0; i < pairs; ++i) {
        const unsigned pick = self * 7 + static_cast<unsigned>(i);
        const auto t0 = Clock::now();
        KRT_U32 rc = 0;
        bool same = false;
        switch (pick % 4) {
            case 0:
                same = sameRecord<_NVME_PD_Info>(pds, pick, rc);
                break;
            case 1:
                // A machine without arrays asks for the controller instead.
                same = vds.empty() ? sameInfo(adapterRef, rc) : sameRecord<_NVME_VD_Info>(vds, pick, rc);
                break;
            case 2:
                same = sameInfo(adapterRef, rc);
                break;
            default: {
                _NVME_Adapter_Config config{};
                rc = KRT_Adapter_GetConfig(0, &config);
                same = std::memcmp(&config, &configRef, sizeof config) == 0;
                break;
            }
        }
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
        slowestMs = ms > slowestMs ? ms : slowestMs;
        if (rc != 0) {
            ++failed;
            std::fprintf(stderr, "pair %d (kind %u) failed with 0x%x\n", i, pick % 4, rc);
        } else if (!same) {
            ++mismatched;
            std::fprintf(stderr, "pair %d (kind %u) came back with another request's reply\n", i, pick % 4);
        } else {
            ++ok;
        }
    }
    const double totalMs = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    std::printf("pairs=%d ok=%d mismatched=%d failed=%d slowest_ms=%.1f total_ms=%.1f\n", pairs, ok, mismatched, failed,
                slowestMs, totalMs);
    KRT_Final();
    return ok == pairs ? 0 : 1;
}
