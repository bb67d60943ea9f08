// A command table entry, the handler convention and the messages every
// command shares.
#pragma once

#include <cstdio>

struct _cmd_struct;
struct option;

// What a handler hands getopt_long: its short-option string and long-option
// table. The completion and the manual page are made from the same tables,
// so neither offers an option the handler would refuse.
struct CommandOptions {
    const char *shortOptions;
    const option *longOptions;
};

// Word count, words (word 0 is the command word, lower-cased) and the
// handler's own table entry. Returns 0, 1 for a usage error, a request's
// status, or -1 to leave the shell.
using CommandHandler = int (*)(int argc, char **argv, const _cmd_struct *entry);

struct _cmd_struct {
    const char *cmd;  // name, lower case
    int cmdLen;       // strlen(cmd) + 1
    CommandHandler cmdHandler;
    const char *cmdHelp;               // long help
    const char *cmdShortHelp;          // one-line summary, beginning with ':'
    const CommandOptions *cmdOptions;  // null for a command that reads no options
};
using Command_Info = _cmd_struct;
using PCommand_Info = const _cmd_struct *;

// Handlers parse their words with getopt_long and start with `optind = 0`:
// besides starting over at the first option, that makes the parser forget a
// position inside a word of the previous command line, which the shell has
// since overwritten.
//
// The option character and long option that carry the marked "-output" word
// through every command's option parsing.
constexpr int KRT_OUTPUT_OPTION = 1;

inline constexpr const char ErrorDuplicate[] = "Duplicated option specified.\n";
inline constexpr const char OptionRequired[] = "%s: option -%c is required\n";
// The outcome line of a command that sends one request to the controller.
inline constexpr const char CmdSuccess[] = "cmd success\n";
inline constexpr const char CmdFailed[] = "cmd failed.\n";
// An -i value (controller or slot) that names nothing.
inline constexpr const char ErrorInvalidId[] = "-i : invalid id '%s'\n";

// "Description", the summary and the long help, on the output stream.
void printCommandHelp(const Command_Info *entry);
