// The command line's way to a handler: the tokenizer, the two command tables
// and the dispatcher.
#pragma once

#include "krt/types.h"
#include "util/command.h"

// Room for the words of one typed line.
inline constexpr int kMaxWords = 64;

// Splits the writable text `line` in place into words, storing pointers into
// `line` in `words` (at most `capacity` of them) and their number in `count`.
// Double-quoted stretches stay part of their word, quotes included. Words
// beyond `capacity` are dropped. Returns 1, or 0 on an unbalanced double quote.
int parse(int *count, char **words, int capacity, char *line);

// Runs the command named (or uniquely abbreviated) by words[0], which is
// lower-cased in place. Returns -1 for exit/quit, the handler's result, 0 for
// a lone vendor-ID word or no word at all, 1 for an unknown or ambiguous command.
int cmdDispatcher(int argc, char **argv);

// The command a lower-cased word names: a whole name, or an abbreviation of
// exactly one name over both tables. `matches` receives the number of names
// the word abbreviates (1 for a whole name); the result is null when that is
// not exactly one.
const Command_Info *lookupCommand(const char *word, int *matches);
// True for a word that carries the vendor-ID filter ("--vid=0x..." or "--VID=0x...").
bool isVidWord(const char *word);

// The public commands (listed by help) and the hidden ones.
extern const Command_Info generalCmdTableV1[];
extern const Command_Info hiddenCmdTableV1[];
KRT_U8 generalCmdTableV1Size();
KRT_U8 hiddenCmdTableV1Size();
