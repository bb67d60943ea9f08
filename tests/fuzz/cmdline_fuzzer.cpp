// Command lines: the tokenizer, the dispatcher and every command's option
// parsing, fed arbitrary text as a shell session would be (one command per
// line, at most eight), against two controllers with nothing configured.
#include <cstddef>
#include <cstdint>
#include <string>

#include "harness.h"

namespace {

constexpr int kMaxLines = 8;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    krt_fuzz::beginRun(2, 2, nullptr, 0, krt_fuzz::WhenExhausted::Healthy, false);
    std::size_t from = 0;
    for (int i = 0; i < kMaxLines && from <= text.size(); ++i) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos)
            end = text.size();
        // The shell's lines are C strings: a NUL ends the line there.
        const std::string line = text.substr(from, end - from);
        if (krt_fuzz::runLine(line.substr(0, line.find('\0'))) == -1)
            break;
        from = end + 1;
    }
    krt_fuzz::endRun();
    return 0;
}
