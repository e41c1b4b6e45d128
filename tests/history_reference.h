// history_reference.h: the rules of the history file taken one byte after the other, as simple as
// can be, for comparison with the history module.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include "history.h"

class Reference {
public:
    // Indexes the history file with the contents `file`, for `reach` commands.
    Reference(std::string file, int reach) : file_(std::move(file)), reach_(reach) {
        while (ring_ <= reach) ring_ *= 2;
        version_ = size() > 1 ? at(1) : 1;
        long offset = size() - 8192;
        long missing = size() > 2 ? reach : 0;
        bool first = size() <= 2;
        int start = 1;
        do {
            offset -= 16 * missing + 8192;
            if (!first) first = !near_end(offset, start);
            if (first) start = 1, counted_ = 2;
            index(start);
            missing = reach - (number_ - start);
        } while (!first && missing > 0);
    }

    int number() const { return number_; }
    long start(int n) const { return starts_.count(n) != 0 ? starts_.at(n) : -1; }

    int copy(std::string *to, int n, int line) const {
        int count = 0;
        std::string out;
        for (const char c : text(n)) {
            if (c == '\n' && count++ == line) break;
            if (c == '\n' && line >= 0) continue;
            if (to == nullptr || (line >= 0 && count != line)) continue;
            if (out.size() == 258) {
                *to = out.substr(0, 257);
                return count;
            }
            out += c;
        }
        if (to == nullptr) return count;
        if (!out.empty() && out.back() == '\n') out.pop_back();
        *to = out.substr(0, 257);
        return count;
    }

    histloc find(const std::string &what, int from, bool anywhere, int direction) const {
        const int bound = direction > 0 ? number_ : std::max(number_ - reach_, 1);
        if (direction > 0 ? from >= bound : from <= bound) return {-1, 0};
        do {
            from += direction > 0 ? 1 : -1;
            const std::string_view t = text(from);
            const std::size_t hit = t.find(what);
            if (hit != std::string_view::npos && (anywhere || hit == 0))
                return {from,
                        static_cast<int>(std::count(
                            t.begin(), t.begin() + static_cast<long>(hit + what.size()), '\n'))};
        } while (from != bound);
        return {-1, 0};
    }

private:
    long size() const { return static_cast<long>(file_.size()); }
    int at(long i) const { return static_cast<unsigned char>(file_[static_cast<std::size_t>(i)]); }

    // The command's bytes up to its NUL; none for what isn't held and for the line being edited.
    std::string_view text(int n) const {
        if (n == number_ || starts_.count(n) == 0) return {};
        const std::string_view rest =
            std::string_view(file_).substr(static_cast<std::size_t>(starts_.at(n)));
        return rest.substr(0, rest.find('\0'));
    }

    // Looks for a sync record behind `offset`. False when everything is to be indexed.
    bool near_end(long offset, int &start) {
        if (offset <= 0) return false;
        int state = -1;
        long n = 0;
        for (long i = offset; i < size(); i++) {
            const int c = at(i);
            if (state == 5) {
                start = static_cast<int>(std::max(n, 1L));
                return true;
            }
            if (state <= 0) {
                if (state == 0 && c == 130) {
                    counted_ = offset + n + 6;
                    state = 1;
                } else {
                    state = c == 0 ? 0 : -1;
                    n++;
                }
                continue;
            }
            if (state == 1) {
                if (version_ != 0 && c != 0) {
                    n += 2;
                    state = -1;
                    continue;
                }
                n = 0;
            }
            if (version_ != 0)
                n = n * 256 + c;
            else if (state <= 2)
                n = n * 128 + (c & 127);
            state++;
        }
        return false;
    }

    void enter(int n, long offset) {
        starts_.erase(starts_.upper_bound(n), starts_.end());
        starts_.erase(starts_.begin(), starts_.upper_bound(n - ring_));
        starts_[n] = offset;
    }

    void index(int start) {
        starts_.clear();
        enter(number_ = start, counted_);
        int incr = 0, prev = 0, skip = 0;
        for (long p = counted_; p < size();) {
            const int c = at(p++);
            if (skip > 0) {
                skip--;
                prev = 0;
                continue;
            }
            if (c == 0) {
                if (prev == 130 && incr == 0) skip = 3;
                number_ = std::max(number_ + incr, 1);
                enter(number_, p);
                incr = 0;
            } else if (prev == 0) {
                if (c == 130) incr = 0;
                if (c == 130 && version_ == 0) skip = 4;
                if (c == 129) incr = -1;
            } else {
                incr = 1;
            }
            prev = c;
        }
    }

    std::string file_;
    int reach_;
    int ring_ = 16;
    int version_;
    int number_ = 1;
    long counted_ = 2;
    std::map<int, long> starts_;
};
