// The pieces of the event command: reading event pages, the line parser,
// the ring walk that finds the newest event, and the event printer.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "krt/admin.h"
#include "krt/logs.h"
#include "krt/types.h"

// One event as the tool keeps it. The texts are kept whole up to the
// parser's limits, even where a controller's own record would cut them.
constexpr std::size_t KRT_EVENT_SEQ_MAX = 20;
constexpr std::size_t KRT_EVENT_TIME_MAX = 80;
constexpr std::size_t KRT_EVENT_MSG_MAX = 80;

struct _NVME_SA_Evt_Item {
    char seq[KRT_EVENT_SEQ_MAX + 1];
    KRT_U32 time;
    char msg[KRT_EVENT_MSG_MAX + 1];
};

// The request for the event page at a byte offset (0, 4096, ... 61440).
krt_admin_command_format eventPageRequest(KRT_U32 offset);

// Reads one "[SEQ]n[TIME]t[MSG]text" line into `item`. A line lacking any of
// the three markers is reported on standard output and refused.
bool _eventParser(std::string_view line, _NVME_SA_Evt_Item &item);

// Appends the events of a page: its text is cut at line feeds and read up
// to the first piece shorter than two characters.
void readEventPage(const _NVME_Event_Page &page, std::vector<_NVME_SA_Evt_Item> &events);

// Where the newest event sits in the ring as read.
std::size_t newestEvent(const std::vector<_NVME_SA_Evt_Item> &events);

// The positions of the events to show, newest first: `count` of them, all
// when count is 0 or more than there are.
std::vector<std::size_t> eventShowOrder(const std::vector<_NVME_SA_Evt_Item> &events, int count);

// An event time as shown: a calendar time in the host's time zone, or
// seconds since the controller started for values up to the start of 2010.
std::string _showTime(unsigned long seconds);

void _showEvt(const _NVME_SA_Evt_Item &item);

// Reads every event page of the current controller and shows the newest
// `count` events (0: all).
int getPageEventSA(int count);
