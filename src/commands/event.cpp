// event: the controller's event log, newest first.
#include "commands/event.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char event_sh[] = ":For getting event from NVMe Controller.";
const char event_help[] =
    "\n"
    "Usage: event [-c <count>]\n"
    "\n"
    "Reads the event log of the NVMe Controller and shows the events newest\n"
    "first, each with its sequence number, its time and its message. Times\n"
    "after the controller was given the date are shown in the host's local\n"
    "time; earlier ones as seconds from the controller's boot.\n"
    "The count of events shown is printed last.\n"
    "\n"
    "Options:\n"
    "  -c <count>, --count=<count>\n"
    "        Show only the newest <count> events (a decimal number). 0, or a\n"
    "        count above the number of events, shows them all. The long form\n"
    "        takes the count only as --count=<count>.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Typing 'event' alone shows this help; 'event -c 0' shows every event.\n"
    "\n"
    "Examples:\n"
    "  event -c 0\n"
    "  event -c 20\n";

namespace {

const char kEventShortOptions[] = "\x01:c:h";
// --count takes its value only when attached (--count=N): a separate word
// is not read as the count.
const option kEventLongOptions[] = {
    {"count", optional_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// Times up to the start of 2010 (UTC) count from the controller's boot:
// the controller had not been given the date yet.
constexpr unsigned long kCalendarStart = 1262304000;

constexpr KRT_U16 kEventPageFlag = 0x7401;  // CDW0, CDW10, CDW12, CDW13, CDW14

constexpr std::string_view kSeqMark = "[SEQ]";
constexpr std::string_view kTimeMark = "[TIME]";
constexpr std::string_view kMsgMark = "[MSG]";

// Decimal count as typed; isNumber has vouched for the digits, and a count
// too large for an int shows every event anyway.
int toCount(const char *text)
{
    errno = 0;
    const long value = std::strtol(text, nullptr, 10);
    if (errno == ERANGE || value > INT_MAX)
        return INT_MAX;
    return static_cast<int>(value);
}

// The text between two markers; empty when they stand the wrong way round.
std::string_view between(std::string_view line, std::size_t from, std::size_t to, std::size_t max)
{
    if (to < from)
        return {};
    return line.substr(from, std::min(to - from, max));
}

template <std::size_t N>
void copyText(char (&field)[N], std::string_view text)
{
    const std::size_t n = text.copy(field, N - 1);
    field[n] = '\0';
}

// Seconds as an unsigned decimal number; anything past 32 bits is the
// largest time there is.
KRT_U32 toSeconds(std::string_view text)
{
    const std::string digits(text);
    errno = 0;
    const unsigned long long value = std::strtoull(digits.c_str(), nullptr, 10);
    if (errno == ERANGE || value > UINT32_MAX)
        return UINT32_MAX;
    return static_cast<KRT_U32>(value);
}

// Sequence numbers are compared as decimal numbers; a text that is not one
// reads as 0.
long long seqNumber(const _NVME_SA_Evt_Item &item)
{
    return std::strtoll(item.seq, nullptr, 10);
}

// The sequence number for a script; none when the text is not a decimal
// number that fits.
std::optional<unsigned long long> seqValue(const char *seq)
{
    if (seq[0] == '\0' || !isNumber(seq))
        return std::nullopt;
    errno = 0;
    const unsigned long long value = std::strtoull(seq, nullptr, 10);
    if (errno == ERANGE)
        return std::nullopt;
    return value;
}

// A calendar time as ISO 8601 in UTC; none for a time since the boot.
std::optional<std::string> isoTime(unsigned long seconds)
{
    if (seconds <= kCalendarStart)
        return std::nullopt;
    const auto when = static_cast<std::time_t>(seconds);
    std::tm utc{};
    char text[32];
    if (gmtime_r(&when, &utc) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) == 0)
        return std::nullopt;
    return std::string(text);
}

}  // namespace

krt_admin_command_format eventPageRequest(KRT_U32 offset)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[10] = KRT_LOG_READ_DWORDS;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_DUMP, KRT_LOG_EVENT_PAGE, 0);
    cmd.CDW[13] = offset;
    cmd.CDW[14] = KRT_EVENT_PAGE_SIZE;
    cmd.cdw_flag = kEventPageFlag;
    return cmd;
}

bool _eventParser(std::string_view line, _NVME_SA_Evt_Item &item)
{
    const std::size_t seq = line.find(kSeqMark);
    const std::size_t time = line.find(kTimeMark);
    const std::size_t msg = line.find(kMsgMark);
    if (seq == std::string_view::npos || time == std::string_view::npos || msg == std::string_view::npos) {
        // Said on the terminal even when the output goes to a file.
        std::printf("Command format has error: %.*s\n", static_cast<int>(line.size()), line.data());
        return false;
    }
    copyText(item.seq, between(line, seq + kSeqMark.size(), time, KRT_EVENT_SEQ_MAX));
    item.time = toSeconds(between(line, time + kTimeMark.size(), msg, KRT_EVENT_TIME_MAX));
    copyText(item.msg, line.substr(msg + kMsgMark.size(), KRT_EVENT_MSG_MAX));
    return true;
}

