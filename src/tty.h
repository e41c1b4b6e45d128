// tty.h: a terminal's settings with its size, and the mode switches of the user's and of the
// program's terminal. On the pseudo-terminal master the settings are those of the slave. All
// operations take effect at once and return 0, or -1 with errno set, unless said otherwise.
#pragma once

#include <sys/ioctl.h>
#include <termios.h>

struct tty_info {
    struct termios tty_termios;
    struct winsize tty_winsize;  // a column count of 0: unknown, never applied
};

extern tty_info Tty_original;   // the user's terminal at start, its size kept current
extern tty_info suspended_tty;  // the user's terminal when morp was suspended

// Reads settings and size of `fd`; an unreadable size is stored as 0 by 0. On failure the record is
// unchanged.
int tty_info_get(int fd, tty_info *tty_i);
// Applies settings, then the size when it is known. `nooverrides` makes no difference.
int tty_info_change(int fd, tty_info *tty_i, int nooverrides);
int tty_info_set(int fd, tty_info *tty_i);

// The changes of raw and of cooked mode to settings `t`; cooked takes the user's choices from
// Tty_original. ECHO is left as it is.
void tty_make_raw(struct termios *t);
void tty_make_cooked(struct termios *t);
// True when two records of settings are the same in every respect that can be set.
bool tty_same(const struct termios &a, const struct termios &b);

// Raw and cooked mode. Settings that are in force already are not set again: each wait asks for its
// mode, and setting one takes longer than looking.
int tty_raw(int fd);
int tty_cooked(int fd);
// 0 when the settings have both ICANON and ECHO, 1 when not, -1 when they can't be read. Local
// flags in `held` count as set: morp itself keeps them off for a moment.
int tty_mode_noedit(int fd, tcflag_t held = 0);
// Echo as 1 or 0. These two also print a message when they fail.
int tty_echo_get(int fd, int *val);
int tty_echo_set(int fd, int val);
// Flow-control characters as values 0 to 255; -1 disables one when set. An interface for others:
// morp passes the user's own on and calls neither.
int tty_startstop_get(int fd, int *start, int *stop);
int tty_startstop_set(int fd, int start, int stop);

// Trace hooks: called with the settings before and after a switch of mode, dump_termio by whoever
// has them in the older structure. They do nothing; a build that traces defines its own.
[[gnu::weak]] void dump_termios(const char *label, const struct termios *settings);
[[gnu::weak]] void dump_termio(const char *label, const struct termio *settings);

// Sets the settings of `fd`, also when morp is in the background, where the system stops it until
// it is in the foreground: SIGTERM and SIGHUP are served meanwhile.
int tty_apply(int fd, const struct termios *t);
// True when the foreground group of the user's terminal is known and is not morp's.
bool tty_in_background();
// True while standard input has the settings that morp gave it last.
bool tty_is_untouched();
// The value 0 to 255 of special character `index` in `t`, or kNoKey when it is disabled.
int tty_special(const struct termios &t, int index);
