// morp_history.cpp: prints, checks, counts and exports a history file, and makes a new one of text.
//
// usage: morp-history [-c | -e | -n] FILE    or    morp-history -i NEW_FILE <TEXT
//
// Without an option a line for each record: command number, offset, text; a dash stands where a
// record is no command. Control bytes and bytes from 127 on are shown as \n, \t or \xHH, a
// backslash is doubled. Damage is reported on standard error with its offset. A file is only read;
// the new one is appended to by the history module itself, under another name until it is whole.
// Exit status 0: sound, 1: damaged, no history file or a line left out, 2: a file can't be read or
// made, or the call is wrong.

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "history/history_internal.h"

namespace {

// Walks over the records of a file.
class Reader {
public:
    // `printing`: each record is printed.
    Reader(std::string_view bytes, bool printing) : bytes_(bytes), printing_(printing) {}

    // Returns true when the file is sound.
    bool run() {
        if (bytes_.size() < history::kHeaderSize || byte(0) != history::kMagic) {
            damage(0, "not a history file");
            return false;
        }
        if (byte(1) > history::kFileVersion) damage(1, "unknown version");
        at_ = history::kHeaderSize;
        while (at_ < bytes_.size()) {
            if (is_sync())
                sync();
            else
                record();
        }
        return sound_;
    }

    void print_summary() const {
        if (at_ == 0) return;  // no history
        std::printf("next number %d, %zu bytes, %s\n", number_, bytes_.size(),
                    sound_ ? "sound" : "damaged");
    }

    // Those that stand, oldest first, without their last newline. Views of the file's bytes.
    const std::vector<std::string_view> &commands() const { return commands_; }

private:
    int byte(std::size_t i) const { return static_cast<unsigned char>(bytes_[i]); }

    void damage(std::size_t offset, const std::string &what) {
        (void)std::fflush(stdout);  // each line of damage comes behind its record
        (void)std::fprintf(stderr, "offset %zu: %s\n", offset, what.c_str());
        sound_ = false;
    }

    void line(std::size_t offset, int number, const std::string &text) const {
        if (!printing_) return;
        const std::string shown = number != 0 ? std::to_string(number) : "-";
        std::printf("%8s %10zu  %s\n", shown.c_str(), offset, text.c_str());
    }

    static std::string readable(std::string_view text) {
        std::string out;
        for (const char c : text) {
            char hex[8];
            if (c == '\\') {
                out += "\\\\";
            } else if (c == '\n') {
                out += "\\n";
            } else if (c == '\t') {
                out += "\\t";
            } else if (c >= ' ' && c < 127) {
                out += c;
            } else {
                std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(c) & 255U);
                out += hex;
            }
        }
        return out;
    }

    bool is_sync() const {
        if (byte(at_) != history::kSync) return false;
        return byte(1) == 0 || (at_ + 1 < bytes_.size() && byte(at_ + 1) == 0);
    }

    // In the old format two bytes hold seven bits each.
    int sync_number() const {
        if (byte(1) == 0) return (byte(at_ + 1) & 127) * 128 + (byte(at_ + 2) & 127);
        return (byte(at_ + 2) * 256 + byte(at_ + 3)) * 256 + byte(at_ + 4);
    }

    void sync() {
        static constexpr auto kSize = static_cast<std::size_t>(history::kSyncSize);
        static constexpr int kNumbers = 1 << 24;
        if (bytes_.size() - at_ < kSize) {
            line(at_, 0, "sync");
            damage(at_, "sync record cut short");
            at_ = bytes_.size();
            return;
        }
        const int said = sync_number();
        line(at_, 0, "sync " + std::to_string(said));
        const int expected = number_ % (byte(1) == 0 ? 1 << 14 : kNumbers);
        if (said != expected)
            damage(at_, "wrong number, the next command is " + std::to_string(expected));
        const bool ended = byte(at_ + kSize - 1) == 0;
        if (!ended) damage(at_, "sync record without its last NUL");
        at_ += ended ? kSize : kSize - 1;
    }

    void record() {
        const std::size_t start = at_;
        const std::size_t end = std::min(bytes_.find('\0', start), bytes_.size());
        const std::string_view text = bytes_.substr(start, end - start);
        at_ = end + 1;
        if (end == bytes_.size()) {
            line(start, 0, readable(text));
            damage(start, "record without its NUL");
        } else if (text.empty()) {
            line(start, 0, "padding");
        } else if (text.size() == 1 && byte(start) == history::kCancel) {
            line(start, 0, "cancel");
            if (number_ > 1)
                number_--;
            else
                damage(start, "no command to cancel");
            if (!commands_.empty()) commands_.pop_back();
        } else if (text.size() == 1) {
            line(start, 0, readable(text));
            // A lone newline ends a record that was complete all the same.
            if (text != "\n") damage(start, "record of one byte");
        } else {
            commands_.push_back(text.substr(0, text.size() - 1));
            line(start, number_++, readable(commands_.back()));
            if (text.back() != '\n') damage(end, "command without its newline");
            if (start % 2 != 0) damage(start, "command at an odd offset");
        }
    }

    std::string_view bytes_;
    bool printing_;
    std::vector<std::string_view> commands_;
    std::size_t at_ = 0;
    int number_ = 1;  // of the next command
    bool sound_ = true;
};

// Opens a regular file; others may have no end, or keep whoever opens them waiting. Null on
// failure, errno 0 for another kind.
std::FILE *open_regular(const char *name) {
    const int fd = open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) return nullptr;
    if (S_ISREG(st.st_mode)) return fdopen(fd, "rb");
    errno = S_ISDIR(st.st_mode) ? EISDIR : 0;
    return nullptr;  // the process ends, and the descriptor with it
}

