#include "platform/http/chunked_decoder.h"

#include <algorithm>

bool Chunked_Decoder::next(std::string_view& input, std::string_view& data)
{
    data = {};
    while (!input.empty() && state_ != State::done && state_ != State::bad) {
        if (state_ == State::data) {
            const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(left_, input.size()));
            data = input.substr(0, n);
            input.remove_prefix(n);
            skip(n);
            return true;
        }
        const char c = input.front();
        input.remove_prefix(1);
        if (!take(c))
            return false;
    }
    return state_ != State::bad;
}

void Chunked_Decoder::skip(std::uint64_t n)
{
    left_ -= n;
    if (left_ == 0)
        state_ = State::data_end;
}

bool Chunked_Decoder::refuse(const char* why)
{
    state_ = State::bad;
    error_ = why;
    return false;
}

/// Takes one byte of what is not data.
bool Chunked_Decoder::take(char c)
{
    if (after_cr_) {
        if (c != '\n')
            return refuse("a line of a chunk does not end with CR LF");
        after_cr_ = false;
        const bool empty = line_ == 0;
        line_ = 0;
        switch (state_) {
        case State::size:
        case State::size_line:
            if (digits_ == 0)
                return refuse("a chunk has no size");
            digits_ = 0;
            state_ = left_ == 0 ? State::trailer : State::data;
            return true;
        case State::data_end:
            state_ = State::size;
            return true;
        default:
            if (empty)
                state_ = State::done;
            return true;
        }
    }
    if (c == '\r') {
        after_cr_ = true;
        return true;
    }
    if (c == '\n')
        return refuse("a line of a chunk ends without CR");

    switch (state_) {
    case State::size: {
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit >= 0) {
            if (++digits_ > 16)
                return refuse("the size of a chunk is too large");
            left_ = left_ * 16 + static_cast<std::uint64_t>(digit);
            return true;
        }
        if (digits_ == 0 || (c != ';' && c != ' ' && c != '\t'))
            return refuse("the size of a chunk is no number");
        state_ = State::size_line;
        line_ = 1;
        return true;
    }
    case State::size_line:
        if (++line_ > max_line)
            return refuse("the extensions of a chunk are too long");
        return true;
    case State::trailer:
        ++line_;
        if (++trailer_ > max_trailer)
            return refuse("the trailer is too long");
        return true;
    case State::data_end:
        return refuse("a chunk is longer than its size");
    default:
        return refuse("malformed chunks");
    }
}
