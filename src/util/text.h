// Text routines shared by the shell and the commands.
#pragma once

#include <cstddef>

#include "krt/types.h"

// True when every character is a decimal digit; an empty text counts as a number.
bool isNumber(const char *text);
// Upper-case ASCII letters to lower case, in place.
char *strlwr(char *text);
// Copies an option argument without its enclosing double quotes. Returns 1
// (and writes nothing) for an argument in single quotes.
int noQuoteStrncpy(char *dst, const char *src, std::size_t n);
// Raw hex table of a byte block on the output stream.
void dumpContent(const void *data, long length);
// RAID-mode code of a typed RAID level, and the display text of a code.
KRT_U8 chooseRaidMode(const char *text);
const char *RaidModeStr(KRT_U8 code);
