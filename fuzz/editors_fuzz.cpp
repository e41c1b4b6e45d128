// editors_fuzz.cpp: an editor under any keys, history, prompt and output that comes in between; the
// input's first byte gives style and mode. After each burst the row shows prompt and line as far as
// the window goes, the marker and the cursor where they belong; a line that is sent stands on the
// row that it leaves; the prompt is what the program's output ends in.
//
// It runs on a host of its own, without src/pass, and stands in for src/wait.cpp. The settings are
// a real pseudo-terminal's, on descriptor 0; keys and a screen of one row are here. The driver's
// part of a vi line is modelled without its erasing: bytes are echoed and held until a terminator.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "edit.h"
#include "edit/decode.h"
#include "edit/host.h"
#include "edit/prompt.h"
#include "editlib.h"
#include "emacs.h"
#include "extended.h"
#include "history.h"
#include "require.h"
#include "shown.h"
#include "terminal.h"
#include "tty.h"
#include "vi.h"
#include "wait.h"
#include "wide.h"

volatile std::sig_atomic_t progdone = 0;

namespace {

// The widest row: the program begins another one half-way.
constexpr int kColumns = 2048;

// State of the run; begin() sets all of it.
struct {
    fuzz::Input in;        // not used yet
    char cells[kColumns];  // the row of the cursor
    int column;
    bool fresh;        // the row was written by others, or is new
    bool finished;     // the row above was as it should be when a newline left it,
    bool driven;       // it was the driver's
    std::string sent;  //   and the line on it
    bool editing;
    std::string program_row;  // the row as the program left it
    int program_column;
    bool untouched;         // the editor is still on that row
    bool plain;             // the program has made it of printable characters and carriage returns
    int base;               // screen column of window column 0
    std::string keys;       // in the terminal, not read yet
    std::string later;      // typed, but behind a terminator of the driver's part
    bool full;              // the last line was
    bool interrupted;       // the row still shows what a keyboard signal ended
    bool broken;            // the row can't be told until the line is done
    bool returned;          // the last character was a carriage return
    int told;               // what stands in this column and right of it can't be told
    bool pasted;            // the keys came so fast that they are read without a wait
    bool partial;           // the driver holds a piece of line
    bool ended;             // no input any more
    fuzz::Screens screens;  // extended mode
    std::string typed;      // in extended mode, since no key was held
    bool followed;          // what was typed began with this line
} Run;

// --- What the row has to show ---

// A row that begins with what the program wrote can be told as far as the window goes.
bool shows(fuzz::Expected want) {
    const int from = std::max(want.from, 0);
    std::string cells(Run.cells + from, Run.cells + kColumns);
    if (editb.e_crlf == 0)
        cells.resize(want.cells.size());
    else
        want.cells.resize(cells.size(), ' ');
    const auto most = static_cast<std::size_t>(std::max(Run.told - from, 0));
    return cells.compare(0, most, want.cells, 0, most) == 0 &&
           (want.column < 0 || Run.column == want.column);
}

void demand(const fuzz::Expected &want) {
    if (shows(want)) return;
    fuzz::fail_row({Run.cells, kColumns}, Run.column, want.cells, want.column);
}

// In extended mode a row that can't be led back to its first column can't be told, and while keys
// are held none is drawn.
void check_row() {
    if (Run.broken || !fuzz::up_to_date()) return;
    if (Extended != 0) {
        const bool told = editb.e_index == 0 && editb.e_crlf != 0 && fuzz::window_base() >= 0;
        return told ? Run.screens.check() : void();
    }
    if (Run.fresh) Run.base = Run.column - (fuzz::image(false).cursor - fuzz::window_first());
    Run.fresh = false;
    demand(fuzz::expected(Run.base, false));
}

// Text that was typed and nothing else arrives as it was typed.
void check_delivered(std::string_view sent) {
    const std::size_t end = Run.typed.find_first_of("\r\n");
    const auto text =
        end != std::string::npos ? fuzz::text_of(Run.typed.substr(0, end)) : std::nullopt;
    Run.followed = Run.followed && text;
    if (!Run.followed) return;
    fuzz::require(sent == *text + '\n');
    Run.typed.erase(0, end + 1);
}

void check_taken() {
    e_taken_len = e_view->text(e_taken);
    fuzz::require(e_taken_len >= 0 && e_taken_len < Limits.copy);
    const std::size_t unread = Run.keys.size() + static_cast<std::size_t>(editb.e_index);
    const std::size_t read = Run.typed.size() - std::min(unread, Run.typed.size());
    const auto text = fuzz::text_of(Run.typed.substr(0, read));
    std::string taken(e_taken, e_taken + e_taken_len);
    char rest[kCharacterBytes];
    taken.append(rest, static_cast<std::size_t>(decode_unfinished(rest, sizeof rest)));
    fuzz::require(!Run.followed || !text || taken == *text);
    Run.followed = false;
}

void check_sent(std::string_view sent) {
    if (Extended != 0) return check_delivered(sent);
    if (sent.back() != '\n' || editb.e_raw != kTtyRaw || Run.broken || Run.driven) return;
    fuzz::require(Run.finished && sent == Run.sent + '\n');
}

// --- The screen ---

void newline() {
    // A line that the driver has ended is shown whole, whatever the window.
    Run.driven = e_view == nullptr;
    if (Run.editing && !Run.driven && editb.e_raw == kTtyRaw && !Run.broken) {
        const fuzz::Expected want = fuzz::expected(Run.base, true);
        Run.finished = (Run.fresh && fuzz::window_base() < 0) || shows({want.cells, want.from});
        Run.sent = fuzz::line(true);
    }
    std::fill_n(Run.cells, kColumns, ' ');
    Run.column = 0;
    Run.told = kColumns;
    Run.fresh = true;
    Run.untouched = false;
}

void show(char c) {
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
    } else if (byte_of(c) >= 32 && byte_of(c) != 127) {
        Run.cells[Run.column] = c;
        Run.column = std::min(Run.column + 1, kColumns - 1);
    }
}

