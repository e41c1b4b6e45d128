// history.h: the history file that all runs share, its index, look-up and search. No signal catcher
// enters it. The bytes of the file are described in docs/history-format.md.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

// A place in the history file, in bytes from its start. As wide as the file's size can be, also
// where a long has 32 bits.
using FileOffset = std::int64_t;

// A place in the history. `his_command` -1 means none (`his_line` is 0 then).
struct histloc {
    std::int32_t his_command;
    std::int32_t his_line;
};

// The open history. The ring holds the offset at which each command in reach starts.
struct fixcmd {
    std::FILE *fixfd;       // the file, read anywhere, appended to at its end
    int fixind;             // number of the line being edited; commands count from 1
    FileOffset fixcnt;      // offset up to which the file is indexed
    int fixmax;             // commands kept in reach, 0 to 1,000,000
    int fixline;            // line counter of the current command, 0 after each record
    FileOffset fixcmds[1];  // the ring, as long as the allocation
};
extern fixcmd *fc_fix;  // null while no history is open

// Opens the history named by Q_VXHISTFILE, or a temporary one. Returns 0 when one is open
// afterwards, -1 when none could be opened.
int hist_open();
// The name that hist_open was given and could not use, null when none; `*why` says for what reason.
const char *hist_refused(const char **why);
// Indexes what was appended to the file since the last look.
void hist_eof();
// Ends the command whose text was just written to fixfd, and indexes it.
void hist_flush();
// Withdraws the last command.
void hist_cancel();
// Appends the `len` bytes at `text` as one command, after a catch-up with other writers.
void hist_record(const char *text, std::size_t len);

// Offset of command `n`, or -1 when the ring does not hold it. Needs an open history.
FileOffset hist_position(int n);
// Chooses, once a run, whether a lower-case letter of a text that is looked for anywhere in a
// command stands for both cases, by the C library. Needs no call where it doesn't.
void hist_begin(bool either_case);
// Finds `string` from command `index1` (not searched itself) on, towards newer commands when
// `direction` is positive, else towards older ones; anywhere in a command when `flag` is not 0,
// else at its start. Returns the command and the line on which the match ends; his_command -1 when
// none.
histloc hist_find(const char *string, int index1, int flag, int direction);
// The same anywhere in a command, through some MiB of the history, which take a few milliseconds:
// when there is more, his_command is kHistGoesOn and the search goes on from *index1.
inline constexpr int kHistGoesOn = -2;
histloc hist_find_part(const char *string, int *index1, int direction);
// Copies command `command` into `s1`: its line `line` (from 0), or all lines when -1, the final
// newline dropped. Stores at most Limits.copy - 1 characters and a NUL (258 bytes, kLineBuffer in
// extended mode); null only counts. Returns the lines passed, -1 without a history.
int hist_copy(char *s1, int command, int line);
// The `word`-th word (from 1) of the newest command, NUL-terminated inside the work buffer `s1`
// (as large); the last one when there are fewer or `word` is below 1. Null without a history.
char *hist_word(char *s1, int word);
// Hands the text of each command in reach to `take`, the newest first, of a long one the first 64
// KiB, until it returns false. `take` calls nothing here.
void hist_each(bool (*take)(std::string_view command));
// The place `lines` lines away from (`command`, `line`). Past the newest command: fixind + 1; past
// the oldest in reach: his_command -1. his_line is 0 in both cases.
histloc hist_locate(int command, int line, int lines);

void hist_close_for_test();
