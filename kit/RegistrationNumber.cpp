#include "kit/RegistrationNumber.h"

std::string FormatRegistrationNumber(const std::string& text, std::int32_t counter) {
  return text + std::to_string(static_cast<std::uint32_t>(counter));
}
