// complete_test.cpp: the completion below the editors: where a word begins, which words there are,
// what goes in, and its bounds. The whole of it is in cases/e2e_complete.txt.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "edit.h"
#include "edit/candidates.h"
#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/host.h"
#include "edit/remote.h"
#include "edit/seen.h"
#include "edit/text.h"
#include "history.h"

namespace fs = std::filesystem;

// What a TAB makes of lines in a folder of its own, which is morp's own.
class Tabs : public testing::Test {
protected:
    Tabs() {
        static constexpr EditHost kHost = {nullptr, nullptr};
        char name[] = "/tmp/morp-complete-XXXXXX";
        fs::current_path(folder_ = mkdtemp(name));
        setenv("LC_ALL", "C.UTF-8", 1);
        setenv("Q_VXHISTFILE", "", 1);
        unsetenv("Q_VXWORDS");
        chars_begin(true);
        edit_reset_for_test();
        e_host = &kHost;
        complete_begin(true);
        hist_open();
    }
    ~Tabs() override {
        hist_close_for_test();
        chars_begin(false);
        complete_begin(false);
        fs::current_path("/");
        fs::remove_all(folder_);
    }

    // The line behind a TAB at its end; a dot behind it where nothing has gone in, "TAB" where it
    // is one.
    static std::string tab(const std::string &line, int room = 1000) {
        std::vector<genchar> units(line.size());
        text_begin(kLineUnits, kLineUnits);
        const int n = units_from_bytes(units.data(), static_cast<int>(units.size()), line.data(),
                                       static_cast<int>(line.size()));
        (void)text_set(units.data(), n);
        const Completion done = complete_at(n, room);
        if (done.tab == Tab::text) return line + "TAB";
        if (done.tab == Tab::done) return line + ".";
        EXPECT_GE(done.n, n - done.from);
        text_take(done.from, n - done.from);
        EXPECT_TRUE(text_put(done.from, done.unit, done.n));
        char bytes[1024];
        const int size = bytes_from_units(bytes, sizeof bytes, editb.e_inbuf, text_len());
        return {bytes, static_cast<std::size_t>(size)};
    }
    static void print(const std::string &text) {
        seen_take(text.data(), static_cast<int>(text.size()));
    }
    static void write(const std::string &name, const std::string &text) {
        std::ofstream(name) << text;
    }

private:
    std::string folder_;
};

TEST_F(Tabs, WordsOfTheOutput) {
    struct Case {
        const char *name, *output, *line, *behind;
    };
    static constexpr Case kCases[] = {
        {"nothing is there", "", "x al", "x al."},
        {"three characters at least", "ab abc", "x a", "x abc"},
        {"not two of several bytes", "\xc3\xa4\xc3\xb6 \xc3\xa4pfel", "x \xc3\xa4",
         "x \xc3\xa4pfel"},
        {"both cases for a small letter", "\xc3\x84pfel", "x \xc3\xa4p", "x \xc3\x84pfel"},
        {"small where they differ", "ALPHA alpHabet", "x A", "x ALPHA"},
        {"small where they differ", "ALPHA alpHabet", "x al", "x alpHa"},
        {"bytes that don't decode", "al\xff\xfe", "x al", "x al\xff\xfe"},
        {"a sequence of several words", "al\x1b[Hice \x1b]0;title\x1b\\", "x al", "x al."},
        {"a colour within", "al\x1b[1;31m\x1b[Kice\x1b[m", "x al", "x alice"},
        {"an empty word", "alpha", "x ", "x ."},
        {"blanks alone", "alpha", "  ", "  TAB"},
        {"a backslash", "alpha", "x\\", "x\t"},
        {"the longest word, and longer ones", "{x*255} xx{y*254}", "a x", "a {x*255}"},
        {"a word longer than any", "{x*255}", "a {x*300}", "a {x*300}."},
    };
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        complete_begin(true);
        const auto text = [](std::string of) {
            // {c*n}: c, n times.
            for (std::size_t at; (at = of.find('{')) != std::string::npos;) {
                const std::size_t end = of.find('}', at);
                const auto n = std::stoul(of.substr(at + 3, end - at - 3));
                of.replace(at, end - at + 1, std::string(n, of[at + 1]));
            }
            return of;
        };
        print(text(c.output));
        EXPECT_EQ(tab(text(c.line)), text(c.behind));
    }
}

TEST_F(Tabs, BordersOfWords) {
    print("alpha");
    for (const char border : std::string(" \t\"'()[]{}<>,;:=|&`")) {
        EXPECT_EQ(tab(std::string("x") + border + "al"), std::string("x") + border + "alpha");
    }
    for (const char within : std::string("!#$%*+-./?@^_~")) {
        const std::string word = std::string("b") + within + "al";
        complete_begin(true);
        print(word + "pha," + within);
        EXPECT_EQ(tab("x " + word), "x " + word + "pha");
    }
}

