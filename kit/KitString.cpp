#include "kit/KitString.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace {

// Ends an argument list however the function is left.
class ArgumentsEnd {
 public:
  explicit ArgumentsEnd(std::va_list& list) : m_list(list) {}
  ~ArgumentsEnd() { va_end(m_list); }
  ArgumentsEnd(const ArgumentsEnd&) = delete;
  ArgumentsEnd& operator=(const ArgumentsEnd&) = delete;

 private:
  std::va_list& m_list;
};

}  // namespace

// Printed twice, first to learn the length; each pass uses a list of its own.
std::string KitFormat(const char* format, ...) {
  std::va_list counted, printed;
  va_start(counted, format);
  const ArgumentsEnd countedEnd(counted);
  va_copy(printed, counted);
  const ArgumentsEnd printedEnd(printed);

  const int length = std::vsnprintf(nullptr, 0, format, counted);
  if (length < 0) throw std::invalid_argument("a text cannot be formatted");
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, printed);
  return text;
}
