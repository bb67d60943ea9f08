// One of several processes sending paired requests to the same controller at
// once. Each reply names what was asked (a PD list starting at a given id,
// or the controller's record as it was read at the start), so a reply
// handed to the wrong process shows up as a mismatch.
//   krt_load_client <process number> <pairs>
// Prints "pairs=N ok=N mismatched=N failed=N slowest_ms=F" and exits 0 when
// every pair came back whole and its own.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/krt_api.h"

namespace {

struct PdList {
    _RequestHeader header;
    _NVME_PD_Info record;
};

// The PD whose id is start, and whether it came back.
bool listPd(KRT_U16 start, KRT_U32 &rc)
{
    PdList list{};
    list.header.start = start;
    list.header.numRequested = 1;
    rc = KRT_PD_GetInfo(0, &list);
    return list.header.numReturned == 1 && list.record.ID == start;
}

}  // namespace

int main(int argc, char **argv)
{
    const int self = argc == 3 ? std::atoi(argv[1]) : 0, pairs = argc == 3 ? std::atoi(argv[2]) : 0;
    KRT_Init();
    // The PDs numbered from 0, and the controller's record.
    _NVME_Adapter_Info reference{};
    KRT_U32 rc = 0;
    KRT_U16 pds = 0;
    while (pds < 256 && listPd(pds, rc))
        ++pds;
    if (pairs <= 0 || KRT_Adapter_GetCount() == 0 || KRT_Adapter_GetInfo(0, &reference) != 0 || pds == 0) {
        std::fprintf(stderr, "usage: krt_load_client <process number> <pairs>, against a controller that answers\n");
        KRT_Final();
        return 2;
    }
    int ok = 0, mismatched = 0, failed = 0;
    double slowestMs = 0;
    for (int i = 0; i < pairs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        _NVME_Adapter_Info info{};
        const bool same = (self + i) % 2 == 0 ? listPd(static_cast<KRT_U16>((self * 7 + i) % pds), rc)
                                              : (rc = KRT_Adapter_GetInfo(0, &info)) == 0 &&
                                                    std::memcmp(&info, &reference, sizeof info) == 0;
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        slowestMs = took.count() > slowestMs ? took.count() : slowestMs;
        ++(rc != 0 ? failed : !same ? mismatched : ok);
        if (rc != 0 || !same)
            std::fprintf(stderr, "pair %d: status 0x%x, %s\n", i, rc, same ? "its own" : "another's");
    }
    std::printf("pairs=%d ok=%d mismatched=%d failed=%d slowest_ms=%.1f\n", pairs, ok, mismatched, failed, slowestMs);
    KRT_Final();
    return ok == pairs ? 0 : 1;
}
