// Reads one controller, with read-only requests only, into the adapter
// entry of a machine file (docs/machine-format.md).
#pragma once

#include <string>
#include <vector>

#include "capture/machine_text.h"
#include "krt/types.h"

namespace capture {

// Something the file does not hold as the controller has it: a request
// that failed (its part is left out), or more than the format holds (cut).
struct Note {
    std::string object;  // "pd 3 SMART log", "event page 5", ...
    std::string what;    // "not read" or what was cut
    KRT_U32 status;      // the failed request's status; 0 for a cut
};

struct ControllerCapture {
    Json adapter = Json::object();
    std::vector<Note> notes;
    bool vanished = false;  // its driver handle could no longer be opened
    bool foreign = false;   // another maker's: the standard requests only
    int pds = 0, vds = 0, namespaces = 0, events = 0;
};

ControllerCapture readController(KRT_U16 index);

}  // namespace capture
