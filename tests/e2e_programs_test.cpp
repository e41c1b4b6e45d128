// e2e_programs_test.cpp: real programs on the real screen. Each conversation types, recalls,
// searches and ends, and the whole screen is compared after each of its steps.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "harness/session.h"

using harness::Mode;
using harness::Options;

struct Step {
    std::string keys;
    // What the row of the cursor turns into, and the rows that come below it.
    std::vector<std::string> rows;
    // Column of the cursor in the last of them; -1 stands for its end.
    int column = -1;
};

class Conversation {
public:
    // `rows`: the screen before anything is typed.
    Conversation(const Options &options, std::vector<std::string> rows)
        : session_(options), rows_(std::move(rows)) {
        expect_screen(-1);
    }

    void run(const std::vector<Step> &steps) {
        for (const Step &step : steps) {
            SCOPED_TRACE(harness::visible(step.keys));
            session_.type(step.keys);
            rows_.pop_back();
            rows_.insert(rows_.end(), step.rows.begin(), step.rows.end());
            expect_screen(step.column);
        }
    }
    // The program ends, with the screen as described.
    void end(const Step &step) {
        session_.type(step.keys);
        rows_.pop_back();
        rows_.insert(rows_.end(), step.rows.begin(), step.rows.end());
        EXPECT_EQ(session_.wait_exit(), 0);
        EXPECT_EQ(session_.screen(), picture());
    }
    Session &session() { return session_; }

private:
    // As Session::screen() gives it: no blanks at the ends of rows, no empty rows at the end.
    std::string picture() const {
        std::string all;
        for (const std::string &row : rows_)
            all += row.substr(0, row.find_last_not_of(' ') + 1) + '\n';
        all.erase(all.find_last_not_of('\n') + 1);
        return all + '\n';
    }
    void expect_screen(int column) {
        const std::string wanted = picture();
        const int last = static_cast<int>(rows_.size()) - 1;
        const Session::Place place{last,
                                   column < 0 ? static_cast<int>(rows_.back().size()) : column};
        session_.wait_for("this screen, cursor at row " + std::to_string(place.row) + ", column " +
                              std::to_string(place.col) + ":\n" + wanted,
                          [&] {
                              return session_.screen() == wanted && session_.cursor() == place &&
                                     session_.mode() != Mode::original;
                          });
        session_.wait_asleep();
    }

    Session session_;
    std::vector<std::string> rows_;  // trailing blanks count, so the last one tells the cursor
};

static bool installed(const std::string &name) {
    for (const char *folder : {"/usr/local/bin/", "/usr/bin/", "/bin/"}) {
        if (access((folder + name).c_str(), X_OK) == 0) return true;
    }
    return false;
}

#define NEEDS(name) \
    if (!installed(name)) GTEST_SKIP() << (name) << " is not installed"

TEST(RealProgram, Sqlite3) {
    NEEDS("sqlite3");
    Conversation talk(Options{.program = {"sqlite3", "-batch", "pets.db"}}, {""});
    talk.run({
        {"create table pet(name, legs);\r", {"create table pet(name, legs);", ""}},
        {"insert into pet values('cat', 4);\r", {"insert into pet values('cat', 4);", ""}},
        {"\x10\x1b"
         "b\x1b"
         "b\x06",
         {"insert into pet values('cat', 4);"},
         25},
        {"\x02\x1b"
         "dbird\x06\x06\x06\x04"
         "2\r",
         {"insert into pet values('bird', 2);", ""}},
        {"select * from pet;\r", {"select * from pet;", "cat|4", "bird|2", ""}},
        {"\x12'cat'", {"^R'cat'"}},
        {"\r", {"insert into pet values('cat', 4);"}},
        {"\x0e\x0e", {"select * from pet;"}},
        {"\x7f where legs = 2;\r", {"select * from pet where legs = 2;", "bird|2", ""}},
    });
    talk.end({"\4", {"", ""}});
}

TEST(RealProgram, Bc) {
    NEEDS("bc");
    Conversation talk(Options{.program = {"sh", "-c", "bc -q | cat"}}, {""});
    talk.run({
        {"2^10\r", {"2^10", "1024", ""}},
        {"\x10-1\r", {"2^10-1", "1023", ""}},
        {"x=3\r", {"x=3", ""}},
        {"\x12^10\r", {"2^10-1"}},
        {"\x12\r", {"2^10"}},
        {"*x\r", {"2^10*x", "3072", ""}},
    });
    talk.end({"\4", {"", ""}});
}

TEST(RealProgram, Dash) {
    NEEDS("dash");
    Conversation talk(Options{.program = {"dash"}}, {"$ "});
    talk.run({
        {"x=world\r", {"$ x=world", "$ "}},
        {"echo hello $x\r", {"$ echo hello $x", "hello world", "$ "}},
        {"\x10\x10", {"$ x=world"}},
        {"\x1b"
         "hmoon\r",
         {"$ x=moon", "$ "}},
        {"\x12hel\r", {"$ echo hello $x"}},
        {"\r", {"$ echo hello $x", "hello moon", "$ "}},
        {"for i in 1 2; do\r", {"$ for i in 1 2; do", "> "}},
        {"echo $i; done\r", {"> echo $i; done", "1", "2", "$ "}},
    });
    talk.end({"\4", {"$ ", ""}});
    EXPECT_NE(talk.session().history("dash").find("echo $i; done\n"), std::string::npos);
}

