// Text routines shared by the shell and the commands.
#pragma once

#include <cstddef>

#include "krt/types.h"

// True when every character is a decimal digit; an empty text counts as a number.
bool isNumber(const char *text);
// A number typed by the user: hexadecimal when the word holds "0x",
// otherwise decimal digits (isNumber). False for anything else, also for a
// missing word (null).
bool readHexOrDecimal(const char *text, unsigned long long *value);
// Upper-case ASCII letters to lower case, in place. Returns the text.
char *strlwr(char *text);
// Copies an option argument without its enclosing double quotes.
// An argument in single quotes is refused with a hint on standard output:
// the result is 1 and dst is not written. Otherwise the result is 0.
// dst needs room for n + 2 bytes and should be zeroed by the caller: a
// quoted argument is terminated one byte past the copied text, and the byte
// between is left as it was.
int noQuoteStrncpy(char *dst, const char *src, std::size_t n);
// Raw hex table of a byte block on the output stream.
void dumpContent(const void *data, long length);
// RAID-mode code of a typed RAID level (0xFF when the text names none), and
// the display text of a code ("unknown" for any code not listed).
KRT_U8 chooseRaidMode(const char *text);
const char *RaidModeStr(KRT_U8 code);
