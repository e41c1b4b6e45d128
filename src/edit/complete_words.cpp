// complete_words.cpp: words to complete with: those of the files that the user names, of the
// history, and of what the program has printed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "edit/complete_internal.h"
#include "edit/remote.h"
#include "edit/seen.h"
#include "edit/sequence.h"
#include "history.h"

namespace complete {

static constexpr std::size_t kMostRead = 4UL * 1024 * 1024;  // of all files of words
static constexpr int kLeastUsed = 3;                         // characters

// State: the word under way, which may come in pieces.
static char Piece[kMostBytes];
static std::size_t Piece_len = 0;  // one more than it holds for a word that is too long

bool ends_word(genchar u) {
    return u < 128 && u != 0 && std::strchr("\"'()[]{}<>,;:=|&`", static_cast<int>(u)) != nullptr;
}

static void begin_piece() { Piece_len = 0; }

static void end_piece(int least) {
    if (Piece_len > 0 && Piece_len <= kMostBytes) (void)candidates_offer({Piece, Piece_len}, least);
    Piece_len = 0;
}

static void add_to_piece(char c) {
    if (Piece_len < kMostBytes) Piece[Piece_len] = c;
    if (Piece_len <= kMostBytes) Piece_len++;
}

// ---- Files of words.

static void take_listed(std::string_view text) {
    for (const char c : text)
        if (is_blank(byte_of(c)))
            end_piece(1);
        else
            add_to_piece(c);
}

// Offers the words of one file, of which `left` bytes may be read. Returns how many were.
static std::size_t offer_file(const char *name, std::size_t left) {
    static char block[64 * 1024];
    // Whatever it is, opening it doesn't wait, and no terminal becomes morp's.
    if (is_remote(AT_FDCWD, name)) return 0;
    const int fd = open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat is = {};
    std::size_t done = 0;
    begin_piece();
    if (fstat(fd, &is) == 0 && S_ISREG(is.st_mode)) {
        while (done < left && !late()) {
            const ssize_t n = read(fd, block, std::min(sizeof block, left - done));
            if (n <= 0) break;  // what could not be read is not there
            take_listed({block, static_cast<std::size_t>(n)});
            done += static_cast<std::size_t>(n);
        }
    }
    (void)close(fd);  // nothing was written
    end_piece(1);
    return done;
}

void offer_listed(const genchar *word, int n) {
    candidates_begin(word, n, true);
    const char *names = getenv("Q_VXWORDS");
    std::size_t left = kMostRead;
    while (names != nullptr && left > 0) {
        const char *end = names + strcspn(names, ":");
        const std::size_t len = static_cast<std::size_t>(end - names);
        char name[PATH_MAX];
        if (len > 0 && len < sizeof name) {
            std::memcpy(name, names, len);
            name[len] = '\0';
            left -= offer_file(name, left);
        }
        names = *end == ':' ? end + 1 : nullptr;
    }
}

// ---- The history.

static bool ends_used(char c) {
    const int byte = byte_of(c);
    return byte <= ' ' || byte == 127 || ends_word(static_cast<genchar>(byte));
}

static void take_used(char c) {
    if (ends_used(c))
        end_piece(kLeastUsed);
    else
        add_to_piece(c);
}

static bool take_command(std::string_view command) {
    for (const char c : command) take_used(c);
    end_piece(kLeastUsed);
    return !late();
}

// ---- The program's output.

// Sequences that colour and erase stand within words; those that move the cursor end one.
static void take_seen(Sequence &at, char c) {
    const Sequence before = at;
    at = sequence_step(before, byte_of(c));
    if (at != Sequence::none) return;
    if (before == Sequence::none)
        take_used(c);
    else if (before == Sequence::control && c != 'm' && c != 'K')
        end_piece(kLeastUsed);
}

static void offer_seen() {
    const SeenPieces seen = seen_pieces();
    begin_piece();
    Sequence at = Sequence::none;
    // Of a word whose beginning is gone nothing is left.
    std::string_view older = seen.piece[0];
    const auto whole = std::find_if(older.begin(), older.end(), ends_used);
    older.remove_prefix(static_cast<std::size_t>(whole - older.begin()));
    for (const std::string_view text : {older, seen.piece[1]})
        for (const char c : text) take_seen(at, c);
    end_piece(kLeastUsed);
}

void offer_used(const genchar *word, int n) {
    candidates_begin(word, n, true);
    offer_seen();
    begin_piece();
    hist_each(take_command);
}

}  // namespace complete
