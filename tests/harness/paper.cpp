// paper.cpp: what a session prints beside its program, and what the screen then has to show.

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "harness/session.h"

namespace harness {

// A terminal puts a carriage return in front of each newline.
static std::string cooked(std::string_view text) {
    std::string out;
    for (const char c : text) out += c == '\n' ? "\r\n" : std::string(1, c);
    return out;
}

static std::string without_end(std::string text, char blank) {
    text.erase(text.find_last_not_of(blank) + 1);
    return text;
}

int Session::terminal() {
    if (terminal_ < 0)
        terminal_ = open(program_terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (terminal_ < 0) throw std::runtime_error("the program's terminal");
    return terminal_;
}

void Session::wait_start() { wait_screen(paper_.all(), paper_.cursor()); }

void Session::edit(const std::string &text) {
    const bool vi = options_.style == "vi";
    wait_start();
    type(text + (vi ? "\x1b" : "\2"));
    wait_mode(Mode::raw);
    if (vi) type("i");
    const int column = paper_.cursor().col + static_cast<int>(text.size()) - 1;
    wait_for("the cursor in the text", [&] { return cursor().col == column; });
    wait_asleep();
}

void Session::print(std::string_view text, const std::function<void()> &meanwhile) {
    // Of a flood only the end, which covers all of the paper.
    constexpr std::size_t kMost = 16384;
    paper_.feed(
        cooked(text.size() > kMost ? text.substr(text.find('\n', text.size() - kMost)) : text));
    while (!text.empty()) {
        const ssize_t n = write(terminal(), text.data(), std::min<std::size_t>(text.size(), 4096));
        if (n > 0) text.remove_prefix(static_cast<std::size_t>(n));
        mark();  // takes what morp writes
        meanwhile();
        pollfd room{terminal(), POLLOUT, 0};
        if (n <= 0) poll(&room, 1, 1);
    }
}

void Session::wait_line(int col, const std::string &line) {
    const Place at = paper_.cursor();
    std::string wanted;
    for (int n = 0; n < options_.rows; ++n)
        wanted +=
            (n == at.row ? without_end(paper_.text(n, 0, at.col) + line, ' ') : paper_.row(n)) +
            '\n';
    wait_screen(without_end(wanted, '\n') + '\n', {at.row, at.col + col});
}

void Session::wait_screen(const std::string &wanted, Place place) {
    wait_settled("cursor at row " + std::to_string(place.row) + ", column " +
                     std::to_string(place.col) + ", and the screen\n" + wanted,
                 [&] { return screen() == wanted && cursor() == place; });
}

void Session::wait_silent() {
    wait_for("the program's echo to be off", [&] {
        termios now{};
        return tcgetattr(terminal(), &now) == 0 && (now.c_lflag & ECHO) == 0;
    });
}

}  // namespace harness
