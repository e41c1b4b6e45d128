// line_test.cpp: the rooms below the editors: what a character is, in both modes, how wide the
// window is, what the program's output switches. What the row shows is judged by the fuzz target.
#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>
#include <string>

#include "edit.h"
#include "edit/chars.h"
#include "edit/prompt.h"
#include "extended.h"
#include "tty.h"

static void choose(const char *locale) {
    setenv("LC_ALL", locale == nullptr ? "C" : locale, 1);
    chars_begin(locale != nullptr);
}

static std::u32string units_of(const std::string &bytes) {
    std::u32string units(bytes.size(), U'\0');
    units.resize(
        static_cast<std::size_t>(units_from_bytes(units.data(), static_cast<int>(units.size()),
                                                  bytes.data(), static_cast<int>(bytes.size()))));
    return units;
}

// What is shown of `bytes`, clusters with a dot between them, those shown as themselves with their
// width in front, with "!" where no relative movement crosses them.
static std::string shown_of(const std::string &bytes) {
    const std::u32string units = units_of(bytes);
    const int len = static_cast<int>(units.size());
    std::string shown;
    int column = 0;
    for (int at = 0; at < len;) {
        const int end = cluster_end(units.data(), len, at);
        for (int i = at; i < end; i++) EXPECT_EQ(cluster_start(units.data(), len, i), at) << i;
        EXPECT_EQ(cluster_before(units.data(), len, end), at);
        const Shown how = cluster_shown(units.data() + at, end - at, column);
        char own[64];
        const int size = bytes_from_units(own, sizeof own, units.data() + at, end - at);
        if (at > 0) shown += '.';
        if (!how.spelled) {
            shown += std::to_string(how.columns) + (how.safe ? "" : "!") +
                     std::string(own, static_cast<std::size_t>(size));
        } else {
            int to = column;
            for (int i = at; i < end; i++) {
                const char32_t unit = units[static_cast<std::size_t>(i)];
                char32_t image[kSpelling] = {unit};
                const int n = unit_printable(unit) ? 1 : unit_spelling(unit, to, image);
                to += n;
                for (int k = 0; k < n; k++) shown += static_cast<char>(image[k]);
            }
            EXPECT_EQ(to, column + how.columns);
        }
        column += how.columns;
        at = end;
    }
    return shown;
}

struct ShownCase {
    const char *name, *locale, *bytes, *shown;
};
static constexpr const char *kUtf8 = "C.UTF-8";
static constexpr ShownCase kShown[] = {
    {"bytes", nullptr, "a \x01\x7f\t\xc3", "1a.1 .^A.^?.  .^\x83"},
    {"single bytes in C", "C", "a\xc3\xa9\x01", "1a.\\xc3.\\xa9.^A"},
    {"a locale that isn't there", "xy_XY.utf8", "\xc3\xa9", "1!\xc3\xa9"},
    {"letters", kUtf8, "a\xc3\xa9\xe6\xbc\xa2\xd7\x90", "1a.1!\xc3\xa9.2\xe6\xbc\xa2.1!\xd7\x90"},
    {"a mark on its letter", kUtf8, "e\xcc\x81x", "1!e\xcc\x81.1x"},
    {"a mark with no letter", kUtf8, "\xcc\x81\xcc\x82\x01\xcc\x81", "<0301>.<0302>.^A.<0301>"},
    {"a mark behind a stray byte", kUtf8, "\xff\xcc\x81", "\\xff.<0301>"},
    // NOLINTNEXTLINE(misc-misleading-bidirectional): escaped, so that the source misleads nobody
    {"C1, formats, private, none", kUtf8, "\xc2\x85\xc2\xad\xe2\x80\x8b\xe2\x80\xae\xef\xbf\xbf",
     "<0085>.<00ad>.<200b>.<202e>.<ffff>"},
    {"half a character, one that is cut", kUtf8, "\xe2\x82g\xe2\x82", "\\xe2.\\x82.1g.\\xe2.\\x82"},
    {"surrogates and overlong forms", kUtf8, "\xed\xa0\x80\xc0\x80",
     "\\xed.\\xa0.\\x80.\\xc0.\\x80"},
    {"not known yet", kUtf8, "\xf0\x9f\xbb\xbf\xcd\xb8", "2!\xf0\x9f\xbb\xbf.1!\xcd\xb8"},
    {"flags by twos", kUtf8, "\xf0\x9f\x87\xa9\xf0\x9f\x87\xaa\xf0\x9f\x87\xab",
     "4!\xf0\x9f\x87\xa9\xf0\x9f\x87\xaa.2!\xf0\x9f\x87\xab"},
    {"a family", kUtf8, "\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa6x",
     "4!\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa6.1x"},
    {"a skin tone, a colourful heart", kUtf8,
     "\xf0\x9f\x91\x8d\xf0\x9f\x8f\xbd\xe2\x9d\xa4\xef\xb8\x8f",
     "4!\xf0\x9f\x91\x8d\xf0\x9f\x8f\xbd.2!\xe2\x9d\xa4\xef\xb8\x8f"},
    {"a joiner takes what it finds", kUtf8,
     "\xe2\x80\x8d"
     "a\x01",
     "<200d>a.^A"},
};

