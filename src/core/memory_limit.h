#pragma once

#include <new>
#include <string>
#include <utility>

namespace talvorix {

// More memory was asked for than there is. Carries a text for the user.
class NotEnoughMemory : public std::bad_alloc {
 public:
  explicit NotEnoughMemory(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

// Throws NotEnoughMemory when the machine cannot give so many bytes for something. Systems promise
// more memory than they have, and end the process later, when it is written to.
void require_memory(const std::string& something, double bytes);

}  // namespace talvorix
