// session.h: one run of the real program on a pseudo-terminal of its own, as a person at a terminal
// has it: keys in, a screen out, a shell with job control around it. A test waits for states, never
// for a time; what does not come within the deadline throws, with the screen in the message.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/process.h"
#include "harness/screen.h"

namespace harness {

struct Options {
    std::string style = "emacs";              // Q_VXEDITOR: emacs, gmacs or vi
    std::vector<std::string> morp_args = {};  // options in front of the program
    std::vector<std::string> program = {};    // run by morp, looked up in PATH
    // Run in place of "morp program", for example {"dash", "-i"}; $MORP is morp's path in it.
    std::vector<std::string> outer = {};
    std::map<std::string, std::string> env = {};  // further variables
    std::string prompt = "> ";                    // what the program itself prints first
    int rows = 24;
    int cols = 80;
};

// The modes in which morp keeps the user's terminal.
enum class Mode {
    original,  // as it was before the start
    pass,      // every byte goes to the program, signals off
    raw,       // every key goes to the editor, signals on
    alt,       // the driver collects the line, escape ends it
    other
};

// Paths of morp and of a program of tests/programs.
std::string morp();
std::string helper(std::string_view name);
// `bytes` with everything unprintable made visible.
std::string visible(std::string_view bytes);

class Session {
public:
    explicit Session(Options options);
    // Ends what still runs (SIGTERM to morp) and fails the test when morp does not end, a process
    // stays behind, the terminal is not as it was found or a sanitizer has reported something.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Keys, or bytes in general. Output is taken meanwhile, so that a full queue does not lock up.
    void type(std::string_view bytes);
    void resize(int rows, int cols);
    // To morp.
    void signal(int sig);
    // Takes the terminal away, as when its window is closed.
    void hang_up();
    // Continues the stopped job as a shell's fg (f) and bg (b) do.
    void resume(char how);
    // Changes the user's terminal behind morp's back.
    void set_terminal(const termios &settings);

    // Waits until `text` stands anywhere on the screen.
    void wait_text(std::string_view text);
    // Waits until row `n` (from 0), without trailing blanks, is `text`.
    void wait_row(int n, std::string_view text);
    // Waits until `bytes` have come since `mark`.
    void wait_output(std::string_view bytes, std::size_t mark = 0);
    // Waits until the row of the cursor up to the cursor ends in `shown`, the terminal is in the
    // mode in which the style reads a line, and morp has handled every key and sleeps. In vi's
    // alternative mode typed text is shown by the driver and counts as well.
    void wait_editing(std::string_view shown);
    // Waits until morp has handled everything that reached it and sleeps without a time limit.
    void wait_asleep();
    void wait_mode(Mode wanted);
    // Waits until `ready` holds; it is asked again whenever something may have changed, until the
    // job has ended.
    void wait_for(std::string_view what, const std::function<bool()> &ready) {
        wait_until(what, true, ready);
    }
    // The same, and morp asleep or ended.
    void wait_settled(std::string_view what, const std::function<bool()> &ready);
    // Waits until the job has stopped; returns the signal.
    int wait_stopped();
    // Waits until the job has ended and all its output is in; returns its exit status, or minus
    // the number of the signal that ended it.
    int wait_exit();
    // Waits until no process of the run is left.
    void wait_no_process();
    void fg() { resume('f'); }

    // Beside the program the test prints on the program's terminal; a second screen, the paper,
    // gets only what was printed: what the user would see without the line that is edited.
    //
    // Waits until the screen is what was printed, and morp asleep.
    void wait_start();
    // The same; types `text`, the cursor then in front of its last character and the next key text.
    void edit(const std::string &text);
    // Prints all of `text`; `meanwhile` is called whenever the terminal takes no more, or has
    // taken a piece.
    void print(
        std::string_view text, const std::function<void()> &meanwhile = [] {});
    // Waits until the screen is what was printed and `line` behind it, with the cursor `col`
    // columns further on, and morp asleep.
    void wait_line(int col, const std::string &line);
    // Waits until the screen is `wanted`, as screen() gives it, and morp asleep or ended.
    void wait_screen(const std::string &wanted, Place place);
    // Waits until the program has switched its echo off.
    void wait_silent();

    // The screen: row `n` without trailing blanks, all rows, the cursor.
    std::string row(int n) { return view().row(n); }
    std::string screen() { return view().all(); }
    Place cursor() { return view().cursor(); }
    // Rows and columns that the user's terminal has.
    Place size() const;
    // Everything that morp wrote; a mark is a length of it.
    const std::string &output();
    std::size_t mark() { return output().size(); }
    std::string output_since(std::size_t mark) { return output().substr(mark); }

    Mode mode() const;
    const termios &terminal_at_start() const { return at_start_; }
    std::string home() const { return dir_ / "home"; }
    // Bytes of the file `name` in the home directory, empty when there is none.
    std::string file(std::string_view name) const;
    // All history files.
    std::string history() const;
    // Process ids; the program is the one that morp started. They throw when there is none.
    pid_t morp_pid();
    pid_t program_pid();
    // Path of the terminal that the program has.
    std::string program_terminal();
    // What morp has done so far.
    Nap life() { return nap(morp_pid()); }

private:
    using Clock = std::chrono::steady_clock;

    std::map<std::string, std::string> environment() const;
    std::vector<std::string> command() const;
    [[noreturn]] void become_holder(int control);
    bool pump();
    Screen &view();
    void read_reports();
    void order(char what);
    void wait_until(std::string_view what, bool needs_job, const std::function<bool()> &ready);
    [[noreturn]] void give_up(std::string_view what, const char *why);
    std::string picture();
    termios settings() const;
    pid_t find_morp(pid_t from) const;
    bool resting(const Nap &now);
    bool settled();
    bool at_prompt(std::string_view shown);
    void finish();
    int terminal();

    Options options_;
    std::filesystem::path dir_;  // of this run: home, sanitizer reports
    int master_ = -1;
    int slave_ = -1;    // held open, so that the terminal outlives its last user
    int control_ = -1;  // the holder's socket
    pid_t holder_ = -1;
    termios at_start_{};
    // The screen lags behind the log until it is looked at: most of a flood scrolls by unseen.
    Screen screen_;
    std::size_t on_screen_ = 0;
    Screen paper_;
    int terminal_ = -1;  // the program's, for printing
    std::string log_;
    std::string report_;  // half a line from the holder
    pid_t job_ = -1;
    std::optional<int> job_status_;
    std::optional<int> stopped_;
    bool nobody_left_ = false;
    long seen_switches_ = -1;  // for judging sleep by time
    Clock::time_point seen_at_;
};

}  // namespace harness

using harness::Session;