TEST(Chars, ShownClusters) {
    for (const ShownCase &c : kShown) {
        SCOPED_TRACE(c.name);
        choose(c.locale);
        EXPECT_EQ(shown_of(c.bytes), c.shown);
    }
}

// Every text arrives as it was typed, in whatever pieces it came; no cluster grows without end.
TEST(Chars, BytesThatComeBack) {
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    std::string marks = "a";
    for (int i = 0; i < 100; i++) marks += "\xcc\x81";
    for (const char *locale : {static_cast<const char *>(nullptr), "C", kUtf8}) {
        choose(locale);
        for (const std::string &text :
             {all, marks, std::string("\xf0\x9f\x91\xe2\x82\xac\xf4\x90\x80\x80")}) {
            const std::u32string units = units_of(text);
            const int n = static_cast<int>(units.size());
            std::string back(text.size() + 1, '\0');
            back.resize(static_cast<std::size_t>(
                bytes_from_units(back.data(), static_cast<int>(back.size()), units.data(), n)));
            EXPECT_EQ(back, text);
            for (int at = 0; at < n; at = cluster_end(units.data(), n, at))
                EXPECT_LE(cluster_end(units.data(), n, at) - at, kMostJoined);
        }
        EXPECT_EQ(chars_utf8(), locale == kUtf8);
    }
}

TEST(Chars, ClassesAndCase) {
    choose(nullptr);
    EXPECT_FALSE(unit_word(0xe9) || unit_printable(0xe9) || unit_blank(0xa0) || unit_upper(0xc9));
    EXPECT_EQ(unit_to_upper(0xe9), 0xe9U);
    choose(kUtf8);
    EXPECT_TRUE(unit_word(0xe9) && unit_printable(0xe9) && unit_blank(0x3000) && unit_upper(0xc9));
    EXPECT_FALSE(unit_word(kBadByte + 0xe9) || unit_printable(0x202e) || unit_word('_'));
    EXPECT_EQ(unit_to_upper(0xe9), 0xc9U);
    EXPECT_EQ(unit_to_lower(0xc9), 0xe9U);
    EXPECT_EQ(unit_to_upper(0xdf), 0xdfU);
    EXPECT_TRUE(unit_upper('Q') && unit_lower('q') && unit_to_upper('q') == 'Q' &&
                unit_to_lower('Q') == 'q');
}

TEST(Row, WindowOfTheTerminal) {
    struct Width {
        unsigned short terminal;
        const char *columns;
        int window;
    };
    static constexpr Width kWidths[] = {
        {80, "200", 79}, {6, nullptr, 5}, {5, nullptr, 79},  {1001, nullptr, 1000},
        {0, "200", 199}, {0, "3", 5},     {5000, "9", 1000}, {0, nullptr, 79},
    };
    Extended = 1;
    for (const Width &width : kWidths) {
        SCOPED_TRACE(width.terminal);
        Tty_original.tty_winsize.ws_col = width.terminal;
        unsetenv("COLUMNS");
        if (width.columns != nullptr) setenv("COLUMNS", width.columns, 1);
        EXPECT_EQ(e_window(0), width.window);
    }
    Tty_original.tty_winsize.ws_col = 0;
    unsetenv("COLUMNS");
    Extended = 0;
}

// The program's switch of bracketed paste is seen in whatever piece of output it comes.
TEST(Row, PasteModeOfTheProgram) {
    const std::string flood = std::string(3000, 'x') + "\n";
    const struct {
        const char *name;
        std::string output;
        bool on;
    } kSteps[] = {
        {"another mode", "\033[?12004h\033[2004h\033[?2004;1$p", false},
        {"among others", "\033[?1;2004;25h", true},
        {"another off", "\033[?25l\033[?20040l", true},
        {"off in a flood", flood + "\033[?2004l" + flood, false},
        {"in two pieces", flood + "\033[?20", false},
        {"... the rest", "04h" + flood, true},
        {"within a string", "\033]0;\033[?2004l\007", false},
        {"in a long row", "\033[?2004h" + std::string(3000, 'x'), true},
        {"a fresh start", "\033c", false},
    };
    rows_begin(true);
    edit_reset_for_test();
    for (const auto &step : kSteps) {
        SCOPED_TRACE(step.name);
        e_setup_prime(step.output.data(), static_cast<int>(step.output.size()));
        EXPECT_EQ(program_paste_mode(), step.on);
    }
    rows_begin(false);
}
