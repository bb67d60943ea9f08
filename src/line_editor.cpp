#include "line_editor.h"

#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "shell/completion.h"

// libedit corrupts its display, and can crash, once the line being edited is
// taller than the terminal. The shell therefore never lets a line grow that
// tall: a key that would insert past the last allowed row is refused with the
// bell, a recalled line that does not fit is not shown, and the editor's
// commands that insert many characters at once (yank, repeat counts) are not
// bound. The size is read again whenever the window changes.

namespace {

constexpr wchar_t kEscape = 0x1b;
constexpr wchar_t kQuote = 0x16;  // Ctrl-V: the next key is inserted as it is
constexpr wchar_t kEnter = L'\r';
// A character the terminal cannot print is shown as an escape of up to this
// many cells.
constexpr int kWidestShown = 8;

volatile sig_atomic_t gInterrupted = 0;
volatile sig_atomic_t gResized = 0;

extern "C" void onInterrupt(int)
{
    gInterrupted = 1;
}

extern "C" void onResize(int)
{
    gResized = 1;
}

struct Editor {
    EditLine *el = nullptr;
    bool terminal = false;
    int promptCells = 0;
    std::vector<std::string> history;
    std::size_t shown = 0;  // the history entry on the line; history.size(): the line being typed
    std::string draft;      // the line being typed, kept while older lines are shown
    enum { Plain, Escape, Sequence } key = Plain;
    bool quoted = false;
    std::mbstate_t shift{};
};

Editor gEditor;

int cellsOf(wchar_t c)
{
    const int width = wcwidth(c);
    return width >= 0 ? width : kWidestShown;
}

// Whether a line of that many cells, with the cursor after it, keeps a row of
// the terminal free.
bool fits(EditLine *el, long cells)
{
    int rows = 0;
    int columns = 0;
    if (el_get(el, EL_GETTC, "li", &rows) != 0 || rows < 2)
        rows = 2;
    if (el_get(el, EL_GETTC, "co", &columns) != 0 || columns < 1)
        columns = 1;
    return gEditor.promptCells + cells < static_cast<long>(rows - 1) * columns;
}

long lineCells(EditLine *el)
{
    const LineInfoW *line = el_wline(el);
    long cells = 0;
    for (const wchar_t *c = line->buffer; c < line->lastchar; ++c)
        cells += cellsOf(*c);
    return cells;
}

long textCells(const std::string &text)
{
    long cells = 0;
    std::mbstate_t shift{};
    const char *next = text.c_str();
    const char *end = next + text.size();
    while (next < end) {
        wchar_t c = 0;
        const std::size_t used = std::mbrtowc(&c, next, static_cast<std::size_t>(end - next), &shift);
        if (used == static_cast<std::size_t>(-1) || used == static_cast<std::size_t>(-2)) {
            cells += kWidestShown;
            shift = {};
            ++next;
            continue;
        }
        cells += cellsOf(c);
        next += used == 0 ? 1 : used;
    }
    return cells;
}

// True when the key will be inserted into the line as text; keys that
// belong to an escape sequence (arrows, function keys) or to a meta command
// are not.
bool insertsText(wchar_t c)
{
    switch (gEditor.key) {
        case Editor::Escape:
            gEditor.key = (c == L'[' || c == L'O') ? Editor::Sequence : Editor::Plain;
            return false;
        case Editor::Sequence:
            if (c >= 0x40 && c <= 0x7e)
                gEditor.key = Editor::Plain;
            return false;
        case Editor::Plain:
            break;
    }
    if (gEditor.quoted) {
        gEditor.quoted = false;
        return true;
    }
    if (c == kEscape) {
        gEditor.key = Editor::Escape;
        return false;
    }
    if (c == kQuote) {
        gEditor.quoted = true;
        return false;
    }
    return c >= 0x20 && c != 0x7f;
}

void replaceLine(EditLine *el, const std::string &text)
{
    const LineInfoW *line = el_wline(el);
    el_cursor(el, static_cast<int>(line->lastchar - line->cursor));
    el_deletestr(el, static_cast<int>(line->lastchar - line->buffer));
    el_insertstr(el, text.c_str());
}

std::string currentLine(EditLine *el)
{
    const LineInfo *line = el_line(el);
    return std::string(line->buffer, static_cast<std::size_t>(line->lastchar - line->buffer));
}

// Up and down through the remembered lines, as the editor's own history
// keys do, but never onto a line taller than the terminal.
unsigned char recall(EditLine *el, bool older)
{
    Editor &e = gEditor;
    if (older ? e.shown == 0 : e.shown >= e.history.size())
        return CC_REFRESH_BEEP;
    const std::size_t target = older ? e.shown - 1 : e.shown + 1;
    const std::string &text = target == e.history.size() ? e.draft : e.history[target];
    if (!fits(el, textCells(text)))
        return CC_REFRESH_BEEP;
    if (e.shown == e.history.size())
        e.draft = currentLine(el);
    e.shown = target;
    replaceLine(el, text);
    return CC_REFRESH;
}

extern "C" unsigned char recallOlder(EditLine *el, int)
{
    return recall(el, true);
}

extern "C" unsigned char recallNewer(EditLine *el, int)
{
    return recall(el, false);
}

// Tab: the rest of a command name or option when only one fits what was
// typed, else as much as they all share; when that adds nothing, the choices
// are listed under the line and the line is drawn again.
extern "C" unsigned char completeWord(EditLine *el, int)
{
    const std::string before = [el] {
        const LineInfo *line = el_line(el);
        return std::string(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
    }();
    const Completion completion = completeShellLine(before);
    const std::vector<std::string> &choices = completion.candidates;
    if (choices.empty())
        return CC_REFRESH_BEEP;
    const std::size_t typed = before.size() - completion.start;
    std::string shared = choices.front();
    for (const std::string &choice : choices) {
        std::size_t n = 0;
        while (n < shared.size() && n < choice.size() && shared[n] == choice[n])
            ++n;
        shared.resize(n);
    }
    std::string insert = shared.size() > typed ? shared.substr(typed) : std::string();
    if (choices.size() == 1)
        insert += ' ';
    if (!insert.empty()) {
        if (!fits(el, lineCells(el) + textCells(insert)))
            return CC_REFRESH_BEEP;
        el_insertstr(el, insert.c_str());
        return CC_REFRESH;
    }
    std::string list = "\n";
    for (const std::string &choice : choices)
        list += (list.size() > 1 ? "  " : "") + choice;
    list += '\n';
    std::fputs(list.c_str(), stdout);
    std::fflush(stdout);
    return CC_REDISPLAY;
}

// After the window shrank, cuts the end of a line that no longer fits. The
// editor's redraw walks the rows the line took at the old size; with fewer
// rows now it would walk past its display. So the line leaves the screen at
// the old size, the size changes, and the line comes back cut to fit.
void fitAfterResize(EditLine *el)
{
    const std::string text = currentLine(el);
    replaceLine(el, "");
    el_set(el, EL_REFRESH);
    el_resize(el);
    el_insertstr(el, text.c_str());
    const LineInfoW *line = el_wline(el);
    long cells = lineCells(el);
    int cut = 0;
    for (const wchar_t *c = line->lastchar; c > line->buffer && !fits(el, cells); ++cut)
        cells -= cellsOf(*--c);
    if (cut != 0)
        el_deletestr(el, cut);
    el_set(el, EL_REFRESH);
}

// Waits for one byte of input. Ctrl-C and window changes are let in only
// while waiting, so none is lost between looking at the flags and waiting.
ssize_t readByte(EditLine *el, char *byte)
{
    sigset_t waiting;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGWINCH);
    sigprocmask(SIG_BLOCK, &blocked, &waiting);
    ssize_t n = -1;
    for (;;) {
        if (gInterrupted != 0)
            break;
        if (gResized != 0) {
            gResized = 0;
            fitAfterResize(el);
        }
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (ppoll(&input, 1, nullptr, &waiting) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        n = ::read(STDIN_FILENO, byte, 1);
        if (n >= 0 || errno != EINTR)
            break;
    }
    sigprocmask(SIG_SETMASK, &waiting, nullptr);
    return n;
}

// The editor reads every key through here.
extern "C" int readKey(EditLine *el, wchar_t *out)
{
    for (;;) {
        char byte = 0;
        const ssize_t n = readByte(el, &byte);
        if (gInterrupted != 0) {
            // Ends the line as Enter would, so the editor leaves the display
            // tidy; readLine then drops the line.
            gEditor.key = Editor::Plain;
            *out = kEnter;
            return 1;
        }
        if (n <= 0)
            return static_cast<int>(n);
        wchar_t c = 0;
        const std::size_t used = std::mbrtowc(&c, &byte, 1, &gEditor.shift);
        if (used == static_cast<std::size_t>(-2))
            continue;  // more bytes of this character to come
        if (used == static_cast<std::size_t>(-1)) {
            gEditor.shift = {};  // not a character here: dropped, as the editor itself does
            continue;
        }
        if (gEditor.terminal && insertsText(c) && !fits(el, lineCells(el) + cellsOf(c))) {
            std::fputc('\a', stdout);
            std::fflush(stdout);
            continue;
        }
        *out = c;
        return 1;
    }
}

void bindKeys(EditLine *el)
{
    el_set(el, EL_EDITOR, "emacs");
    // The wide form keeps our names as they are; the narrow one copies them
    // and never frees the copies.
    el_wset(el, EL_ADDFN, L"krt-older", L"Recall an older line", recallOlder);
    el_wset(el, EL_ADDFN, L"krt-newer", L"Recall a newer line", recallNewer);
    for (const char *key : {"^P", "\\ep", "\\eP", "\\e[A", "\\eOA"})
        el_set(el, EL_BIND, key, "krt-older", nullptr);
    for (const char *key : {"^N", "\\en", "\\eN", "\\e[B", "\\eOB"})
        el_set(el, EL_BIND, key, "krt-newer", nullptr);
    el_set(el, EL_BIND, "-k", "up", "krt-older", nullptr);
    el_set(el, EL_BIND, "-k", "down", "krt-newer", nullptr);
    // Typed lines only: a tab that comes through a pipe stays a tab.
    if (gEditor.terminal) {
        el_wset(el, EL_ADDFN, L"krt-complete", L"Complete a command name or option", completeWord);
        el_set(el, EL_BIND, "^I", "krt-complete", nullptr);
    }
    // Commands that insert more than the key itself.
    for (const char *key : {"^Y", "\\e^_", "\\ex", "\\eX", "\\e0", "\\e1", "\\e2", "\\e3", "\\e4", "\\e5", "\\e6",
                            "\\e7", "\\e8", "\\e9"})
        el_set(el, EL_BIND, key, "ed-unassigned", nullptr);
}

EditLine *editor(const char *prompt)
{
    if (gEditor.el == nullptr) {
        gEditor.el = el_init("krt_cli", stdin, stdout, stderr);
        if (gEditor.el == nullptr)
            return nullptr;
        gEditor.terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
        el_set(gEditor.el, EL_GETCFN, readKey);
        bindKeys(gEditor.el);
    }
    static const char *shownPrompt = nullptr;
    shownPrompt = prompt;
    el_set(
        gEditor.el, EL_PROMPT, +[](EditLine *) -> char * { return const_cast<char *>(shownPrompt); });
    gEditor.promptCells = static_cast<int>(textCells(prompt));
    return gEditor.el;
}

// Ctrl-C and window changes interrupt the wait for a key, but only while a
// line is being read: while a command runs, Ctrl-C ends the program.
class ReadingSignals {
  public:
    ReadingSignals()
    {
        // Restarted: a signal that arrives while the editor draws must not
        // cut a write to the terminal short (the waits for a key end all the
        // same).
        struct sigaction action {};
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        action.sa_handler = onInterrupt;
        sigaction(SIGINT, &action, &interrupt_);
        action.sa_handler = onResize;
        sigaction(SIGWINCH, &action, &resize_);
    }
    ~ReadingSignals()
    {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGWINCH, &resize_, nullptr);
    }
    ReadingSignals(const ReadingSignals &) = delete;
    ReadingSignals &operator=(const ReadingSignals &) = delete;

  private:
    struct sigaction interrupt_ {};
    struct sigaction resize_ {};
};

}  // namespace

LineStatus readLine(const char *prompt, std::string &line)
{
    EditLine *el = editor(prompt);
    if (el == nullptr)
        return LineStatus::NoLine;
    gInterrupted = 0;
    gResized = 0;
    gEditor.shown = gEditor.history.size();
    gEditor.key = Editor::Plain;
    gEditor.quoted = false;
    int count = 0;
    const char *text = nullptr;
    {
        ReadingSignals signals;
        if (gEditor.terminal)
            el_resize(el);
        text = el_gets(el, &count);
    }
    if (gInterrupted != 0) {
        gInterrupted = 0;
        return LineStatus::Interrupted;
    }
    if (text == nullptr || count <= 0)
        return LineStatus::NoLine;
    line.assign(text, static_cast<std::size_t>(count));
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    return LineStatus::Line;
}

void rememberLine(const std::string &line)
{
    gEditor.history.push_back(line);
}

void closeLineEditor()
{
    if (gEditor.el != nullptr)
        el_end(gEditor.el);
    gEditor = Editor{};
}
