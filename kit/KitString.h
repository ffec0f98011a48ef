// 8-bit text. The bytes are opaque: no character set is assumed, comparison is byte for byte.
#pragma once

#include <string>
#include <string_view>

// A thin value over std::string that takes a null pointer for the empty text.
class CKitString {
 public:
  CKitString() = default;
  CKitString(const char* text) : m_text(text != nullptr ? text : "") {}
  CKitString(std::string text) : m_text(std::move(text)) {}
  CKitString(std::string_view text) : m_text(text) {}

  const char* c_str() const { return m_text.c_str(); }
  const std::string& str() const { return m_text; }
  operator const std::string&() const { return m_text; }
  std::size_t size() const { return m_text.size(); }
  bool empty() const { return m_text.empty(); }

  CKitString& operator+=(const CKitString& other) {
    m_text += other.m_text;
    return *this;
  }
  friend CKitString operator+(CKitString a, const CKitString& b) { return a += b; }
  friend bool operator==(const CKitString& a, const CKitString& b) { return a.m_text == b.m_text; }
  friend bool operator<(const CKitString& a, const CKitString& b) { return a.m_text < b.m_text; }

 private:
  std::string m_text;
};

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string KitFormat(const char* format, ...);
