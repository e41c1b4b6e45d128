// child.h: supervision of the program.
#pragma once

#include <csignal>

enum EnumChildState { e_StateUnknown = 0, e_StateGone = 1, e_StateRunning = 2, e_StateStopped = 3 };
using enum_child_state = EnumChildState;
using S_sigpf = void (*)(int);

// Polls the program without blocking.
enum_child_state check_child_state();
void sig_trap_sigcld(int sig);
void sig_trap_sigusr2(int sig);
void sig_trap_sigcont(int sig);
// Gives the user's terminal back, stops morp until it is continued, and resumes. The signal and its
// running catcher are named for nothing: a catcher stays in force.
void handle_child_stop(int sig, S_sigpf sig_handler);
void handle_child_restart(int sig);
// 1 after somebody else may have changed the terminal and written on the screen: the next wait's
// caller sets the mode afresh and draws.
extern volatile std::sig_atomic_t Resumed;
