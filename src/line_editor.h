// The shell's line editor: libedit driven through its own interface, so that
// the shell sees every key before the editor acts on it.
#pragma once

#include <string>

enum class LineStatus {
    Line,         // a line was read
    Interrupted,  // Ctrl-C abandoned the line being typed
    NoLine,       // Ctrl-D on an empty line, or the end of the input
};

// Reads one line after showing the prompt (at a terminal). The line comes
// without its line feed.
LineStatus readLine(const char *prompt, std::string &line);
// Keeps a line for recall with the up arrow.
void rememberLine(const std::string &line);
// Gives the terminal back and releases the editor.
void closeLineEditor();
