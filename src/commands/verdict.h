// The lines that decide how a command run went. Each prints on the output
// stream as it always has and notes its verdict for the JSON document (see
// util/json_output.h), so the verdict sits where the command decides it.
#pragma once

#include "util/command.h"
#include "util/json_output.h"

using json_output::Verdict;

// Prints `format` (printf) on the output stream and notes it as the verdict
// `kind`, with the printed line as its message. Returns the number of
// characters printed.
int tell(Verdict kind, const char *format, ...) __attribute__((format(printf, 2, 3)));
// The same for a request that failed with a known status.
int tellFailed(KRT_U32 status, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The shared usage messages.
void duplicateOption();                                 // "Duplicated option specified."
void optionRequired(const char *command, char letter);  // "<command>: option -<letter> is required"
// A word the option parser refused; it has said why on standard error.
void unknownOption();
// A command given without words: its help, as a usage error. Returns 1.
int bareCommand(const Command_Info *entry);
