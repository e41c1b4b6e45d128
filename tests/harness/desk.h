// desk.h: a session beside whose program the test prints on the program's terminal, and a screen
// that gets only what was printed: what the user would see without the line that is edited.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "harness/session.h"

namespace harness {

class Desk : public Session {
public:
    // `prompt` is what the program itself prints first.
    explicit Desk(const Options &options, std::string_view prompt = "> ");
    ~Desk();

    // Waits until the screen is what was printed, and morp asleep.
    void wait_start();
    // The same; types `text`, the cursor then in front of its last character and the next key text.
    void edit(const std::string &text);
    // Prints all of `text`; `meanwhile` is called whenever the terminal takes no more, or has
    // taken a piece.
    void print(
        std::string_view text, const std::function<void()> &meanwhile = [] {});
    // Waits until the screen is what was printed and `line` behind it, with the cursor `col`
    // columns further on, and morp asleep.
    void wait_line(int col, const std::string &line);
    // Waits until the screen is `wanted`, as screen() gives it, and morp asleep or ended.
    void wait_screen(const std::string &wanted, Place place);
    // Waits until the program has switched its echo off.
    void wait_silent();

private:
    int terminal();

    bool vi_;
    int rows_;
    int terminal_ = -1;
    Screen paper_;
};

}  // namespace harness
