// Line reads over a text held in memory that give what std::fgets gives over the same bytes
// in a file, so that a reader can take either a file or a text through one parsing path.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

class TextReads {
 public:
  explicit TextReads(std::string_view text) : text_(text) {}

  // Copies at most size - 1 characters, up to and including the next line feed, into `buf`
  // and terminates them; false (nothing copied) at the end of the text.
  bool gets(char* buf, int size) {
    if (size < 1 || pos_ >= text_.size()) return false;
    const std::size_t room = static_cast<std::size_t>(size - 1);
    std::size_t n = std::min(room, text_.size() - pos_);
    const void* lf = std::memchr(text_.data() + pos_, '\n', n);
    if (lf) n = static_cast<std::size_t>(static_cast<const char*>(lf) - (text_.data() + pos_)) + 1;
    std::memcpy(buf, text_.data() + pos_, n);
    buf[n] = '\0';
    pos_ += n;
    return true;
  }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
};
