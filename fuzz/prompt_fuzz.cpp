// prompt_fuzz.cpp: the capture of the prompt under any output in any pieces, and what an edit makes
// of it, against the program's whole output; and what is known of the row that it stands on.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "edit.h"
#include "editor_run.h"
#include "pass.h"
#include "pass/pass_internal.h"

// What the capture holds: the output since the last line end or escape, unless it has overflowed.
static std::string captured(const std::string &output) {
    const std::size_t start = output.find_last_of("\n\r\x1b");
    return start == std::string::npos ? output : output.substr(start);
}

static void check(const std::string &output, int prompt_size) {
    const auto prompt = std::make_unique<char[]>(static_cast<std::size_t>(prompt_size));
    editb.e_prompt = prompt.get();
    e_setup(0, prompt_size);
    const auto len = static_cast<std::size_t>(editb.e_plen);
    fuzz::require(editb.e_plen >= 0 && editb.e_plen <= prompt_size - 2);
    fuzz::require(prompt[0] == '\r' && std::strlen(prompt.get()) == len + 1);
    fuzz::require(editb.e_wsize >= 18 && editb.e_wsize <= 158);

    std::string text = captured(output);
    if (text.size() >= kPrimeSize) return;
    const bool any = !text.empty();
    text.erase(0, text.find_first_not_of("\n\r"));
    std::erase(text, '\a');
    const bool printable =
        std::all_of(text.begin(), text.end(), [](char c) { return is_printable(byte_of(c)); });
    fuzz::require((editb.e_crlf == 1) == (any && printable));
    fuzz::require(text.substr(0, static_cast<std::size_t>(prompt_size - 2)) == prompt.get() + 1);
}

// What is known of the row behind the program's cursor, whatever the output.
static void check_row_rest() {
    const auto rest = std::make_unique<char[]>(kRowColumns);
    const int len = pass_row_rest(rest.get());
    fuzz::require(len >= 0 && len <= kRowColumns);
    const bool printable =
        std::all_of(rest.get(), rest.get() + len, [](char c) { return is_printable(byte_of(c)); });
    fuzz::require(printable);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr int kSizes[] = {256, 78, 2, 3};
    edit_reset_for_test();
    row_follow("\n", 1);  // ends what the last run may have left open
    pass_row_new();
    std::string output;
    for (std::size_t at = 0; at + 1 < size;) {
        const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
        const int often = data[at] == 255 ? 40 : 1;  // so that the capture overflows
        const std::string bytes(reinterpret_cast<const char *>(data) + at + 1, length);
        const std::string piece(bytes.substr(0, bytes.find('\0')));  // NUL ends a piece
        for (int i = 0; i < often; i++) {
            e_setup_prime(piece.c_str());
            output += piece;
            row_follow(bytes.data(), static_cast<int>(length));
            check_row_rest();
        }
        at += length + 1;
    }
    for (const int prompt_size : kSizes) check(output, prompt_size);
    editb.e_prompt = nullptr;
    return 0;
}
