// Requests of the log class: the event ring as text pages and the SPI log,
// read out chunk by chunk and switched on and off.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "krt/logs.h"
#include "request.h"

namespace krtsim {

namespace {

constexpr size_t kEventTextOffset = KRT_EVENT_TEXT_OFFSET;  // where a page's text starts in the buffer
constexpr size_t kEventPageText = kBufferSize - kEventTextOffset - 1;
constexpr int kEventPages = KRT_EVENT_PAGES;
constexpr size_t kSpiChunk = KRT_SPI_LOG_MAX_CHUNK;

// The ring in slot order, one "[SEQ]n[TIME]t[MSG]text" line per event, cut
// into pages of whole lines.
std::vector<std::string> eventPages(const SimAdapter &ad)
{
    std::vector<std::string> pages(1);
    // Every slot that holds an event: a ring taken from a controller (a
    // capture) may have gaps that this model's own never has.
    for (const SimEvent &e : ad.events) {
        if (e.seq == 0 && e.msg[0] == '\0')
            continue;
        char line[128];
        int n = std::snprintf(line, sizeof line, "[SEQ]%u[TIME]%u[MSG]%.*s\n", e.seq, e.time,
                              static_cast<int>(sizeof e.msg), e.msg);
        if (n <= 0)
            continue;
        if (pages.back().size() + static_cast<size_t>(n) > kEventPageText)
            pages.emplace_back();
        pages.back().append(line, std::min<size_t>(static_cast<size_t>(n), sizeof line - 1));
    }
    return pages;
}

// CDW13: the page's byte offset (0, 4096, ... 61440).
KRT_U8 eventPage(Request &r)
{
    if (r.cdw13 % kBufferSize != 0 || r.cdw13 / kBufferSize >= kEventPages)
        return VS_INVALID_PARAMETER;
    const size_t at = kEventTextOffset - KRT_REPLY_DATA_OFFSET;
    if (r.overlong) {
        // One line that overruns every field and the page itself: no line
        // feed, no terminator.
        std::string line = "[SEQ]" + std::string(30, '9') + "[TIME]" + std::string(100, '9') + "[MSG]";
        line.resize(r.out.size() - at, 'X');
        std::memcpy(r.out.data() + at, line.data(), line.size());
        return VS_OK;
    }
    const auto pages = eventPages(r.ad);
    const size_t page = r.cdw13 / kBufferSize;
    if (page < pages.size()) {
        const std::string &text = pages[page];
        if (at + text.size() <= r.out.size())
            std::memcpy(r.out.data() + at, text.data(), text.size());
    }
    return VS_OK;
}

// The next chunk of the SPI log: length at data bytes 0-3, text from data
// byte 8. After the last chunk one of length 0, and reading starts over.
KRT_U8 spiLogChunk(Request &r)
{
    SimAdapter &ad = r.ad;
    const KRT_U32 length = std::min<KRT_U32>(ad.spiLogLength, kSpiLogSize);
    const KRT_U32 at = std::min(ad.spiLogCursor, length);
    const KRT_U32 n = std::min<KRT_U32>(length - at, kSpiChunk);
    put(r.out, 0, n);
    if (8 + n <= r.out.size())
        std::memcpy(r.out.data() + 8, ad.spiLog + at, n);
    if (r.overlong) {
        put(r.out, 0, KRT_U32{0xFFFF});
        return VS_OK;  // nothing was really handed out
    }
    ad.spiLogCursor = n == 0 ? 0 : at + n;
    return VS_OK;
}

// A read-out begins with this question, so reading starts from the top
// again even after an earlier read-out stopped half-way.
KRT_U8 spiLogState(Request &r)
{
    r.out[0] = r.ad.spiLogOn;
    r.ad.spiLogCursor = 0;
    return VS_OK;
}

// CDW14: 1 on, 0 off.
KRT_U8 spiLogSwitch(Request &r)
{
    if (r.cdw14 > 1)
        return VS_INVALID_PARAMETER;
    r.ad.spiLogOn = static_cast<KRT_U8>(r.cdw14);
    r.ad.spiLogCursor = 0;
    return VS_OK;
}

constexpr Route kLogDirect[] = {
    {KRT_CLASS_DUMP, 0, spiLogChunk},
    {KRT_CLASS_DUMP, 2, spiLogState},
    {KRT_CLASS_DUMP, 3, spiLogSwitch},
    {KRT_CLASS_DUMP, 4, eventPage},
};

}  // namespace

std::span<const Route> logDirectRoutes()
{
    return kLogDirect;
}

}  // namespace krtsim
