// The one process-wide user file that commands read from or write to (log
// read-outs, SPI data, pass-through data, firmware images), and the raw byte
// dump shown when no file is named.
#pragma once

#include <cstddef>
#include <cstdio>

// fopen that does not wait: a fifo nobody writes to reads as empty, and one
// nobody reads from fails with ENXIO, instead of holding the command until a
// peer turns up. Modes "r", "w" and "a", each with an optional "b".
std::FILE *openNoWait(const char *path, const char *mode);

// Opens the named file (enclosing double quotes removed) with an fopen mode,
// closing any file still open first. 0 on success, 1 on failure.
int open_file(const char *name, const char *mode);
// Size of the open file in bytes, found by seeking to the end and back; 0
// when no file is open or it cannot be measured.
long get_file_length();
// Read and write at the current position; the number of bytes moved (0 when
// no file is open).
std::size_t read_file(void *buffer, std::size_t n);
std::size_t write_file(const void *buffer, std::size_t n);
// Closes the file when one is open; safe to call again.
void close_file();

// The bytes as "0x%02x " each, sixteen to a line, on the output stream; a
// block of no bytes prints just a line feed.
void _showRAWData(const void *buffer, long n);
