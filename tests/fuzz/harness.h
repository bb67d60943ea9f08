// What every fuzz target shares: an in-process driver that answers each
// request from a script (the fuzz input), a process set up so that nothing
// reaches a device, a terminal or the file tree, and one run of the tool as
// its start-up would make it, with the process-wide state put back after.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace krt_fuzz {

// A script of replies, one record per request the tool sends, in order:
//   kind (1 byte), code (2 bytes LE), length (2 bytes LE), length data bytes.
// kind % 4 = 0: the request succeeds; 1: the driver reports status `code`
// with a clean completion; 2: the command fails with completion status
// `code` (SCT << 8 | SC); 3: the driver call itself fails with error
// `code`. The data (at most one page, the rest zero) goes into the
// request's buffer whatever the kind.
enum class Kind : std::uint8_t { Success = 0, DriverStatus = 1, Completion = 2, CallFails = 3 };

struct Record {
    Kind kind = Kind::Success;
    std::uint16_t code = 0;
    std::vector<std::uint8_t> data;
};

// How requests are answered once the script is used up.
enum class WhenExhausted {
    Healthy,  // as a controller with nothing configured: signed, empty replies
    Fail,     // every request fails at the driver
};

// The script form of records, for the seed corpus.
void appendRecord(std::vector<std::uint8_t> &out, const Record &record);

// Once per process: standard output and the tool's output stream go to
// /dev/null, getopt stays quiet, and the fake driver replaces the platform
// library. Idempotent.
void setUpProcess();

// One run: `adapters` controllers in the driver's list (`listCount` is the
// count the list reports, which may be more), requests answered from
// script[0..size), then as `after` says. Registers the controllers and
// fills the per-controller records as start-up does.
void beginRun(unsigned adapters, std::uint32_t listCount, const std::uint8_t *script, std::size_t size,
              WhenExhausted after, bool debug);
// Releases what the run opened and resets the process-wide state.
void endRun();

// A command line as the shell takes it: tokenised, then dispatched. The
// line is copied; at most 2047 characters of it are used.
int runLine(const std::string &line);

// A file that holds the given bytes, for options that name one: a path
// under /proc/self/fd that stays valid until the next call with the same
// slot (0..3).
std::string fileWith(int slot, const std::uint8_t *data, std::size_t size);

}  // namespace krt_fuzz