TEST_F(Tabs, WordsOfFilesComeFirst) {
    write("words", "alpine\tal:one\n\n" + std::string(70000, 'x') + " alpaca");
    write("others", "beta");
    fs::create_directory("folder");
    mkfifo("pipe", 0600);
    print("alphabet betamax gamma");
    hist_record("gammon", 6);
    setenv("Q_VXWORDS", "pipe:nowhere:folder::words:others:/dev/tty", 1);
    EXPECT_EQ(tab("x alp"), "x alp.");
    EXPECT_EQ(tab("x alpi"), "x alpine");
    EXPECT_EQ(tab("x b"), "x beta");
    EXPECT_EQ(tab("x g"), "x gamm");
    EXPECT_EQ(tab("x o"), "x others");  // names of files are the last
    // 4 MiB of them at most.
    write("words", "first " + std::string(4 * 1024 * 1024 - 6, ' ') + "second");
    EXPECT_EQ(tab("x fi"), "x first");
    EXPECT_EQ(tab("x se"), "x se.");
    EXPECT_EQ(tab("x b"), "x betamax");
}

TEST_F(Tabs, Names) {
    for (const char *name :
         {"new\nline", "re\rturn", "quo\"te", "Read me", "\xff\xfe", ".hidden", "UPPER"})
        write(name, "");
    fs::create_directory("folder");
    fs::create_directory_symlink("folder", "link");
    EXPECT_EQ(tab("x ./n"), "x ./n.");
    EXPECT_EQ(tab("x ./ret"), "x ./ret.");
    EXPECT_EQ(tab("x quo"), "x quo\"te");
    EXPECT_EQ(tab("x \"quo"), "x \"quo.");
    EXPECT_EQ(tab("x 'quo"), "x 'quo\"te'");
    EXPECT_EQ(tab("x \"a re"), "x \"a Read me");
    EXPECT_EQ(tab("x \"read m"), "x \"Read me\"");
    EXPECT_EQ(tab("x ./\xff"), "x ./\xff\xfe");
    EXPECT_EQ(tab("x ./h"), "x ./h.");
    EXPECT_EQ(tab("x ./.h"), "x ./.hidden");
    EXPECT_EQ(tab("x .."), "x ../");
    EXPECT_EQ(tab("x up"), "x UPPER");
    EXPECT_EQ(tab("x li"), "x link/");
    EXPECT_EQ(tab("x nowhere/u"), "x nowhere/u.");
    EXPECT_EQ(tab("x ~nobody-of-this-name/u"), "x ~nobody-of-this-name/u.");
    EXPECT_EQ(tab("x fol", 4), "x folder/");
    EXPECT_EQ(tab("x fol", 3), "x fol.");  // no room
}

TEST_F(Tabs, OfAFloodTheEndIsKept) {
    print("first ");
    print(std::string(256UL * 1024 - 12, 'x') + " last");
    EXPECT_EQ(tab("x fir"), "x first");
    print("\nmore");  // the oldest word is cut
    EXPECT_EQ(tab("x fir"), "x fir.");
    EXPECT_EQ(tab("x rst"), "x rst.");
    EXPECT_EQ(tab("x las"), "x last");
    seen_break();
    print("over");
    EXPECT_EQ(tab("x mor"), "x more");
}

// Those kept are the first in order, all are counted, and what they share is right.
TEST(Candidates, MoreThanThereIsRoomFor) {
    constexpr int kMany = 200'000;
    chars_begin(true);
    complete::time_begin();
    complete::candidates_begin(U"n", 1, false);
    for (int i = 0; i < kMany; i++) {
        const int mixed = static_cast<int>(i * 7919LL % kMany);
        EXPECT_TRUE(complete::candidates_offer("name" + std::to_string(kMany + mixed), 0));
    }
    EXPECT_EQ(complete::candidates_found(), kMany);
    EXPECT_EQ(complete::candidates_shared().len, 4);
    const std::string_view *first = nullptr;
    const int kept = complete::candidates_sorted(&first);
    ASSERT_GE(kept, complete::kMostKept / 2);
    for (int i = 0; i < kept; i++) ASSERT_EQ(first[i], "name" + std::to_string(kMany + i));

    complete::candidates_begin(U"n", 1, true);
    for (int i = 0; i < kMany; i++)
        (void)complete::candidates_offer("name" + std::to_string(i % 1000), 0);
    EXPECT_EQ(complete::candidates_found(), 1000);
    chars_begin(false);
}

TEST(Remote, MountsOfThePath) {
    static constexpr std::string_view kMounts =
        "22 1 254:1 / / rw,relatime - ext4 /dev/vda1 rw\n"
        "30 22 0:25 / /net rw shared:1 - nfs4 server:/ rw\n"
        "31 30 0:26 / /net/here rw shared:1 master:2 - tmpfs tmpfs rw\n"
        "32 22 0:27 / /two\\040words rw - fuse.sshfs me@there: rw\n"
        "33 22 0:28 / /over rw - nfs there:/ rw\n"
        "34 22 0:29 / /over rw - xfs /dev/vdb rw\n"
        "35 22 0:30 / /auto rw - autofs systemd-1 rw\n";
    for (const char *path : {"/net", "/net/x", "/two words/x", "/auto"})
        EXPECT_TRUE(is_remote_in(kMounts, path)) << path;
    for (const char *path : {"", "/", "/x", "/nets", "/net/here/x", "/over/x", "/two"})
        EXPECT_FALSE(is_remote_in(kMounts, path)) << path;
}
