// requests_fuzz.cpp: any sequence of requests to the history over any file, which others append to,
// cut and overwrite meanwhile. What comes back stays within its bounds and agrees with itself.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "editor_run.h"
#include "history.h"
#include "morp_defs.h"

using fuzz::require;

// State: the requests not yet made, the file they go to.
static std::string_view Rest;
static int File = -1;

static int take_byte() {
    if (Rest.empty()) return 0;
    const int c = byte_of(Rest[0]);
    Rest.remove_prefix(1);
    return c;
}

static std::string take(int count) {
    std::string piece(Rest.substr(0, static_cast<std::size_t>(count)));
    Rest.remove_prefix(piece.size());
    return piece;
}

// Near the newest command mostly, far out at times.
static int take_number() {
    const int c = take_byte();
    if (c == 255) return kMaxCount * 65536;
    if (c == 254) return -kMaxCount * 65536;
    return fc_fix->fixind + 4 - c;
}

static void copy() {
    char text[kMaxLine + 1];
    text[kMaxLine] = '!';
    const int n = take_number();
    const int line = take_byte() - 1;
    const int lines = hist_copy(text, n, line);
    const std::size_t length = std::strlen(text);
    require(text[kMaxLine] == '!' && length < kMaxLine);
    // A copy that is cut short counts no further.
    const int counted = hist_copy(nullptr, n, line);
    const bool cut = length == kMaxLine - 1;
    require(lines >= 0 && (lines == counted || (cut && lines < counted)));
}

static void find() {
    const int how = take_byte();
    const int n = take_number();
    const std::string piece = take(take_byte() % 32);
    const std::string text = piece.substr(0, piece.find('\0'));
    const histloc found = hist_find(text.c_str(), n, how & 1, (how & 2) - 1);
    if (text.empty()) return;  // found next to any number
    require(found.his_line >= 0 && found.his_command >= -1 && found.his_command < fc_fix->fixind);
    if (found.his_command < 0) require(found.his_line == 0);
    if (found.his_command >= 0) require(hist_position(found.his_command) >= 0);
}

static void locate() {
    const int n = std::clamp(take_number(), 0, fc_fix->fixind);
    const int line = take_byte();
    const histloc place = hist_locate(n, line, take_byte() - 128);
    require(place.his_line >= 0 && place.his_command >= -1 &&
            place.his_command <= fc_fix->fixind + 1);
}

static void word() {
    char text[kMaxLine + 1] = {};
    text[kMaxLine] = '!';
    const char *found = hist_word(text, take_byte() - 1);
    require(text[kMaxLine] == '!' && found >= text && found < text + kMaxLine);
}

static void record() {
    const std::string text = take(take_byte());
    const int before = fc_fix->fixind;
    hist_record(text.data(), text.size());
    require(fc_fix->fixind >= before || fc_fix->fixind > 0);
}

// The same in two steps, without a look at what others wrote.
static void write_and_flush() {
    const std::string text = take(take_byte());
    require(std::fwrite(text.data(), 1, text.size(), fc_fix->fixfd) == text.size());
    hist_flush();
}

static void others() {
    const int how = take_byte();
    const std::string bytes = take(take_byte());
    const off_t size = lseek(File, 0, SEEK_END);
    off_t at = size;
    if (how % 4 == 1) at = std::max<off_t>(size - how, 0);
    if (how % 8 == 3) require(ftruncate(File, size * (how / 8) / 32) == 0);
    require(pwrite(File, bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size()));
}

static void cancel() { hist_cancel(); }
static void catch_up() { hist_eof(); }

// What the file holds in front of the input's bytes: nothing, so much that further commands get a
// number with them, a command that no block holds, more commands than a block holds.
static std::string filler(int commands, int length) {
    std::string text("\x81\1", 2);
    for (int i = 0; i < commands; i++) {
        for (int k = 0; k < length; k++) text += static_cast<char>('a' + (i + k) % 23);
        text.append("\n\0", 2);
    }
    return text;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr void (*kRequests[])() = {copy,   find,   locate,   word,           record,
                                              others, cancel, catch_up, write_and_flush};
    static constexpr const char *kSizes[] = {"0", "1", "5", "100", "-1", "99999999999"};
    static const std::string kFillers[] = {"", filler(82, 98), filler(1, 70'000), filler(700, 98)};
    Rest = {reinterpret_cast<const char *>(data), size};
    const int setting = take_byte();
    const std::string file = kFillers[setting / 6 % 4] + take(take_byte() * 16);
    File = memfd_create("history", MFD_CLOEXEC);
    require(write(File, file.data(), file.size()) == static_cast<ssize_t>(file.size()));
    setenv("Q_VXHISTFILE", ("/proc/self/fd/" + std::to_string(File)).c_str(), 1);
    setenv("Q_VXHISTSIZE", kSizes[setting % 6], 1);
    require(hist_open() == 0);
    while (!Rest.empty()) {
        kRequests[take_byte() % 9]();
        require(fc_fix->fixind >= 1 && fc_fix->fixmax >= 0);
    }
    hist_close_for_test();
    close(File);
    return 0;
}
