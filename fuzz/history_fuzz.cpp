// history_fuzz.cpp: any file as a history and any sequence of requests to it, while others append
// to the file, cut and overwrite it. What comes back stays within its bounds, agrees with itself,
// and equals what the byte-wise rules find: in the file as opened, as it grew by appending, and,
// opened anew, as it is in the end.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "../tests/history_reference.h"
#include "history.h"
#include "morp_defs.h"
#include "require.h"

using fuzz::require;

namespace {

// State: the requests not yet made, the file they go to, and whether it has only grown.
fuzz::Input In;
int File = -1;
bool Grown = false;

std::string contents() {
    std::string all(static_cast<std::size_t>(lseek(File, 0, SEEK_END)), '\0');
    require(pread(File, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
    return all;
}

// Other files are not used, or are given a header. The rules are slow with a million in reach.
void compare(const std::string &file) {
    if (file.size() < 2 || file[0] != '\x81' || fc_fix->fixmax > 1000) return;
    const std::string differs = difference(file, fc_fix->fixmax);
    if (!differs.empty()) (void)std::fprintf(stderr, "%s\n", differs.c_str());
    require(differs.empty());
}

// Near the newest command mostly, far out at times.
int take_number() {
    const int c = In.byte();
    if (c == 255) return kMaxCount * 65536;
    if (c == 254) return -kMaxCount * 65536;
    return fc_fix->fixind + 4 - c;
}

void copy() {
    char text[kMaxLine + 1];
    text[kMaxLine] = '!';
    const int n = take_number();
    const int line = In.byte() - 1;
    const int lines = hist_copy(text, n, line);
    const std::size_t length = std::strlen(text);
    require(text[kMaxLine] == '!' && length < kMaxLine);
    // A copy that is cut short counts no further.
    const int counted = hist_copy(nullptr, n, line);
    require(lines >= 0 && (lines == counted || (length == kMaxLine - 1 && lines < counted)));
}

void find() {
    const int how = In.byte();
    const int n = take_number();
    const std::string_view piece = In.take(In.byte() % 32);
    const std::string text(piece.substr(0, piece.find('\0')));
    const histloc found = hist_find(text.c_str(), n, how & 1, (how & 2) - 1);
    if (text.empty()) return;  // found next to any number
    require(found.his_line >= 0 && found.his_command >= -1 && found.his_command < fc_fix->fixind);
    if (found.his_command < 0) require(found.his_line == 0);
    if (found.his_command >= 0) require(hist_position(found.his_command) >= 0);
}

void locate() {
    const int n = std::clamp(take_number(), 0, fc_fix->fixind);
    const int line = In.byte();
    const histloc place = hist_locate(n, line, In.byte() - 128);
    require(place.his_line >= 0 && place.his_command >= -1 &&
            place.his_command <= fc_fix->fixind + 1);
}

void word() {
    char text[kMaxLine + 1] = {};
    text[kMaxLine] = '!';
    const char *found = hist_word(text, In.byte() - 1);
    require(text[kMaxLine] == '!' && found >= text && found < text + kMaxLine);
}

void record() {
    const std::string_view text = In.take(In.byte());
    hist_record(text.data(), text.size());
}

// The same in two steps, without a look at what others wrote.
void write_and_flush() {
    const std::string_view text = In.take(In.byte());
    require(std::fwrite(text.data(), 1, text.size(), fc_fix->fixfd) == text.size());
    hist_flush();
}

void others() {
    const int how = In.byte();
    const std::string_view bytes = In.take(In.byte());
    const off_t size = lseek(File, 0, SEEK_END);
    off_t at = size;
    if (how % 4 == 1) at = std::max<off_t>(size - how, 0);
    if (how % 8 == 3) require(ftruncate(File, size * (how / 8) / 32) == 0);
    Grown = Grown && at == size && how % 8 != 3;
    require(pwrite(File, bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size()));
}

// In a longer file the rules would begin at a sync record that came later.
void catch_up() {
    constexpr std::size_t kReadWhole = 8000;
    hist_eof();
    if (const std::string file = contents(); Grown && file.size() < kReadWhole) compare(file);
}

// What the file holds in front of the input's bytes: nothing, so much that further commands get a
// number with them, a command that no block holds, more commands than a block holds.
std::string filler(int commands, int length) {
    std::string text("\x81\1", 2);
    for (int i = 0; i < commands; i++) {
        for (int k = 0; k < length; k++) text += static_cast<char>('a' + (i + k) % 23);
        text.append("\n\0", 2);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr void (*kRequests[])() = {copy,   find,        locate,   word,           record,
                                              others, hist_cancel, catch_up, write_and_flush};
    static constexpr const char *kSizes[] = {"0", "1", "5", "100", "-1", "99999999999"};
    static const std::string kFillers[] = {"", filler(82, 98), filler(1, 70'000), filler(700, 98)};
    In = {data, size};
    const int setting = In.byte();
    std::string file = kFillers[setting / 6 % 4];
    file += In.take(In.byte() * 16);
    if (setting >= 192 && file.size() > 1) file[1] = 0;  // the old format
    File = memfd_create("history", MFD_CLOEXEC);
    require(write(File, file.data(), file.size()) == static_cast<ssize_t>(file.size()));
    setenv("Q_VXHISTFILE", ("/proc/self/fd/" + std::to_string(File)).c_str(), 1);
    setenv("Q_VXHISTSIZE", kSizes[setting % 6], 1);
    require(hist_open() == 0);
    compare(file);
    Grown = true;
    while (!In.empty()) {
        kRequests[In.byte() % 9]();
        require(fc_fix->fixind >= 1 && fc_fix->fixmax >= 0);
    }
    hist_close_for_test();
    require(hist_open() == 0);
    compare(contents());
    hist_close_for_test();
    close(File);
    return 0;
}