// --- The program ---

// The prompt as captured, whole, and whether it may be written again.
std::pair<std::string, bool> prompt() {
    static char text[kPrimeSize + 2];
    const auto kept = editb;
    editb.e_prompt = text;
    e_new_prompt(sizeof text);
    fuzz::require(text[0] == '\r' && editb.e_wsize >= 18 && editb.e_wsize <= 158);
    return {text + 1, std::exchange(editb, kept).e_crlf == 1};
}

// The capture goes on with `piece`, from its last line end or escape on.
void check_prompt(const std::pair<std::string, bool> &before, const std::string &piece) {
    const std::size_t start = piece.find_last_of("\n\r\x1b");
    std::string text = start == std::string::npos ? before.first + piece : piece.substr(start);
    const bool any = before.second || !text.empty();
    text.erase(0, text.find_first_not_of("\n\r"));
    std::erase(text, '\a');
    const auto &[now, again] = prompt();
    fuzz::require(now.size() >= kPrimeSize / 4 || now == text);
    fuzz::require(again == (any && std::all_of(now.begin(), now.end(),
                                               [](char c) { return is_printable(byte_of(c)); })));
}

// What the program has left behind its cursor, as far as it is known. Else nothing is there.
// Returns the columns in use.
int take_rest() {
    genchar rest[kRowColumns];
    const int len = out_row_rest(rest);
    const std::string known(rest, rest + len);
    char *const from = Run.cells + Run.column;
    fuzz::require(!Run.plain || std::string_view(from, known.size()) == known);
    fuzz::require(
        std::all_of(known.begin(), known.end(), [](char c) { return is_printable(byte_of(c)); }));
    std::fill(from, Run.cells + kColumns, ' ');
    std::copy_n(known.data(), known.size(), from);
    return Run.column + static_cast<int>(known.find_last_not_of(' ') + 1);
}

void program_writes_wide(std::string_view text) {
    if (text.empty()) return;
    const bool new_row = std::exchange(Run.interrupted, false);
    const std::string piece = Run.screens.program_writes(text, new_row);
    e_setup_prime(piece.data(), static_cast<int>(piece.size()));
    const auto kept = editb;
    e_new_prompt(kPrimeSize);
    const auto made = std::exchange(editb, kept);
    Run.screens.check_prompt(made.e_prompt, made.e_plen, made.e_crlf != 0);
}

