// editor_run.cpp: see editor_run.h. The terminal's settings are those of a real pseudo-terminal on
// descriptor 0; its keys and its screen are here. The driver's part of a vi line is modelled
// without its erasing: bytes are echoed and held until a terminator.
#include "editor_run.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

#include "editlib.h"
#include "history.h"
#include "pass.h"
#include "pass/pass_internal.h"
#include "tty.h"
#include "wait.h"

// What src/pass and src/wait.cpp own.
int Vesk_on_desired = 1;
int Vesk_on = 1;
int Pty_raw_or_cbreak = 0;
char buff[kKeyboardBuffer];
volatile std::sig_atomic_t progdone = 0;

namespace fuzz {

// The widest row: the program begins another one half-way.
static constexpr int kColumns = 2048;

// State of the run; begin() sets all of it.
static struct {
    const Editor *editor;
    std::string_view data;  // not used yet
    char cells[kColumns];   // the row of the cursor
    int column;
    bool fresh;            // the row was written by others, or is new
    std::string finished;  // the row above, as the newline left it,
    Expected wanted;       //   as it should be,
    int finished_told;
    bool finished_known;
    std::string sent;  //   and the line on it
    bool editing;
    std::string program_row;  // the row as the program left it
    int program_column;
    bool untouched;     // the editor is still on that row
    bool plain;         // the program has made it of printable characters and carriage returns
    int base;           // screen column of window column 0
    std::string keys;   // in the terminal, not read yet
    std::string later;  // typed, but behind a terminator of the driver's part
    bool full;          // the last line was
    bool interrupted;   // the row still shows what a keyboard signal ended
    bool broken;        // the row can't be told until the line is done
    bool returned;      // the last character was a carriage return
    int told;           // what stands in this column and right of it can't be told
    bool pasted;        // the keys came so fast that they are read without a wait
    bool partial;       // the driver holds a piece of line
    bool ended;         // no input any more
} Run;

static int take_byte() {
    if (Run.data.empty()) return 0;
    const int c = static_cast<unsigned char>(Run.data[0]);
    Run.data.remove_prefix(1);
    return c;
}

static std::string_view take(int count) {
    const std::string_view piece = Run.data.substr(0, static_cast<std::size_t>(count));
    Run.data.remove_prefix(piece.size());
    return piece;
}

static void clear_row() {
    std::fill_n(Run.cells, kColumns, ' ');
    Run.column = 0;
    Run.told = kColumns;
}

static std::string row() { return {Run.cells, kColumns}; }

static Expected expected(bool sent) {
    const int base = Run.editor->base();
    return Run.editor->expected(base >= 0 ? base : Run.base, sent);
}

static void report(const char *what, std::string_view cells, int column) {
    cells = cells.substr(0, cells.find_last_not_of(' ') + 1);
    (void)std::fprintf(stderr, "%s (cursor %d):\n[", what, column);
    for (const char c : cells) (void)std::fputc(is_printable(byte_of(c)) ? c : '?', stderr);
    (void)std::fputs("]\n", stderr);
}

// A row that begins with what the program wrote can be told as far as the window goes.
static bool shows(std::string cells, Expected want, int column, int told) {
    const int from = std::max(want.from, 0);
    cells.erase(0, static_cast<std::size_t>(from));
    if (editb.e_crlf == 0)
        cells.resize(want.cells.size());
    else
        want.cells.resize(cells.size(), ' ');
    if (const auto most = static_cast<std::size_t>(std::max(told - from, 0)); most < cells.size()) {
        cells.resize(most);
        want.cells.resize(most);
    }
    if (cells == want.cells && (want.column < 0 || column == want.column)) return true;
    report("shown", cells, column - want.from);
    report("wanted", want.cells, want.column - want.from);
    return false;
}

static void newline() {
    if (Run.editing && editb.e_raw == kTtyRaw && !Run.broken) {
        Run.finished_known = !Run.fresh || Run.editor->base() >= 0;
        Run.finished = row();
        Run.finished_told = Run.told;
        Run.wanted = expected(true);
        Run.sent = Run.editor->line(true);
    }
    clear_row();
    Run.fresh = true;
    Run.untouched = false;
}

static void show(char c) {
    const int byte = static_cast<unsigned char>(c);
    // The toggle of the kind of terminal starts a row of which the display knows nothing.
    Run.broken |= Run.editing && Run.returned && c == '\n';
    Run.returned = c == '\r';
    if (c == '\n') {
        newline();
    } else if (c == '\r') {
        Run.column = 0;
        // An editor that takes over a row whose start it doesn't know leaves what is right of the
        // window.
        if (Run.editing && editb.e_crlf == 0) Run.told = std::min(Run.told, editb.e_wsize + 1);
    } else if (c == '\b') {
        Run.column = std::max(Run.column - 1, 0);
    } else if (c == '\t') {
        Run.column = std::min(Run.column / 8 * 8 + 8, kColumns - 1);
    } else if (byte >= 32 && byte != 127) {
        Run.cells[Run.column] = c;
        Run.column = std::min(Run.column + 1, kColumns - 1);
    }
}

// What the program has left behind its cursor is followed by src/pass. It may know nothing of it;
// then nothing is there. Returns the columns in use.
static int follow(std::string_view output) {
    row_follow(output.data(), static_cast<int>(output.size()));
    char rest[kRowColumns];
    const std::string known(rest, static_cast<std::size_t>(pass_row_rest(rest)));
    char *const from = Run.cells + Run.column;
    require(!Run.plain || std::string_view(from, known.size()) == known);
    std::fill(from, Run.cells + kColumns, ' ');
    std::copy_n(known.data(), known.size(), from);
    return Run.column + static_cast<int>(known.find_last_not_of(' ') + 1);
}

static void program_writes(std::string_view text) {
    std::string piece;
    // A program leaves the row of a line that was given up before it goes on.
    if (!text.empty() && std::exchange(Run.interrupted, false)) {
        piece = "\r\n";
        show('\n');
    }
    const int right_edge = e_window(STDIN_FILENO) + 1;
    for (const char c : text) {
        if (c == '\0' || c == '\b') continue;
        if (c == '\n') piece += '\r';
        piece += c;
        show(c);
        if (Run.column > kColumns / 2) {
            piece += "\r\n";
            show('\n');
        }
        const bool plain = c == '\r' || is_printable(byte_of(c));
        Run.plain = c == '\n' || (Run.plain && plain && Run.column < right_edge);
    }
    e_setup_prime(piece.c_str());
    const int used = follow(piece);
    Run.fresh = true;
    Run.program_row = row();
    Run.program_column = Run.column;
    Run.untouched = true;
    // The spare columns right of the widest window are nobody's.
    if (used > right_edge - 2) Run.told = std::min(Run.told, right_edge - 2);
}

// The first draw of a line takes the row behind the cursor for empty.
static void program_writes_between_lines(std::string_view text) {
    program_writes(text);
    char rest[kRowColumns];
    if (pass_row_rest(rest) == 0) return;
    row_forget();
    std::fill(Run.cells + Run.column, Run.cells + kColumns, ' ');
    Run.program_row = row();
}

std::string image_of(std::string_view text, int at, int cursor, int &column, int &behind) {
    static constexpr std::size_t kLastColumn = 258;
    std::string image(static_cast<std::size_t>(at), ' ');
    column = behind = -1;
    for (std::size_t i = 0; i < text.size() && image.size() < kLastColumn; i++) {
        const char c = text[i];
        const std::size_t start = image.size();
        if (c == '\t')
            image.append(8 - image.size() % 8, ' ');
        else if (is_printable(byte_of(c)))
            image += c;
        else
            (image += '^') += static_cast<char>(c ^ 64);
        if (static_cast<int>(i) != cursor) continue;
        column = static_cast<int>(start);
        behind = static_cast<int>(image.size());
    }
    return image;
}

static void check_row() {
    if (Run.broken || !Run.editor->up_to_date()) return;
    if (Run.fresh) Run.base = Run.column - Run.editor->cursor_column();
    Run.fresh = false;
    const Expected want = expected(false);
    require(shows(row(), want, Run.column, Run.told));
}

// Where the first piece in the terminal that the driver hands on ends, npos when none is complete.
static std::size_t piece_end() {
    std::string ends = {'\r', '\0'};
    if (editb.e_eof != kNoKey) ends += static_cast<char>(editb.e_eof);
    return Run.keys.find_first_of(ends);
}

// Typed text on its way through the driver: up to a terminator, which ends the piece.
static void cook(std::string_view typed) {
    // What is echoed right of the marker's column stays.
    const int edge = e_window(STDIN_FILENO) - 1;
    for (std::size_t i = 0; i < typed.size(); i++) {
        const char c = typed[i] == '\n' ? '\r' : typed[i];
        const int byte = byte_of(c);
        if (c == '\0' || byte == editb.e_erase || byte == editb.e_kill || byte == ctrl('W') ||
            byte == ctrl('R') || byte == ctrl('V') || byte == ctrl('Q') || byte == ctrl('S'))
            continue;
        Run.partial = true;
        const bool escape = byte == kEscape;
        Run.keys += escape ? '\0' : c;
        if (!escape && byte != editb.e_eof) show(c);
        if (Run.column > edge) Run.told = std::min(Run.told, edge);
        if (!escape && c != '\r' && byte != editb.e_eof) continue;
        Run.partial = false;
        Run.later = typed.substr(i + 1);
        return;
    }
}

static void type(std::string_view typed) {
    if (editb.e_raw == kTtyAlt)
        cook(typed);
    else
        Run.keys += typed;
}

static void step_off_for(std::string_view output) {
    const bool known = !Run.broken && Run.untouched;
    e_view->step_off();
    e_flush();
    if (known && editb.e_crlf == 1)
        require(shows(row(), {Run.program_row, 0, Run.program_column}, Run.column, Run.told));
    program_writes(output);
}

// Something happens while the editor waits. True when the wait is over.
static bool happen(int event, KeyWait &result) {
    result = KeyWait::ready;
    if (event < 192) {
        Run.pasted = event >= 96;
        type(take(event % 96 + 1));
    } else if (event < 240) {
        step_off_for(take(event - 192));
        e_view->come_back();
        e_flush();
        check_row();
    } else if (event < 246) {
        progdone = SIGINT;
        e_row_stale = 1;
        row_forget();
        result = KeyWait::interrupted;
        return true;
    } else if (event < 250) {
        newline();  // where a shell has written
        row_forget();
        e_view->redraw();
        e_flush();
        check_row();
    } else if (event < 253) {
        step_off_for("");
        e_taken_len = e_view->text(e_taken);
        require(e_taken_len >= 0 && e_taken_len < kMaxLine);
        result = KeyWait::taken;
        return true;
    }
    return !Run.keys.empty();
}

static KeyWait wait_key() {
    e_flush();
    check_row();
    KeyWait result = KeyWait::ready;
    if (!Run.later.empty()) {
        Run.keys += Run.later;
        Run.later.clear();
    }
    while (Run.keys.empty()) {
        Run.ended = Run.data.empty();
        if (Run.ended || happen(take_byte(), result)) break;
    }
    return result;
}

static ssize_t read_keys(char *to, std::size_t len) {
    if (Run.keys.empty()) {
        if (Run.ended) return 0;
        errno = EAGAIN;
        return -1;
    }
    std::size_t n = std::min(len, Run.keys.size());
    std::size_t used = n;
    if (editb.e_raw == kTtyAlt) {
        const std::size_t end = piece_end();
        if (end < n) {
            used = end + 1;
            n = Run.keys[end] == '\0' ? end : used;
        }
    }
    Run.keys.copy(to, n);
    Run.keys.erase(0, used);
    return static_cast<ssize_t>(n);
}

// The user's terminal, once for the process.
static void open_terminal() {
    static bool open_already = false;
    if (open_already) return;
    open_already = true;
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    require(grantpt(master) == 0 && unlockpt(master) == 0);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    require(dup2(slave, STDIN_FILENO) == STDIN_FILENO);
    close(slave);
    require(tcgetattr(STDIN_FILENO, &Tty_original.tty_termios) == 0);
    for (const int key : {VINTR, VQUIT, VSUSP}) Tty_original.tty_termios.c_cc[key] = 0;
}

static void set_terminal(int choice) {
    static constexpr char kErase[] = {'\x7f', '\b', '\0', '#'};
    static constexpr char kKill[] = {'\x15', '@', '\x18', '\0'};
    static constexpr char kEof[] = {'\4', '\4', 'e', '\0'};
    termios &t = Tty_original.tty_termios;
    t.c_cc[VERASE] = static_cast<cc_t>(kErase[choice & 3]);
    t.c_cc[VKILL] = static_cast<cc_t>(kKill[choice >> 2 & 3]);
    t.c_cc[VEOF] = static_cast<cc_t>(kEof[choice >> 4 & 3]);
    require(tcsetattr(STDIN_FILENO, TCSANOW, &t) == 0);
}

static bool key_expected() { return Run.pasted && !Run.keys.empty(); }

static constexpr EditHost kHost = {wait_key, key_expected, pass_row_rest, pass_row_new};

static void begin(const Editor &editor, std::string_view data) {
    open_terminal();
    Run = {};
    Run.editor = &editor;
    Run.data = data;
    row_follow("\n", 1);  // ends what the last run may have left open
    newline();
    pass_row_new();
    Run.plain = true;
    edit_reset_for_test();
    kread_reset_for_test();
    e_host = &kHost;
    editor.reset();
    progdone = 0;
    opt_flag = editor.style;
    if (editor.style != kStyleVi && (take_byte() & 1) != 0) opt_flag = kStyleGmacs;
    setenv("Q_VXEDITOR",
           opt_flag == kStyleVi      ? "vi"
           : opt_flag == kStyleGmacs ? "gmacs"
                                     : "emacs",
           1);
    setenv("COLUMNS", std::to_string(take_byte()).c_str(), 1);
    setenv("Q_VXHISTFILE", "", 1);
    setenv("Q_VXHISTSIZE", "4", 1);
    set_terminal(take_byte());
    (void)hist_open();
    for (int n = take_byte() % 8; n > 0; n--) {
        const std::string command(take(take_byte()));
        hist_record(command.data(), command.size());
    }
}

// Waits for keys as the main loop does. False when nothing comes any more.
static bool wait_between_lines() {
    if (editb.e_index > 0) return true;
    if (!Run.later.empty()) {
        const std::string typed = Run.later;
        Run.later.clear();
        type(typed);
    }
    while (Run.keys.empty() || Run.partial) {
        if (Run.data.empty()) return false;
        const int event = take_byte();
        if (event < 192)
            type(take(event % 96 + 1));
        else if (event < 240 && !Run.partial)
            program_writes_between_lines(take(event - 192));
    }
    return true;
}

static void check_sent(std::string_view line) {
    if (line.back() != '\n' || editb.e_raw != kTtyRaw || Run.broken) return;
    Run.wanted.column = -1;
    require(!Run.finished_known || shows(Run.finished, Run.wanted, 0, Run.finished_told));
    line.remove_suffix(1);
    require(line == Run.sent.substr(0, Run.sent.find('\0')));
}

void run_editor(const Editor &editor, const std::uint8_t *data, std::size_t size) {
    begin(editor, {reinterpret_cast<const char *>(data), size});
    program_writes_between_lines(take(take_byte()));
    for (;;) {
        require(e_assert_mode(STDIN_FILENO) == 0);
        if (!wait_between_lines()) break;
        e_taken_len = -1;
        e_nothing = 0;
        Run.editing = Run.fresh = true;
        // A full line is handed on without a newline and leaves the next one on its row.
        Run.broken = std::exchange(Run.full, false);
        const int n = kread(STDIN_FILENO, buff, kLineCapacity);
        Run.editing = false;
        require(n <= kLineCapacity);
        if (n > 0) {
            Run.plain = buff[n - 1] == '\n';
            if (Run.plain)
                pass_row_new();
            else
                row_forget();
            check_sent({buff, static_cast<std::size_t>(n)});
            Run.full = editb.e_raw == kTtyRaw && Run.column != 0 && buff[n - 1] != '\n';
            if (buff[n - 1] == '\n' || Run.column == 0 || editb.e_raw == kTtyAlt)
                program_writes_between_lines("\n> ");
        } else if (progdone != 0) {
            progdone = 0;
            Run.interrupted = true;
        } else if (e_taken_len >= 0) {
            program_writes_between_lines("\n> ");
        } else if (e_nothing == 0) {
            break;
        }
    }
    hist_close_for_test();
}

}  // namespace fuzz

ssize_t keyboard_read(void *buf, std::size_t len) {
    return fuzz::read_keys(static_cast<char *>(buf), len);
}
int keyboard_waiting() { return static_cast<int>(fuzz::Run.keys.size()); }
int keyboard_fd() { return STDIN_FILENO; }
int screen_write(Screen, const char *data, std::size_t len) {
    for (std::size_t i = 0; i < len; i++) fuzz::show(data[i]);
    return 0;
}
void screen_drain() {}
void wait_window_open(Window) {}
void wait_window_close() {}
// Only for a terminal that can't be made raw, which this one always can.
int wait_ready(struct pollfd *, nfds_t, long) { std::abort(); }
