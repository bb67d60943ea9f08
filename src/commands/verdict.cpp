#include "commands/verdict.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "util/state.h"

namespace {

__attribute__((format(printf, 1, 0))) std::string formatted(const char *format, std::va_list args)
{
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::vector<char> text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    return std::string(text.data());
}

}  // namespace

int tell(Verdict kind, const char *format, ...)
{
    std::va_list args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    std::fputs(text.c_str(), stream);
    json_output::noteResult(kind, text);
    return static_cast<int>(text.size());
}

int tellFailed(KRT_U32 status, const char *format, ...)
{
    std::va_list args;
    va_start(args, format);
    const std::string text = formatted(format, args);
    va_end(args);
    std::fputs(text.c_str(), stream);
    json_output::noteRequestFailed(status, text);
    return static_cast<int>(text.size());
}

void duplicateOption()
{
    tell(Verdict::UsageError, ErrorDuplicate);
}

void optionRequired(const char *command, char letter)
{
    tell(Verdict::UsageError, OptionRequired, command, letter);
}

void unknownOption()
{
    json_output::noteResult(Verdict::UsageError);
}

int bareCommand(const Command_Info *entry)
{
    printCommandHelp(entry);
    json_output::noteResult(Verdict::UsageError);
    return 1;
}