void readEventPage(const _NVME_Event_Page &page, std::vector<_NVME_SA_Evt_Item> &events)
{
    std::string text(page.text, sizeof page.text);
    // A NUL straight after a line feed reads as a blank: the piece after the
    // last line of a page is then too short to be an event and ends the page.
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] == '\n' && text[i + 1] == '\0')
            text[i + 1] = ' ';
    }
    // The text ends at its terminator, or with the page when it has none.
    text.resize(std::min(text.find('\0'), text.size()));

    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find('\n', start);
        const std::string_view piece(text.data() + start, (end == std::string::npos ? text.size() : end) - start);
        if (piece.size() < 2)
            break;
        _NVME_SA_Evt_Item item{};
        if (_eventParser(piece, item))
            events.push_back(item);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
}

std::size_t newestEvent(const std::vector<_NVME_SA_Evt_Item> &events)
{
    if (events.empty())
        return 0;
    // The log is a ring that the controller may have wrapped: walking back
    // from the last event, the first run of higher numbers ends at the
    // newest. Without such a run the last event is the newest.
    std::size_t newest = events.size() - 1;
    long long highest = seqNumber(events[newest]);
    bool rising = false;
    for (std::size_t i = newest; i-- > 0;) {
        const long long seq = seqNumber(events[i]);
        if (seq > highest) {
            highest = seq;
            newest = i;
            rising = true;
        } else if (rising) {
            break;
        }
    }
    return newest;
}

std::vector<std::size_t> eventShowOrder(const std::vector<_NVME_SA_Evt_Item> &events, int count)
{
    const std::size_t total = events.size();
    const std::size_t wanted =
        count <= 0 || static_cast<std::size_t>(count) > total ? total : static_cast<std::size_t>(count);
    std::vector<std::size_t> order;
    order.reserve(wanted);
    if (total == 0)
        return order;
    // From the newest back to the start of the ring, then from its end back
    // to just after the newest.
    const std::size_t newest = newestEvent(events);
    for (std::size_t i = newest + 1; i-- > 0 && order.size() < wanted;)
        order.push_back(i);
    for (std::size_t i = total - 1; i > newest && order.size() < wanted; --i)
        order.push_back(i);
    return order;
}

std::string _showTime(unsigned long seconds)
{
    char text[64];
    if (seconds > kCalendarStart) {
        const auto when = static_cast<std::time_t>(seconds);
        std::tm local{};
        if (localtime_r(&when, &local) != nullptr && std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local) != 0)
            return text;
    }
    std::snprintf(text, sizeof text, "%lu seconds from the boot time.", seconds);
    return text;
}

void _showEvt(const _NVME_SA_Evt_Item &item)
{
    using json_output::Value;
    // Labels joined to their values.
    const FieldWriter out(stream, 0, "");
    out.beginRecord("event");
    const std::optional<unsigned long long> seq = seqValue(item.seq);
    out.typed("Seq:", item.seq, seq ? Value::number(*seq) : Value::null());
    const std::optional<std::string> when = isoTime(item.time);
    out.typed("Time:", _showTime(item.time), when ? Value::text(*when) : Value::null());
    if (!when)
        out.extra("time_since_boot_seconds", Value::number(item.time));
    out.str("Message:", item.msg);
    out.endRecord();
}

int getPageEventSA(int count)
{
    std::vector<_NVME_SA_Evt_Item> events;
    auto page = std::make_unique<_NVME_Event_Page>();
    KRT_U32 status = 0;
    for (int i = 0; i < KRT_EVENT_PAGES; ++i) {
        const krt_admin_command_format cmd = eventPageRequest(static_cast<KRT_U32>(i) * KRT_EVENT_PAGE_SIZE);
        printRequestWords(cmd, {0, 10, 12, 13, 14});
        *page = _NVME_Event_Page{};
        status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, page.get(), sizeof *page);
        if (status != 0) {
            // The other pages may still hold events.
            tell(Verdict::RequestFailed, "\n event request fail\n");
            continue;
        }
        readEventPage(*page, events);
    }

    // The summary lines are said on the terminal even when the events go to
    // a file.
    if (events.empty()) {
        std::fputs("No events\n", stdout);
        json_output::noteResult(Verdict::Ok, "No events");
        return static_cast<int>(status);
    }
    const std::vector<std::size_t> order = eventShowOrder(events, count);
    for (std::size_t i : order)
        _showEvt(events[i]);
    FieldWriter(stdout, 0).num("Total events:", static_cast<int>(order.size()));
    return 0;
}

int doSEvent(int argc, char **argv, const Command_Info *entry)
{
    int count = 0;
    int countGiven = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kEventShortOptions, kEventLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'c':
                ++countGiven;
                if (optarg == nullptr)  // --count without "=N"
                    break;
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-c : invalid count '%s'.\n", optarg);
                    return 1;
                }
                count = toCount(optarg);
                break;
            case '?':
                unknownOption();
                return 1;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (countGiven > 1) {
        duplicateOption();
        return 1;
    }
    return getPageEventSA(count);
}

const CommandOptions event_options = {kEventShortOptions, kEventLongOptions};