void program_writes(std::string_view text) {
    if (Extended != 0) return program_writes_wide(text);
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
    const auto before = prompt();
    e_setup_prime(piece.data(), static_cast<int>(piece.size()));
    check_prompt(before, piece);
    const int used = take_rest();
    Run.fresh = true;
    Run.program_row.assign(Run.cells, kColumns);
    Run.program_column = Run.column;
    Run.untouched = true;
    // The spare columns right of the widest window are nobody's.
    if (used > right_edge - 2) Run.told = std::min(Run.told, right_edge - 2);
}

// The first draw of a line takes the row behind the cursor for empty.
void program_writes_between_lines(std::string_view text) {
    program_writes(text);
    genchar rest[kRowColumns];
    if (Extended != 0 || out_row_rest(rest) == 0) return;
    out_row_forget();
    std::fill(Run.cells + Run.column, Run.cells + kColumns, ' ');
    Run.program_row.assign(Run.cells, kColumns);
}

// --- The keyboard ---

// Typed text on its way through the driver: up to a terminator, which ends the piece.
void cook(std::string_view typed) {
    const int edge = e_window(STDIN_FILENO) - 1;  // what is echoed right of the marker stays
    for (std::size_t i = 0; i < typed.size(); i++) {
        const char c = typed[i] == '\n' ? '\r' : typed[i];
        const int byte = byte_of(c);
        static constexpr std::string_view kOwn("\0\x11\x12\x13\x16\x17", 6);
        if (kOwn.find(c) != std::string_view::npos || byte == editb.e_erase || byte == editb.e_kill)
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

void type(std::string_view typed) {
    if (Extended != 0) Run.typed += typed;
    if (editb.e_raw == kTtyAlt)
        cook(typed);
    else
        Run.keys += typed;
}

void step_off_for(std::string_view output) {
    const bool known = !Run.broken && Run.untouched && Extended == 0;
    e_view->step_off();
    e_flush();
    if (known && editb.e_crlf == 1) demand({Run.program_row, 0, Run.program_column});
    program_writes(output);
}

// Something happens while the editor waits. True when the wait is over.
bool happen(int event, KeyWait &result) {
    if (event < 192) {
        Run.pasted = event >= 96;
        type(Run.in.take(event % 96 + 1));
    } else if (event < 240) {
        step_off_for(Run.in.take(event - 192));
        e_view->come_back();
        e_flush();
        check_row();
    } else if (event < 246) {
        progdone = SIGINT;
        Run.followed = false;
        e_row_stale = 1;
        out_row_forget();
        result = KeyWait::interrupted;
        return true;
    } else if (event < 250) {
        newline();  // where a shell has written
        if (Extended != 0) Run.screens.write("\n");
        out_row_forget();
        e_view->redraw();
        e_flush();
        check_row();
    } else if (event < 253) {
        step_off_for("");
        check_taken();
        result = KeyWait::taken;
        return true;
    }
    return !Run.keys.empty();
}

KeyWait wait_key(long timeout_ns) {
    e_flush();
    check_row();
    KeyWait result = KeyWait::ready;
    if (timeout_ns != kNoTimeout && Run.keys.empty() && Run.in.byte() % 2 == 0)
        return KeyWait::late;
    Run.keys += std::exchange(Run.later, "");
    while (Run.keys.empty()) {
        Run.ended = Run.in.empty();
        if (Run.ended || happen(Run.in.byte(), result)) break;
    }
    return result;
}

bool look_for_key() { return Run.pasted && !Run.keys.empty(); }

// Waits for keys as the main loop does. False when nothing comes any more.
bool wait_between_lines() {
    if (Run.keys.empty() && editb.e_index == 0 && !decode_in_paste()) {
        Run.typed.clear();
        Run.followed = Extended != 0 && !kread_has_line();
    }
    if (editb.e_index > 0 || kread_has_line()) return true;
    if (!Run.later.empty()) type(std::exchange(Run.later, ""));
    while (Run.keys.empty() || Run.partial) {
        if (Run.in.empty()) return false;
        const int event = Run.in.byte();
        if (event < 192)
            type(Run.in.take(event % 96 + 1));
        else if (event < 240 && !Run.partial)
            program_writes_between_lines(Run.in.take(event - 192));
    }
    return true;
}

// --- The run ---

// An empty folder as far as can be: what is completed doesn't depend on the machine.
int open_folder() { return open("/var/empty", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

void begin(fuzz::Input in) {
    static constexpr EditHost kHost = {wait_key, look_for_key, open_folder};
    static constexpr std::pair<const char *, int> kStyles[] = {
        {"emacs", kStyleEmacs}, {"gmacs", kStyleGmacs}, {"vi", kStyleVi}};
    Run = {};
    Run.in = in;
    newline();
    Run.plain = true;
    edit_reset_for_test();
    kread_reset_for_test();
    emacs_reset_for_test();
    vi_reset_for_test();
    e_host = &kHost;
    progdone = 0;
    const int choice = Run.in.byte();
    const auto &[name, code] = kStyles[choice % 128 % 3];
    Extended = choice / 128;
    opt_flag = code;
    fuzz::set_environment(name, Run.in.byte());
    kread_begin();
    decode_reset();
    fuzz::set_terminal(Run.in.byte());
    if (Extended != 0) Run.screens = fuzz::Screens(e_window(STDIN_FILENO) + 1);
    (void)hist_open();
    for (int n = Run.in.byte() % 8; n > 0; n--) {
        const std::string_view command = Run.in.take(Run.in.byte());
        hist_record(command.data(), command.size());
    }
}

// Returns false at the end of the input.
bool read_line() {
    static char buffer[kLineBuffer];
    e_taken_len = -1;
    e_nothing = 0;
    Run.editing = Run.fresh = true;
    // A full line is handed on without a newline and leaves the next one on its row.
    Run.broken = std::exchange(Run.full, false);
    const int n = kread(STDIN_FILENO, buffer, Limits.capacity);
    Run.editing = false;
    fuzz::require(n <= Limits.capacity);
    if (n > 0) {
        const std::string_view sent(buffer, static_cast<std::size_t>(n));
        Run.plain = sent.back() == '\n';
        Run.plain ? out_row_new() : out_row_forget();
        check_sent(sent);
        Run.full = editb.e_raw == kTtyRaw && Run.column != 0 && !Run.plain;
        if (Run.plain || Run.column == 0 || editb.e_raw == kTtyAlt)
            program_writes_between_lines("\n> ");
    } else if (progdone != 0) {
        progdone = 0;
        Run.interrupted = true;
    } else if (e_taken_len >= 0) {
        program_writes_between_lines("\n> ");
    } else {
        return e_nothing != 0;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    begin({data, size});
    program_writes_between_lines(Run.in.take(Run.in.byte()));
    do fuzz::require(e_assert_mode(STDIN_FILENO) == 0);
    while (wait_between_lines() && read_line());
    hist_close_for_test();
    return 0;
}

ssize_t keyboard_read(void *buf, std::size_t len) {
    errno = EAGAIN;
    if (Run.keys.empty()) return Run.ended ? 0 : -1;
    std::size_t n = std::min(len, Run.keys.size());
    std::size_t used = n;
    if (editb.e_raw == kTtyAlt) {
        // Where the first piece ends that the driver hands on.
        std::string ends = {'\r', '\0'};
        if (editb.e_eof != kNoKey) ends += static_cast<char>(editb.e_eof);
        const std::size_t end = Run.keys.find_first_of(ends);
        if (end < n) {
            used = end + 1;
            n = Run.keys[end] == '\0' ? end : used;
        }
    }
    Run.keys.copy(static_cast<char *>(buf), n);
    Run.keys.erase(0, used);
    return static_cast<ssize_t>(n);
}
int keyboard_waiting() { return static_cast<int>(Run.keys.size()); }
int keyboard_fd() { return STDIN_FILENO; }
int screen_write(Screen, const char *data, std::size_t len) {
    if (Extended != 0) {
        const std::string_view bytes(data, len);
        Run.screens.write(bytes);
        // The toggle of the kind of terminal.
        Run.broken |= Run.editing && bytes.find("\r\n") != std::string_view::npos;
    }
    for (std::size_t i = 0; i < len && Extended == 0; i++) show(data[i]);
    return 0;
}
void screen_drain() {}
long long now_ns() { return 0; }
void wait_window_open(Window) {}
void wait_window_close() {}
// Only for a terminal that can't be made raw, which this one always can.
int wait_ready(struct pollfd *, nfds_t, long) { std::abort(); }
