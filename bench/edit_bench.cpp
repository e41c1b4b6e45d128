// edit_bench.cpp: what every byte of output and every key goes through: the follower of the output,
// the map from a line to the screen, the display. What the editors write goes to /dev/null.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "edit.h"
#include "edit/chars.h"
#include "edit/prompt.h"
#include "emacs/emacs_internal.h"
#include "pass.h"
#include "vi/vi_internal.h"

static constexpr int kLength = 250;  // characters of a line as long as it can be
static constexpr int kShort = 40;    // one that fits the window
static constexpr int kLong = 4000;   // one of extended mode, where a key must not pay for it
static constexpr int kPrompt = 2;
static constexpr int kWindowColumns = 78;

// Words in plain text, or with control characters and tabs in between.
static std::string text_of(int length, bool plain) {
    std::string text;
    while (static_cast<int>(text.size()) < length) text += plain ? "word and " : "a\x01\tword\x85 ";
    return text.substr(0, static_cast<std::size_t>(length));
}

// Output, with a newline every so many bytes, 0 for none.
static void prime(benchmark::State &state) {
    std::string piece = text_of(254, true);
    const std::size_t every = static_cast<std::size_t>(state.range(0));
    for (std::size_t at = every; every != 0 && at < piece.size(); at += every) piece[at] = '\n';
    for ([[maybe_unused]] const auto _ : state)
        e_setup_prime(piece.data(), static_cast<int>(piece.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(piece.size()));
    e_reset_prime();
}
BENCHMARK(prime)->ArgName("newline_every")->Arg(0)->Arg(64)->Arg(8);

static void map_line(benchmark::State &state, bool plain) {
    const std::string line = text_of(kLength, plain);
    const std::u32string units(line.begin(), line.end());
    genchar image[kMaxImage];
    opt_flag = kStyleEmacs;
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(e_virt_to_phys(units.data(), kLength, image, kLength - 1, 0));
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(map_line, plain, true);
BENCHMARK_CAPTURE(map_line, control, false);

// The editors' output to /dev/null while one is alive.
class Discard {
public:
    Discard() : kept_(dup(STDERR_FILENO)) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDERR_FILENO);
        close(null);
    }
    ~Discard() {
        dup2(kept_, STDERR_FILENO);
        close(kept_);
    }
    Discard(const Discard &) = delete;
    Discard &operator=(const Discard &) = delete;

private:
    int kept_;
};

// What is measured: a key at a place in the line, in extended mode one of a line of any length.
struct Key {
    enum { start, middle, end } place;
    enum { typed, move } kind = typed;
    bool extended = false;
    bool wide = false;  // each character takes two columns
    int at(int length) const { return place == start ? 1 : place == middle ? length / 2 : length; }
};

static void set_up_line(int length, char *prompt, int style, const Key &key) {
    edit_reset_for_test();
    opt_flag = style;
    Extended = key.extended ? 1 : 0;
    setenv("LC_ALL", key.extended ? "C.UTF-8" : "C", 1);
    chars_begin(key.extended);
    std::memcpy(prompt, "\r> ", sizeof "\r> ");
    const std::string text = text_of(length, true);
    std::u32string line(text.begin(), text.end());
    if (key.wide) line.assign(line.size(), U'\u6f22');
    text_begin(kLineUnits, 4 * kLineUnits);
    (void)text_set(line.data(), length);
    editb.e_prompt = prompt;
    editb.e_plen = kPrompt;
    editb.e_crlf = 1;
    editb.e_wsize = kWindowColumns;
}

// Puts a character in at `at`, or takes it out again; a move leaves the line as it is.
static void toggle_character(const Key &key, int at, bool in) {
    if (key.kind == Key::move) return;
    if (in)
        (void)text_put(at, U"x", 1);
    else
        text_take(at, 1);
}

static void lengths(benchmark::internal::Benchmark *key) {
    key->ArgName("characters")->Arg(kShort)->Arg(kLength);
}

// A key in the middle of a line, or at its end; a long line's window has moved.
static void emacs_key(benchmark::State &state, Key key) {
    const int length = static_cast<int>(state.range(0));
    const int at = key.at(length);
    const Discard discard;
    char prompt[emacs::kPromptSize];
    set_up_line(length, prompt, kStyleEmacs, key);
    editb.e_cur = editb.e_eol = length;
    emacs::draw(emacs::FIRST);
    emacs::draw(emacs::UPDATE);
    bool in = true;
    for ([[maybe_unused]] const auto _ : state) {
        toggle_character(key, at, in);
        editb.e_eol = text_len();
        editb.e_cur = at + (in ? 1 : 0) - (key.kind == Key::move ? 1 : 0);
        emacs::draw(emacs::UPDATE);
        e_flush();
        in = !in;
    }
}
BENCHMARK_CAPTURE(emacs_key, in_the_middle, {Key::middle})->Apply(lengths);
BENCHMARK_CAPTURE(emacs_key, at_the_end, {Key::end})->Apply(lengths);

static void vi_key(benchmark::State &state, Key key) {
    const int length = static_cast<int>(state.range(0));
    const int at = key.at(length);
    const Discard discard;
    char prompt[emacs::kPromptSize];
    int globals[vi::kGlobals] = {};
    set_up_line(length, prompt, kStyleVi, key);
    editb.e_globals = globals;
    editb.e_cur = editb.e_eol = length - 1;
    Row.home = {prompt, kPrompt, true, false};
    Row.width = kWindowColumns;
    row_clear();
    vi::renew_row();
    vi::refresh_now(vi::MODE_INPUT);
    bool in = true;
    for ([[maybe_unused]] const auto _ : state) {
        toggle_character(key, at, in);
        editb.e_eol = text_len() - 1;
        editb.e_cur = at - (in ? 0 : 1) - (key.kind == Key::move ? 1 : 0);
        vi::refresh_now(vi::MODE_INPUT);
        in = !in;
    }
}
BENCHMARK_CAPTURE(vi_key, in_the_middle, {Key::middle})->Apply(lengths);
BENCHMARK_CAPTURE(vi_key, at_the_end, {Key::end})->Apply(lengths);

// Extended mode: the long line may cost three times the short one.
static void extended_key(benchmark::State &state, void (*key_of_style)(benchmark::State &, Key),
                         Key key) {
    key.extended = true;
    key_of_style(state, key);
    Extended = 0;
    chars_begin(false);
}
#define EXTENDED_KEYS(style)                                                                      \
    BENCHMARK_CAPTURE(extended_key, style##_types_at_start, style##_key, {Key::start})            \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_types_at_end, style##_key, {Key::end})                \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_types_wide_at_start, style##_key,                     \
                      {Key::start, Key::typed, true, true})                                       \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_types_wide_at_end, style##_key,                       \
                      {Key::end, Key::typed, true, true})                                         \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_moves_at_start, style##_key, {Key::start, Key::move}) \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_moves_at_end, style##_key, {Key::end, Key::move})     \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong);                                                                             \
    BENCHMARK_CAPTURE(extended_key, style##_moves_wide_at_end, style##_key,                       \
                      {Key::end, Key::move, true, true})                                          \
        ->Arg(kShort)                                                                             \
        ->Arg(kLong)
EXTENDED_KEYS(emacs);
EXTENDED_KEYS(vi);