TEST(RealProgram, DashInViStyle) {
    NEEDS("dash");
    Conversation talk(Options{.style = "vi", .program = {"dash"}}, {"$ "});
    talk.run({
        {"echo one two\r", {"$ echo one two", "one two", "$ "}},
        {"echo 3\r", {"$ echo 3", "3", "$ "}},
        {"\x1bkk", {"$ echo one two"}, 2},
        {"wcwsix\x1b", {"$ echo six two"}, 9},
        {"\r", {"$ echo six two", "six two", "$ "}},
        {"echo x\x1b/one", {"$ /one"}},
        {"\r", {"$ echo one two"}, 2},
        {"$ax\r", {"$ echo one twox", "one twox", "$ "}},
    });
    talk.end({"\4", {"$ ", ""}});
}

TEST(RealProgram, Python3) {
    NEEDS("python3");
    Conversation talk(Options{.program = {"python3", "-I", "-q"}}, {">>> "});
    talk.run({
        {"a = 2\r", {">>> a = 2", ">>> "}},
        {"a ** 3\r", {">>> a ** 3", "8", ">>> "}},
        {"\x10\x7f"
         "10\r",
         {">>> a ** 10", "1024", ">>> "}},
        {"\x12= 2\r", {">>> a = 2"}},
        {"\x7f"
         "3\r",
         {">>> a = 3", ">>> "}},
        {"\x12** 3\r", {">>> a ** 3"}},
        {"\r", {">>> a ** 3", "27", ">>> "}},
        {"if a:\r", {">>> if a:", "... "}},
        {"\tprint(a)\r", {"...     print(a)", "... "}},
        {"\r", {"... ", "3", ">>> "}},
    });
    talk.end({"\4", {">>> ", "", ""}});
}

TEST(RealProgram, Python3InViStyle) {
    NEEDS("python3");
    Conversation talk(Options{.style = "vi", .program = {"python3", "-I", "-q"}}, {">>> "});
    talk.run({
        {"a = [1, 2]\r", {">>> a = [1, 2]", ">>> "}},
        {"a\r", {">>> a", "[1, 2]", ">>> "}},
        {"\x1b/= [", {">>> /= ["}},
        {"\r", {">>> a = [1, 2]"}, 4},
        {"f1cw7\x1b", {">>> a = [7, 2]"}, 9},
        {"\r", {">>> a = [7, 2]", ">>> "}},
        {"\x1b"
         "kk\r",
         {">>> a", "[7, 2]", ">>> "}},
    });
    talk.end({"\4", {">>> ", "", ""}});
}

TEST(RealProgram, Gdb) {
    NEEDS("gdb");
    Conversation talk(Options{.program = {"gdb", "-q", "-nx", "-nh", "-ex", "set editing off"}},
                      {"(gdb) "});
    talk.run({
        {"set $x = 6\r", {"(gdb) set $x = 6", "(gdb) "}},
        {"print $x * 7\r", {"(gdb) print $x * 7", "$1 = 42", "(gdb) "}},
        {"\x10\x7f"
         "8\r",
         {"(gdb) print $x * 8", "$2 = 48", "(gdb) "}},
        {"\x12set\r", {"(gdb) set $x = 6"}},
        {"\x7f"
         "5\r",
         {"(gdb) set $x = 5", "(gdb) "}},
        {"\x12* 7\r", {"(gdb) print $x * 7"}},
        {"\r", {"(gdb) print $x * 7", "$3 = 35", "(gdb) "}},
    });
    talk.end({"quit\r", {"(gdb) quit", ""}});
}

// Each answer goes out while the terminal is silent; the lines before and after it are edited.
static void check_password(const std::string &style, const std::string &recall) {
    Conversation talk(Options{.style = style, .program = {"dash"}}, {"$ "});
    Session &s = talk.session();
    talk.run({{"gate swordfish\r", {"$ gate swordfish", "me@gate's password: "}}});
    s.wait_mode(Mode::pass);
    talk.run({{"guess\r",
               {"me@gate's password: ", "Permission denied, please try again.",
                "me@gate's password: "}}});
    s.wait_mode(Mode::pass);
    talk.run({
        {"swordfish\r", {"me@gate's password: ", "gate$ "}},
        {"date\r", {"gate$ date", "[date]", "gate$ "}},
        {"uptime\r", {"gate$ uptime", "[uptime]", "gate$ "}},
        {recall + "\r", {"gate$ date", "[date]", "gate$ "}},
        {"exit\r", {"gate$ exit", "$ "}},
    });
    talk.end({"\4", {"$ ", ""}});
    const std::string history = s.history("dash");
    EXPECT_EQ(history.find("guess"), std::string::npos);
    EXPECT_EQ(history.find("swordfish"), history.rfind("swordfish"));  // the one in the command
    EXPECT_NE(history.find("uptime\n"), std::string::npos);
}

TEST(RealProgram, PasswordLikeSsh) {
    check_password("emacs",
                   "\x12"
                   "dat\r");
}

TEST(RealProgram, PasswordLikeSshInViStyle) { check_password("vi", "\x1b/dat\r"); }
