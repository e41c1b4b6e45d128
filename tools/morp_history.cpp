// morp_history.cpp: prints a history file record by record and checks it.
//
// usage: morp-history FILE
//
// A line for each record: command number, offset, text; a dash stands where a record is no command.
// Control bytes and bytes from 127 on are shown as \n, \t or \xHH, a backslash is doubled. Damage
// is reported on standard error with its offset. Exit status 0: sound, 1: damaged or no history
// file, 2: FILE can't be read or the call is wrong.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

#include "history/history_internal.h"

namespace {

class Printer {
public:
    explicit Printer(std::string_view bytes) : bytes_(bytes) {}

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
        std::printf("next number %d, %zu bytes, %s\n", number_, bytes_.size(),
                    sound_ ? "sound" : "damaged");
        return sound_;
    }

private:
    int byte(std::size_t i) const { return static_cast<unsigned char>(bytes_[i]); }

    void damage(std::size_t offset, const std::string &what) {
        (void)std::fflush(stdout);  // each line of damage comes behind its record
        (void)std::fprintf(stderr, "offset %zu: %s\n", offset, what.c_str());
        sound_ = false;
    }

    static void line(std::size_t offset, int number, const std::string &text) {
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
        } else if (text.size() == 1) {
            line(start, 0, readable(text));
            // A lone newline ends a record that was complete all the same.
            if (text != "\n") damage(start, "record of one byte");
        } else {
            line(start, number_++, readable(text.substr(0, text.size() - 1)));
            if (text.back() != '\n') damage(end, "command without its newline");
            if (start % 2 != 0) damage(start, "command at an odd offset");
        }
    }

    std::string_view bytes_;
    std::size_t at_ = 0;
    int number_ = 1;  // of the next command
    bool sound_ = true;
};

bool read_file(const char *name, std::string &bytes) {
    std::FILE *in = std::fopen(name, "rb");
    if (in == nullptr) return false;
    char block[history::kBlock];
    std::size_t got;
    while ((got = std::fread(block, 1, sizeof block, in)) > 0) bytes.append(block, got);
    const bool complete = std::ferror(in) == 0;
    const int error = errno;
    (void)std::fclose(in);  // it was only read
    errno = error;
    return complete;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        (void)std::fputs("usage: morp-history FILE\n", stderr);
        return 2;
    }
    std::string bytes;
    if (!read_file(argv[1], bytes)) {
        std::perror(argv[1]);
        return 2;
    }
    return Printer(bytes).run() ? 0 : 1;
}
