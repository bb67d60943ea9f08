// krt_cli --capture FILE: every controller found, read with read-only
// requests only, written as one machine file (docs/machine-format.md) that
// the simulator rebuilds (`krtsim reset FILE`).
#pragma once

namespace capture {

inline constexpr char kCaptureWord[] = "--capture";

// True when the program's words hold --capture. Nothing else is looked at,
// so a run without it costs one pass over its words.
bool requested(int argc, char **argv);

// The whole run: the words are checked, the controllers read and the file
// written. The exit status is 0 only when every part was read.
int run(int argc, char **argv);

}  // namespace capture