// Other processes may be appending: a record of which only the first part is there yet gets time
// for its rest.
bool read_file(const char *name, std::string &bytes) {
    static constexpr int kPatience = 20;
    std::FILE *in = open_regular(name);
    if (in == nullptr) return false;
    char block[history::kBlock];
    for (int i = 0; i < kPatience && (bytes.empty() || bytes.back() != '\0'); i++) {
        if (i > 0) (void)sched_yield();
        std::size_t got;
        while ((got = std::fread(block, 1, sizeof block, in)) > 0) bytes.append(block, got);
        if (std::ferror(in) != 0) break;
        std::clearerr(in);  // the end, so that the next look goes beyond
    }
    const bool complete = std::ferror(in) == 0;
    const int error = errno;
    (void)std::fclose(in);  // it was only read
    errno = error;
    return complete;
}

// `what` can't be read or made; errno 0: it is no regular file.
int refused(const std::string &what) {
    const char *why = errno != 0 ? std::strerror(errno) : "not a regular file";
    (void)std::fprintf(stderr, "%s: %s\n", what.c_str(), why);
    return 2;
}

// What was printed has arrived.
bool printed() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

// State of an import: the unfinished file, null when there is none.
const char *volatile Unfinished = nullptr;

void drop_unfinished() {
    if (Unfinished != nullptr) (void)unlink(Unfinished);  // nothing else can be done about it
    Unfinished = nullptr;
}

void stopped(int sig) {
    drop_unfinished();
    (void)std::signal(sig, SIG_DFL);
    (void)std::raise(sig);
}

// What an editor can bring back is shorter than what a terminal's queue takes.
constexpr std::size_t kLongest = 4094;

// Reads a line of standard input; of one that is too long one byte beyond the limit is kept. False
// at the end, and where reading fails.
bool next_line(std::string &line) {
    line.clear();
    int c;
    while ((c = std::getchar()) != EOF && c != '\n')
        if (line.size() <= kLongest) line.push_back(static_cast<char>(c));
    return (c != EOF || !line.empty()) && std::ferror(stdin) == 0;
}

// Records the lines of standard input; `left_out` counts those that can't be. False when the file
// doesn't take them.
bool record_lines(int &recorded, int &left_out) {
    std::string line;
    for (int number = 1; next_line(line); number++) {
        const char *fault = line.size() > kLongest                 ? "too long"
                            : line.find('\0') != std::string::npos ? "a NUL in it"
                                                                   : nullptr;
        if (fault != nullptr) {
            (void)std::fprintf(stderr, "line %d left out: %s\n", number, fault);
            left_out++;
        } else if (!line.empty()) {
            hist_record(line.data(), line.size());
            if (fc_fix->fixind != ++recorded + 1) return false;
        }
    }
    return true;
}

bool same_file(int fd, int other) {
    struct stat one, two;
    return fstat(fd, &one) == 0 && fstat(other, &two) == 0 && one.st_dev == two.st_dev &&
           one.st_ino == two.st_ino;
}

// Makes `name`, which must not exist, of the lines on standard input. It appears with its last
// line, so nobody finds, or appends to, half of it.
int import(const char *name) {
    std::string unfinished = std::string(name) + ".XXXXXX";
    const auto give_up = [](const std::string &what) {
        const int error = errno;
        drop_unfinished();
        errno = error;
        return refused(what);
    };
    if (fcntl(STDIN_FILENO, F_GETFD) < 0) return refused("standard input");
    // Looked at first for the message alone; link() decides.
    if (access(name, F_OK) == 0) {
        errno = EEXIST;
        return refused(name);
    }
    const int fd = mkstemp(unfinished.data());
    if (fd < 0) return refused(name);
    Unfinished = unfinished.c_str();
    for (const int sig : {SIGHUP, SIGINT, SIGTERM}) (void)std::signal(sig, stopped);
    (void)std::signal(SIGXFSZ, SIG_IGN);  // writing fails then, which is told
    int recorded = 0, left_out = 0;
    // A history that can't be opened gives way to one without a name.
    if (setenv("Q_VXHISTFILE", unfinished.c_str(), 1) != 0 || setenv("Q_VXHISTSIZE", "0", 1) != 0 ||
        hist_open() != 0 || !same_file(fd, fileno(fc_fix->fixfd)) ||
        !record_lines(recorded, left_out))
        return give_up(name);
    if (std::ferror(stdin) != 0) return give_up("standard input");
    if (link(unfinished.c_str(), name) != 0) return give_up(name);
    drop_unfinished();
    std::printf("%d commands\n", recorded);
    if (!printed()) return refused("standard output");
    return left_out == 0 ? 0 : 1;
}

// `what`: 'p' prints, the others are the options.
int show(const char *name, int what) {
    std::string bytes;
    if (!read_file(name, bytes)) return refused(name);
    Reader reader(bytes, what == 'p');
    const bool sound = reader.run();
    if (what == 'p' || what == 'c') reader.print_summary();
    if (what == 'n') std::printf("%zu\n", reader.commands().size());
    if (what == 'e')
        for (const std::string_view text : reader.commands())
            std::printf("%.*s\n", static_cast<int>(text.size()), text.data());
    if (!printed()) return refused("standard output");
    return sound ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    int what = 'p';
    int options = 0;
    for (int c; (c = getopt(argc, argv, "ceni")) != -1; options++) what = c;
    if (options > 1 || what == '?' || optind != argc - 1) {
        (void)std::fputs(
            "usage: morp-history [-c | -e | -n] FILE\n"
            "       morp-history -i NEW_FILE <TEXT\n",
            stderr);
        return 2;
    }
    return what == 'i' ? import(argv[optind]) : show(argv[optind], what);
}
